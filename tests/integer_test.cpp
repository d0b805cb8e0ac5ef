#include "rows.hpp"

namespace {

constexpr uint64_t kTop = uint64_t{1} << 63;

// Each power rounds to itself, the values between it and its half to the two
// ends; above 2^63 up gives 0 and down 2^63.
TEST(Integer, Rounding) {
    std::vector<std::tuple<uint64_t, uint64_t, uint64_t>> rows = {
        {0, 0, 0}, {1, 1, 1}, {kTop + 1, 0, kTop}, {UINT64_MAX, 0, kTop}};
    for (uint64_t power = 4; power != 0; power <<= 1) {
        rows.insert(rows.end(), {{power / 2 + 1, power, power / 2},
                                 {power - 1, power, power / 2},
                                 {power, power, power}});
    }
    for (const auto &[n, up, down] : rows) {
        EXPECT_EQ(std::pair(round_up_power_2(n), round_down_power_2(n)), std::pair(up, down)) << n;
    }
}

// Each row as a * b and as b * a, so one row covers both mixed signs; the
// signed widths share one rule, tested at 64 bits.
TEST(Integer, MultiplyOverflow) {
    constexpr int64_t kMax = INT64_MAX, kMin = INT64_MIN;
    constexpr uint64_t kThird = UINT64_MAX / 3;
    using Row = std::tuple<int64_t, int64_t, int32_t>;
    for (const auto &[a, b, expected] :
         {Row{0, kMin, 0}, Row{3, kMax / 3, 0}, Row{3, kMax / 3 + 1, 1}, Row{3, kMin / 3, 0},
          Row{3, kMin / 3 - 1, 1}, Row{-3, kMin / 3, 0}, Row{-3, kMin / 3 - 1, 1}, Row{kMin, -1, 1},
          Row{kMin, 1, 0}}) {
        EXPECT_EQ(std::pair(tav_util_check_multiply_overflow_i64(a, b),
                            tav_util_check_multiply_overflow_i64(b, a)),
                  std::pair(expected, expected));
    }
    EXPECT_EQ(std::vector({tav_util_check_multiply_overflow_i32(65536, 32768),
                           tav_util_check_multiply_overflow_i32(-65536, 32768),
                           tav_util_check_multiply_overflow_u64(UINT64_MAX, 0),
                           tav_util_check_multiply_overflow_u64(3, kThird),
                           tav_util_check_multiply_overflow_u64(kThird + 1, 3)}),
              std::vector({1, 0, 0, 0, 1}));
}

} // namespace
