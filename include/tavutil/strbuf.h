/* The growing string buffer. */
#ifndef TAVUTIL_STRBUF_H
#define TAVUTIL_STRBUF_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A terminated text in a block that grows as it is appended to. The length is
 * not stored: the text ends at its first zero byte. A zero-filled record is
 * valid and gets its block on the first append. */
typedef struct tav_util_strbuf {
    char *text;        /* owned by the record; null only before the first append */
    int32_t capacity;  /* bytes in the block, terminator included */
    int32_t hex_limit; /* most bytes tav_util_strbuf_hexdump shows; 0: no limit */
} tav_util_strbuf;

/* A record with an empty text in a zero-filled block of `capacity` bytes
 * (0: 128) and a hex limit of 256; null when memory runs out. Release it with
 * tav_util_strbuf_free. */
tav_util_strbuf *tav_util_strbuf_new(int32_t capacity);

/* Frees the text and the record; a null record is ignored. */
void tav_util_strbuf_free(tav_util_strbuf *record);

/* Empties the text, keeping the block and its capacity. */
void tav_util_strbuf_clear(tav_util_strbuf *record);

/* Appends the formatted text, growing the block as needed. Returns the
 * characters appended, or -1 (with error lines logged). The caller's `args`
 * is not consumed. */
int32_t tav_util_strbuf_append_fv(tav_util_strbuf *record, const char *format, va_list args)
    TAV_PRINTF_LIKE(2, 0);

int32_t tav_util_strbuf_append_f(tav_util_strbuf *record, const char *format, ...)
    TAV_PRINTF_LIKE(2, 3);

/* Sets how many bytes a hex dump shows at most (0: no limit). */
void tav_util_strbuf_set_hex_limit(tav_util_strbuf *record, int32_t limit);

/* Appends a hex dump of `length` bytes, 16 to a line, each line indented by
 * `prefix` (null: four blanks) and ending in the printable characters. */
void tav_util_strbuf_hexdump(tav_util_strbuf *record, const char *prefix, const void *bytes,
                             int64_t length);

/* Replaces matches of the plain text `needle`, left to right and without
 * overlap, by the formatted replacement; `limit` caps the replacements (0: all,
 * negative: none). Returns the change in the text's length. */
int32_t tav_util_strbuf_substitute_v(tav_util_strbuf *record, const char *needle, int32_t limit,
                                     const char *format, va_list args) TAV_PRINTF_LIKE(4, 0);

int32_t tav_util_strbuf_substitute(tav_util_strbuf *record, const char *needle, int32_t limit,
                                   const char *format, ...) TAV_PRINTF_LIKE(4, 5);

/* The record's text, which stays the record's; null for a null record. */
char *tav_util_strbuf_getstr(const tav_util_strbuf *record);

#ifdef __cplusplus
}
#endif

#endif
