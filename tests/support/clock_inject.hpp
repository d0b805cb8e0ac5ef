// Stops the clock calls (clock_gettime, gettimeofday, time) at a chosen
// reading, or fails them, while a ClockInjection exists; libc's otherwise.
#pragma once

#include <ctime>

namespace tavtest {

struct ClockPlan {
    int fail_with = 0;       // each call returns -1 with this errno (0: none fails)
    struct timespec at = {}; // the reading otherwise; gettimeofday gives whole microseconds
};

struct ClockInjection {
    explicit ClockInjection(const ClockPlan &plan);
    ~ClockInjection();
    clockid_t last_clock() const; // of the last clock_gettime under the plan (-1: none)
};

} // namespace tavtest
