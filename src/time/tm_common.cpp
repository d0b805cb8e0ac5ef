// Clocks and calendar: broken-down times and their text, wall-clock counts,
// the nanosecond timer and the processor's counter. Thin calls; what sets
// them apart is which failures each reports.
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

#include "internal/frame.hpp"

namespace {

// asctime_r writes 24 characters, a newline and the terminator.
constexpr size_t kAsctimeSize = 26;

struct timeval wall_clock() {
    // Its result is not examined; a failed reading counts from zero.
    struct timeval now = {0, 0};
    gettimeofday(&now, nullptr);
    return now;
}

} // namespace

extern "C" {

tav_status tav_util_get_broken_down_time(struct tm *out) {
    const time_t now = time(nullptr);
    if (now == -1) {
        TAV_PLAIN_LINE("Failed to read time");
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (localtime_r(&now, out) == nullptr) {
        TAV_PLAIN_LINE("Failed to unpick time");
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

tav_status tav_util_gmtime(const time_t *when, struct tm *out) {
    if (gmtime_r(when, out) == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

tav_status tav_util_asctime(const struct tm *broken_down, char *buffer, size_t size) {
    if (broken_down == nullptr || buffer == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (size < kAsctimeSize) {
        return tav::traced(TAV_SITE, TAV_ERR_TOO_SMALL);
    }
    if (asctime_r(broken_down, buffer) == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

struct tm *tav_util_localtime_r(const time_t *when, struct tm *out) {
    return localtime_r(when, out);
}

// The counts are formed in unsigned arithmetic, which wraps where a signed
// product could not.
uint64_t tav_util_walltime_msec(void) {
    const struct timeval now = wall_clock();
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec / 1000);
}

uint64_t tav_util_walltime_usec(void) {
    const struct timeval now = wall_clock();
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_usec);
}

uint64_t tav_util_timer_point(void) {
    // The real-time clock, not a monotonic one: a step of the system clock
    // shows in the difference of two points.
    struct timespec now;
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return 0;
    }
    // The seconds go through a double, exact up to 4611686018 s.
    const double product = static_cast<double>(now.tv_sec) * 1e9;
    // A reading before the Epoch, or past what 64 bits of nanoseconds hold,
    // has no count: it gives 0, as a failed reading does.
    if (!(product >= 0.0 && product < 0x1p64)) {
        return 0;
    }
    return static_cast<uint64_t>(product) + static_cast<uint64_t>(now.tv_nsec);
}

double tav_util_timer_elapsed_seconds(uint64_t start, uint64_t end) {
    return static_cast<double>(end - start) / 1e9;
}

uint64_t tav_util_read_cycles(void) {
#if defined(__aarch64__)
    uint64_t value;
    __asm__ __volatile__("mrs %0, cntvct_el0" : "=r"(value));
    return value;
#elif defined(__x86_64__)
    // x86-64 has no virtual counter register; its free-running counter is
    // the time-stamp counter, read alone like the one above, without a
    // serialising instruction.
    uint32_t low, high;
    __asm__ __volatile__("rdtsc" : "=a"(low), "=d"(high));
    return (static_cast<uint64_t>(high) << 32) | low;
#else
    // Elsewhere no counter is known to be free-running and readable by a
    // program: the raw monotonic clock's nanoseconds stand in for it.
    struct timespec now = {0, 0};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
#endif
}

uint32_t tav_util_sleep(uint32_t seconds) { return sleep(seconds); }

} // extern "C"
