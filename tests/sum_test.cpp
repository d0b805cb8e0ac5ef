// The rotating sum: the worked rotation, its refusals, and a long random run
// compared bit for bit with a transcription of its arithmetic.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numeric>
#include <random>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

TEST(Sum, RotationSetAndFree) {
    tav_util_sum sum{};
    ASSERT_EQ(tav_util_sum_init(&sum, 2), TAV_OK);
    tav_util_sum_inc(&sum, 1);
    const double first = tav_util_sum_next(&sum);
    tav_util_sum_inc(&sum, 2);
    const double second = tav_util_sum_next(&sum), third = tav_util_sum_next(&sum);
    EXPECT_EQ(std::tuple(first, second, third, tav_util_sum_get_total(&sum)),
              std::tuple(1., 3., 2., 3.));
    tav_util_sum_set(&sum, 5);
    tav_util_sum_set(&sum, -7);
    tav_util_sum_free(&sum);
    tav_util_sum_free(&sum);
    tav_util_sum_free(nullptr);
    tav_util_sum_inc(&sum, 1), tav_util_sum_set(&sum, 1); // freed: nothing touches the record
    EXPECT_EQ(std::tuple(tav_util_sum_next(&sum), tav_util_sum_partial(&sum),
                         tav_util_sum_get(&sum), tav_util_sum_get_total(&sum), sum.N, sum.cursor,
                         sum.slots),
              std::tuple(-7., 0., -7., -4., 2u, 1u, nullptr));
    ASSERT_EQ(tav_util_sum_init(&sum, 2), TAV_OK);
    sum.cursor = 2; // set by hand outside the slots: no slot is touched, as with no record
    tav_util_sum_inc(&sum, 1), tav_util_sum_set(&sum, 1), tav_util_sum_inc(nullptr, 1),
        tav_util_sum_set(nullptr, 1);
    EXPECT_EQ(std::tuple(tav_util_sum_next(&sum), tav_util_sum_partial(&sum),
                         tav_util_sum_get_total(&sum), sum.cursor, tav_util_sum_next(nullptr),
                         tav_util_sum_partial(nullptr), tav_util_sum_get(nullptr),
                         tav_util_sum_get_total(nullptr)),
              std::tuple(0., 0., 0., 2u, 0., 0., 0., 0.));
    tav_util_sum_free(&sum);
}

TEST(Sum, RefusedInitLeavesTheRecord) {
    const tav_util_sum before{7, 3, nullptr, 2.5, 4.5};
    tav_util_sum sum = before;
    const auto unchanged = [&] { return std::memcmp(&sum, &before, sizeof sum) == 0; };
    tavtest::clear_reports();
    EXPECT_TRUE(tav_util_sum_init(&sum, 0) == TAV_ERR_BAD_ARG && unchanged());
    tav_status status = TAV_OK;
    const long runs = tavtest::for_each_allocation_failure(
        [&] { status = tav_util_sum_init(&sum, 3); },
        [&](long, auto &run) {
            EXPECT_TRUE(status == TAV_ERR_NOMEM && unchanged() && run.live_blocks == 0 &&
                        run.sizes[0] == 3 * sizeof(double));
        });
    EXPECT_EQ(std::tuple(runs, status), std::tuple(1, TAV_OK)); // the last run succeeded
    tav_util_sum_free(&sum);
    sum = before;
    EXPECT_TRUE(tav_util_sum_init(&sum, SIZE_MAX) == TAV_ERR_NOMEM && unchanged());
    EXPECT_EQ(tav_util_sum_init(nullptr, 1), TAV_ERR_NULL_ARG);
    const std::string in = "trace tav_util_sum_init src/sum_ops.cpp ",
                      log = "log tav_util_sum_init ";
    EXPECT_EQ(tavtest::report_summary(),
              (std::vector<std::string>{
                  log + "N is zero", in + "7", log + "calloc() failed, N=3", in + "2",
                  log + "calloc() failed, N=" + std::to_string(SIZE_MAX), in + "2", in + "3"}));
}

TEST(Sum, LongRandomRunMatchesItsTranscriptionBitForBit) {
    std::mt19937_64 random(20240611);
    const auto same = [](double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; };
    long rests = 0;
    for (const size_t n : {1, 2, 5, 16}) {
        tav_util_sum sum{};
        ASSERT_EQ(tav_util_sum_init(&sum, n), TAV_OK);
        std::vector<double> slots(n); // the transcription: slots, cursor and the two sums
        size_t cursor = 0;
        double recent = 0, total = 0, got = 0, want = 0;
        for (int step = 0; step < 20000; ++step) {
            // Magnitudes far apart, so that sums lose low bits.
            const double value = std::ldexp(double(int64_t(random() >> 11) - (int64_t{1} << 52)),
                                            int(random() % 90) - 60);
            double &slot = slots[cursor];
            const uint64_t kind = random() % 3;
            if (kind == 0) {
                tav_util_sum_inc(&sum, value);
                slot = slot + value, recent = recent + value, total = total + value;
            } else if (kind == 1) {
                tav_util_sum_set(&sum, value);
                total = (total - slot) + value, recent = recent - slot, slot = value,
                recent = recent + value;
            } else {
                got = tav_util_sum_next(&sum), want = recent, cursor = (cursor + 1) % n;
                recent = recent - slots[cursor], slots[cursor] = 0;
            }
            ASSERT_TRUE(same(got, want) && same(tav_util_sum_get(&sum), recent) &&
                        same(tav_util_sum_get_total(&sum), total) &&
                        same(tav_util_sum_partial(&sum), slots[cursor]))
                << n << " " << step;
            rests += !same(std::accumulate(slots.begin(), slots.end(), 0.0), recent);
        }
        tav_util_sum_free(&sum);
    }
    EXPECT_GT(rests, 1000); // the run leaves rounding rests, so the check means much
}

} // namespace
