// Clock readings through the library beside the system call each wraps, and
// the human time text beside snprintf of the same text. Each reading or text
// counts as one item.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/time.h>

#include "pairs.hpp"
#include "tavutil.h"

namespace {

void BM_TimerPoint_tav(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_util_timer_point());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimerPoint_tav);

void BM_TimerPoint_peer(benchmark::State &state) {
    state.SetLabel("clock_gettime(CLOCK_REALTIME)");
    for (auto _ : state) {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        benchmark::DoNotOptimize(now);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimerPoint_peer);

void BM_WalltimeMsec_tav(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_util_walltime_msec());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WalltimeMsec_tav);

void BM_WalltimeUsec_tav(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_util_walltime_usec());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WalltimeUsec_tav);

// The peer of both wall-clock readings.
void walltime_peer(benchmark::State &state) {
    state.SetLabel("gettimeofday");
    for (auto _ : state) {
        timeval now;
        gettimeofday(&now, nullptr);
        benchmark::DoNotOptimize(now);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(walltime_peer)->Name("BM_WalltimeMsec_peer");
BENCHMARK(walltime_peer)->Name("BM_WalltimeUsec_peer");

// 5400 s: the text "2 hours", reached through two divisions.
constexpr double kHumanSeconds = 5400, kHumanHours = 1.5;

void human_time_by_snprintf(char (&buffer)[32], double hours) {
    std::snprintf(buffer, sizeof buffer, "%.0lf %s%s", hours, "hour", "s");
}

TAV_BENCH_CHECK(HumanTime) {
    char library[32], peer[32];
    tav_util_snprintf_human_time(library, sizeof library, kHumanSeconds);
    human_time_by_snprintf(peer, kHumanHours);
    return std::strcmp(library, peer) == 0;
}

void BM_HumanTime_tav(benchmark::State &state) {
    char buffer[32];
    double seconds = kHumanSeconds;
    for (auto _ : state) {
        benchmark::DoNotOptimize(seconds);
        tav_util_snprintf_human_time(buffer, sizeof buffer, seconds);
        benchmark::DoNotOptimize(buffer);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_HumanTime_tav);

void BM_HumanTime_peer(benchmark::State &state) {
    state.SetLabel("snprintf of the same text");
    char buffer[32];
    double hours = kHumanHours;
    for (auto _ : state) {
        benchmark::DoNotOptimize(hours);
        human_time_by_snprintf(buffer, hours);
        benchmark::DoNotOptimize(buffer);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_HumanTime_peer);

} // namespace
