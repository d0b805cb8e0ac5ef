#include "support.hpp"

TEST(Integer, Rounding) {
    constexpr uint64_t kTop = uint64_t{1} << 63;
    for (uint64_t p = 4; p != 0; p <<= 1) {
        for (uint64_t n : {p / 2 + 1, p - 1, p}) {
            EXPECT_EQ(std::pair(round_up_power_2(n), round_down_power_2(n)),
                      std::pair(p, n == p ? p : p / 2));
        }
    }
    for (uint64_t n : {uint64_t{0}, uint64_t{1}, kTop + 1, UINT64_MAX}) {
        EXPECT_EQ(std::pair(round_up_power_2(n), round_down_power_2(n)),
                  n < 2 ? std::pair(n, n) : std::pair(uint64_t{0}, kTop));
    }
}

// Both orders of each row; the signed widths share one rule.
TEST(Integer, MultiplyOverflow) {
    constexpr int64_t kMax = INT64_MAX, kMin = INT64_MIN;
    using Row = std::tuple<int64_t, int64_t, int32_t>;
    for (const auto &[a, b, expected] :
         {Row{0, kMin, 0}, Row{3, kMax / 3, 0}, Row{3, kMax / 3 + 1, 1}, Row{3, kMin / 3, 0},
          Row{3, kMin / 3 - 1, 1}, Row{-3, kMin / 3, 0}, Row{-3, kMin / 3 - 1, 1}, Row{kMin, -1, 1},
          Row{kMin, 1, 0}}) {
        EXPECT_EQ(std::pair(tav_util_check_multiply_overflow_i64(a, b),
                            tav_util_check_multiply_overflow_i64(b, a)),
                  std::pair(expected, expected));
    }
    constexpr uint64_t kThird = UINT64_MAX / 3;
    EXPECT_EQ(std::vector({tav_util_check_multiply_overflow_i32(65536, 32768),
                           tav_util_check_multiply_overflow_i32(-65536, 32768),
                           tav_util_check_multiply_overflow_u64(UINT64_MAX, 0),
                           tav_util_check_multiply_overflow_u64(0, UINT64_MAX),
                           tav_util_check_multiply_overflow_u64(3, kThird),
                           tav_util_check_multiply_overflow_u64(kThird + 1, 3)}),
              std::vector({1, 0, 0, 0, 0, 1}));
}
