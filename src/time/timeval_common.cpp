// Time values: arithmetic on struct timeval, which is never normalised here,
// and a number of seconds as a short text for people.
#include <sys/time.h>

#include "internal/frame.hpp"

// Last, so that it governs this file's own functions only.
#include "internal/exact_fp.hpp"

namespace {

// The largest tv_sec: all the bits of the type but the sign bit.
constexpr time_t kLimit = INT64_MAX;

// The seconds of a value as one double; the fraction comes from a
// multiplication by 1e-6, not a division by 1e6.
double seconds_of(const struct timeval &value) {
    return static_cast<double>(value.tv_sec) + static_cast<double>(value.tv_usec) * 1e-6;
}

} // namespace

extern "C" {

tav_status tav_util_safe_add_seconds(struct timeval *tv, time_t seconds) {
    // The headroom wraps modulo 2^64, so a negative `seconds` leaves less
    // room than any non-negative tv_sec has.
    const auto headroom =
        static_cast<time_t>(static_cast<uint64_t>(kLimit) - static_cast<uint64_t>(seconds));
    if (headroom < tv->tv_sec) {
        return tav::traced(TAV_SITE, TAV_ERR_OVERFLOW);
    }
    // In unsigned arithmetic: a negative tv_sec with a negative `seconds`
    // passes the test and wraps rather than overflowing.
    tv->tv_sec =
        static_cast<time_t>(static_cast<uint64_t>(tv->tv_sec) + static_cast<uint64_t>(seconds));
    return TAV_OK;
}

int32_t tav_util_timeval_cmp(const struct timeval *first, const struct timeval *second) {
    if (first->tv_sec != second->tv_sec) {
        return first->tv_sec > second->tv_sec ? 1 : -1;
    }
    if (first->tv_usec != second->tv_usec) {
        return first->tv_usec > second->tv_usec ? 1 : -1;
    }
    return 0;
}

int32_t tav_util_time_greater_than(const struct timeval *first, const struct timeval *second) {
    if (first->tv_sec != second->tv_sec) {
        return first->tv_sec > second->tv_sec ? 1 : 0;
    }
    return first->tv_usec > second->tv_usec ? 1 : 0;
}

double tav_util_time_diff_seconds(const struct timeval *first, const struct timeval *second) {
    return seconds_of(*first) - seconds_of(*second);
}

tav_status tav_util_snprintf_human_time(char *buffer, size_t size, double seconds) {
    // Each test is false for a NaN, which therefore ends in days.
    double v = seconds;
    const char *unit = "day";
    if (v < 60) {
        unit = "second";
    } else if ((v /= 60) < 60) {
        unit = "minute";
    } else if ((v /= 60) < 24) {
        unit = "hour";
    } else {
        v /= 24;
    }
    // The suffix looks at v before the format rounds it.
    const char *suffix = v == 1.0 ? "" : "s";
    // A text cut short, or a size the callee refuses, is not reported.
    tav_util_snprintf(buffer, size, "%.0lf %s%s", v, unit, suffix);
    return TAV_OK;
}

tav_status tav_util_ms_to_timeval(uint64_t ms, struct timeval *tv) {
    if (tv == nullptr) {
        return TAV_ERR_NULL_ARG; // silent, unlike tav_util_timeval_to_ms
    }
    const uint64_t sec = ms / 1000;
    const uint64_t usec = ms % 1000 * 1000;
    tv->tv_sec = static_cast<time_t>(sec);
    tv->tv_usec = static_cast<suseconds_t>(usec);
    // Read back: only fields narrower than 64 bits could lose a value.
    if (static_cast<uint64_t>(tv->tv_sec) != sec || static_cast<uint64_t>(tv->tv_usec) != usec) {
        return tav::traced(TAV_SITE, TAV_ERR_OVERFLOW);
    }
    return TAV_OK;
}

tav_status tav_util_timeval_to_ms(const struct timeval *tv, uint64_t *ms) {
    if (tv == nullptr || ms == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    // No overflow test: the product and the sum wrap modulo 2^64.
    *ms = static_cast<uint64_t>(tv->tv_sec) * 1000 + static_cast<uint64_t>(tv->tv_usec / 1000);
    return TAV_OK;
}

} // extern "C"
