// Lets a test fail the clock calls or stop the clock at a chosen reading:
// the test program defines clock_gettime, gettimeofday and time, forwarding
// to libc's while no plan is in force.
#pragma once

#include <ctime>

namespace tavtest {

struct ClockPlan {
    int fail_with = 0;       // each call returns -1 with this errno (0: none fails)
    struct timespec at = {}; // the reading otherwise; gettimeofday gives whole microseconds
};

// Applies the plan while it exists.
class ClockInjection {
  public:
    explicit ClockInjection(const ClockPlan &plan);
    ~ClockInjection();
    ClockInjection(const ClockInjection &) = delete;
    ClockInjection &operator=(const ClockInjection &) = delete;
    // The clock id of the last clock_gettime call under the plan (-1: none).
    clockid_t last_clock() const;
};

} // namespace tavtest
