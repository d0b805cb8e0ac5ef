/**
 * @file tavutil/string_ops.h
 * @brief String operations and multibyte conversion.
 *
 * Every block handed to the caller comes from the malloc family and is the
 * caller's, to release with `free`.
 */
#ifndef TAVUTIL_STRING_OPS_H
#define TAVUTIL_STRING_OPS_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Replaces each @p from byte by @p to, in place.
 * @param text    Text changed; null is accepted.
 * @param maximum Most bytes walked; the walk also stops at a zero byte.
 * @param from    Byte replaced.
 * @param to      Its replacement.
 * @return Always TAV_OK; nothing is reported.
 */
tav_status tav_util_str_replace(char *text, uint64_t maximum, char from, char to);

/**
 * @brief Writes bytes as lower-case hex text, two digits per byte.
 *
 * Fails in one way: the plain error line "Allocation failed" and
 * TAV_ERR_NOMEM, traced, with null in @p out.
 * @param bytes  The bytes (not tested; may be null only with a length of 0).
 * @param length Their count.
 * @param out    Receives the terminated text (not tested, must not be null).
 * @return TAV_OK or TAV_ERR_NOMEM.
 */
tav_status tav_util_sprintf_bytes(const uint8_t *bytes, uint64_t length, char **out);

/**
 * @brief Reads hex text back into bytes, two characters per byte as `sscanf`
 * "%2x" reads them (either case; an odd last character is ignored).
 *
 * A pair that does not parse repeats the byte before it (0 for the first) and
 * is not reported. Fails in one way: the plain error line "Allocation failed"
 * and TAV_ERR_NOMEM, traced, with null in @p out.
 * @param hex    The text (not tested).
 * @param length Its length in characters; @p length / 2 bytes are made.
 * @param out    Receives the bytes, unterminated (not tested).
 * @return TAV_OK or TAV_ERR_NOMEM.
 */
tav_status tav_util_sscanf_bytes(const char *hex, uint64_t length, uint8_t **out);

/**
 * @brief Splits a text at each delimiter into non-empty tokens (runs of
 * delimiters count as one; leading and trailing ones yield nothing).
 *
 * Failures: a null argument gives the plain error line "NULL argument
 * detected: %p %p %p %p" and TAV_ERR_NULL_ARG, traced; a failed array
 * allocation "Memory allocation failed", a failed token allocation "Failed to
 * allocate memory" (tokens freed, @p out null), each TAV_ERR_NOMEM, traced.
 * @param text      Text split.
 * @param delimiter Delimiter text; an empty one splits nothing.
 * @param out       Receives the array of tokens, null when there are none;
 *                  free each token, then the array.
 * @param count_out Receives the number of tokens.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_split(const char *text, const char *delimiter, char ***out,
                          uint64_t *count_out);

/**
 * @brief Joins texts with a separator between them.
 *
 * Failures: a null pointer argument or a count of 0 gives TAV_ERR_NULL_ARG,
 * traced, nothing written; a size that would not fit in 64 bits
 * TAV_ERR_OVERFLOW, traced (@p size_out holds the sum so far); a failed
 * allocation TAV_ERR_NOMEM, traced, with null in @p out.
 * @param texts     The texts; none may be null.
 * @param count     Their number, at least 1.
 * @param separator Text put between two texts.
 * @param out       Receives the joined text.
 * @param size_out  Receives its size, terminator included.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_join(const char *const *texts, uint64_t count, const char *separator,
                         char **out, uint64_t *size_out);

/**
 * @brief Appends bytes (zero bytes included) to a counted text in a new
 * block, or starts the text when it is null.
 *
 * Failures, each traced: a null pointer gives TAV_ERR_NULL_ARG; an addition
 * length of 0, or a non-null text with a length of 0, TAV_ERR_BAD_ARG; a total
 * that would not fit TAV_ERR_OVERFLOW; a failed allocation TAV_ERR_NOMEM. The
 * text and length then stay as they were.
 * @param text            In and out: address of the `malloc` text.
 * @param length          In and out: address of its length.
 * @param addition        Bytes appended; may lie inside the text.
 * @param addition_length Their count.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_append_string(char **text, uint64_t *length, const char *addition,
                                  uint64_t addition_length);

/**
 * @brief Converts a multibyte text to wide characters under the current
 * locale.
 *
 * Failures, each traced: a null pointer gives TAV_ERR_NULL_ARG; an invalid
 * sequence TAV_ERR_BAD_ARG (@p length_out set to -1; a block already made
 * stays in @p out, the caller's); a failed allocation TAV_ERR_NOMEM (@p out
 * null); a conversion that stopped short TAV_ERR_TOO_SMALL.
 * @param text       Text converted.
 * @param unused     Accepted and not read.
 * @param out        Receives a `calloc` block of wide characters, terminated.
 * @param length_out Receives their count, terminator excluded.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_char_to_wchar(const char *text, uint64_t unused, wchar_t **out,
                                  uint64_t *length_out);

#ifdef __cplusplus
}
#endif

#endif
