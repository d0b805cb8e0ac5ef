/* String operations and multibyte conversion. */
#ifndef TAVUTIL_STRING_OPS_H
#define TAVUTIL_STRING_OPS_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Replaces each `from` byte by `to` in the first `maximum` bytes of `text`,
 * stopping early at a zero byte. A null text is accepted. Always TAV_OK. */
tav_status tav_util_str_replace(char *text, uint64_t maximum, char from, char to);

/* `*out` receives a malloc block holding the `length` bytes as lower-case
 * hex text, two digits per byte, terminated. */
tav_status tav_util_sprintf_bytes(const uint8_t *bytes, uint64_t length, char **out);

/* `*out` receives a malloc block of `length` / 2 bytes read from the hex
 * text, two characters per byte, with no terminator. */
tav_status tav_util_sscanf_bytes(const char *hex, uint64_t length, uint8_t **out);

/* Splits `text` at each `delimiter` into non-empty tokens. `*out` receives a
 * malloc array of `*count_out` malloc texts (null when there are none); free
 * each token, then the array. An empty delimiter splits nothing. */
tav_status tav_util_split(const char *text, const char *delimiter, char ***out,
                          uint64_t *count_out);

/* Joins `count` (at least 1) texts with `separator` between them. `*out`
 * receives a malloc text and `*size_out` its size, terminator included. */
tav_status tav_util_join(const char *const *texts, uint64_t count, const char *separator,
                         char **out, uint64_t *size_out);

/* Appends `addition_length` bytes (zero bytes included) to the malloc text
 * `*text` of `*length` bytes, or starts it when `*text` is null. */
tav_status tav_util_append_string(char **text, uint64_t *length, const char *addition,
                                  uint64_t addition_length);

/* Converts `text` under the current locale. `*out` receives a calloc block
 * of wide characters, terminated; `*length_out` the count without the
 * terminator. `unused` is not read. */
tav_status tav_util_char_to_wchar(const char *text, uint64_t unused, wchar_t **out,
                                  uint64_t *length_out);

#ifdef __cplusplus
}
#endif

#endif
