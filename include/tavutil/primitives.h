/* Memory and text primitives: thin, silent operations. */
#ifndef TAVUTIL_PRIMITIVES_H
#define TAVUTIL_PRIMITIVES_H

#include <stdint.h>
#include <stdio.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* `pointer_address` is the address of a pointer (e.g. `&text`): frees what it
 * points at and stores null there. A null address does nothing. */
void tav_util_free(void *pointer_address);

/* Copies `size` bytes into a fresh calloc block; null for a null source. */
void *tav_util_memdup(const void *source, uint64_t size);

/* As tav_util_memdup, followed by one zero byte. */
void *tav_util_memdup0(const void *source, uint64_t size);

/* Returns the characters written, or a negative number when the text and its
 * terminator did not fit (or `size` exceeds 0x7FFFFFFF). */
int32_t tav_util_snprintf(char *buffer, uint64_t size, const char *format, ...)
    TAV_PRINTF_LIKE(3, 4);

uint64_t tav_util_strnlen(const char *text, uint64_t maximum);
char *tav_util_strndup(const char *text, uint64_t maximum);
char *tav_util_strncpy(char *destination, const char *source, uint64_t count);
void *tav_util_memmem(const void *haystack, uint64_t haystack_length, const void *needle,
                      uint64_t needle_length);
int32_t tav_util_strcasecmp(const char *a, const char *b);
/* getline(line, capacity, stream), with the stream first. */
int64_t tav_util_getline(FILE *stream, char **line, uint64_t *capacity);

#ifdef __cplusplus
}
#endif

#endif
