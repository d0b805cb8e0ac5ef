/* The 64-bit hash of a byte run. */
#ifndef TAVUTIL_HASH_H
#define TAVUTIL_HASH_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Hashes `length` bytes of `data` (any alignment, at least one byte) into
 * `*result`. No seed, no key; the same bytes always give the same value.
 * TAV_ERR_BAD_ARG for a null pointer or a length of 0, and `*result` is left
 * alone. */
tav_status tav_util_hash64(const void *data, size_t length, uint64_t *result);

#ifdef __cplusplus
}
#endif

#endif
