// Clock readings through the library beside the system call each wraps, and
// the human time text beside snprintf of the same text.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>
#include <sys/time.h>

#include "tavutil.h"

namespace {

void BM_TimerPoint_tavutil(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_util_timer_point());
    }
}
BENCHMARK(BM_TimerPoint_tavutil);

void BM_TimerPoint_clock_gettime(benchmark::State &state) {
    for (auto _ : state) {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        benchmark::DoNotOptimize(now);
    }
}
BENCHMARK(BM_TimerPoint_clock_gettime);

void BM_Walltime_msec_tavutil(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_util_walltime_msec());
    }
}
BENCHMARK(BM_Walltime_msec_tavutil);

void BM_Walltime_usec_tavutil(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_util_walltime_usec());
    }
}
BENCHMARK(BM_Walltime_usec_tavutil);

void BM_Walltime_gettimeofday(benchmark::State &state) {
    for (auto _ : state) {
        timeval now;
        gettimeofday(&now, nullptr);
        benchmark::DoNotOptimize(now);
    }
}
BENCHMARK(BM_Walltime_gettimeofday);

// 5400 s: the text "2 hours", reached through two divisions.
void BM_HumanTime_tavutil(benchmark::State &state) {
    char buffer[32];
    double seconds = 5400;
    for (auto _ : state) {
        benchmark::DoNotOptimize(seconds);
        tav_util_snprintf_human_time(buffer, sizeof buffer, seconds);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_HumanTime_tavutil);

void BM_HumanTime_snprintf(benchmark::State &state) {
    char buffer[32];
    double hours = 1.5;
    for (auto _ : state) {
        benchmark::DoNotOptimize(hours);
        std::snprintf(buffer, sizeof buffer, "%.0lf %s%s", hours, "hour", "s");
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_HumanTime_snprintf);

} // namespace
