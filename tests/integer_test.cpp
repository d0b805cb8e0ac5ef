#include "rows.hpp"

namespace {

constexpr uint64_t kTop = uint64_t{1} << 63;

// Each power rounds to itself, the values between it and its half to the two
// ends. Above 2^63 up gives 0 and down 2^63.
TEST(Integer, Rounding) {
    for (int bit = 2; bit < 64; ++bit) {
        const uint64_t power = uint64_t{1} << bit;
        for (uint64_t n : {power / 2 + 1, power - 1, power}) {
            EXPECT_EQ(std::pair(round_up_power_2(n), round_down_power_2(n)),
                      std::pair(power, n == power ? power : power / 2));
        }
    }
    for (uint64_t n : {uint64_t{0}, uint64_t{1}, kTop + 1, UINT64_MAX}) {
        EXPECT_EQ(std::pair(round_up_power_2(n), round_down_power_2(n)),
                  n < 2 ? std::pair(n, n) : std::pair(uint64_t{0}, kTop));
    }
}

// Each row as a * b and as b * a, so one row covers both mixed signs; the
// signed widths share one rule, tested at 64 bits.
TEST(Integer, MultiplyOverflow) {
    const auto check = [](auto overflows, auto a, auto b, int expected) {
        EXPECT_EQ(std::pair(overflows(a, b), overflows(b, a)), std::pair(expected, expected));
    };
    constexpr int64_t kMax = INT64_MAX, kMin = INT64_MIN;
    using Row = std::tuple<int64_t, int64_t, int>;
    for (const auto &[a, b, expected] :
         {Row{0, kMin, 0}, Row{3, kMax / 3, 0}, Row{3, kMax / 3 + 1, 1}, Row{3, kMin / 3, 0},
          Row{3, kMin / 3 - 1, 1}, Row{-3, kMin / 3, 0}, Row{-3, kMin / 3 - 1, 1}, Row{kMin, -1, 1},
          Row{kMin, 1, 0}}) {
        check(tav_util_check_multiply_overflow_i64, a, b, expected);
    }
    check(tav_util_check_multiply_overflow_i32, 65536, 32768, 1);
    check(tav_util_check_multiply_overflow_i32, -65536, 32768, 0);
    using Unsigned = std::tuple<uint64_t, uint64_t, int>;
    for (const auto &[a, b, expected] : {Unsigned{0, UINT64_MAX, 0}, Unsigned{3, UINT64_MAX / 3, 0},
                                         Unsigned{3, UINT64_MAX / 3 + 1, 1}}) {
        check(tav_util_check_multiply_overflow_u64, a, b, expected);
    }
}

} // namespace
