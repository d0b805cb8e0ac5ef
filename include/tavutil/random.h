/* The seeded pseudo-random generator. */
#ifndef TAVUTIL_RANDOM_H
#define TAVUTIL_RANDOM_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The generator's whole state, in the caller's storage. Valid only after
 * tav_util_seed_prng; may be copied by value to fork the stream. */
typedef struct tav_util_prng_state {
    int32_t cursor;     /* index in `table` of the word written last */
    uint64_t weyl;      /* the Weyl counter */
    uint64_t table[64]; /* the lag table */
} tav_util_prng_state;

/* Fills the whole record from `seed` (0 acts as all ones) and a second,
 * independent `seed_addend`. */
tav_status tav_util_seed_prng(tav_util_prng_state *state, uint64_t seed, uint64_t seed_addend);

/* One word into `*out`. */
tav_status tav_util_prng(tav_util_prng_state *state, uint64_t *out);

/* One word, from a state whose three parts the caller keeps apart. Any
 * stored `*cursor` is taken modulo 64. */
tav_status tav_util_prng_unpacked(int32_t *cursor, uint64_t *weyl, uint64_t table[64],
                                  uint64_t *out);

/* `count` words into `out[0]` to `out[count - 1]`, the same words and the same
 * final state as `count` calls of tav_util_prng. A `count` of 0 does nothing
 * and returns TAV_OK. `out` must not overlap `*state`. */
tav_status tav_util_prng_batch(tav_util_prng_state *state, uint64_t *out, size_t count);

/* One word, with `value` stirred into the state; a `value` of 0 makes it the
 * same as tav_util_prng. Null pointers give TAV_ERR_BAD_ARG. */
tav_status tav_util_mix_into_prng(tav_util_prng_state *state, uint64_t value, uint64_t *out);

/* `length` pseudo-random bytes into `buffer` (any alignment). A partial last
 * word costs a whole step. A `length` of 0 does nothing and returns TAV_OK. */
tav_status tav_util_prng_fill(tav_util_prng_state *state, void *buffer, size_t length);

#ifdef __cplusplus
}
#endif

#endif
