/**
 * @file tavutil/clock.h
 * @brief Clocks and calendar: the present time as text, broken-down times,
 * wall-clock counts, a nanosecond timer and the processor's counter.
 */
#ifndef TAVUTIL_CLOCK_H
#define TAVUTIL_CLOCK_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief The present local time as `ctime_r` writes it, without the
 * newline (e.g. "Thu Jan  1 00:00:00 1970").
 *
 * Failures, each traced, not logged: a null @p buffer or @p size gives
 * TAV_ERR_NULL_ARG; a capacity below 26 TAV_ERR_BAD_ARG; a failed `time`
 * stores errno in the slot and gives TAV_ERR_SYSTEM. @p buffer and @p size are
 * untouched on failure.
 * @param buffer     Receives the text.
 * @param size       In: the buffer's capacity, 26 at least; out: the text's
 *                   length (24), so set it anew before another call.
 * @param errno_slot Optional; not written on success.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_now_str(char *buffer, size_t *size, int32_t *errno_slot);

/**
 * @brief The present time, broken down in the local time zone.
 * @param out Receives the broken-down time (valid pointer).
 * @return TAV_OK; TAV_ERR_SYSTEM after the plain error line "Failed to read
 *         time" (`time` failed) or "Failed to unpick time" (`localtime_r`
 *         failed), traced.
 */
tav_status tav_util_get_broken_down_time(struct tm *out);

/**
 * @brief `gmtime_r` with a status.
 * @param when The time (valid pointer).
 * @param out  Receives the broken-down UTC time (valid pointer).
 * @return TAV_OK; TAV_ERR_SYSTEM, traced, not logged, when `gmtime_r` fails.
 */
tav_status tav_util_gmtime(const time_t *when, struct tm *out);

/**
 * @brief `asctime_r` into a buffer; the newline stays at the end.
 * @param broken_down The broken-down time.
 * @param buffer      Receives the text.
 * @param size        Its size in bytes, 26 at least.
 * @return TAV_OK; each traced, not logged: TAV_ERR_NULL_ARG for a null
 *         pointer, TAV_ERR_TOO_SMALL for a @p size below 26, TAV_ERR_SYSTEM
 *         when `asctime_r` fails.
 */
tav_status tav_util_asctime(const struct tm *broken_down, char *buffer, size_t size);

/**
 * @brief `localtime_r`, under the library's name: no test, no report.
 * @param when The time.
 * @param out  Receives the broken-down local time.
 * @return What `localtime_r` returns.
 */
struct tm *tav_util_localtime_r(const time_t *when, struct tm *out);

/**
 * @brief Milliseconds since the Epoch, from `gettimeofday` (its failure is
 * not examined).
 * @return The count.
 */
uint64_t tav_util_walltime_msec(void);
/**
 * @brief Microseconds since the Epoch, from `gettimeofday` (its failure is
 * not examined).
 * @return The count.
 */
uint64_t tav_util_walltime_usec(void);

/**
 * @brief A timer point: nanoseconds since the Epoch on the real-time clock
 * (not a monotonic one).
 * @return The count; 0, silent, when the clock cannot be read.
 */
uint64_t tav_util_timer_point(void);
/**
 * @brief Seconds between two timer points; the subtraction is unsigned, so
 * an @p end before @p start gives a huge number.
 * @param start Earlier point from tav_util_timer_point().
 * @param end   Later point.
 * @return The seconds from @p start to @p end.
 */
double tav_util_timer_elapsed_seconds(uint64_t start, uint64_t end);

/**
 * @brief The processor's free-running counter, at the hardware's own rate,
 * read once without a barrier (the virtual counter on AArch64, the time-stamp
 * counter on x86-64, the raw monotonic clock's nanoseconds elsewhere).
 * @return The counter's value.
 */
uint64_t tav_util_read_cycles(void);

/**
 * @brief `sleep`: blocks the calling thread.
 * @param seconds Seconds to sleep.
 * @return The seconds left unslept.
 */
uint32_t tav_util_sleep(uint32_t seconds);

#ifdef __cplusplus
}
#endif

#endif
