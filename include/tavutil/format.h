/* Formatted allocation: a text formatted into memory of exactly its size. */
#ifndef TAVUTIL_FORMAT_H
#define TAVUTIL_FORMAT_H

#include <stdarg.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* `*out` receives a malloc block the caller frees. `errno_slot` may be null. */
tav_status tav_util_asprintf(char **out, int32_t *errno_slot, const char *format, ...)
    TAV_PRINTF_LIKE(3, 4);

/* The caller's `args` is not consumed. */
tav_status tav_util_vasprintf(char **out, const char *format, va_list args, int32_t *errno_slot)
    TAV_PRINTF_LIKE(2, 0);

/* Stores the size of the formatted text, terminator included, in `*size_out`. */
tav_status tav_util_printf_vsize(const char *format, va_list args, int32_t *size_out)
    TAV_PRINTF_LIKE(1, 0);

#ifdef __cplusplus
}
#endif

#endif
