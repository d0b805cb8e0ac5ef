/**
 * @file tavutil/directory.h
 * @brief Directories: creation, sorted scans and an existence query.
 *
 * A scan runs tav_util_dirscan_begin(), then tav_util_dirscan() until it
 * gives TAV_ERR_NO_MORE, with tav_dirscan_file_name() after each TAV_OK, and
 * ends with tav_util_dirscan_end().
 */
#ifndef TAVUTIL_DIRECTORY_H
#define TAVUTIL_DIRECTORY_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief A scan of one directory: a snapshot of its names, read and sorted
 * when the scan begins. Only the operations below look inside it.
 */
typedef struct tav_util_dirscan_handle tav_util_dirscan_handle;

/**
 * @brief Creates a directory with mode 0700 (less the file creation mask),
 * no parents.
 * @param path The directory.
 * @return TAV_OK; TAV_ERR_NULL_ARG for a null @p path, or TAV_ERR_SYSTEM
 *         when `mkdir` fails (an existing path too), each traced, no line.
 */
tav_status tav_util_mkdir(const char *path);

/**
 * @brief Creates a directory with mode 0500 (less the file creation mask),
 * no parents.
 * @param path The directory.
 * @return TAV_OK; TAV_ERR_NULL_ARG for a null @p path, traced; or, when
 *         `mkdir` fails, the reasoned error line "Failed to create directory
 *         %s" and TAV_ERR_SYSTEM, traced.
 */
tav_status tav_util_mkdir_read_only(const char *path);

/**
 * @brief Reads every name in a directory, hidden ones too, in ascending order
 * without regard to case.
 * @param path The directory.
 * @return The scan, to end with tav_util_dirscan_end(); null on failure,
 *         never traced: silent for a null @p path, the plain error line
 *         "Failed to allocate memory", or the reasoned error line "Failed to
 *         scan directory %s".
 */
tav_util_dirscan_handle *tav_util_dirscan_begin(const char *path);

/**
 * @brief Steps to the next name, passing over "." and "..".
 * @param scan The scan.
 * @return TAV_OK on a name; TAV_ERR_NO_MORE, traced, at the end (and at
 *         every further call); TAV_ERR_NULL_ARG, traced, for a null @p scan.
 */
tav_status tav_util_dirscan(tav_util_dirscan_handle *scan);

/**
 * @brief A copy of the current name; does not move the scan.
 * @param scan The scan.
 * @return A `malloc` copy that the caller frees and that outlives the scan;
 *         null, silent, when there is no scan or no current name; null with
 *         the plain error line "Failed to allocate memory" when memory runs
 *         out.
 */
char *tav_dirscan_file_name(const tav_util_dirscan_handle *scan);

/**
 * @brief Releases the scan and its names.
 * @param scan The scan; null is ignored.
 */
void tav_util_dirscan_end(tav_util_dirscan_handle *scan);

/**
 * @brief Tells whether a path opens as a directory. Never traces.
 * @param path       The path.
 * @param exists_out Receives 1 when it opens, else 0. When it fails to open
 *                   for another reason than ENOENT (a regular file, a denied
 *                   search) the reasoned error line "Error checking directory
 *                   %s existence" is made too.
 * @return TAV_OK; TAV_ERR_NULL_ARG, silent, for a null pointer.
 */
tav_status tav_util_query_dir_exists(const char *path, int32_t *exists_out);

#ifdef __cplusplus
}
#endif

#endif
