/**
 * @file tavutil/strbuf.h
 * @brief The growing string buffer: formatted appends, hex dump and
 * search-and-replace.
 *
 * Nothing here returns a status or traces: failures show as a result of -1 or
 * null and as plain error lines (severity 3, module 128, no file or line).
 */
#ifndef TAVUTIL_STRBUF_H
#define TAVUTIL_STRBUF_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief A terminated text in a block that grows as it is appended to.
 *
 * The length is not stored: the text ends at its first zero byte. A
 * zero-filled record is valid and gets a 128-byte block on the first append.
 */
typedef struct tav_util_strbuf {
    char *text;        /**< Owned by the record; null only before the first append. */
    int32_t capacity;  /**< Bytes in the block, terminator included. */
    int32_t hex_limit; /**< Most bytes tav_util_strbuf_hexdump() shows; 0: no limit. */
} tav_util_strbuf;

/**
 * @brief Makes a record with an empty text in a zero-filled block and a hex
 * limit of 256.
 * @param capacity Size of the block in bytes; 0 means 128. A negative value
 *                 is taken as a huge size and fails.
 * @return The record, to release with tav_util_strbuf_free(); null when
 *         memory runs out (silent, nothing left allocated).
 */
tav_util_strbuf *tav_util_strbuf_new(int32_t capacity);

/**
 * @brief Frees the text and then the record.
 * @param record The record; null is ignored.
 */
void tav_util_strbuf_free(tav_util_strbuf *record);

/**
 * @brief Empties the text, keeping the block, its capacity and the hex limit.
 * @param record The record; neither it nor its text may be null.
 */
void tav_util_strbuf_clear(tav_util_strbuf *record);

/**
 * @brief Appends the formatted text, growing the block as needed (to the
 * needed size plus 128 bytes, or double when the size cannot be told).
 *
 * Failures, each ending in the plain error line "Error in strbuf": a null
 * record ("NULL strbuf"); the first block cannot be allocated ("Alloc failed
 * for strbuf"); growth fails or would pass 2 GiB ("Could not realloc strbuf
 * to %ld" with the new capacity), the old block then staying the record's.
 * @param record The record (a zero-filled one is accepted).
 * @param format printf format.
 * @param args   Its arguments; the caller's list is not consumed.
 * @return The characters appended, or -1.
 */
int32_t tav_util_strbuf_append_fv(tav_util_strbuf *record, const char *format, va_list args)
    TAV_PRINTF_LIKE(2, 0);

/**
 * @brief As tav_util_strbuf_append_fv(), with the arguments in the call.
 * @param record The record.
 * @param format printf format, followed by its arguments.
 * @return The characters appended, or -1 (with its error lines).
 */
int32_t tav_util_strbuf_append_f(tav_util_strbuf *record, const char *format, ...)
    TAV_PRINTF_LIKE(2, 3);

/**
 * @brief Sets how many bytes a hex dump shows at most.
 * @param record The record; null is ignored.
 * @param limit  Byte count; 0 means no limit.
 */
void tav_util_strbuf_set_hex_limit(tav_util_strbuf *record, int32_t limit);

/**
 * @brief Appends a hex dump: 16 bytes to a line as upper-case pairs (" - "
 * after the eighth), then " : " and the bytes as characters ("." where not
 * printable), each line indented by the prefix and ended by a line end.
 *
 * A null record, null bytes or a length of 0 append nothing; a dump stops at
 * the hex limit without a mark. A failed append has made its own lines and
 * the dump goes on.
 * @param record The record.
 * @param prefix Indent of each line; null means four blanks.
 * @param bytes  The bytes shown.
 * @param length Their count.
 */
void tav_util_strbuf_hexdump(tav_util_strbuf *record, const char *prefix, const void *bytes,
                             int64_t length);

/**
 * @brief Replaces matches of the plain text @p needle, left to right and
 * without overlap, by the formatted replacement, in a new block.
 *
 * A null record, needle or format changes nothing and returns 0. If the new
 * block cannot be had, the text stays as it was, the plain error lines "Alloc
 * failed for strbuf" and "Error in strbuf" are made and the result is 0. An
 * empty needle with no limit matches nothing.
 * @param record The record; its text must not be null.
 * @param needle Text sought.
 * @param limit  Most replacements: 0 means all, a negative value none.
 * @param format printf format of the replacement.
 * @param args   Its arguments, the same at every match; not consumed.
 * @return The change in the text's length (a failed replacement counts -1).
 */
int32_t tav_util_strbuf_substitute_v(tav_util_strbuf *record, const char *needle, int32_t limit,
                                     const char *format, va_list args) TAV_PRINTF_LIKE(4, 0);

/**
 * @brief As tav_util_strbuf_substitute_v(), with the arguments in the call.
 * @param record The record; its text must not be null.
 * @param needle Text sought.
 * @param limit  Most replacements: 0 means all, a negative value none.
 * @param format printf format of the replacement, followed by its arguments.
 * @return The change in the text's length.
 */
int32_t tav_util_strbuf_substitute(tav_util_strbuf *record, const char *needle, int32_t limit,
                                   const char *format, ...) TAV_PRINTF_LIKE(4, 5);

/**
 * @brief The record's text.
 * @param record The record; may be null.
 * @return The text, which stays the record's; null for a null record.
 */
char *tav_util_strbuf_getstr(const tav_util_strbuf *record);

#ifdef __cplusplus
}
#endif

#endif
