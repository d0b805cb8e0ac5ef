/* Directories: creation, sorted scans and an existence query. */
#ifndef TAVUTIL_DIRECTORY_H
#define TAVUTIL_DIRECTORY_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A scan of one directory: a snapshot of its names, read and sorted when the
 * scan begins. Only the operations below look inside it. */
typedef struct tav_util_dirscan_handle tav_util_dirscan_handle;

/* Creates `path` with mode 0700 (less the file creation mask), no parents. */
tav_status tav_util_mkdir(const char *path);

/* Creates `path` with mode 0500 (less the file creation mask), no parents;
 * a failure is also logged. */
tav_status tav_util_mkdir_read_only(const char *path);

/* Reads every name in `path`, hidden ones too, in ascending order without
 * regard to case. Null on failure. End the scan with tav_util_dirscan_end. */
tav_util_dirscan_handle *tav_util_dirscan_begin(const char *path);

/* Steps to the next name, passing over "." and "..". TAV_ERR_NO_MORE (traced)
 * ends the scan, and every further call gives it again. */
tav_status tav_util_dirscan(tav_util_dirscan_handle *scan);

/* A malloc copy of the current name, which the caller frees; it outlives the
 * scan. Null when there is no scan or no current name, or memory runs out. */
char *tav_dirscan_file_name(const tav_util_dirscan_handle *scan);

/* Releases the scan and its names; null is ignored. */
void tav_util_dirscan_end(tav_util_dirscan_handle *scan);

/* Stores 1 in `*exists_out` when `path` opens as a directory, else 0; both
 * are TAV_OK. Failures other than a missing path are logged. */
tav_status tav_util_query_dir_exists(const char *path, int32_t *exists_out);

#ifdef __cplusplus
}
#endif

#endif
