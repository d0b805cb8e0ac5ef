// Integer helpers: the rounding and overflow edges, checked against exact
// 128-bit products.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

constexpr uint64_t kTop = uint64_t{1} << 63;

struct Rounding {
    uint64_t n, up, down;
};

TEST(IntegerRounding, WorkedValuesAndPowersOfTwo) {
    const Rounding table[] = {
        {0, 0, 0},
        {1, 1, 1},
        {2, 2, 2},
        {3, 4, 2},
        {5, 8, 4},
        {7, 8, 4},
        {8, 8, 8},
        {9, 16, 8},
        {1000, 1024, 512},
        {(uint64_t{1} << 32) - 1, uint64_t{1} << 32, uint64_t{1} << 31},
        {(uint64_t{1} << 32) + 1, uint64_t{1} << 33, uint64_t{1} << 32},
        {kTop - 1, kTop, kTop >> 1},
        {kTop, kTop, kTop},
    };
    for (const auto &row : table) {
        EXPECT_EQ(round_up_power_2(row.n), row.up) << row.n;
        EXPECT_EQ(round_down_power_2(row.n), row.down) << row.n;
    }
    for (int bit = 0; bit < 64; ++bit) {
        const uint64_t power = uint64_t{1} << bit;
        EXPECT_EQ(round_up_power_2(power), power) << bit;
        EXPECT_EQ(round_down_power_2(power), power) << bit;
    }
}

// Every n from 2^(b-1)+1 to 2^b rounds up to 2^b and (below 2^b) down to
// 2^(b-1): checked at both ends of each range.
TEST(IntegerRounding, EndsOfEveryRange) {
    for (int bit = 2; bit < 64; ++bit) {
        const uint64_t power = uint64_t{1} << bit;
        const uint64_t half = power >> 1;
        EXPECT_EQ(round_up_power_2(half + 1), power) << bit;
        EXPECT_EQ(round_up_power_2(power - 1), power) << bit;
        EXPECT_EQ(round_down_power_2(half + 1), half) << bit;
        EXPECT_EQ(round_down_power_2(power - 1), half) << bit;
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

// The exact answer, from a 128-bit product.
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

struct SignedCase {
    int64_t a, b;
    int32_t overflows;
};

TEST(IntegerOverflow, WorkedValuesOn64Bits) {
    const int64_t p32 = int64_t{1} << 32;
    const int64_t p31 = int64_t{1} << 31;
    const SignedCase table[] = {
        {INT64_MAX, 1, 0},
        {INT64_MIN, 1, 0},
        {1, INT64_MIN, 0},
        {INT64_MIN, -1, 1},
        {-1, INT64_MIN, 1},
        {-1, -1, 0},
        {p32, p31, 1},
        {-p32, p31, 0},
        {p31, -p32, 0},
        {0, INT64_MIN, 0},
        {INT64_MIN, 0, 0},
        {INT64_MAX, -1, 0},
        {-1, INT64_MAX, 0},
        {INT64_MAX, 2, 1},
        {INT64_MIN, INT64_MIN, 1},
        {p32, -p31 - 1, 1},
        {-p32, -p31, 1},
        {-p32 + 1, -p31, 0},
        {3037000499, 3037000499, 0},
        {3037000500, 3037000500, 1},
    };
    for (const auto &row : table) {
        EXPECT_EQ(tav_util_check_multiply_overflow_i64(row.a, row.b), row.overflows)
            << row.a << " * " << row.b;
        EXPECT_EQ(exact_i64(row.a, row.b), row.overflows) << "table row " << row.a;
    }
}

TEST(IntegerOverflow, WorkedValuesOn32Bits) {
    const SignedCase table[] = {
        {65536, 32768, 1},  {-65536, 32768, 0}, {32768, -65536, 0},        {INT32_MIN, -1, 1},
        {-1, INT32_MIN, 1}, {INT32_MIN, 1, 0},  {INT32_MAX, 1, 0},         {INT32_MAX, -1, 0},
        {-1, -1, 0},        {0, INT32_MIN, 0},  {-65536, -32768, 1},       {46340, 46340, 0},
        {46341, 46341, 1},  {-46341, 46341, 1}, {INT32_MIN, INT32_MIN, 1},
    };
    for (const auto &row : table) {
        const auto a = static_cast<int32_t>(row.a);
        const auto b = static_cast<int32_t>(row.b);
        EXPECT_EQ(tav_util_check_multiply_overflow_i32(a, b), row.overflows) << a << " * " << b;
        EXPECT_EQ(exact_i32(a, b), row.overflows) << "table row " << a;
    }
}

TEST(IntegerOverflow, WorkedValuesUnsigned) {
    const uint64_t p32 = uint64_t{1} << 32;
    const struct {
        uint64_t a, b;
        int32_t overflows;
    } table[] = {
        {p32, p32, 1},      {p32, p32 - 1, 0},      {p32 - 1, p32, 0},          {0, UINT64_MAX, 0},
        {UINT64_MAX, 0, 0}, {UINT64_MAX, 1, 0},     {UINT64_MAX, 2, 1},         {kTop, 2, 1},
        {kTop - 1, 2, 0},   {UINT64_MAX / 3, 3, 0}, {UINT64_MAX / 3 + 1, 3, 1},
    };
    for (const auto &row : table) {
        EXPECT_EQ(tav_util_check_multiply_overflow_u64(row.a, row.b), row.overflows)
            << row.a << " * " << row.b;
        EXPECT_EQ(exact_u64(row.a, row.b), row.overflows) << "table row " << row.a;
    }
}

// Around every boundary that matters (0, ±1, powers of two and their
// neighbours, the extremes) the tests agree with the exact product, and they
// never report or allocate.
TEST(IntegerOverflow, AgreesWithTheExactProductAroundEveryBoundary) {
    std::vector<int64_t> values{0, 1, -1, INT64_MAX, INT64_MIN, INT64_MAX - 1, INT64_MIN + 1};
    for (int bit = 1; bit < 63; ++bit) {
        const int64_t power = int64_t{1} << bit;
        for (int64_t v : {power - 1, power, power + 1}) {
            values.push_back(v);
            values.push_back(-v);
        }
    }
    tavtest::clear_reports();
    long mismatches = 0;
    const auto run = tavtest::run_allocations(0, [&] {
        for (int64_t a : values) {
            for (int64_t b : values) {
                mismatches += tav_util_check_multiply_overflow_i64(a, b) != exact_i64(a, b);
                const auto a32 = static_cast<int32_t>(a >> 31 == 0 || a >> 31 == -1 ? a : a >> 32);
                const auto b32 = static_cast<int32_t>(b >> 31 == 0 || b >> 31 == -1 ? b : b >> 32);
                mismatches += tav_util_check_multiply_overflow_i32(a32, b32) != exact_i32(a32, b32);
                const auto ua = static_cast<uint64_t>(a);
                const auto ub = static_cast<uint64_t>(b);
                mismatches += tav_util_check_multiply_overflow_u64(ua, ub) != exact_u64(ua, ub);
            }
        }
    });
    EXPECT_EQ(mismatches, 0);
    EXPECT_EQ(run.allocations, 0);
    EXPECT_TRUE(tavtest::reports().empty());
}

} // namespace
