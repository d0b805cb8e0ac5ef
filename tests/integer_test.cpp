#include "support.hpp"

// Both orders of each multiplication row; the signed widths share one rule.
TEST(Integer, RoundingAndMultiplyOverflow) {
    constexpr uint64_t kTop = uint64_t{1} << 63;
    using Row = std::tuple<uint64_t, uint64_t, uint64_t>;
    for (const auto &[n, up, down] :
         {Row{0, 0, 0}, Row{1, 1, 1}, Row{2, 2, 2}, Row{3, 4, 2}, Row{5, 8, 4}, Row{7, 8, 4},
          Row{8, 8, 8}, Row{kTop - 1, kTop, kTop / 2}, Row{kTop, kTop, kTop},
          Row{kTop + 1, 0, kTop}, Row{UINT64_MAX, 0, kTop}}) {
        EXPECT_EQ(std::pair(round_up_power_2(n), round_down_power_2(n)), std::pair(up, down)) << n;
    }
    constexpr int64_t kMax = INT64_MAX, kMin = INT64_MIN;
    using Product = std::tuple<int64_t, int64_t, int32_t>;
    for (const auto &[a, b, expected] :
         {Product{0, kMin, 0}, Product{3, kMax / 3, 0}, Product{3, kMax / 3 + 1, 1},
          Product{3, kMin / 3, 0}, Product{3, kMin / 3 - 1, 1}, Product{-3, kMin / 3, 0},
          Product{-3, kMin / 3 - 1, 1}, Product{kMin, -1, 1}, Product{kMin, 1, 0}}) {
        EXPECT_EQ(std::pair(tav_util_check_multiply_overflow_i64(a, b),
                            tav_util_check_multiply_overflow_i64(b, a)),
                  std::pair(expected, expected));
    }
    const auto i32 = tav_util_check_multiply_overflow_i32;
    const auto u64 = tav_util_check_multiply_overflow_u64;
    constexpr uint64_t kThird = UINT64_MAX / 3;
    EXPECT_EQ(std::vector({i32(65536, 32768), i32(-65536, 32768), u64(UINT64_MAX, 0),
                           u64(0, UINT64_MAX), u64(3, kThird), u64(kThird + 1, 3)}),
              std::vector({1, 0, 0, 0, 0, 1}));
}
