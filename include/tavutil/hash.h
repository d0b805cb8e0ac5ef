/**
 * @file tavutil/hash.h
 * @brief The 64-bit hash of a byte run.
 */
#ifndef TAVUTIL_HASH_H
#define TAVUTIL_HASH_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Hashes a byte run into a 64-bit value. No seed, no key: the same
 * bytes always give the same value; the length itself is not mixed in.
 *
 * Failures: a null pointer, then a length of 0, give TAV_ERR_BAD_ARG, traced,
 * with no log line; @p result is then left alone.
 * @param data   The bytes; any alignment; not changed.
 * @param length Their count, at least 1.
 * @param result Receives the hash.
 * @return TAV_OK or TAV_ERR_BAD_ARG.
 */
tav_status tav_util_hash64(const void *data, size_t length, uint64_t *result);

#ifdef __cplusplus
}
#endif

#endif
