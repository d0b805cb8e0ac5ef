/**
 * @file tavutil/file.h
 * @brief Files by descriptor and by name: whole-buffer transfers, whole-file
 * reads, line counts, durable named writes and operations on a path.
 *
 * None of these makes a log line. Where an operation has an errno slot (an
 * optional `int32_t *`, never written when null), a failed system call's
 * errno is stored there before the trace: after a traced failure `errno`
 * itself says nothing. A descriptor or stream passed in stays the caller's.
 */
#ifndef TAVUTIL_FILE_H
#define TAVUTIL_FILE_H

#include <stdint.h>
#include <stdio.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- by descriptor ---- */

/**
 * @brief Opens the path that @p format builds.
 *
 * Failures: a null @p fd_out or @p format gives TAV_ERR_NULL_ARG, traced; a
 * formatting failure is passed up untraced from tav_util_vasprintf() (with
 * @p fd_out unwritten); a failed `open` leaves -1 in @p fd_out, errno in the
 * slot and gives TAV_ERR_SYSTEM, traced.
 * @param fd_out     Receives the descriptor, which the caller closes.
 * @param errno_slot Optional; 0 after success.
 * @param flags      Handed to `open` on every call.
 * @param mode       Handed to `open` on every call, creating or not.
 * @param format     printf format of the path, followed by its arguments.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_open(int32_t *fd_out, int32_t *errno_slot, int32_t flags, int32_t mode,
                         const char *format, ...) TAV_PRINTF_LIKE(5, 6);

/**
 * @brief Writes all @p len bytes, tolerating up to four zero-byte writes in a
 * row.
 *
 * Failures: a null @p buf gives TAV_ERR_NULL_ARG, traced; a negative @p len
 * TAV_ERR_OVERFLOW, traced; a failed `write` (no retry, not even when
 * interrupted) stores errno in the slot and gives TAV_ERR_SYSTEM, traced;
 * five zero-byte writes in a row give -11, silent, with what was written
 * staying written.
 * @param fd         Descriptor written; its position moves.
 * @param buf        The bytes.
 * @param len        Their count.
 * @param errno_slot Optional; written only by a failed `write`.
 * @return 0, a status above, or -11.
 */
int32_t tav_util_whole_write(int32_t fd, const void *buf, int64_t len, int32_t *errno_slot);

/**
 * @brief Reads exactly @p len bytes; never returns a short count. Silent on
 * every path.
 * @param fd  Descriptor read; its position moves.
 * @param buf Receives the bytes.
 * @param len Number of bytes wanted.
 * @return The count read (its low 32 bits); -22 for a null @p buf or a
 *         negative @p len; -11 after five zero-byte reads in a row (end of
 *         file before @p len bytes); -1 when `read` fails, errno then
 *         standing as `read` left it.
 */
int32_t tav_util_whole_read(int32_t fd, void *buf, int64_t len);

/**
 * @brief Reads the rest of the descriptor's file, as large as `fstat` says,
 * from its current position (at most 2147483647 bytes).
 *
 * Failures: a null out-argument gives TAV_ERR_NULL_ARG, traced; a failed
 * `fstat` stores errno and gives TAV_ERR_SYSTEM, traced; a failed `malloc`
 * stores errno and gives TAV_ERR_NOMEM, traced (@p data_out null); a short
 * read gives TAV_ERR_SYSTEM, traced, with the slot left alone and
 * @p data_out null.
 * @param fd         Descriptor read.
 * @param data_out   Receives a `malloc` block of the size + 1 bytes, ending in
 *                   a zero byte; the caller frees it.
 * @param size_out   Receives the file's size (set also on a short read).
 * @param errno_slot Optional.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_read_file(int32_t fd, uint8_t **data_out, uint64_t *size_out,
                              int32_t *errno_slot);

/**
 * @brief Counts the newline bytes of the whole file, wherever the position
 * stood, and puts the position back. A file that shrank meanwhile gives the
 * count of what it still holds.
 *
 * Failures: a null @p count_out gives TAV_ERR_NULL_ARG, then a negative @p fd
 * TAV_ERR_BAD_ARG, each traced; a failed `lseek`, `fstat` or `read` stores
 * errno and gives TAV_ERR_SYSTEM, traced (a pipe fails at once).
 * @param fd         Descriptor of a seekable file.
 * @param count_out  Receives the count (after a failed `read`, the count so
 *                   far).
 * @param errno_slot Optional.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_count_lines(int32_t fd, uint64_t *count_out, int32_t *errno_slot);

/* ---- by path ---- */

/**
 * @brief Takes the size of a file by opening it read-only (so read
 * permission is needed).
 *
 * Failures, each traced, with no way to learn the reason: a null pointer
 * gives TAV_ERR_NULL_ARG; a failed `open` or `fstat` TAV_ERR_SYSTEM.
 * @param path     The file.
 * @param size_out Receives its size; written on success only.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_get_file_size(const char *path, uint64_t *size_out);
/**
 * @brief Truncates or extends a file to @p length bytes.
 *
 * Failures: a null @p path gives TAV_ERR_NULL_ARG, traced; a failed
 * `truncate` (a negative length too) stores errno and gives TAV_ERR_SYSTEM,
 * traced.
 * @param path       The file.
 * @param length     The new size.
 * @param errno_slot Optional.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_truncate_file(const char *path, int64_t length, int32_t *errno_slot);
/**
 * @brief Removes a name with `unlink` (a directory is refused).
 *
 * Failures: a null @p path gives TAV_ERR_NULL_ARG, traced; a failed `unlink`
 * stores errno and gives TAV_ERR_SYSTEM, traced.
 * @param path       The name removed.
 * @param errno_slot Optional.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_delete_file(const char *path, int32_t *errno_slot);
/**
 * @brief Tells whether `stat` reaches a path.
 *
 * Failures: a null pointer gives TAV_ERR_NULL_ARG, traced; any `stat`
 * failure but ENOENT (a denied search, a non-directory in the path)
 * TAV_ERR_SYSTEM, traced, with @p exists_out unwritten.
 * @param path       The path.
 * @param exists_out Receives 1 for anything `stat` reaches, a directory too;
 *                   0 for ENOENT (a dangling link too).
 * @return TAV_OK or a status above.
 */
tav_status tav_util_query_file_exists(const char *path, int32_t *exists_out);

/* ---- by name, through streams ---- */

/**
 * @brief Opens a stream on the path that @p format builds.
 *
 * Failures: a null pointer (but the slot) gives TAV_ERR_NULL_ARG, traced; a
 * formatting failure is traced again; a failed `fopen` stores errno and gives
 * TAV_ERR_SYSTEM, traced. @p stream_out is written on success only.
 * @param stream_out Receives the stream, which the caller closes.
 * @param errno_slot Optional; 0 after success.
 * @param mode       As `fopen` takes it.
 * @param format     printf format of the path, followed by its arguments.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_fopen(FILE **stream_out, int32_t *errno_slot, const char *mode,
                          const char *format, ...) TAV_PRINTF_LIKE(4, 5);

/**
 * @brief Reads the whole named file, as large as it was when measured.
 *
 * Failures: a null pointer gives TAV_ERR_NULL_ARG, traced; a failure of
 * tav_util_get_file_size() is traced again; a failed `fopen` or a stream
 * error (or a file that shrank meanwhile) TAV_ERR_SYSTEM, a failed `malloc`
 * TAV_ERR_NOMEM, each traced, with @p data_out null where it was set.
 * @param path     The file.
 * @param data_out Receives a `malloc` block of the size + 1 bytes, ending in a
 *                 zero byte; the caller frees it.
 * @param size_out Receives the size, terminator not counted.
 * @param ignored  Neither read nor written; may be null.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_read_named_file(const char *path, uint8_t **data_out, uint64_t *size_out,
                                    int32_t *ignored);

/**
 * @brief Writes @p size bytes to the named file, then flushes the stream,
 * the file and its directory component to stable storage, in that order.
 *
 * Durable, not atomic: the file is written in place. Failures: a null
 * @p path or @p data gives TAV_ERR_NULL_ARG, traced; a failure of
 * tav_util_get_directory_component() or tav_util_sync() is traced again; a
 * failed `fopen` or stream error TAV_ERR_SYSTEM, traced. Nothing is undone.
 * @param path          The file; without a slash, its directory is not
 *                      flushed.
 * @param truncate_flag Nonzero: "wb" (replace); 0: "ab" (append).
 * @param data          The bytes (not null, even for a size of 0).
 * @param size          Their count.
 * @param ignored       Neither read nor written; may be null.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_write_named_file(const char *path, int32_t truncate_flag, const void *data,
                                     uint64_t size, int32_t *ignored);

/**
 * @brief Copies the content of one file onto another with a durable write
 * (the whole file passes through memory; mode, owner and times are not
 * copied).
 *
 * A null argument gives TAV_ERR_NULL_ARG, traced; a failure of the named read
 * or write is passed up untraced.
 * @param source      The file read.
 * @param destination The file replaced in place.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_copy_file(const char *source, const char *destination);

/**
 * @brief Prints each byte as two lower-case hex digits, with no separator,
 * no line end and no flush; a failing stream does not show in the status.
 * @param stream The stream.
 * @param bytes  The bytes.
 * @param count  Their count.
 * @return TAV_OK, or TAV_ERR_NULL_ARG (traced) for a null pointer.
 */
tav_status tav_util_fprintf_bytes(FILE *stream, const uint8_t *bytes, uint64_t count);
/**
 * @brief As tav_util_fprintf_bytes() on standard output.
 * @param bytes The bytes.
 * @param count Their count.
 * @return TAV_OK, or TAV_ERR_NULL_ARG (traced under this name) for null
 *         @p bytes.
 */
tav_status tav_util_printf_bytes(const uint8_t *bytes, uint64_t count);

#ifdef __cplusplus
}
#endif

#endif
