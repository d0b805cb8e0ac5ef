/**
 * @file tavutil/sync.h
 * @brief Durable sync: a file's data and the directory that names it, flushed
 * to stable storage one after the other.
 *
 * Neither operation retries a step, an interrupted call included.
 */
#ifndef TAVUTIL_SYNC_H
#define TAVUTIL_SYNC_H

#include <stdio.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Flushes the stream, fsyncs its file, then fsyncs the directory
 * @p dir_path unless it is null. The stream stays open.
 *
 * Failures: a null @p stream gives TAV_ERR_NULL_ARG, traced; a failed
 * `fflush`, `fileno`, `fsync`, or `open` of the directory TAV_ERR_SYSTEM,
 * traced, with no line. A failure at the directory comes after the file's
 * data were flushed.
 * @param stream   The caller's stream.
 * @param dir_path The directory to flush; null flushes the file only.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_sync(FILE *stream, const char *dir_path);

/**
 * @brief Fsyncs the file at @p path (opened read-write, so it must exist and
 * be writable), then the directory component of @p path.
 *
 * Failures: a null @p path gives TAV_ERR_NULL_ARG, a path of 1000 characters
 * or more TAV_ERR_BAD_ARG, each traced, with no line; a failure of
 * tav_util_get_directory_component() is traced again, then the plain error
 * line "Failed to get directory component"; a failed open or fsync gives a
 * reasoned error line ("Failed to open file %s", "Failed to open directory
 * %s", "Failed to sync file %s", "Failed to sync directory file %s"), then
 * TAV_ERR_SYSTEM, traced.
 * @param path The file, under 1000 characters.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_sync_file(const char *path);

#ifdef __cplusplus
}
#endif

#endif
