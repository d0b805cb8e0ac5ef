// Integer helpers: the rounding edges, and the overflow tests at the
// boundaries of every pairing of signs.
#include <gtest/gtest.h>

#include "tavutil.h"

namespace {

constexpr uint64_t kTop = uint64_t{1} << 63, kP32 = uint64_t{1} << 32;

// Each power rounds to itself, the values between it and its half to the two
// ends (2, 3, 5, 7, 8 and 2^63 among them). Above 2^63 up ends with 0, down at 2^63.
TEST(Integer, Rounding) {
    for (int bit = 2; bit < 64; ++bit) {
        const uint64_t power = uint64_t{1} << bit;
        for (uint64_t n : {power / 2 + 1, power - 1, power}) {
            EXPECT_EQ(std::pair(round_up_power_2(n), round_down_power_2(n)),
                      std::pair(power, n == power ? power : power / 2))
                << n;
        }
    }
    for (uint64_t n : {uint64_t{0}, uint64_t{1}, kTop + 1, UINT64_MAX}) {
        EXPECT_EQ(std::pair(round_up_power_2(n), round_down_power_2(n)),
                  n < 2 ? std::pair(n, n) : std::pair(uint64_t{0}, kTop))
            << n;
    }
}

// Each row is checked as a * b and as b * a, so one row covers both mixed signs.
TEST(Integer, MultiplyOverflow) {
    auto check = [](auto overflows, const auto &rows) {
        for (const auto &[a, b, want] : rows) {
            EXPECT_EQ(std::pair(overflows(a, b), overflows(b, a)),
                      std::pair(int32_t(want), int32_t(want)))
                << a << " * " << b;
        }
    };
    constexpr int64_t kMax = INT64_MAX, kMin = INT64_MIN, p31 = int64_t{1} << 31,
                      p32 = int64_t{1} << 32;
    // clang-format off
    check(tav_util_check_multiply_overflow_i64, std::initializer_list<std::tuple<int64_t, int64_t, int>>{
        {0, kMin, 0}, {kMax, 1, 0}, {kMin, 1, 0}, {kMin, -1, 1}, {-1, -1, 0}, {p32, p31, 1}, {-p32, p31, 0}, {-p32 - 1, p31, 1},
        {-1, -kMax, 0}, {3, kMax / 3, 0}, {3, kMax / 3 + 1, 1}, {3, kMin / 3, 0}, {3, kMin / 3 - 1, 1}, {-3, kMin / 3, 0},
        {-3, kMin / 3 - 1, 1}, {kMax, kMax, 1}, {kMin, kMin, 1}, {kMax, kMin, 1}, {kMax, -1, 0}});
    check(tav_util_check_multiply_overflow_i32, std::initializer_list<std::tuple<int32_t, int32_t, int>>{
        {65536, 32768, 1}, {-65536, 32768, 0}, {0, INT32_MIN, 0}, {INT32_MIN, -1, 1}, {INT32_MAX, 1, 0}, {-1, -INT32_MAX, 0},
        {3, INT32_MIN / 3, 0}, {3, INT32_MIN / 3 - 1, 1}, {3, INT32_MAX / 3 + 1, 1}});
    check(tav_util_check_multiply_overflow_u64, std::initializer_list<std::tuple<uint64_t, uint64_t, int>>{
        {kP32, kP32, 1}, {kP32, kP32 - 1, 0}, {0, UINT64_MAX, 0}, {UINT64_MAX, 1, 0}, {UINT64_MAX, 2, 1}, {3, UINT64_MAX / 3, 0},
        {3, UINT64_MAX / 3 + 1, 1}, {kTop, 2, 1}});
    // clang-format on
}

} // namespace
