#include "clock_inject.hpp"

#include <cerrno>
#include <dlfcn.h>
#include <sys/time.h>

namespace {

tavtest::ClockPlan current;
const tavtest::ClockPlan *plan = nullptr; // &current while a plan is in force
clockid_t last_id = -1;

template <typename Fn> Fn real(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
bool fails() { return plan->fail_with != 0 && (errno = plan->fail_with, true); }

} // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec *out) noexcept {
    return plan == nullptr ? real<int (*)(clockid_t, timespec *)>("clock_gettime")(clock, out)
           : (last_id = clock, fails()) ? -1
                                        : (*out = plan->at, 0);
}

extern "C" int gettimeofday(struct timeval *out, void *zone) noexcept {
    return plan == nullptr ? real<int (*)(timeval *, void *)>("gettimeofday")(out, zone)
           : fails()       ? -1
                           : (*out = {plan->at.tv_sec, plan->at.tv_nsec / 1000}, 0);
}

extern "C" time_t time(time_t *out) noexcept {
    const time_t now = plan == nullptr ? real<time_t (*)(time_t *)>("time")(nullptr)
                       : fails()       ? -1
                                       : plan->at.tv_sec;
    return out != nullptr ? (*out = now) : now;
}

tavtest::ClockInjection::ClockInjection(const ClockPlan &p) {
    current = p, plan = &current, last_id = -1;
}
tavtest::ClockInjection::~ClockInjection() { plan = nullptr; }
clockid_t tavtest::ClockInjection::last_clock() const { return last_id; }
