/**
 * @file tavutil/primitives.h
 * @brief Memory and text primitives: thin, silent operations.
 *
 * None of these returns a status, traces or logs: every failure shows only in
 * the result. Most hand straight through to the libc function of the same
 * name, whose preconditions hold for their arguments.
 */
#ifndef TAVUTIL_PRIMITIVES_H
#define TAVUTIL_PRIMITIVES_H

#include <stdint.h>
#include <stdio.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Frees what a pointer points at and stores null in the pointer, so a
 * second call is harmless.
 * @param pointer_address Address of a pointer (e.g. `&text`); null does
 *                        nothing.
 */
void tav_util_free(void *pointer_address);

/**
 * @brief Copies @p size bytes into a fresh block from `calloc(1, size)`.
 * @param source Bytes to copy; null yields null without allocating.
 * @param size   Number of bytes.
 * @return The copy, which the caller frees with `free`; null for a null
 *         source or a failed allocation (silent).
 */
void *tav_util_memdup(const void *source, uint64_t size);

/**
 * @brief As tav_util_memdup(), with one zero byte after the copy (the block
 * has @p size + 1 bytes).
 * @param source Bytes to copy; null yields null without allocating.
 * @param size   Number of bytes; must be below the largest 64-bit value.
 * @return The terminated copy (free with `free`), or null (silent).
 */
void *tav_util_memdup0(const void *source, uint64_t size);

/**
 * @brief Formats into @p buffer with a limit, and reports truncation as
 * failure: a success means the whole text and its terminator are there.
 * @param buffer Destination.
 * @param size   Its size in bytes; above 0x7FFFFFFF fails at once with the
 *               buffer untouched.
 * @param format printf format, followed by its arguments.
 * @return The characters written, or a negative number when the text did not
 *         fit (the buffer then holds it cut to @p size - 1 characters and
 *         terminated, if @p size is not 0) or formatting failed. Silent.
 */
int32_t tav_util_snprintf(char *buffer, uint64_t size, const char *format, ...)
    TAV_PRINTF_LIKE(3, 4);

/**
 * @brief `strnlen`.
 * @param text    Text to measure.
 * @param maximum Largest count examined.
 * @return The length, at most @p maximum.
 */
uint64_t tav_util_strnlen(const char *text, uint64_t maximum);
/**
 * @brief `strndup`.
 * @param text    Text to copy.
 * @param maximum Largest number of characters copied.
 * @return A new terminated text (free with `free`), or null (silent).
 */
char *tav_util_strndup(const char *text, uint64_t maximum);
/**
 * @brief `strncpy`.
 * @param destination Destination buffer.
 * @param source      Text to copy.
 * @param count       Bytes written to @p destination.
 * @return @p destination.
 */
char *tav_util_strncpy(char *destination, const char *source, uint64_t count);
/**
 * @brief `memmem`: finds the first occurrence of a byte run in another.
 * @param haystack        Bytes searched.
 * @param haystack_length Their count.
 * @param needle          Bytes sought.
 * @param needle_length   Their count.
 * @return The first match in @p haystack, or null.
 */
void *tav_util_memmem(const void *haystack, uint64_t haystack_length, const void *needle,
                      uint64_t needle_length);
/**
 * @brief `strcasecmp`.
 * @param a First text.
 * @param b Second text.
 * @return Negative, 0 or positive as @p a sorts before, equal to or after
 *         @p b, ignoring case.
 */
int32_t tav_util_strcasecmp(const char *a, const char *b);
/**
 * @brief `getline(line, capacity, stream)`, with the stream first.
 * @param stream   Stream read.
 * @param line     Address of the line pointer (may point at null).
 * @param capacity Address of its capacity.
 * @return The line's length, or -1 at end of file or on failure (silent).
 */
int64_t tav_util_getline(FILE *stream, char **line, uint64_t *capacity);

#ifdef __cplusplus
}
#endif

#endif
