/* Files by descriptor and by name: whole-buffer transfers, whole-file reads,
 * line counts, durable named writes and operations on a path. */
#ifndef TAVUTIL_FILE_H
#define TAVUTIL_FILE_H

#include <stdint.h>
#include <stdio.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- by descriptor ---- */

/* Opens the path that `format` builds, handing `flags` and `mode` to open on
 * every call. A failed open leaves -1 in `*fd_out`. `errno_slot` may be null. */
tav_status tav_util_open(int32_t *fd_out, int32_t *errno_slot, int32_t flags, int32_t mode,
                         const char *format, ...) TAV_PRINTF_LIKE(5, 6);

/* Writes all `len` bytes. Returns 0, a status (null buf, negative len, failed
 * write), or -11 after five zero-byte writes in a row. */
int32_t tav_util_whole_write(int32_t fd, const void *buf, int64_t len, int32_t *errno_slot);

/* Reads exactly `len` bytes and returns that count (its low 32 bits); -22 for
 * a null buf or negative len, -11 after five zero-byte reads in a row, -1
 * when read fails (errno then stands as read left it). Silent. */
int32_t tav_util_whole_read(int32_t fd, void *buf, int64_t len);

/* Reads the rest of the descriptor's file, as large as fstat says, into a
 * malloc block of that size + 1 ending in a zero byte. */
tav_status tav_util_read_file(int32_t fd, uint8_t **data_out, uint64_t *size_out,
                              int32_t *errno_slot);

/* Counts the newline bytes of the whole file; the position is put back. */
tav_status tav_util_count_lines(int32_t fd, uint64_t *count_out, int32_t *errno_slot);

/* ---- by path ---- */

tav_status tav_util_get_file_size(const char *path, uint64_t *size_out);
tav_status tav_util_truncate_file(const char *path, int64_t length, int32_t *errno_slot);
tav_status tav_util_delete_file(const char *path, int32_t *errno_slot);
/* `*exists_out` is 1 for anything stat reaches, 0 for ENOENT. */
tav_status tav_util_query_file_exists(const char *path, int32_t *exists_out);

/* ---- by name, through streams ---- */

/* Opens a stream on the path that `format` builds. `errno_slot` may be null. */
tav_status tav_util_fopen(FILE **stream_out, int32_t *errno_slot, const char *mode,
                          const char *format, ...) TAV_PRINTF_LIKE(4, 5);

/* Reads the whole named file into a malloc block of its size + 1 ending in a
 * zero byte. `ignored` is neither read nor written and may be null. */
tav_status tav_util_read_named_file(const char *path, uint8_t **data_out, uint64_t *size_out,
                                    int32_t *ignored);

/* Writes `size` bytes to the named file ("wb" for a nonzero `truncate_flag`,
 * else "ab"), then flushes the file and its directory to stable storage.
 * `ignored` is neither read nor written and may be null. */
tav_status tav_util_write_named_file(const char *path, int32_t truncate_flag, const void *data,
                                     uint64_t size, int32_t *ignored);

/* Copies the content of `source` onto `destination` with a durable write. */
tav_status tav_util_copy_file(const char *source, const char *destination);

/* Prints each byte as two lower-case hex digits, no separator, no flush. */
tav_status tav_util_fprintf_bytes(FILE *stream, const uint8_t *bytes, uint64_t count);
tav_status tav_util_printf_bytes(const uint8_t *bytes, uint64_t count);

#ifdef __cplusplus
}
#endif

#endif
