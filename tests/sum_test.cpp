#include <bit>
#include <random>

#include "rows.hpp"

namespace {

// Freed, with a cursor set outside the slots, or without a record: nothing
// changes, and the reads give the fields (0 without a record).
bool untouched(tav_util_sum *s) {
    const tav_util_sum before = s != nullptr ? *s : tav_util_sum{};
    tav_util_sum_inc(s, 1);
    tav_util_sum_set(s, 1);
    return std::tuple{tav_util_sum_next(s), tav_util_sum_partial(s), tav_util_sum_get(s),
                      tav_util_sum_get_total(s),
                      s == nullptr || !std::memcmp(s, &before, sizeof before)} ==
           std::tuple{before.recent_sum, 0., before.recent_sum, before.total, true};
}

// The worked rotation; then long runs, bit for bit against the operations'
// arithmetic transcribed, of values of magnitudes far apart, so that the sums
// keep rounding rests.
TEST(Sum, RotationAndLongRunsMatchTheArithmetic) {
    tav_util_sum sum{};
    ASSERT_EQ(tav_util_sum_init(&sum, 2), TAV_OK);
    tav_util_sum_inc(&sum, 1);
    const double first = tav_util_sum_next(&sum);
    tav_util_sum_inc(&sum, 2);
    EXPECT_EQ((std::tuple{first, tav_util_sum_next(&sum), tav_util_sum_next(&sum),
                          tav_util_sum_get_total(&sum)}),
              (std::tuple{1., 3., 2., 3.}));
    tav_util_sum_free(&sum);
    std::mt19937_64 random(20240611);
    const auto same = [](double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; };
    for (const size_t n : {1, 2, 5, 16}) {
        ASSERT_EQ(tav_util_sum_init(&sum, n), TAV_OK);
        std::vector<double> slots(n);
        double recent = 0, total = 0;
        for (size_t step = 0, at = 0; step < 20000; ++step) {
            const double value = std::bit_cast<double>(random() & 0xBFFFFFFFFFFFFFFF);
            const uint64_t kind = random() % 3;
            if (kind == 2) {
                ASSERT_TRUE(same(tav_util_sum_next(&sum), recent)) << n << " " << step;
                at = (at + 1) % n;
                recent = recent - slots[at], slots[at] = 0;
            } else { // a set takes the slot's value out first
                (kind == 0 ? tav_util_sum_inc : tav_util_sum_set)(&sum, value);
                const double out = kind == 0 ? 0 : slots[at];
                total = (total - out) + value, recent = (recent - out) + value;
                slots[at] = (slots[at] - out) + value;
            }
            ASSERT_TRUE(same(tav_util_sum_get(&sum), recent) &&
                        same(tav_util_sum_get_total(&sum), total) &&
                        same(tav_util_sum_partial(&sum), slots[at]))
                << n << " " << step;
        }
        sum.cursor = n;
        EXPECT_TRUE(untouched(&sum));
        tav_util_sum_free(&sum);
        tav_util_sum_free(&sum);
        EXPECT_TRUE(untouched(&sum));
    }
    tav_util_sum_free(nullptr);
    EXPECT_TRUE(untouched(nullptr));
}

TEST(Sum, RefusedInitLeavesTheRecord) {
    const tav_util_sum before{7, 3, nullptr, 2.5, 4.5};
    tav_util_sum sum = before;
    tav_status status = TAV_OK;
    tavtest::clear_reports();
    const auto run = tavtest::run_allocations(1, [&] { status = tav_util_sum_init(&sum, 3); });
    EXPECT_EQ(
        (std::tuple{status, tav_util_sum_init(&sum, 0), tav_util_sum_init(nullptr, 1),
                    run.live_blocks, run.sizes.at(0), std::memcmp(&sum, &before, sizeof sum)}),
        (std::tuple{TAV_ERR_NOMEM, TAV_ERR_BAD_ARG, TAV_ERR_NULL_ARG, 0L, 24ul, 0}));
    const std::string in = "|trace tav_util_sum_init src/sum_ops.cpp ";
    EXPECT_EQ(tavtest::said(), "log tav_util_sum_init calloc() failed, N=3" + in +
                                   "2|log tav_util_sum_init N is zero" + in + "7" + in + "3");
}

} // namespace
