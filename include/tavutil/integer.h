/**
 * @file tavutil/integer.h
 * @brief Integer helpers: power-of-two rounding and overflow tests.
 *
 * Pure functions: no pointers, no state, no failure, no report.
 */
#ifndef TAVUTIL_INTEGER_H
#define TAVUTIL_INTEGER_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief The smallest power of two at or above @p n.
 * @param n The value rounded.
 * @return The power of two; 0 gives 0. No power of two above 2^63 fits in 64
 *         bits, so an @p n above 2^63 gives 0.
 */
uint64_t round_up_power_2(uint64_t n);

/**
 * @brief The largest power of two at or below @p n.
 * @param n The value rounded.
 * @return The power of two; 0 gives 0.
 */
uint64_t round_down_power_2(uint64_t n);

/**
 * @brief Tells, before multiplying, whether `a * b` would fall outside the
 * 64-bit signed range.
 * @param a First factor.
 * @param b Second factor.
 * @return 1 when the product would overflow, otherwise 0.
 */
int32_t tav_util_check_multiply_overflow_i64(int64_t a, int64_t b);
/**
 * @brief Tells, before multiplying, whether `a * b` would fall outside the
 * 32-bit signed range.
 * @param a First factor.
 * @param b Second factor.
 * @return 1 when the product would overflow, otherwise 0.
 */
int32_t tav_util_check_multiply_overflow_i32(int32_t a, int32_t b);
/**
 * @brief Tells, before multiplying, whether `a * b` would exceed the 64-bit
 * unsigned range.
 * @param a First factor.
 * @param b Second factor.
 * @return 1 when the product would overflow, otherwise 0.
 */
int32_t tav_util_check_multiply_overflow_u64(uint64_t a, uint64_t b);

#ifdef __cplusplus
}
#endif

#endif
