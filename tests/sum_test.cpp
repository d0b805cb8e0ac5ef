#include "support.hpp"

namespace {

// 1 added to 1e16 is lost to rounding: rotating 1e16 out leaves 0, though a slot holds 1.
TEST(Sum, RotationRoundingRestsAndRefusals) {
    tav_util_sum sum{};
    ASSERT_EQ(tav_util_sum_init(&sum, 2), TAV_OK);
    tav_util_sum_inc(&sum, 1);
    const double first = tav_util_sum_next(&sum);
    tav_util_sum_inc(&sum, 2);
    EXPECT_EQ((std::tuple{first, tav_util_sum_next(&sum), tav_util_sum_next(&sum),
                          tav_util_sum_get_total(&sum)}),
              (std::tuple{1., 3., 2., 3.}));
    tav_util_sum_inc(&sum, 1e16);
    const double big = tav_util_sum_next(&sum);
    tav_util_sum_inc(&sum, 1);
    EXPECT_EQ((std::tuple{big, tav_util_sum_next(&sum), tav_util_sum_get(&sum),
                          tav_util_sum_partial(&sum)}),
              (std::tuple{1e16, 1e16, 0., 0.}));
    tav_util_sum_set(&sum, 5); // a period's last set alone counts
    tav_util_sum_set(&sum, -7);
    const double partial = tav_util_sum_partial(&sum), recent = tav_util_sum_get(&sum),
                 last = tav_util_sum_next(&sum);
    tav_util_sum_free(&sum);
    tav_util_sum_free(&sum);
    tav_util_sum_free(nullptr);
    tav_util_sum_inc(&sum, 1); // without a slot, freed or no record, nothing changes
    tav_util_sum_set(nullptr, 1);
    double slot = 5;
    tav_util_sum outside{1, 1, &slot, 0, 0}; // a cursor set by hand past the slots
    tav_util_sum_inc(&outside, 1);
    EXPECT_EQ(
        (std::tuple{partial, recent, last, tav_util_sum_next(&sum), tav_util_sum_partial(&sum),
                    tav_util_sum_get_total(&sum), tav_util_sum_next(nullptr), sum.slots, slot,
                    outside.recent_sum, outside.total, tav_util_sum_get_total(nullptr)}),
        (std::tuple{-7., -7., -7., -8., 0., 1e16 - 4, 0., nullptr, 5., 0., 0., 0.}));
    const tav_util_sum before{7, 3, nullptr, 2.5, 4.5};
    tav_status status = TAV_OK;
    sum = before;
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
