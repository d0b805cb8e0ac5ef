/* Absolute timeouts: points on the real-time clock held in a struct timespec. */
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

/* A relative amount is `val` units of which `scale_to_sec` make one second
 * (1 to 1000000000: 1 for seconds, 1000 for milliseconds, ...). */

/* Adds the amount to `*timeout`. */
tav_status tav_util_abs_time_offset(struct timespec *timeout, int64_t val, int64_t scale_to_sec);

/* Sets `*timeout` to the present real time plus the amount. */
tav_status tav_util_future_timeout(struct timespec *timeout, int64_t val, int64_t scale_to_sec);

/* Stores -1, 0 or 1 in `*order` as `*first` is earlier than, equal to or
 * later than `*second`, field by field. */
tav_status tav_util_cmp_timeout(const struct timespec *first, const struct timespec *second,
                                int32_t *order);

/* Prints the seconds left until `*timeout` as "%le seconds" into `buffer` of
 * `size` bytes (cut short silently); negative once it has passed. */
tav_status tav_util_query_timeout_left(const struct timespec *timeout, char *buffer, uint64_t size);

#ifdef __cplusplus
}
#endif

#endif
