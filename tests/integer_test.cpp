// Integer helpers: the rounding edges, and the overflow tests at the
// boundaries of every pairing of signs.
#include <gtest/gtest.h>

#include <cstdint>

#include "tavutil.h"

namespace {

constexpr uint64_t kTop = uint64_t{1} << 63, kP32 = uint64_t{1} << 32;

// Each power rounds to itself, the values between it and its half to the two
// ends (so 2, 3, 5, 7, 8 and 2^63 among them); 0 and 1 round to themselves.
// Above 2^63 no power of two fits: rounding up ends with 0, down at 2^63.
TEST(IntegerRounding, WorkedValuesAndTheEndsOfEveryRange) {
    for (int bit = 2; bit < 64; ++bit) {
        const uint64_t power = uint64_t{1} << bit;
        for (uint64_t n : {power / 2 + 1, power - 1, power}) {
            EXPECT_EQ(round_up_power_2(n), power) << n;
            EXPECT_EQ(round_down_power_2(n), n == power ? power : power / 2) << n;
        }
    }
    for (uint64_t n : {0, 1}) {
        EXPECT_EQ(round_up_power_2(n), n);
        EXPECT_EQ(round_down_power_2(n), n);
    }
    for (uint64_t n : {kTop + 1, UINT64_MAX}) {
        EXPECT_EQ(round_up_power_2(n), 0u) << n;
        EXPECT_EQ(round_down_power_2(n), kTop) << n;
    }
}

// Each row is checked as a * b and as b * a, so one row covers both mixed
// signs. Just inside and just outside each bound, with truncating division.
TEST(IntegerOverflow, BoundariesOfEveryPairingOfSigns) {
    auto check = [](auto overflows, const auto &rows) {
        for (const auto &row : rows) {
            EXPECT_EQ(overflows(row.a, row.b), row.overflows) << row.a << " * " << row.b;
            EXPECT_EQ(overflows(row.b, row.a), row.overflows) << row.b << " * " << row.a;
        }
    };
    constexpr int64_t kMax = INT64_MAX, kMin = INT64_MIN;
    constexpr int64_t p31 = int64_t{1} << 31, p32 = int64_t{1} << 32;
    const struct {
        int64_t a, b;
        int32_t overflows;
    } wide[] = {{0, kMin, 0},         {kMax, 1, 0},      {kMin, 1, 0},          {kMin, -1, 1},
                {-1, -1, 0},          {p32, p31, 1},     {-p32, p31, 0},        {-p32 - 1, p31, 1},
                {-1, -kMax, 0},       {3, kMax / 3, 0},  {3, kMax / 3 + 1, 1},  {3, kMin / 3, 0},
                {3, kMin / 3 - 1, 1}, {-3, kMin / 3, 0}, {-3, kMin / 3 - 1, 1}, {kMax, kMax, 1},
                {kMin, kMin, 1},      {kMax, kMin, 1},   {kMax, -1, 0}};
    check(tav_util_check_multiply_overflow_i64, wide);
    const struct {
        int32_t a, b, overflows;
    } narrow[] = {{65536, 32768, 1},     {-65536, 32768, 0},        {0, INT32_MIN, 0},
                  {INT32_MIN, -1, 1},    {INT32_MAX, 1, 0},         {-1, -INT32_MAX, 0},
                  {3, INT32_MIN / 3, 0}, {3, INT32_MIN / 3 - 1, 1}, {3, INT32_MAX / 3 + 1, 1}};
    check(tav_util_check_multiply_overflow_i32, narrow);
    const struct {
        uint64_t a, b;
        int32_t overflows;
    } unsigned64[] = {
        {kP32, kP32, 1},    {kP32, kP32 - 1, 0},    {0, UINT64_MAX, 0},         {UINT64_MAX, 1, 0},
        {UINT64_MAX, 2, 1}, {3, UINT64_MAX / 3, 0}, {3, UINT64_MAX / 3 + 1, 1}, {kTop, 2, 1}};
    check(tav_util_check_multiply_overflow_u64, unsigned64);
}

} // namespace
