/**
 * @file tavutil/random.h
 * @brief The seeded pseudo-random generator: a repeatable stream of 64-bit
 * words from a state record the caller owns.
 *
 * Nothing here logs; the only failures are null pointers, traced.
 */
#ifndef TAVUTIL_RANDOM_H
#define TAVUTIL_RANDOM_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief The generator's whole state, in the caller's storage.
 *
 * Valid only after tav_util_seed_prng(); may be copied by value to fork the
 * stream. Needs no release.
 */
typedef struct tav_util_prng_state {
    int32_t cursor;     /**< Index in `table` of the word written last. */
    uint64_t weyl;      /**< The Weyl counter. */
    uint64_t table[64]; /**< The lag table. */
} tav_util_prng_state;

/**
 * @brief Fills the whole record from two seed values; the same seeds give the
 * same stream.
 * @param state       The record to fill; null gives TAV_ERR_NULL_ARG, traced.
 * @param seed        First seed; 0 acts as all ones.
 * @param seed_addend A second, independent seed value.
 * @return TAV_OK or TAV_ERR_NULL_ARG.
 */
tav_status tav_util_seed_prng(tav_util_prng_state *state, uint64_t seed, uint64_t seed_addend);

/**
 * @brief Makes one word.
 * @param state The seeded record.
 * @param out   Receives the word.
 * @return TAV_OK, or TAV_ERR_NULL_ARG for a null pointer, traced under the
 *         name tav_util_prng_unpacked and passed up; nothing changes then.
 */
tav_status tav_util_prng(tav_util_prng_state *state, uint64_t *out);

/**
 * @brief Makes one word from a state whose three parts the caller keeps
 * apart.
 * @param cursor In and out: index of the word written last; any stored value
 *               is taken modulo 64.
 * @param weyl   In and out: the Weyl counter.
 * @param table  In and out: the 64-word lag table.
 * @param out    Receives the word.
 * @return TAV_OK, or TAV_ERR_NULL_ARG for a null pointer, traced; nothing
 *         changes then.
 */
tav_status tav_util_prng_unpacked(int32_t *cursor, uint64_t *weyl, uint64_t table[64],
                                  uint64_t *out);

/**
 * @brief Makes @p count words: the same words and the same final state as
 * @p count calls of tav_util_prng().
 * @param state The seeded record.
 * @param out   Receives the words; must not overlap @p state.
 * @param count Number of words; 0 does nothing.
 * @return TAV_OK, or TAV_ERR_NULL_ARG for a null pointer, traced; nothing
 *         changes then.
 */
tav_status tav_util_prng_batch(tav_util_prng_state *state, uint64_t *out, size_t count);

/**
 * @brief Makes one word with @p value stirred into the state; a value of 0
 * makes it the same as tav_util_prng().
 * @param state The seeded record.
 * @param value Value stirred in.
 * @param out   Receives the word.
 * @return TAV_OK, or TAV_ERR_BAD_ARG (not TAV_ERR_NULL_ARG) for a null
 *         pointer, traced; nothing changes then.
 */
tav_status tav_util_mix_into_prng(tav_util_prng_state *state, uint64_t value, uint64_t *out);

/**
 * @brief Fills a buffer with pseudo-random bytes: whole words in the
 * machine's byte order, then the first bytes of one more word (a partial word
 * costs a whole step).
 *
 * A length of 0 does nothing and tests nothing. A null state, or a null
 * buffer with 8 bytes or more, gives TAV_ERR_NULL_ARG traced under
 * tav_util_prng_batch and traced again here; a null buffer with 1 to 7 bytes
 * gives it traced here only. Nothing changes on failure.
 * @param state  The seeded record.
 * @param buffer Receives the bytes; any alignment.
 * @param length Number of bytes.
 * @return TAV_OK or TAV_ERR_NULL_ARG.
 */
tav_status tav_util_prng_fill(tav_util_prng_state *state, void *buffer, size_t length);

#ifdef __cplusplus
}
#endif

#endif
