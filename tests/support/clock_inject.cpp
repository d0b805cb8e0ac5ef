#include "clock_inject.hpp"

#include <cerrno>
#include <dlfcn.h>
#include <sys/time.h>

namespace {

tavtest::ClockPlan plan;
bool active = false;
clockid_t last_clock_id = -1;

template <typename Fn> Fn real(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

// Whether the call is to fail, with errno set for it.
bool fails() {
    errno = plan.fail_with != 0 ? plan.fail_with : errno;
    return plan.fail_with != 0;
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec *out) noexcept {
    if (!active) {
        return real<int (*)(clockid_t, struct timespec *)>("clock_gettime")(clock, out);
    }
    last_clock_id = clock;
    return fails() ? -1 : (*out = plan.at, 0);
}

extern "C" int gettimeofday(struct timeval *out, void *zone) noexcept {
    if (!active) {
        return real<int (*)(struct timeval *, void *)>("gettimeofday")(out, zone);
    }
    return fails() ? -1 : (*out = {plan.at.tv_sec, plan.at.tv_nsec / 1000}, 0);
}

extern "C" time_t time(time_t *out) noexcept {
    if (!active) {
        return real<time_t (*)(time_t *)>("time")(out);
    }
    const time_t reading = fails() ? -1 : plan.at.tv_sec;
    return out != nullptr ? (*out = reading) : reading;
}

namespace tavtest {

ClockInjection::ClockInjection(const ClockPlan &p) {
    plan = p;
    last_clock_id = -1;
    active = true;
}

ClockInjection::~ClockInjection() { active = false; }

clockid_t ClockInjection::last_clock() const { return last_clock_id; }

} // namespace tavtest
