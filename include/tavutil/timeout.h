/**
 * @file tavutil/timeout.h
 * @brief Absolute timeouts: points on the real-time clock (`CLOCK_REALTIME`,
 * so a step of the system clock moves them too) held in a struct timespec.
 *
 * A relative amount is @p val units of which @p scale_to_sec make one second
 * (1 to 1000000000: 1 for seconds, 1000 for milliseconds, ...). No operation
 * here has an errno slot.
 */
#ifndef TAVUTIL_TIMEOUT_H
#define TAVUTIL_TIMEOUT_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Declared here too, so that the header stands in a strict C build, where
 * <time.h> leaves the POSIX record out. */
struct timespec;

/**
 * @brief Adds a relative amount to a timeout, carrying at most one second
 * into tv_sec.
 *
 * Failures: a negative @p val or a scale outside 1 to 1000000000 gives the
 * plain error line "Bad value, val: %ld scale_to_sec: %ld\n" and
 * TAV_ERR_BAD_ARG, traced, @p timeout untouched; a tv_sec or tv_nsec that
 * would pass its largest value TAV_ERR_OVERFLOW, traced, with no line.
 * @param timeout      In and out: the timeout (valid pointer).
 * @param val          Units to add, 0 or more.
 * @param scale_to_sec Units per second.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_abs_time_offset(struct timespec *timeout, int64_t val, int64_t scale_to_sec);

/**
 * @brief Sets a timeout to the present real time plus a relative amount.
 *
 * Failures: a failed clock reading gives the plain error line "Failed to get
 * current time." and TAV_ERR_SYSTEM, traced; a failure of
 * tav_util_abs_time_offset() is traced again, then the plain error line
 * "Overflow detected when trying to set phase timeout tmp hack" follows.
 * @param timeout      Receives the timeout (valid pointer).
 * @param val          Units ahead, 0 or more.
 * @param scale_to_sec Units per second.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_future_timeout(struct timespec *timeout, int64_t val, int64_t scale_to_sec);

/**
 * @brief Orders two timeouts, field by field, without normalising them.
 * @param first  First timeout.
 * @param second Second timeout.
 * @param order  Receives -1, 0 or 1 as @p first is earlier than, equal to
 *               or later than @p second.
 * @return TAV_OK; TAV_ERR_NULL_ARG for a null pointer, after the plain error
 *         line "NULL argument detected: %p %p %p", traced.
 */
tav_status tav_util_cmp_timeout(const struct timespec *first, const struct timespec *second,
                                int32_t *order);

/**
 * @brief Prints the seconds left until a timeout as "%le seconds" (negative
 * once it has passed), cut short silently to the buffer.
 * @param timeout The timeout (valid pointer).
 * @param buffer  Receives the text; may be null only with a @p size of 0.
 * @param size    Its size in bytes.
 * @return TAV_OK; TAV_ERR_SYSTEM when the clock cannot be read, after the
 *         plain error line "Failed to get current time.", traced.
 */
tav_status tav_util_query_timeout_left(const struct timespec *timeout, char *buffer, uint64_t size);

#ifdef __cplusplus
}
#endif

#endif
