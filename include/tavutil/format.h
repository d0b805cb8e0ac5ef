/**
 * @file tavutil/format.h
 * @brief Formatted allocation: a text formatted into memory of exactly its
 * size, in two passes over the format.
 */
#ifndef TAVUTIL_FORMAT_H
#define TAVUTIL_FORMAT_H

#include <stdarg.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Formats a text into a fresh `malloc` block; see tav_util_vasprintf().
 * @param out        Receives the text, which the caller frees with `free`.
 * @param errno_slot Optional (may be null); as in tav_util_vasprintf().
 * @param format     printf format, followed by its arguments.
 * @return As tav_util_vasprintf(), whose status is passed up untraced.
 */
tav_status tav_util_asprintf(char **out, int32_t *errno_slot, const char *format, ...)
    TAV_PRINTF_LIKE(3, 4);

/**
 * @brief Formats a text into a fresh `malloc` block of exactly its size.
 *
 * Failures: null @p out or @p format gives TAV_ERR_NULL_ARG, traced, nothing
 * written. Otherwise @p out is first set to null; a failed size pass gives
 * TAV_ERR_SYSTEM, traced again; a failed `malloc` TAV_ERR_NOMEM, traced; a
 * failed fill pass stores `errno` in the slot and gives TAV_ERR_SYSTEM,
 * traced, leaving the unfinished block in @p out for the caller to free.
 * @param out        Receives the text, which the caller frees with `free`.
 * @param format     printf format.
 * @param args       Its arguments; the caller's list is not consumed.
 * @param errno_slot Optional; receives 0 on success, `errno` when the fill
 *                   pass fails, and is left alone otherwise.
 * @return TAV_OK, or the status above.
 */
tav_status tav_util_vasprintf(char **out, const char *format, va_list args, int32_t *errno_slot)
    TAV_PRINTF_LIKE(2, 0);

/**
 * @brief Measures the formatted text, terminator included.
 *
 * Failures: null @p format or @p size_out gives TAV_ERR_NULL_ARG, traced; a
 * negative result of `vsnprintf` gives TAV_ERR_SYSTEM, traced, and stays in
 * @p size_out.
 * @param format   printf format.
 * @param args     Its arguments; the caller's list is not consumed.
 * @param size_out Receives the size in bytes, terminator included.
 * @return TAV_OK, or the status above.
 */
tav_status tav_util_printf_vsize(const char *format, va_list args, int32_t *size_out)
    TAV_PRINTF_LIKE(1, 0);

#ifdef __cplusplus
}
#endif

#endif
