/* Time values: arithmetic on struct timeval, and seconds as a human text. */
#ifndef TAVUTIL_TIMEVAL_H
#define TAVUTIL_TIMEVAL_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Declared here too, so that the header stands in a strict C build. */
struct timeval;

/* No operation here normalises a value: a tv_usec out of 0..999999 is used
 * as it stands. */

/* Sets `*tv` to the present time plus `seconds` (0 or more). */
tav_status tav_util_future_time(int32_t seconds, struct timeval *tv);

/* Adds `seconds` to tv_sec, unless the sum would pass the largest tv_sec. */
tav_status tav_util_safe_add_seconds(struct timeval *tv, time_t seconds);

/* 1, -1 or 0 as `*first` is later than, earlier than or equal to `*second`. */
int32_t tav_util_timeval_cmp(const struct timeval *first, const struct timeval *second);

/* 1 when `*first` is later than `*second`, else 0. */
int32_t tav_util_time_greater_than(const struct timeval *first, const struct timeval *second);

/* `*first` minus `*second`, in seconds. */
double tav_util_time_diff_seconds(const struct timeval *first, const struct timeval *second);

/* Writes `seconds` as "N second(s)", "N minute(s)", "N hour(s)" or "N day(s)"
 * into `buffer` of `size` bytes; a text cut short is not reported. */
tav_status tav_util_snprintf_human_time(char *buffer, size_t size, double seconds);

tav_status tav_util_ms_to_timeval(uint64_t ms, struct timeval *tv);

/* Wraps modulo 2^64 rather than failing. */
tav_status tav_util_timeval_to_ms(const struct timeval *tv, uint64_t *ms);

#ifdef __cplusplus
}
#endif

#endif
