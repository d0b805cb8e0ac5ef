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
const std::string kUnpackedNull = "trace tav_util_prng_unpacked src/random_ops.cpp 3";
const std::string kBatchNull = "trace tav_util_prng_batch src/random_ops.cpp 3";
const std::string kFillNull = "trace tav_util_prng_fill src/random_ops.cpp 3";

class Prng : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::clear_reports(); }
};

// A direct transcription with wrapped indices, one step at a time, sharing
// nothing with the library's run-by-run batch.
struct Reference {
    int32_t cursor = 0;
    uint64_t weyl = 0;
    uint64_t table[64] = {};

    static uint64_t scramble(uint64_t v) {
        v ^= v << 10;
        v ^= v >> 15;
        v ^= v << 4;
        v ^= v >> 13;
        return v;
    }
    void recur_at(unsigned i, uint64_t value) {
        uint64_t t = table[i];
        uint64_t u = table[(i + 11) & 63] + value;
        t ^= t << 33;
        t ^= t >> 26;
        u ^= u << 27;
        u ^= u >> 29;
        table[i] = t ^ u;
    }
    explicit Reference(uint64_t seed, uint64_t addend = 0) {
        uint64_t v = seed == 0 ? ~uint64_t{0} : seed;
        for (int n = 0; n < 64; ++n) {
            v = scramble(v);
        }
        weyl = v;
        for (int i = 0; i < 64; ++i) {
            v = scramble(v);
            weyl += 0x61C8864680B583EB;
            table[i] = weyl + v;
        }
        table[0] += addend;
        cursor = 63;
        for (int n = 0; n < 256; ++n) {
            cursor = (cursor + 1) & 63;
            recur_at(static_cast<unsigned>(cursor), 0);
        }
    }
    uint64_t next(uint64_t value = 0) {
        const unsigned i = (static_cast<unsigned>(cursor) + 1) & 63;
        recur_at(i, value);
        const uint64_t w = weyl + 0x61C8864680B583EB;
        weyl = w;
        cursor = static_cast<int32_t>(i);
        return (w ^ (w >> 27)) + table[i];
    }
};

tav_util_prng_state seeded(uint64_t seed, uint64_t addend = 0) {
    tav_util_prng_state state;
    std::memset(&state, 0xEE, sizeof state);
    EXPECT_EQ(tav_util_seed_prng(&state, seed, addend), TAV_OK);
    return state;
}

void expect_same_state(const tav_util_prng_state &state, const Reference &ref) {
    EXPECT_EQ(state.cursor, ref.cursor);
    EXPECT_EQ(state.weyl, ref.weyl);
    EXPECT_EQ(std::memcmp(state.table, ref.table, sizeof ref.table), 0);
}

bool same_state(const tav_util_prng_state &a, const tav_util_prng_state &b) {
    return a.cursor == b.cursor && a.weyl == b.weyl &&
           std::memcmp(a.table, b.table, sizeof a.table) == 0;
}

Words next_words(tav_util_prng_state &state, int count) {
    Words words;
    for (int n = 0; n < count; ++n) {
        uint64_t word = kUntouched;
        EXPECT_EQ(tav_util_prng(&state, &word), TAV_OK);
        words.push_back(word);
    }
    return words;
}

// ---- worked values -----------------------------------------------------

TEST_F(Prng, SeedOneGivesTheWorkedStateAndWords) {
    tav_util_prng_state state = seeded(1);
    EXPECT_EQ(state.cursor, 63);
    EXPECT_EQ(state.weyl, 0x29A816459E1CE041u);
    EXPECT_EQ(state.table[0], 0x0B50DCD3E48D0878u);
    EXPECT_EQ(state.table[63], 0x9443CF55D5E3B4BAu);
    expect_same_state(state, Reference(1));
    EXPECT_EQ(next_words(state, 3),
              (Words{0xB85497A9BA510638, 0x68E100A50B479104, 0xD00B063876877E9D}));
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(Prng, SeedZeroActsAsAllOnes) {
    tav_util_prng_state zero = seeded(0);
    tav_util_prng_state ones = seeded(~uint64_t{0});
    EXPECT_TRUE(same_state(zero, ones));
    EXPECT_EQ(next_words(zero, 3),
              (Words{0x6B9B02117A0BE24C, 0x9A98CE2956464C05, 0x3319636315447E19}));
    EXPECT_EQ(next_words(ones, 3),
              (Words{0x6B9B02117A0BE24C, 0x9A98CE2956464C05, 0x3319636315447E19}));
}

TEST_F(Prng, AddendChangesOnlyTheSlotsItReaches) {
    tav_util_prng_state plain = seeded(1);
    tav_util_prng_state added = seeded(1, 5);
    expect_same_state(added, Reference(1, 5));
    for (int i = 0; i < 64; ++i) {
        const bool reached = i == 0 || i == 20 || i == 31 || i == 42 || i == 53;
        EXPECT_EQ(plain.table[i] != added.table[i], reached) << "index " << i;
    }
    EXPECT_EQ(plain.weyl, added.weyl);
    EXPECT_EQ(next_words(added, 3),
              (Words{0xD85F17C16A4BD32D, 0x68E100A50B479104, 0xD00B063876877E9D}));
}

TEST_F(Prng, MixStirsTheValueIntoOneWord) {
    tav_util_prng_state state = seeded(1);
    uint64_t word = kUntouched;
    EXPECT_EQ(tav_util_mix_into_prng(&state, 7, &word), TAV_OK);
    EXPECT_EQ(word, 0xB85497AA02510643u);
    EXPECT_EQ(next_words(state, 1), Words{0x68E100A50B479104});

    // The stirred word is the one kept: the reference agrees over a pass.
    Reference ref(1);
    tav_util_prng_state again = seeded(1);
    for (uint64_t value = 0; value < 200; ++value) {
        EXPECT_EQ(tav_util_mix_into_prng(&again, value * 0x9E3779B97F4A7C15, &word), TAV_OK);
        EXPECT_EQ(word, ref.next(value * 0x9E3779B97F4A7C15)) << value;
    }
    expect_same_state(again, ref);
}

TEST_F(Prng, MixOfZeroIsAPlainStep) {
    tav_util_prng_state mixed = seeded(42);
    tav_util_prng_state plain = seeded(42);
    for (int n = 0; n < 130; ++n) {
        uint64_t a = 0, b = 1;
        EXPECT_EQ(tav_util_mix_into_prng(&mixed, 0, &a), TAV_OK);
        EXPECT_EQ(tav_util_prng(&plain, &b), TAV_OK);
        EXPECT_EQ(a, b);
    }
    EXPECT_TRUE(same_state(mixed, plain));
}

TEST_F(Prng, FillOfThirteenBytes) {
    tav_util_prng_state state = seeded(1);
    unsigned char bytes[16];
    std::memset(bytes, 0xCC, sizeof bytes);
    EXPECT_EQ(tav_util_prng_fill(&state, bytes, 13), TAV_OK);
    const unsigned char expected[16] = {0x38, 0x06, 0x51, 0xBA, 0xA9, 0x97, 0x54, 0xB8,
                                        0x04, 0x91, 0x47, 0x0B, 0xA5, 0xCC, 0xCC, 0xCC};
    EXPECT_EQ(std::memcmp(bytes, expected, sizeof bytes), 0);
    Reference ref(1);
    ref.next();
    ref.next();
    expect_same_state(state, ref);
}

// ---- the long runs -------------------------------------------------------

// Batches of sizes that are multiples of no block size, from many starting
// cursors, give the reference's words and leave its state.
TEST_F(Prng, BatchesMatchSingleStepsOverLongRuns) {
    const size_t sizes[] = {1, 3, 7, 9, 11, 13, 52, 53, 54, 63, 65, 100, 127, 129, 1000, 2};
    for (size_t lead : {0, 1, 10, 11, 40, 52, 53, 60, 63}) {
        Reference ref(0x1234567 + lead, lead);
        tav_util_prng_state state = seeded(0x1234567 + lead, lead);
        for (size_t n = 0; n < lead; ++n) {
            ref.next();
        }
        next_words(state, static_cast<int>(lead));
        Words got(10000, kUntouched);
        size_t done = 0;
        for (size_t k = 0; done < got.size(); ++k) {
            const size_t count = std::min(sizes[k % std::size(sizes)], got.size() - done);
            ASSERT_EQ(tav_util_prng_batch(&state, got.data() + done, count), TAV_OK);
            done += count;
        }
        size_t mismatches = 0;
        for (uint64_t word : got) {
            mismatches += word != ref.next();
        }
        EXPECT_EQ(mismatches, 0u) << "lead " << lead;
        expect_same_state(state, ref);
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(Prng, OneBigBatchMatchesSingleCalls) {
    tav_util_prng_state batched = seeded(99);
    tav_util_prng_state single = seeded(99);
    Words got(10007, kUntouched);
    const auto run = tavtest::run_allocations(
        0, [&] { EXPECT_EQ(tav_util_prng_batch(&batched, got.data(), got.size()), TAV_OK); });
    EXPECT_EQ(run.allocations, 0);
    EXPECT_EQ(got, next_words(single, 10007));
    EXPECT_TRUE(same_state(batched, single));
}

// Fills of every length up to 80 at every alignment: the bytes are those of
// the words in memory, a partial word costs a whole step, and the buffer
// around the fill is untouched.
TEST_F(Prng, FillsAreTheWordsInMemoryAtAnyAlignment) {
    for (size_t length = 0; length <= 80; ++length) {
        for (size_t offset = 0; offset < 8; ++offset) {
            tav_util_prng_state state = seeded(7);
            tav_util_prng_state single = seeded(7);
            std::vector<unsigned char> buffer(length + 16, 0xCC);
            ASSERT_EQ(tav_util_prng_fill(&state, buffer.data() + offset, length), TAV_OK);
            const Words words = next_words(single, static_cast<int>((length + 7) / 8));
            std::vector<unsigned char> expected(length + 16, 0xCC);
            if (length != 0) {
                std::memcpy(expected.data() + offset, words.data(), length);
            }
            EXPECT_EQ(buffer, expected) << "length " << length << " offset " << offset;
            EXPECT_TRUE(same_state(state, single)) << "length " << length;
        }
    }
}

TEST_F(Prng, LongFillMatchesTheReference) {
    Reference ref(2024, 3);
    tav_util_prng_state state = seeded(2024, 3);
    std::vector<unsigned char> buffer(80001 + 1);
    ASSERT_EQ(tav_util_prng_fill(&state, buffer.data() + 1, 80001), TAV_OK);
    Words expected(10001);
    for (auto &word : expected) {
        word = ref.next();
    }
    EXPECT_EQ(std::memcmp(buffer.data() + 1, expected.data(), 80001), 0);
    expect_same_state(state, ref);
}

TEST_F(Prng, StepCountsOfSmallFills) {
    const struct {
        size_t length;
        int steps;
    } table[] = {{0, 0}, {1, 1}, {7, 1}, {8, 1}, {9, 2}, {16, 2}, {17, 3}};
    for (const auto &row : table) {
        tav_util_prng_state state = seeded(5);
        tav_util_prng_state single = seeded(5);
        unsigned char buffer[24];
        EXPECT_EQ(tav_util_prng_fill(&state, buffer, row.length), TAV_OK);
        next_words(single, row.steps);
        EXPECT_TRUE(same_state(state, single)) << row.length;
    }
}

// ---- the cursor ------------------------------------------------------------

// From 63 the index wraps to 0, and at index 60 the lagged word is table[7].
TEST_F(Prng, CursorAndLaggedReadWrap) {
    tav_util_prng_state state = seeded(3);
    Reference ref(3);
    for (int n = 0; n < 64 + 61; ++n) {
        EXPECT_EQ(next_words(state, 1)[0], ref.next());
    }
    EXPECT_EQ(state.cursor, 60);
    // Change table[7]: only a step that reads it (index 60 next pass) shows it.
    tav_util_prng_state changed = state;
    changed.table[7] ^= 1;
    Words plain = next_words(state, 64);
    Words altered = next_words(changed, 64);
    for (int n = 0; n < 64; ++n) {
        const int index = (61 + n) & 63;
        EXPECT_EQ(plain[n] != altered[n], index == 7 || index == 60) << "index " << index;
    }
}

TEST_F(Prng, AnyStoredCursorIsTakenModulo64) {
    const int32_t cursors[] = {-1, -64, 64, 127, 1000, INT32_MAX, INT32_MIN, INT32_MIN + 5};
    for (int32_t stored : cursors) {
        tav_util_prng_state base = seeded(11);
        tav_util_prng_state wild = base;
        wild.cursor = stored;
        base.cursor = static_cast<int32_t>(static_cast<uint32_t>(stored) & 63);
        int32_t cursor = wild.cursor;
        uint64_t weyl = wild.weyl;
        uint64_t word = kUntouched;
        EXPECT_EQ(tav_util_prng_unpacked(&cursor, &weyl, wild.table, &word), TAV_OK);
        EXPECT_EQ(cursor, static_cast<int32_t>((static_cast<uint32_t>(stored) + 1) & 63));
        EXPECT_EQ(word, next_words(base, 1)[0]) << stored;
        // The batch takes it the same way.
        tav_util_prng_state copy = base;
        Words batch(70);
        EXPECT_EQ(tav_util_prng_batch(&copy, batch.data(), batch.size()), TAV_OK);
        tav_util_prng_state wild_copy = seeded(11);
        wild_copy.cursor = stored;
        Words wild_batch(71);
        EXPECT_EQ(tav_util_prng_batch(&wild_copy, wild_batch.data(), wild_batch.size()), TAV_OK);
        EXPECT_EQ(Words(wild_batch.begin() + 1, wild_batch.end()), batch) << stored;
        EXPECT_TRUE(same_state(wild_copy, copy)) << stored;
    }
}

TEST_F(Prng, UnpackedPartsMayLiveApart) {
    tav_util_prng_state state = seeded(8);
    int32_t cursor = state.cursor;
    uint64_t weyl = state.weyl;
    uint64_t table[64];
    std::memcpy(table, state.table, sizeof table);
    for (int n = 0; n < 100; ++n) {
        uint64_t word = kUntouched;
        ASSERT_EQ(tav_util_prng_unpacked(&cursor, &weyl, table, &word), TAV_OK);
        EXPECT_EQ(word, next_words(state, 1)[0]);
    }
    EXPECT_EQ(cursor, state.cursor);
    EXPECT_EQ(weyl, state.weyl);
    EXPECT_EQ(std::memcmp(table, state.table, sizeof table), 0);
}

TEST_F(Prng, CopiesGoOnWithTheSameStreamAndSeedingReplacesAll) {
    tav_util_prng_state state = seeded(77);
    next_words(state, 5);
    tav_util_prng_state copy = state;
    EXPECT_EQ(next_words(state, 200), next_words(copy, 200));
    EXPECT_EQ(tav_util_seed_prng(&state, 77, 0), TAV_OK);
    EXPECT_TRUE(same_state(state, seeded(77)));
}

// A batch of no words is no step, even with a cursor outside the table.
TEST_F(Prng, EmptyBatchChangesNothing) {
    tav_util_prng_state state = seeded(4);
    state.cursor = 1000;
    const tav_util_prng_state before = state;
    uint64_t word = kUntouched;
    EXPECT_EQ(tav_util_prng_batch(&state, &word, 0), TAV_OK);
    EXPECT_EQ(word, kUntouched);
    EXPECT_TRUE(same_state(state, before));
    EXPECT_TRUE(tavtest::reports().empty());
}

// ---- failures --------------------------------------------------------------

TEST_F(Prng, NullArgumentsAreTracedWhereTheyAreTested) {
    const tav_util_prng_state seeded_state = seeded(1);
    tav_util_prng_state state = seeded_state;
    int32_t cursor = 9;
    uint64_t weyl = 10;
    uint64_t word = kUntouched;

    EXPECT_EQ(tav_util_seed_prng(nullptr, 1, 2), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(nullptr, &weyl, state.table, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(&cursor, nullptr, state.table, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(&cursor, &weyl, nullptr, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_unpacked(&cursor, &weyl, state.table, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng(nullptr, &word), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng(&state, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_batch(nullptr, &word, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_batch(&state, nullptr, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_prng_batch(&state, nullptr, 0), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_mix_into_prng(nullptr, 7, &word), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_mix_into_prng(&state, 7, nullptr), TAV_ERR_BAD_ARG);

    EXPECT_EQ(cursor, 9);
    EXPECT_EQ(weyl, 10u);
    EXPECT_EQ(word, kUntouched);
    EXPECT_TRUE(same_state(state, seeded_state));
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"trace tav_util_seed_prng src/random_ops.cpp 3", kUnpackedNull, kUnpackedNull,
                     kUnpackedNull, kUnpackedNull, kUnpackedNull, kUnpackedNull, kBatchNull,
                     kBatchNull, kBatchNull, "trace tav_util_mix_into_prng src/random_ops.cpp 7",
                     "trace tav_util_mix_into_prng src/random_ops.cpp 7"}));
}

// Whole words fail in the batch (traced there and again here); a partial
// word with no buffer fails here before any step; with no bytes to make
// nothing is tested.
TEST_F(Prng, FillReportsByWhereTheNullIsFound) {
    const tav_util_prng_state seeded_state = seeded(1);
    unsigned char buffer[16];
    std::memset(buffer, 0xCC, sizeof buffer);
    const struct {
        bool null_state, null_buffer;
        size_t length;
        Lines reports;
    } table[] = {
        {true, true, 0, {}},
        {true, false, 0, {}},
        {false, true, 0, {}},
        {true, false, 8, {kBatchNull, kFillNull}},
        {false, true, 8, {kBatchNull, kFillNull}},
        {false, true, 13, {kBatchNull, kFillNull}},
        {true, false, 13, {kBatchNull, kFillNull}},
        {false, true, 1, {kFillNull}},
        {false, true, 7, {kFillNull}},
        {true, true, 5, {kFillNull}},
        {true, false, 5, {kBatchNull, kFillNull}},
    };
    for (const auto &row : table) {
        tavtest::clear_reports();
        tav_util_prng_state state = seeded_state;
        const tav_status status = tav_util_prng_fill(
            row.null_state ? nullptr : &state, row.null_buffer ? nullptr : buffer, row.length);
        EXPECT_EQ(status, row.reports.empty() ? TAV_OK : TAV_ERR_NULL_ARG) << row.length;
        EXPECT_EQ(tavtest::report_summary(), row.reports)
            << row.null_state << row.null_buffer << row.length;
        EXPECT_TRUE(same_state(state, seeded_state));
    }
    const std::vector<unsigned char> untouched(16, 0xCC);
    EXPECT_EQ(std::vector<unsigned char>(buffer, buffer + 16), untouched);
    // The entries come from two levels: the batch's test, then the fill's.
    tavtest::clear_reports();
    tav_util_prng_fill(nullptr, buffer, 8);
    tav_util_prng_fill(nullptr, nullptr, 3);
    const auto &reports = tavtest::reports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_NE(reports[1].line, reports[2].line);
}

// None of the operations allocates, so no allocation failure can reach them.
TEST_F(Prng, NothingAllocates) {
    const auto run = tavtest::run_allocations(0, [] {
        tav_util_prng_state state;
        uint64_t words[20];
        unsigned char bytes[21];
        tav_util_seed_prng(&state, 1, 2);
        tav_util_prng(&state, words);
        tav_util_mix_into_prng(&state, 3, words);
        tav_util_prng_batch(&state, words, 20);
        tav_util_prng_fill(&state, bytes, 21);
    });
    EXPECT_EQ(run.allocations, 0);
}

} // namespace
