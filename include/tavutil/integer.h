/* Integer helpers: power-of-two rounding and overflow tests. */
#ifndef TAVUTIL_INTEGER_H
#define TAVUTIL_INTEGER_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The smallest power of two at or above `n`; 0 gives 0. No power of two
 * above 2^63 fits in 64 bits, so an `n` above 2^63 gives 0. */
uint64_t round_up_power_2(uint64_t n);

/* The largest power of two at or below `n`; 0 gives 0. */
uint64_t round_down_power_2(uint64_t n);

/* 1 when `a * b` would fall outside the type's range, otherwise 0. Ask before
 * multiplying. */
int32_t tav_util_check_multiply_overflow_i64(int64_t a, int64_t b);
int32_t tav_util_check_multiply_overflow_i32(int32_t a, int32_t b);
int32_t tav_util_check_multiply_overflow_u64(uint64_t a, uint64_t b);

#ifdef __cplusplus
}
#endif

#endif
