// Integer helpers: power-of-two rounding and overflow tests made before the
// multiplication, so the caller never computes a product that wraps.
#include <limits>

#include "internal/frame.hpp"

namespace {

constexpr uint64_t kTopPower = uint64_t{1} << 63;

// True for every power of two and for 0: both round to themselves.
constexpr bool rounds_to_itself(uint64_t n) { return ((n - 1) & n) == 0; }

// The rule for one signed width. The divisor is always the operand that
// keeps MIN from being divided by a negative value, so no division overflows.
template <typename Int> constexpr int32_t multiply_overflows(Int a, Int b) {
    constexpr Int max = std::numeric_limits<Int>::max();
    constexpr Int min = std::numeric_limits<Int>::min();
    if (a == 0 || b == 0) {
        return 0;
    }
    if (a > 0 && b > 0) {
        return max / b < a;
    }
    if (a < 0 && b < 0) {
        return max / a > b;
    }
    if (a > 0) {
        return min / a > b;
    }
    return min / b > a;
}

} // namespace

extern "C" {

uint64_t round_up_power_2(uint64_t n) {
    if (rounds_to_itself(n)) {
        return n;
    }
    // Above 2^63 no power of two fits in 64 bits. Doubling would wrap p to 0
    // and never end, so the search stops at the top and such an n yields 0,
    // the same "no power" answer a wrapped doubling would give.
    if (n > kTopPower) {
        return 0;
    }
    uint64_t p = 1;
    while (p < n) {
        p <<= 1;
    }
    return p;
}

uint64_t round_down_power_2(uint64_t n) {
    if (rounds_to_itself(n)) {
        return n;
    }
    // Stops at 2^63: doubling further would wrap, and 2^63 is already the
    // largest power below any n above it.
    uint64_t p = 1;
    while (p < kTopPower && 2 * p < n) {
        p <<= 1;
    }
    return p;
}

int32_t tav_util_check_multiply_overflow_i64(int64_t a, int64_t b) {
    return multiply_overflows(a, b);
}

int32_t tav_util_check_multiply_overflow_i32(int32_t a, int32_t b) {
    return multiply_overflows(a, b);
}

int32_t tav_util_check_multiply_overflow_u64(uint64_t a, uint64_t b) {
    if (a == 0 || b == 0) {
        return 0;
    }
    return std::numeric_limits<uint64_t>::max() / b < a;
}

} // extern "C"
