#include "clock_inject.hpp"

#include <cerrno>
#include <dlfcn.h>
#include <sys/time.h>

namespace {

tavtest::ClockPlan plan;
bool active = false;
long calls_made = 0;
clockid_t last_clock_id = -1;

template <typename Fn> Fn real(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
using ClockGettimeFn = int (*)(clockid_t, struct timespec *);
using GettimeofdayFn = int (*)(struct timeval *, void *);
using TimeFn = time_t (*)(time_t *);
ClockGettimeFn real_clock_gettime = nullptr;
GettimeofdayFn real_gettimeofday = nullptr;
TimeFn real_time = nullptr;

void resolve() {
    if (real_clock_gettime == nullptr) {
        real_clock_gettime = real<ClockGettimeFn>("clock_gettime");
        real_gettimeofday = real<GettimeofdayFn>("gettimeofday");
        real_time = real<TimeFn>("time");
    }
}

// Whether the plan answers this call: true with the errno set for a failure.
bool planned(bool *fails) {
    if (!active) {
        return false;
    }
    ++calls_made;
    *fails = plan.fail_with != 0;
    if (*fails) {
        errno = plan.fail_with;
    }
    return *fails || plan.fixed;
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec *out) noexcept {
    resolve();
    bool fails = false;
    if (active) {
        last_clock_id = clock;
    }
    if (!planned(&fails)) {
        return real_clock_gettime(clock, out);
    }
    if (fails) {
        return -1;
    }
    *out = plan.at;
    return 0;
}

extern "C" int gettimeofday(struct timeval *out, void *zone) noexcept {
    resolve();
    bool fails = false;
    if (!planned(&fails)) {
        return real_gettimeofday(out, zone);
    }
    if (fails) {
        return -1;
    }
    out->tv_sec = plan.at.tv_sec;
    out->tv_usec = plan.at.tv_nsec / 1000;
    return 0;
}

extern "C" time_t time(time_t *out) noexcept {
    resolve();
    bool fails = false;
    if (!planned(&fails)) {
        return real_time(out);
    }
    const time_t reading = fails ? -1 : plan.at.tv_sec;
    if (out != nullptr) {
        *out = reading;
    }
    return reading;
}

namespace tavtest {

ClockInjection::ClockInjection(const ClockPlan &p) {
    resolve();
    plan = p;
    calls_made = 0;
    last_clock_id = -1;
    active = true;
}

ClockInjection::~ClockInjection() { active = false; }

long ClockInjection::calls() const { return calls_made; }

clockid_t ClockInjection::last_clock() const { return last_clock_id; }

} // namespace tavtest
