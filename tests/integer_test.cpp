// Integer helpers: the rounding edges, and the overflow tests against exact
// 128-bit products around every boundary.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

constexpr uint64_t kTop = uint64_t{1} << 63;

TEST(IntegerRounding, WorkedValuesAndTheEndsOfEveryRange) {
    const struct {
        uint64_t n, up, down;
    } table[] = {{0, 0, 0},         {1, 1, 1},  {2, 2, 2},
                 {3, 4, 2},         {5, 8, 4},  {7, 8, 4},
                 {8, 8, 8},         {9, 16, 8}, {kTop - 1, kTop, kTop >> 1},
                 {kTop, kTop, kTop}};
    for (const auto &row : table) {
        EXPECT_EQ(round_up_power_2(row.n), row.up) << row.n;
        EXPECT_EQ(round_down_power_2(row.n), row.down) << row.n;
    }
    // Each power rounds to itself; its neighbours inside the range between
    // it and half of it round out to the two ends.
    for (int bit = 0; bit < 64; ++bit) {
        const uint64_t power = uint64_t{1} << bit;
        EXPECT_EQ(round_up_power_2(power), power) << bit;
        EXPECT_EQ(round_down_power_2(power), power) << bit;
        if (bit >= 2) {
            EXPECT_EQ(round_up_power_2(power / 2 + 1), power) << bit;
            EXPECT_EQ(round_up_power_2(power - 1), power) << bit;
            EXPECT_EQ(round_down_power_2(power / 2 + 1), power / 2) << bit;
            EXPECT_EQ(round_down_power_2(power - 1), power / 2) << bit;
        }
    }
}

// Above 2^63 no power of two fits: rounding up ends with 0, rounding down
// ends at 2^63.
TEST(IntegerRounding, AboveTheTopPowerBothEnd) {
    for (uint64_t n : {kTop + 1, kTop + 12345, UINT64_MAX - 1, UINT64_MAX}) {
        EXPECT_EQ(round_up_power_2(n), 0u) << n;
        EXPECT_EQ(round_down_power_2(n), kTop) << n;
    }
}

int32_t exact_i64(int64_t a, int64_t b) {
    const __int128 product = static_cast<__int128>(a) * b;
    return product > INT64_MAX || product < INT64_MIN;
}
int32_t exact_i32(int32_t a, int32_t b) {
    const int64_t product = static_cast<int64_t>(a) * b;
    return product > INT32_MAX || product < INT32_MIN;
}
int32_t exact_u64(uint64_t a, uint64_t b) {
    return (static_cast<unsigned __int128>(a) * b) >> 64 != 0;
}

TEST(IntegerOverflow, WorkedValues) {
    const int64_t p32 = int64_t{1} << 32, p31 = int64_t{1} << 31;
    const struct {
        int64_t a, b;
        int32_t overflows;
    } wide[] = {{INT64_MAX, 1, 0},  {INT64_MIN, 1, 0}, {1, INT64_MIN, 0}, {INT64_MIN, -1, 1},
                {-1, INT64_MIN, 1}, {-1, -1, 0},       {p32, p31, 1},     {-p32, p31, 0}};
    for (const auto &row : wide) {
        EXPECT_EQ(tav_util_check_multiply_overflow_i64(row.a, row.b), row.overflows)
            << row.a << " * " << row.b;
    }
    EXPECT_EQ(tav_util_check_multiply_overflow_i32(65536, 32768), 1);
    EXPECT_EQ(tav_util_check_multiply_overflow_i32(-65536, 32768), 0);
    EXPECT_EQ(tav_util_check_multiply_overflow_u64(uint64_t(p32), uint64_t(p32)), 1);
    EXPECT_EQ(tav_util_check_multiply_overflow_u64(uint64_t(p32), uint64_t(p32) - 1), 0);
}

// Around every boundary that matters (0, ±1, powers of two and their
// neighbours, the extremes) all three tests agree with the exact product,
// for every pairing of signs; they never report or allocate.
TEST(IntegerOverflow, AgreesWithTheExactProductAroundEveryBoundary) {
    std::vector<int64_t> values{0, 1, -1, INT64_MAX, INT64_MIN, INT64_MAX - 1, INT64_MIN + 1};
    for (int bit = 1; bit < 63; ++bit) {
        for (int64_t v : {(int64_t{1} << bit) - 1, int64_t{1} << bit, (int64_t{1} << bit) + 1}) {
            values.push_back(v);
            values.push_back(-v);
        }
    }
    // The 32-bit test sees the values that fit and the high halves of the rest.
    auto narrow = [](int64_t v) {
        return static_cast<int32_t>(v >= INT32_MIN && v <= INT32_MAX ? v : v >> 32);
    };
    tavtest::clear_reports();
    long mismatches = 0;
    const auto run = tavtest::run_allocations(0, [&] {
        for (int64_t a : values) {
            for (int64_t b : values) {
                mismatches += tav_util_check_multiply_overflow_i64(a, b) != exact_i64(a, b);
                mismatches += tav_util_check_multiply_overflow_i32(narrow(a), narrow(b)) !=
                              exact_i32(narrow(a), narrow(b));
                const auto ua = static_cast<uint64_t>(a), ub = static_cast<uint64_t>(b);
                mismatches += tav_util_check_multiply_overflow_u64(ua, ub) != exact_u64(ua, ub);
            }
        }
    });
    EXPECT_EQ(mismatches, 0);
    EXPECT_EQ(run.allocations, 0);
    EXPECT_TRUE(tavtest::reports().empty());
}

} // namespace
