// Lets a test fail the clock calls or stop the clock at a chosen reading.
// The test program defines clock_gettime, gettimeofday and time, forwarding
// to libc's while no plan is in force.
#pragma once

#include <ctime>

namespace tavtest {

struct ClockPlan {
    int fail_with = 0;       // each call fails (-1) with this errno (0: none fails)
    bool fixed = false;      // report `at` rather than the real time
    struct timespec at = {}; // gettimeofday reports its whole microseconds
};

// Applies the plan while it exists.
class ClockInjection {
  public:
    explicit ClockInjection(const ClockPlan &plan);
    ~ClockInjection();
    ClockInjection(const ClockInjection &) = delete;
    ClockInjection &operator=(const ClockInjection &) = delete;
    // The calls made under the plan, and the clock id of the last clock_gettime.
    long calls() const;
    clockid_t last_clock() const;
};

} // namespace tavtest
