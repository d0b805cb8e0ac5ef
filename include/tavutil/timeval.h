/**
 * @file tavutil/timeval.h
 * @brief Time values: arithmetic on struct timeval, and seconds as a human
 * text.
 *
 * No operation here normalises a value: a tv_usec out of 0..999999 is used as
 * it stands. None makes a log line.
 */
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

/**
 * @brief Sets a time value to the present time (`gettimeofday`) plus some
 * seconds.
 *
 * Failures: a null @p tv gives TAV_ERR_NULL_ARG, a negative @p seconds
 * TAV_ERR_BAD_ARG, a failed clock reading TAV_ERR_SYSTEM, each traced; an
 * overflow of tav_util_safe_add_seconds() is passed up untraced, @p tv then
 * holding the present time.
 * @param seconds Seconds ahead, 0 or more.
 * @param tv      Receives the time value.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_future_time(int32_t seconds, struct timeval *tv);

/**
 * @brief Adds seconds to tv_sec, unless the sum would pass the largest
 * tv_sec; tv_usec is never touched.
 * @param tv      In and out: the time value (valid pointer).
 * @param seconds Seconds to add.
 * @return TAV_OK; TAV_ERR_OVERFLOW, traced, with @p tv unchanged, when the
 *         sum would not fit (a negative @p seconds with a non-negative tv_sec
 *         too).
 */
tav_status tav_util_safe_add_seconds(struct timeval *tv, time_t seconds);

/**
 * @brief Orders two time values, seconds first, then microseconds.
 * @param first  First value (valid pointer).
 * @param second Second value (valid pointer).
 * @return 1, -1 or 0 as @p first is later than, earlier than or equal to
 *         @p second.
 */
int32_t tav_util_timeval_cmp(const struct timeval *first, const struct timeval *second);

/**
 * @brief Tells whether one time value is later than another.
 * @param first  First value (valid pointer).
 * @param second Second value (valid pointer).
 * @return 1 when @p first is later than @p second, else 0.
 */
int32_t tav_util_time_greater_than(const struct timeval *first, const struct timeval *second);

/**
 * @brief The difference of two time values in seconds, each value turned
 * into a double on its own first.
 * @param first  First value (valid pointer).
 * @param second Second value (valid pointer).
 * @return @p first minus @p second, in seconds.
 */
double tav_util_time_diff_seconds(const struct timeval *first, const struct timeval *second);

/**
 * @brief Writes seconds as a short text for people: "N second(s)", "N
 * minute(s)", "N hour(s)" or "N day(s)", N rounded to a whole number.
 * @param buffer Receives the text (not tested).
 * @param size   Its size in bytes; a text cut short is not reported.
 * @param seconds The amount of time.
 * @return Always TAV_OK.
 */
tav_status tav_util_snprintf_human_time(char *buffer, size_t size, double seconds);

/**
 * @brief Turns milliseconds into a time value.
 * @param ms Milliseconds.
 * @param tv Receives the value.
 * @return TAV_OK; TAV_ERR_NULL_ARG, silent (no trace), for a null @p tv;
 *         TAV_ERR_OVERFLOW, traced, when a field cannot hold its value.
 */
tav_status tav_util_ms_to_timeval(uint64_t ms, struct timeval *tv);

/**
 * @brief Turns a time value into milliseconds, the microseconds truncated;
 * wraps modulo 2^64 rather than failing.
 * @param tv The value.
 * @param ms Receives the milliseconds.
 * @return TAV_OK; TAV_ERR_NULL_ARG, traced, for a null pointer.
 */
tav_status tav_util_timeval_to_ms(const struct timeval *tv, uint64_t *ms);

#ifdef __cplusplus
}
#endif

#endif
