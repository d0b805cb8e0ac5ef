/* Durable sync: a file's data and the directory that names it, flushed to
 * stable storage one after the other. */
#ifndef TAVUTIL_SYNC_H
#define TAVUTIL_SYNC_H

#include <stdio.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Flushes the stream, fsyncs its file, then fsyncs `dir_path` unless it is
 * null. The stream stays open. */
tav_status tav_util_sync(FILE *stream, const char *dir_path);

/* Fsyncs the file at `path` (under 1000 characters), then the directory
 * component of `path`. */
tav_status tav_util_sync_file(const char *path);

#ifdef __cplusplus
}
#endif

#endif
