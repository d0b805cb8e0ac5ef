/* Clocks and calendar: the present time as text, broken-down times,
 * wall-clock counts, a nanosecond timer and the processor's counter. */
#ifndef TAVUTIL_CLOCK_H
#define TAVUTIL_CLOCK_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The present local time as ctime_r writes it, without the newline, in
 * `buffer` of `*size` bytes (26 at least); `*size` becomes the text's length.
 * `errno_slot` may be null. */
tav_status tav_util_now_str(char *buffer, size_t *size, int32_t *errno_slot);

/* The present time, broken down in the local time zone. */
tav_status tav_util_get_broken_down_time(struct tm *out);

tav_status tav_util_gmtime(const time_t *when, struct tm *out);

/* asctime_r into `buffer` of `size` bytes (26 at least); the newline stays. */
tav_status tav_util_asctime(const struct tm *broken_down, char *buffer, size_t size);

/* localtime_r, under the library's name. */
struct tm *tav_util_localtime_r(const time_t *when, struct tm *out);

/* Milliseconds and microseconds since the Epoch, from gettimeofday. */
uint64_t tav_util_walltime_msec(void);
uint64_t tav_util_walltime_usec(void);

/* Nanoseconds since the Epoch on the real-time clock, 0 when it cannot be
 * read; two points give seconds with tav_util_timer_elapsed_seconds. */
uint64_t tav_util_timer_point(void);
double tav_util_timer_elapsed_seconds(uint64_t start, uint64_t end);

/* The processor's free-running counter, at the hardware's own rate. */
uint64_t tav_util_read_cycles(void);

/* sleep(seconds): the seconds left unslept. */
uint32_t tav_util_sleep(uint32_t seconds);

#ifdef __cplusplus
}
#endif

#endif
