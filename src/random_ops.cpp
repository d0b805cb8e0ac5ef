// The seeded pseudo-random generator: a lagged xorshift recurrence over a
// 64-word table whose words are combined with a Weyl sequence on the way out.
#include <algorithm>
#include <cstring>

#include "internal/frame.hpp"
#include "internal/scramble.hpp"

namespace {

constexpr uint32_t kTableWords = 64;
constexpr uint32_t kIndexMask = kTableWords - 1;
constexpr uint32_t kLag = 11; // table[i] is stirred with table[i + 11]
constexpr uint64_t kWeylIncrement = 0x61C8864680B583EB;
constexpr int kSeedPasses = 64;
constexpr int kWarmUpSteps = 256;

// The recurrence on the word at an index (`own`) and the word 11 places
// ahead (`lagged`); the result replaces `own` in the table. A template, so
// that the batch applies the very same operations to several words at once
// as the lanes of one vector.
template <typename Word> constexpr Word recur(Word own, Word lagged) {
    own ^= own << 33;
    own ^= own >> 26;
    lagged ^= lagged << 27;
    lagged ^= lagged >> 29;
    return own ^ lagged;
}

// What the caller sees of a step: the advanced Weyl counter, mixed, plus the
// new table word.
template <typename Word> constexpr Word output_word(Word weyl, Word recurred) {
    return (weyl ^ (weyl >> 27)) + recurred;
}

// The recurrence at the index after `cursor`, with `value` added to the
// lagged word (0 for a plain step); the cursor moves there and the new word
// is returned. Unsigned arithmetic keeps any stored cursor, negative or near
// the top, from overflowing: it is simply taken modulo 64.
uint64_t stir(int32_t &cursor, uint64_t *table, uint64_t value) {
    const uint32_t i = (static_cast<uint32_t>(cursor) + 1) & kIndexMask;
    table[i] = recur(table[i], table[(i + kLag) & kIndexMask] + value);
    cursor = static_cast<int32_t>(i);
    return table[i];
}

// One step: the table is stirred, the counter advances, a word comes out.
uint64_t step(int32_t &cursor, uint64_t &weyl, uint64_t *table, uint64_t value) {
    const uint64_t recurred = stir(cursor, table, value);
    weyl += kWeylIncrement;
    return output_word(weyl, recurred);
}

// ---- batches ---------------------------------------------------------------
//
// Step i reads table[i + 11], which step i - 53 of the same pass wrote, so
// any 53 steps in a row read only words written before they start. The table
// is walked in two runs per pass whose lagged index needs no wrapping: from
// index 0 to 52 the lagged word lies 11 ahead (not yet rewritten this pass),
// from 53 to 63 it lies 53 behind (rewritten at the start of this pass).
// Within a run, a block of up to 11 steps writes no word that one of its own
// steps reads, so a block loads all its words first and computes its steps
// side by side, as lanes of one vector. The words and the final state are
// those of single steps, in the same order.

// Two words as one value, the width of a vector register on every 64-bit
// target (SSE2, NEON); where there is none the compiler uses two scalars.
typedef uint64_t Lanes __attribute__((vector_size(16)));
constexpr size_t kLanes = sizeof(Lanes) / sizeof(uint64_t);
constexpr uint32_t kWrapStart = kTableWords - kLag; // first index whose lagged word wraps

// Steps in blocks of `Pairs` lane pairs from step `k` on, as many whole
// blocks as fit below `count`; returns the step after them. The pairs of a
// block are independent, so the processor overlaps them. The counters of
// each pair's two steps stay in one vector, which moves on two steps a pair.
template <size_t Pairs>
size_t block_steps(uint64_t *own, const uint64_t *lagged, size_t k, size_t count, uint64_t &weyl,
                   unsigned char *out) {
    constexpr size_t kBlock = Pairs * kLanes;
    static_assert(kBlock <= kLag, "a block must not write a word it also reads");
    constexpr Lanes kPairStep = {kLanes * kWeylIncrement, kLanes * kWeylIncrement};
    Lanes weyls = {weyl + kWeylIncrement, weyl + 2 * kWeylIncrement};
    const size_t first = k;
    for (; k + kBlock <= count; k += kBlock) {
        for (size_t pair = 0; pair < Pairs; ++pair) {
            const size_t at = k + pair * kLanes;
            Lanes own_words, lagged_words;
            std::memcpy(&own_words, own + at, sizeof own_words);
            std::memcpy(&lagged_words, lagged + at, sizeof lagged_words);
            const Lanes recurred = recur(own_words, lagged_words);
            std::memcpy(own + at, &recurred, sizeof recurred);
            const Lanes words = output_word(weyls, recurred);
            std::memcpy(out + 8 * at, &words, sizeof words);
            weyls += kPairStep;
        }
    }
    weyl += (k - first) * kWeylIncrement;
    return k;
}

// `count` steps at the indices `first` on, all within one run, so that the
// lagged word of index i is table[i + LagOffset]. Words go to `out` through
// memcpy: it need not be aligned.
template <int LagOffset>
[[gnu::always_inline]] inline void run_steps(uint64_t *table, uint32_t first, size_t count,
                                             uint64_t &weyl, unsigned char *out) {
    uint64_t *own = table + first;
    const uint64_t *lagged = table + static_cast<int>(first) + LagOffset;
    size_t k = block_steps<4>(own, lagged, 0, count, weyl, out);
    k = block_steps<1>(own, lagged, k, count, weyl, out);
    for (; k < count; ++k) {
        const uint64_t recurred = recur(own[k], lagged[k]);
        own[k] = recurred;
        weyl += kWeylIncrement;
        const uint64_t word = output_word(weyl, recurred);
        std::memcpy(out + 8 * k, &word, sizeof word);
    }
}

// `count` steps after the state's cursor, their words to `out`; the cursor
// and the counter are kept in locals and written back once.
void generate(tav_util_prng_state &state, unsigned char *out, size_t count) {
    uint32_t index = (static_cast<uint32_t>(state.cursor) + 1) & kIndexMask;
    uint64_t weyl = state.weyl;
    while (count > 0) {
        // Whole passes from index 0: both runs have their fixed lengths, so
        // every block of them is laid out at compile time.
        for (; index == 0 && count >= kTableWords; count -= kTableWords) {
            run_steps<static_cast<int>(kLag)>(state.table, 0, kWrapStart, weyl, out);
            run_steps<static_cast<int>(kLag) - static_cast<int>(kTableWords)>(
                state.table, kWrapStart, kLag, weyl, out + 8 * kWrapStart);
            out += 8 * kTableWords;
        }
        if (count == 0) {
            break;
        }
        const bool ahead = index < kWrapStart;
        const size_t run = std::min<size_t>((ahead ? kWrapStart : kTableWords) - index, count);
        if (ahead) {
            run_steps<static_cast<int>(kLag)>(state.table, index, run, weyl, out);
        } else {
            run_steps<static_cast<int>(kLag) - static_cast<int>(kTableWords)>(state.table, index,
                                                                              run, weyl, out);
        }
        out += 8 * run;
        count -= run;
        index = static_cast<uint32_t>(index + run) & kIndexMask;
    }
    state.cursor = static_cast<int32_t>((index - 1) & kIndexMask);
    state.weyl = weyl;
}

} // namespace

extern "C" {

// The same functions under names bound inside the library, so that
// tav_util_prng and tav_util_prng_fill reach them by a direct call rather
// than through the PLT.
[[gnu::alias("tav_util_prng_unpacked"), gnu::visibility("hidden")]] tav_status
prng_unpacked_here(int32_t *cursor, uint64_t *weyl, uint64_t table[64], uint64_t *out);
[[gnu::alias("tav_util_prng_batch"), gnu::visibility("hidden")]] tav_status
prng_batch_here(tav_util_prng_state *state, uint64_t *out, size_t count);

tav_status tav_util_seed_prng(tav_util_prng_state *state, uint64_t seed, uint64_t seed_addend) {
    if (state == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    // 0 would stay 0 under the scrambler; all ones stands in for it.
    uint64_t v = seed == 0 ? ~uint64_t{0} : seed;
    for (int pass = 0; pass < kSeedPasses; ++pass) {
        v = tav::scramble(v);
    }
    state->weyl = v;
    for (uint32_t i = 0; i < kTableWords; ++i) {
        v = tav::scramble(v);
        state->weyl += kWeylIncrement;
        state->table[i] = state->weyl + v;
    }
    state->table[0] += seed_addend;
    state->cursor = kTableWords - 1;
    // Warm-up: the table is stirred, the counter stays and nothing is output.
    for (int n = 0; n < kWarmUpSteps; ++n) {
        stir(state->cursor, state->table, 0);
    }
    return TAV_OK;
}

tav_status tav_util_prng_unpacked(int32_t *cursor, uint64_t *weyl, uint64_t table[64],
                                  uint64_t *out) {
    if (cursor == nullptr || weyl == nullptr || table == nullptr || out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    *out = step(*cursor, *weyl, table, 0);
    return TAV_OK;
}

tav_status tav_util_prng(tav_util_prng_state *state, uint64_t *out) {
    // The fields are handed on as they are; a null state becomes null fields,
    // which the callee reports under its own name.
    if (state == nullptr) {
        return prng_unpacked_here(nullptr, nullptr, nullptr, out);
    }
    return prng_unpacked_here(&state->cursor, &state->weyl, state->table, out);
}

tav_status tav_util_prng_batch(tav_util_prng_state *state, uint64_t *out, size_t count) {
    if (state == nullptr || out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    // A batch of no words makes no step: the state, even a cursor stored
    // outside 0 to 63, and `out` stay as they are.
    if (count == 0) {
        return TAV_OK;
    }
    generate(*state, reinterpret_cast<unsigned char *>(out), count);
    return TAV_OK;
}

tav_status tav_util_mix_into_prng(tav_util_prng_state *state, uint64_t value, uint64_t *out) {
    if (state == nullptr || out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    *out = step(state->cursor, state->weyl, state->table, value);
    return TAV_OK;
}

tav_status tav_util_prng_fill(tav_util_prng_state *state, void *buffer, size_t length) {
    auto *bytes = static_cast<unsigned char *>(buffer);
    const size_t words = length / 8;
    if (words != 0) {
        // The batch writes each word with memcpy, so the unaligned buffer
        // may be handed to it as words.
        const tav_status status =
            prng_batch_here(state, reinterpret_cast<uint64_t *>(bytes), words);
        if (status != TAV_OK) {
            return tav::traced_again(TAV_SITE, status);
        }
    }
    const size_t rest = length - 8 * words;
    if (rest != 0) {
        if (bytes == nullptr) {
            return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
        }
        uint64_t word = 0;
        const tav_status status = prng_batch_here(state, &word, 1);
        if (status != TAV_OK) {
            return tav::traced_again(TAV_SITE, status);
        }
        std::memcpy(bytes + 8 * words, &word, rest);
    }
    return TAV_OK;
}

} // extern "C"
