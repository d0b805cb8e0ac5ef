// The rotating sum: the worked rotation, its two refusals, and a long random
// run compared bit for bit with a transcription of its arithmetic.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

TEST(Sum, RotationSetAndFree) {
    tav_util_sum sum{};
    ASSERT_EQ(tav_util_sum_init(&sum, 2), TAV_OK);
    tav_util_sum_inc(&sum, 1);
    EXPECT_EQ(tav_util_sum_next(&sum), 1);
    tav_util_sum_inc(&sum, 2);
    EXPECT_EQ(tav_util_sum_next(&sum), 3);
    EXPECT_EQ(tav_util_sum_next(&sum), 2);
    EXPECT_EQ(tav_util_sum_get_total(&sum), 3);
    EXPECT_EQ(tav_util_sum_get(&sum), 0);
    tav_util_sum_set(&sum, 5);
    tav_util_sum_set(&sum, -7);
    EXPECT_EQ(tav_util_sum_get(&sum), -7);
    EXPECT_EQ(tav_util_sum_get_total(&sum), -4);
    EXPECT_EQ(sum.cursor, 1u);
    tav_util_sum_free(&sum);
    tav_util_sum_free(&sum);
    tav_util_sum_free(nullptr);
    // After free the sums still read; nothing else touches the record.
    tav_util_sum_inc(&sum, 1);
    tav_util_sum_set(&sum, 1);
    EXPECT_EQ(tav_util_sum_next(&sum), -7);
    EXPECT_EQ(tav_util_sum_partial(&sum), 0);
    EXPECT_EQ(std::tie(sum.N, sum.cursor, sum.recent_sum, sum.total), std::tuple(2u, 1u, -7., -4.));
}

TEST(Sum, RefusedInitLeavesTheRecord) {
    const tav_util_sum before{7, 3, nullptr, 2.5, 4.5};
    tav_util_sum sum = before;
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_sum_init(&sum, 0), TAV_ERR_BAD_ARG);
    EXPECT_EQ(std::memcmp(&sum, &before, sizeof sum), 0);
    tav_status status = TAV_OK;
    const long runs = tavtest::for_each_allocation_failure(
        [&] { status = tav_util_sum_init(&sum, 3); },
        [&](long, auto &run) {
            EXPECT_EQ(std::tie(status, run.sizes, run.live_blocks),
                      std::tuple(TAV_ERR_NOMEM, std::vector<size_t>{3 * sizeof(double)}, 0));
            EXPECT_EQ(std::memcmp(&sum, &before, sizeof sum), 0);
        });
    EXPECT_EQ(std::tie(runs, status), std::tuple(1, TAV_OK)); // the last run succeeded
    tav_util_sum_free(&sum);
    sum = before;
    EXPECT_EQ(tav_util_sum_init(&sum, SIZE_MAX), TAV_ERR_NOMEM) << "calloc refuses the product";
    EXPECT_EQ(std::memcmp(&sum, &before, sizeof sum), 0);
    EXPECT_EQ(tav_util_sum_init(nullptr, 1), TAV_ERR_NULL_ARG);
    const std::string at = " src/sum_ops.cpp ";
    EXPECT_EQ(
        tavtest::report_summary(),
        (std::vector<std::string>{
            "log tav_util_sum_init N is zero", "trace tav_util_sum_init" + at + "7",
            "log tav_util_sum_init calloc() failed, N=3", "trace tav_util_sum_init" + at + "2",
            "log tav_util_sum_init calloc() failed, N=18446744073709551615",
            "trace tav_util_sum_init" + at + "2", "trace tav_util_sum_init" + at + "3"}));
}

// The record's arithmetic written out again: slot, sum and total change only
// by these additions and subtractions, in this order.
struct Transcription {
    std::vector<double> slots;
    size_t cursor = 0;
    double recent = 0, total = 0;
};

TEST(Sum, LongRandomRunMatchesTheTranscriptionBitForBit) {
    std::mt19937_64 random(20240611);
    const auto same = [](double a, double b) {
        return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
    };
    long rests = 0;
    for (const size_t n : {1, 2, 5, 16}) {
        tav_util_sum sum{};
        ASSERT_EQ(tav_util_sum_init(&sum, n), TAV_OK);
        Transcription t{std::vector<double>(n)};
        for (int step = 0; step < 20000; ++step) {
            // Magnitudes far apart, so that sums lose low bits.
            const double value = std::ldexp(double(int64_t(random() >> 11) - (int64_t{1} << 52)),
                                            int(random() % 90) - 60);
            double &slot = t.slots[t.cursor];
            double got = 0, want = 0;
            switch (random() % 3) {
            case 0:
                tav_util_sum_inc(&sum, value);
                slot = slot + value, t.recent = t.recent + value, t.total = t.total + value;
                break;
            case 1:
                tav_util_sum_set(&sum, value);
                t.total = (t.total - slot) + value, t.recent = t.recent - slot;
                slot = value, t.recent = t.recent + value;
                break;
            default:
                got = tav_util_sum_next(&sum), want = t.recent;
                t.cursor = (t.cursor + 1) % n;
                t.recent = t.recent - t.slots[t.cursor], t.slots[t.cursor] = 0;
            }
            ASSERT_TRUE(same(got, want) && same(tav_util_sum_get(&sum), t.recent) &&
                        same(tav_util_sum_get_total(&sum), t.total) &&
                        same(tav_util_sum_partial(&sum), t.slots[t.cursor]))
                << "N " << n << " step " << step;
            double fresh = 0;
            for (double s : t.slots) {
                fresh += s;
            }
            rests += !same(fresh, t.recent);
        }
        tav_util_sum_free(&sum);
    }
    EXPECT_GT(rests, 1000) << "the run must leave rounding rests for the check to mean much";
}

} // namespace
