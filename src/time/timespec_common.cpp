// Absolute timeouts: points on the real-time clock in a struct timespec.
//
// Every reading is CLOCK_REALTIME, so a step of the system clock moves the
// timeouts with it. The headroom tests wrap as 64-bit two's complement does;
// they are made in unsigned arithmetic, which wraps by definition.
#include <ctime>

#include "internal/frame.hpp"
#include "internal/timeout.hpp"

// Last, so that it governs this file's own functions only.
#include "internal/exact_fp.hpp"

namespace {

constexpr int64_t kMax = INT64_MAX;
constexpr int64_t kNanosPerSecond = 1000000000;

// kMax - value, modulo 2^64 and read as signed: negative for a negative value.
constexpr int64_t headroom(int64_t value) {
    return static_cast<int64_t>(static_cast<uint64_t>(kMax) - static_cast<uint64_t>(value));
}

// The seconds since the Epoch as one double; the fraction comes from a
// multiplication by 1e-9, not a division by 1e9.
double seconds_of(const struct timespec &when) {
    return static_cast<double>(when.tv_sec) + static_cast<double>(when.tv_nsec) * 1e-9;
}

} // namespace

extern "C" {

tav_status tav_util_abs_time_offset(struct timespec *timeout, int64_t val, int64_t scale_to_sec) {
    if (val < 0 || scale_to_sec <= 0 || scale_to_sec > kNanosPerSecond) {
        TAV_PLAIN_LINE("Bad value, val: %ld scale_to_sec: %ld\n", static_cast<long>(val),
                       static_cast<long>(scale_to_sec));
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    if (val >= scale_to_sec) {
        const int64_t whole = val / scale_to_sec;
        // A negative tv_sec leaves a negative headroom, so it fails here too.
        if (whole > headroom(timeout->tv_sec)) {
            return tav::traced(TAV_SITE, TAV_ERR_OVERFLOW);
        }
        timeout->tv_sec += whole;
        val %= scale_to_sec;
    }
    if (scale_to_sec < kNanosPerSecond) {
        // The quotient is truncated first: 2 units of scale 3 are 666666666 ns.
        val *= kNanosPerSecond / scale_to_sec;
    }
    // One second carried at most. The test keeps clear of forming the sum,
    // and the remainder is taken the same way, so a tv_nsec far out of range
    // stays there rather than overflowing.
    if (kNanosPerSecond - val <= timeout->tv_nsec) {
        val = timeout->tv_nsec - (kNanosPerSecond - val);
        timeout->tv_nsec = 0;
        if (timeout->tv_sec == kMax) {
            return tav::traced(TAV_SITE, TAV_ERR_OVERFLOW);
        }
        timeout->tv_sec += 1;
    }
    if (val > headroom(timeout->tv_nsec)) {
        return tav::traced(TAV_SITE, TAV_ERR_OVERFLOW);
    }
    timeout->tv_nsec += val;
    return TAV_OK;
}

tav_status tav_util_future_timeout(struct timespec *timeout, int64_t val, int64_t scale_to_sec) {
    if (clock_gettime(CLOCK_REALTIME, timeout) != 0) {
        TAV_PLAIN_LINE("Failed to get current time.");
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    const tav_status status = tav_util_abs_time_offset(timeout, val, scale_to_sec);
    if (status != TAV_OK) {
        // The callee's refusal is traced here first and then told as one line.
        tav::traced_again(TAV_SITE, status);
        TAV_PLAIN_LINE("Overflow detected when trying to set phase timeout %s", "tmp hack");
        return status;
    }
    return TAV_OK;
}

tav_status tav_util_query_timeout_expired(const struct timespec *timeout, int32_t *expired) {
    struct timespec now;
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    *expired = 1;
    if (timeout->tv_sec > now.tv_sec) {
        *expired = 0;
    }
    if (timeout->tv_sec == now.tv_sec && timeout->tv_nsec > now.tv_nsec) {
        *expired = 0;
    }
    return TAV_OK;
}

tav_status tav_util_cmp_timeout(const struct timespec *first, const struct timespec *second,
                                int32_t *order) {
    if (first == nullptr || second == nullptr || order == nullptr) {
        TAV_PLAIN_LINE("NULL argument detected: %p %p %p", static_cast<const void *>(first),
                       static_cast<const void *>(second), static_cast<void *>(order));
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (first->tv_sec == second->tv_sec && first->tv_nsec == second->tv_nsec) {
        *order = 0;
    } else if (first->tv_sec != second->tv_sec) {
        *order = first->tv_sec < second->tv_sec ? -1 : 1;
    } else {
        *order = first->tv_nsec < second->tv_nsec ? -1 : 1;
    }
    return TAV_OK;
}

tav_status tav_util_query_timeout_left(const struct timespec *timeout, char *buffer,
                                       uint64_t size) {
    struct timespec now;
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
        TAV_PLAIN_LINE("Failed to get current time.");
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    const double left = seconds_of(*timeout) - seconds_of(now);
    // A text cut short by a small buffer is no failure.
    std::snprintf(buffer, size, "%le seconds", left);
    return TAV_OK;
}

} // extern "C"
