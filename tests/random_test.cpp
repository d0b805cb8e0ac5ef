// The pseudo-random generator: worked values, fills and batches cross-checked
// against single words over long runs, stored cursors, and every failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
using Words = std::vector<uint64_t>;
using Bytes = std::vector<unsigned char>;
constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5A;
const std::string kUnpackedNull = "trace tav_util_prng_unpacked src/random_ops.cpp 3";
const std::string kBatchNull = "trace tav_util_prng_batch src/random_ops.cpp 3";
const std::string kFillNull = "trace tav_util_prng_fill src/random_ops.cpp 3";
const std::string kMixBad = "trace tav_util_mix_into_prng src/random_ops.cpp 7";

tav_util_prng_state seeded(uint64_t seed, uint64_t addend = 0) {
    tav_util_prng_state state;
    std::memset(&state, 0xEE, sizeof state);
    EXPECT_EQ(tav_util_seed_prng(&state, seed, addend), TAV_OK);
    return state;
}

bool same_state(const tav_util_prng_state &a, const tav_util_prng_state &b) {
    return a.cursor == b.cursor && a.weyl == b.weyl &&
           std::memcmp(a.table, b.table, sizeof a.table) == 0;
}

Words next_words(tav_util_prng_state &state, size_t count) {
    Words words(count, kUntouched);
    for (auto &word : words) {
        EXPECT_EQ(tav_util_prng(&state, &word), TAV_OK);
    }
    return words;
}

TEST(Prng, WorkedValues) {
    tavtest::clear_reports();
    const auto first_three = [](tav_util_prng_state state) { return next_words(state, 3); };
    const Words seed_one{0xB85497A9BA510638, 0x68E100A50B479104, 0xD00B063876877E9D};
    EXPECT_EQ(first_three(seeded(1)), seed_one);
    EXPECT_EQ(first_three(seeded(0)),
              (Words{0x6B9B02117A0BE24C, 0x9A98CE2956464C05, 0x3319636315447E19}));
    EXPECT_EQ(first_three(seeded(~uint64_t{0})), first_three(seeded(0)));
    EXPECT_EQ(first_three(seeded(1, 5)), (Words{0xD85F17C16A4BD32D, seed_one[1], seed_one[2]}));
    const tav_util_prng_state one = seeded(1), added = seeded(1, 5);
    EXPECT_EQ(one.cursor, 63);
    EXPECT_EQ(one.weyl, 0x29A816459E1CE041u);
    EXPECT_EQ(one.table[0], 0x0B50DCD3E48D0878u);
    EXPECT_EQ(one.table[63], 0x9443CF55D5E3B4BAu);
    const uint64_t reached = 1 | 1ull << 20 | 1ull << 31 | 1ull << 42 | 1ull << 53;
    for (int i = 0; i < 64; ++i) { // the addend's slots, through the warm-up
        EXPECT_EQ(one.table[i] != added.table[i], (reached >> i & 1) != 0) << i;
    }
    // A mix of 7 keeps the word it made; a mix of 0 is a plain step.
    tav_util_prng_state plain = one, mixed = one, mixed_zero = one;
    next_words(plain, 1);
    uint64_t words[2] = {kUntouched, kUntouched};
    EXPECT_EQ(tav_util_mix_into_prng(&mixed, 7, &words[0]), TAV_OK);
    EXPECT_EQ(tav_util_mix_into_prng(&mixed_zero, 0, &words[1]), TAV_OK);
    EXPECT_EQ(words[0], 0xB85497AA02510643u);
    EXPECT_EQ(words[1], seed_one[0]);
    EXPECT_TRUE(same_state(mixed_zero, plain));
    EXPECT_NE(mixed.table[0], plain.table[0]);
    mixed.table[0] = plain.table[0];
    EXPECT_TRUE(same_state(mixed, plain));

    tav_util_prng_state filled = one;
    Bytes bytes(16, 0xCC);
    EXPECT_EQ(tav_util_prng_fill(&filled, bytes.data(), 13), TAV_OK);
    EXPECT_EQ(bytes, (Bytes{0x38, 0x06, 0x51, 0xBA, 0xA9, 0x97, 0x54, 0xB8, 0x04, 0x91, 0x47, 0x0B,
                            0xA5, 0xCC, 0xCC, 0xCC}));
    EXPECT_TRUE(tavtest::reports().empty());
}

// Fills of every length from 1 to 80 and one long one, at every alignment, and
// batches of their words, from every starting index, are the bytes, words and
// state of single steps: a partial word costs a whole step (7 and 8 bytes one
// step, 9 bytes two), and nothing around is written. A stored cursor outside
// 0 to 63, given to the fill or to the single steps in turn, is taken modulo
// 64 and leaves a valid index.
TEST(Prng, FillsAndBatchesAreSingleWords) {
    const int64_t laps[] = {0, -1, 1, 1000, -(1 << 25), (1 << 25) - 1, -7, 3};
    for (size_t length = 1; length <= 81; ++length) {
        const size_t size = length == 81 ? 80005 : length, count = (size + 7) / 8;
        for (size_t offset = 0; offset < 8; ++offset) {
            tav_util_prng_state state = seeded(7, length);
            next_words(state, (8 * length + offset) % 64);
            tav_util_prng_state single = state, batch = state;
            (offset % 2 == 0 ? state : single).cursor =
                static_cast<int32_t>(state.cursor + 64 * laps[offset]);
            const Words words = next_words(single, count);
            Bytes buffer(size + 16, 0xCC), expected(size + 16, 0xCC);
            ASSERT_EQ(tav_util_prng_fill(&state, buffer.data() + offset, size), TAV_OK);
            std::copy_n(reinterpret_cast<const unsigned char *>(words.data()), size,
                        expected.begin() + static_cast<long>(offset));
            EXPECT_TRUE(buffer == expected) << "length " << size << " offset " << offset;
            EXPECT_TRUE(same_state(state, single)) << "length " << size << " offset " << offset;
            Words got(count + 1, kUntouched); // one more, to catch a word too many
            EXPECT_EQ(tav_util_prng_batch(&batch, got.data(), count), TAV_OK);
            EXPECT_TRUE(same_state(batch, single)) << "length " << size;
            EXPECT_EQ(got.back(), kUntouched);
            got.pop_back();
            EXPECT_TRUE(got == words) << "length " << size << " offset " << offset;
        }
    }
}

// Each null is traced where it is tested: tav_util_prng passes the callee's
// status up untraced; a fill traces again what its batch traced, tests a null
// buffer itself only for a partial word, and nothing with no bytes to make.
TEST(Prng, NullArgumentsAreTracedWhereTheyAreTested) {
    const tav_util_prng_state before = seeded(1);
    tav_util_prng_state state = before;
    tavtest::clear_reports();
    uint64_t word = kUntouched;
    Bytes buffer(16, 0xCC);
    EXPECT_EQ(tav_util_seed_prng(nullptr, 1, 2), TAV_ERR_NULL_ARG);
    int32_t *cursor = &state.cursor;
    uint64_t *weyl = &state.weyl, *table = state.table;
    EXPECT_EQ(tav_util_prng_unpacked(nullptr, weyl, table, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(cursor, nullptr, table, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(cursor, weyl, nullptr, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(cursor, weyl, table, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng(nullptr, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng(&state, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_batch(nullptr, &word, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_batch(&state, nullptr, 0), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_mix_into_prng(nullptr, 7, &word), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_mix_into_prng(&state, 7, nullptr), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_prng_fill(nullptr, nullptr, 0), TAV_OK);
    EXPECT_EQ(tav_util_prng_fill(&state, buffer.data(), 0), TAV_OK);
    EXPECT_EQ(tav_util_prng_fill(&state, nullptr, 8), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_fill(nullptr, buffer.data(), 8), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_fill(nullptr, buffer.data(), 5), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_fill(&state, nullptr, 7), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_fill(nullptr, nullptr, 5), TAV_ERR_NULL_ARG);
    EXPECT_EQ(word, kUntouched);
    EXPECT_TRUE(same_state(state, before));
    EXPECT_EQ(buffer, Bytes(16, 0xCC));
    const std::string seed = "trace tav_util_seed_prng src/random_ops.cpp 3";
    EXPECT_EQ(
        tavtest::report_summary(),
        (Lines{seed, kUnpackedNull, kUnpackedNull, kUnpackedNull, kUnpackedNull, kUnpackedNull,
               kUnpackedNull, kBatchNull, kBatchNull, kMixBad, kMixBad, kBatchNull, kFillNull,
               kBatchNull, kFillNull, kBatchNull, kFillNull, kFillNull, kFillNull}));
}

} // namespace
