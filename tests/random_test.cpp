// The pseudo-random generator: the worked values, a reference transcription
// for long cross-checks of the batch and fill paths, cursor handling, and the
// exact reports of every failure.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
using Words = std::vector<uint64_t>;
constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5A;
constexpr uint64_t kIncrement = 0x61C8864680B583EB;
const std::string kUnpackedNull = "trace tav_util_prng_unpacked src/random_ops.cpp 3";
const std::string kBatchNull = "trace tav_util_prng_batch src/random_ops.cpp 3";
const std::string kFillNull = "trace tav_util_prng_fill src/random_ops.cpp 3";

class Prng : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::clear_reports(); }
};

// A direct transcription with wrapped indices, one step at a time, sharing
// nothing with the library's run-by-run batch.
struct Reference : tav_util_prng_state {
    static uint64_t scramble(uint64_t v) {
        v ^= v << 10;
        v ^= v >> 15;
        v ^= v << 4;
        return v ^ (v >> 13);
    }
    void recur_at(unsigned i, uint64_t value) {
        uint64_t t = table[i], u = table[(i + 11) % 64] + value;
        t ^= t << 33;
        t ^= t >> 26;
        u ^= u << 27;
        u ^= u >> 29;
        table[i] = t ^ u;
    }
    explicit Reference(uint64_t seed, uint64_t addend = 0) : tav_util_prng_state{} {
        uint64_t v = seed == 0 ? ~uint64_t{0} : seed;
        for (int n = 0; n < 64; ++n) {
            v = scramble(v);
        }
        weyl = v;
        for (auto &word : table) {
            v = scramble(v);
            weyl += kIncrement;
            word = weyl + v;
        }
        table[0] += addend;
        for (unsigned n = 0; n < 256; ++n) {
            recur_at(n % 64, 0);
        }
        cursor = 63;
    }
    uint64_t next(uint64_t value = 0) {
        cursor = (cursor + 1) % 64;
        recur_at(static_cast<unsigned>(cursor), value);
        weyl += kIncrement;
        return (weyl ^ (weyl >> 27)) + table[cursor];
    }
};

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

TEST_F(Prng, WorkedSeedsGiveTheirStatesAndWords) {
    tav_util_prng_state one = seeded(1);
    EXPECT_EQ(one.cursor, 63);
    EXPECT_EQ(one.weyl, 0x29A816459E1CE041u);
    EXPECT_EQ(one.table[0], 0x0B50DCD3E48D0878u);
    EXPECT_EQ(one.table[63], 0x9443CF55D5E3B4BAu);
    EXPECT_TRUE(same_state(one, Reference(1)));
    EXPECT_EQ(next_words(one, 3),
              (Words{0xB85497A9BA510638, 0x68E100A50B479104, 0xD00B063876877E9D}));

    tav_util_prng_state zero = seeded(0);
    EXPECT_TRUE(same_state(zero, seeded(~uint64_t{0}))) << "0 stands for all ones";
    EXPECT_EQ(next_words(zero, 3),
              (Words{0x6B9B02117A0BE24C, 0x9A98CE2956464C05, 0x3319636315447E19}));

    // The addend reaches table[0] and, through the warm-up, four more slots.
    tav_util_prng_state added = seeded(1, 5);
    const tav_util_prng_state plain = seeded(1);
    for (int i = 0; i < 64; ++i) {
        const bool reached = i == 0 || i == 20 || i == 31 || i == 42 || i == 53;
        EXPECT_EQ(plain.table[i] != added.table[i], reached) << "index " << i;
    }
    EXPECT_EQ(next_words(added, 3),
              (Words{0xD85F17C16A4BD32D, 0x68E100A50B479104, 0xD00B063876877E9D}));
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(Prng, MixStirsTheValueIntoTheKeptWord) {
    tav_util_prng_state state = seeded(1);
    uint64_t word = kUntouched;
    EXPECT_EQ(tav_util_mix_into_prng(&state, 7, &word), TAV_OK);
    EXPECT_EQ(word, 0xB85497AA02510643u);
    EXPECT_EQ(next_words(state, 1), Words{0x68E100A50B479104});
    // Over two passes of the table, with 0 among the values: a value of 0
    // is a plain step.
    Reference ref(9);
    state = seeded(9);
    for (uint64_t n = 0; n < 130; ++n) {
        const uint64_t value = n % 3 == 0 ? 0 : n * 0x9E3779B97F4A7C15;
        EXPECT_EQ(tav_util_mix_into_prng(&state, value, &word), TAV_OK);
        EXPECT_EQ(word, ref.next(value)) << n;
    }
    EXPECT_TRUE(same_state(state, ref));
}

TEST_F(Prng, FillOfThirteenBytes) {
    tav_util_prng_state state = seeded(1);
    unsigned char bytes[16];
    std::memset(bytes, 0xCC, sizeof bytes);
    EXPECT_EQ(tav_util_prng_fill(&state, bytes, 13), TAV_OK);
    const unsigned char expected[16] = {0x38, 0x06, 0x51, 0xBA, 0xA9, 0x97, 0x54, 0xB8,
                                        0x04, 0x91, 0x47, 0x0B, 0xA5, 0xCC, 0xCC, 0xCC};
    EXPECT_EQ(std::memcmp(bytes, expected, sizeof bytes), 0);
}

// 10,000 words in batches of sizes that are multiples of no block size, from
// every kind of starting index, give the reference's words and state.
TEST_F(Prng, BatchesMatchTheReferenceOverLongRuns) {
    const size_t sizes[] = {1, 3, 7, 9, 11, 13, 52, 53, 54, 63, 65, 100, 127, 1000, 2};
    for (size_t lead : {0, 1, 10, 11, 40, 52, 53, 60, 63}) {
        Reference ref(0x1234567 + lead, lead);
        tav_util_prng_state state = ref;
        for (size_t n = 0; n < lead; ++n) {
            ref.next();
        }
        next_words(state, lead);
        Words got(10000, kUntouched);
        tavtest::AllocRun run = tavtest::run_allocations(0, [&] {
            size_t done = 0;
            for (size_t k = 0; done < got.size(); ++k) {
                const size_t count = std::min(sizes[k % std::size(sizes)], got.size() - done);
                tav_util_prng_batch(&state, got.data() + done, count);
                done += count;
            }
        });
        size_t mismatches = 0;
        for (uint64_t word : got) {
            mismatches += word != ref.next();
        }
        EXPECT_EQ(mismatches, 0u) << "lead " << lead;
        EXPECT_TRUE(same_state(state, ref)) << "lead " << lead;
        EXPECT_EQ(run.allocations, 0);
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

// Fills of every length up to 80, and one long one, at every alignment are
// the bytes of the words in memory; a partial word costs a whole step (7 and
// 8 bytes one step, 9 bytes two); the buffer around the fill is untouched.
TEST_F(Prng, FillsAreTheWordsInMemoryAtAnyAlignment) {
    std::vector<size_t> lengths{80005}; // and one long run of 10,001 steps
    for (size_t length = 0; length <= 80; ++length) {
        lengths.push_back(length);
    }
    for (size_t length : lengths) {
        for (size_t offset = 0; offset < 8; ++offset) {
            tav_util_prng_state state = seeded(7);
            tav_util_prng_state single = seeded(7);
            std::vector<unsigned char> buffer(length + 16, 0xCC);
            ASSERT_EQ(tav_util_prng_fill(&state, buffer.data() + offset, length), TAV_OK);
            const Words words = next_words(single, (length + 7) / 8);
            std::vector<unsigned char> expected(length + 16, 0xCC);
            if (length != 0) { // an empty vector's data() may be null
                std::memcpy(expected.data() + offset, words.data(), length);
            }
            EXPECT_EQ(buffer, expected) << "length " << length << " offset " << offset;
            EXPECT_TRUE(same_state(state, single)) << "length " << length;
        }
    }
}

// From 63 the index wraps to 0, and at index 60 the lagged word is table[7]:
// a change to table[7] shows only in the words made at indices 7 and 60.
TEST_F(Prng, CursorAndLaggedReadWrap) {
    tav_util_prng_state state = seeded(3);
    next_words(state, 64 + 61);
    EXPECT_EQ(state.cursor, 60);
    tav_util_prng_state changed = state;
    changed.table[7] ^= 1;
    const Words plain = next_words(state, 64), altered = next_words(changed, 64);
    for (int n = 0; n < 64; ++n) {
        const int index = (61 + n) % 64;
        EXPECT_EQ(plain[n] != altered[n], index == 7 || index == 60) << "index " << index;
    }
}

// A stored cursor outside 0 to 63 is taken modulo 64 by single steps and
// batches alike, which leave a valid index behind; a batch of no words
// changes nothing, not even such a cursor.
TEST_F(Prng, AnyStoredCursorIsTakenModulo64) {
    for (int32_t stored : {-1, -64, 64, 127, 1000, INT32_MAX, INT32_MIN, INT32_MIN + 5}) {
        tav_util_prng_state tame = seeded(11), wild = seeded(11);
        tame.cursor = static_cast<int32_t>(static_cast<uint32_t>(stored) % 64);
        wild.cursor = stored;
        tav_util_prng_state wild_batch = wild;
        Words words(70, kUntouched);
        EXPECT_EQ(tav_util_prng_batch(&wild_batch, words.data(), 0), TAV_OK);
        EXPECT_TRUE(same_state(wild_batch, wild));
        EXPECT_EQ(tav_util_prng_batch(&wild_batch, words.data(), words.size()), TAV_OK);
        uint64_t word = kUntouched;
        EXPECT_EQ(tav_util_prng_unpacked(&wild.cursor, &wild.weyl, wild.table, &word), TAV_OK);
        EXPECT_EQ(wild.cursor, static_cast<int32_t>((static_cast<uint32_t>(stored) + 1) % 64));
        const Words expected = next_words(tame, 70);
        EXPECT_EQ(word, expected[0]) << stored;
        EXPECT_EQ(words, expected) << stored;
        EXPECT_TRUE(same_state(wild_batch, tame)) << stored;
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(Prng, NullArgumentsAreTracedWhereTheyAreTested) {
    const tav_util_prng_state before = seeded(1);
    tav_util_prng_state state = before;
    int32_t cursor = 9;
    uint64_t weyl = 10, word = kUntouched;
    EXPECT_EQ(tav_util_seed_prng(nullptr, 1, 2), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(nullptr, &weyl, state.table, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(&cursor, nullptr, state.table, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(&cursor, &weyl, nullptr, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(&cursor, &weyl, state.table, nullptr), TAV_ERR_NULL_ARG);
    // tav_util_prng passes the callee's status up untraced.
    EXPECT_EQ(tav_util_prng(nullptr, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng(&state, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_batch(nullptr, &word, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_batch(&state, nullptr, 0), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_mix_into_prng(nullptr, 7, &word), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_mix_into_prng(&state, 7, nullptr), TAV_ERR_BAD_ARG);
    EXPECT_EQ(cursor, 9);
    EXPECT_EQ(weyl, 10u);
    EXPECT_EQ(word, kUntouched);
    EXPECT_TRUE(same_state(state, before));
    const std::string mix = "trace tav_util_mix_into_prng src/random_ops.cpp 7";
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"trace tav_util_seed_prng src/random_ops.cpp 3", kUnpackedNull, kUnpackedNull,
                     kUnpackedNull, kUnpackedNull, kUnpackedNull, kUnpackedNull, kBatchNull,
                     kBatchNull, mix, mix}));
}

// Whole words fail in the batch (traced there and again in the fill); a
// partial word with no buffer fails in the fill before any step; with no
// bytes to make nothing is tested.
TEST_F(Prng, FillReportsByWhereTheNullIsFound) {
    const tav_util_prng_state before = seeded(1);
    unsigned char buffer[16];
    std::memset(buffer, 0xCC, sizeof buffer);
    const struct {
        bool null_state, null_buffer;
        size_t length;
        Lines reports;
    } table[] = {
        {true, true, 0, {}},
        {false, true, 8, {kBatchNull, kFillNull}},
        {true, false, 8, {kBatchNull, kFillNull}},
        {false, true, 13, {kBatchNull, kFillNull}},
        {false, true, 1, {kFillNull}},
        {false, true, 7, {kFillNull}},
        {true, true, 5, {kFillNull}},
        {true, false, 5, {kBatchNull, kFillNull}},
    };
    for (const auto &row : table) {
        tavtest::clear_reports();
        tav_util_prng_state state = before;
        EXPECT_EQ(tav_util_prng_fill(row.null_state ? nullptr : &state,
                                     row.null_buffer ? nullptr : buffer, row.length),
                  row.reports.empty() ? TAV_OK : TAV_ERR_NULL_ARG);
        EXPECT_EQ(tavtest::report_summary(), row.reports)
            << row.null_state << row.null_buffer << row.length;
        EXPECT_TRUE(same_state(state, before));
        if (row.reports.size() == 2) {
            EXPECT_NE(tavtest::reports()[0].line, tavtest::reports()[1].line);
        }
    }
    EXPECT_EQ(std::vector<unsigned char>(buffer, buffer + 16),
              std::vector<unsigned char>(16, 0xCC));
}

} // namespace
