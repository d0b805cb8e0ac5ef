// The 64-bit hash: worked values, the inputs that hash alike, every length
// around the word size against a byte-at-a-time reference, and the reports.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Bytes = std::vector<unsigned char>;
constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5A;
constexpr uint64_t kHashOfA = 0x86B8D0A29D36348B;

uint64_t hash_of(const void *data, size_t length) {
    uint64_t result = kUntouched;
    EXPECT_EQ(tav_util_hash64(data, length, &result), TAV_OK);
    return result;
}
uint64_t hash_of(const Bytes &bytes) { return hash_of(bytes.data(), bytes.size()); }

// Words folded byte by byte, the whole ones from their last byte, the tail
// from its first: this shares nothing with the library's word loads.
uint64_t reference_hash(const Bytes &bytes) {
    uint64_t h = 1;
    auto absorb = [&h](uint64_t word) { // the shifts in order, left when positive
        h += word;
        for (int shift : {10, -15, 4, -13}) {
            h ^= shift > 0 ? h << shift : h >> -shift;
        }
    };
    auto fold = [](auto first, auto last) {
        return std::accumulate(first, last, uint64_t{0},
                               [](uint64_t word, unsigned char byte) { return word << 8 | byte; });
    };
    const size_t whole = bytes.size() / 8 * 8;
    for (size_t i = 0; i < whole; i += 8) {
        absorb(fold(bytes.rend() - long(i) - 8, bytes.rend() - long(i)));
    }
    if (whole != bytes.size()) {
        absorb(fold(bytes.begin() + long(whole), bytes.end()));
    }
    for (int pass = 0; pass < 16; ++pass) {
        absorb(0);
    }
    return h;
}

TEST(Hash, WorkedValuesAndTheInputsThatHashAlike) {
    tavtest::clear_reports();
    EXPECT_EQ(hash_of("abc", 3), 0x5F39FB8F324F2E25u);
    EXPECT_EQ(hash_of("abcdefgh", 8), 0xB3D82310AC69EFB1u);
    EXPECT_EQ(hash_of("abcdefghi", 9), 0x14C34D22EA476743u);
    // The tail's leading zeros vanish and the length is not mixed in; a whole
    // word of 'a' and seven zeros reads as the tail "a". Each whole word counts.
    for (const Bytes &alike : {Bytes{'a'}, Bytes{0, 'a'}, Bytes{0, 0, 'a'},
                               Bytes{0, 0, 0, 0, 0, 0, 'a'}, Bytes{'a', 0, 0, 0, 0, 0, 0, 0}}) {
        EXPECT_EQ(hash_of(alike), kHashOfA) << alike.size();
    }
    EXPECT_NE(hash_of(Bytes(8, 0)), hash_of(Bytes(16, 0)));
    EXPECT_TRUE(tavtest::reports().empty());
}

// Every length from 1 to 40 (tail only, whole words only, both) at every
// alignment, and one long input, against the reference.
TEST(Hash, EveryLengthAndAlignmentMatchesTheReference) {
    Bytes pattern(100003);
    for (size_t i = 0; i < pattern.size(); ++i) {
        pattern[i] = static_cast<unsigned char>(i * 0x9E3779B1u >> 13);
    }
    for (size_t length = 1; length <= 41; ++length) {
        const Bytes data(pattern.begin(),
                         pattern.begin() + (length == 41 ? 100003L : long(length)));
        const uint64_t expected = reference_hash(data);
        for (size_t offset = 0; offset < 8; ++offset) {
            Bytes shifted(offset + data.size()); // malloc'd, so offset 0 is word-aligned
            std::memcpy(shifted.data() + offset, data.data(), data.size());
            EXPECT_EQ(hash_of(shifted.data() + offset, data.size()), expected)
                << "length " << data.size() << " offset " << offset;
        }
    }
}

// Null pointers, then an empty input, are BAD_ARG, traced once each from two
// tests in turn; the result is left alone and nothing is logged.
TEST(Hash, BadArgumentsAreTracedAndLeaveTheResult) {
    tavtest::clear_reports();
    uint64_t result = kUntouched;
    EXPECT_EQ(tav_util_hash64(nullptr, 3, &result), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_hash64("abc", 3, nullptr), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_hash64(nullptr, 0, nullptr), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_hash64("abc", 0, &result), TAV_ERR_BAD_ARG);
    EXPECT_EQ(result, kUntouched);
    const std::string entry = "trace tav_util_hash64 src/hash_ops.cpp 7";
    EXPECT_EQ(tavtest::report_summary(), (std::vector<std::string>(4, entry)));
    const auto &reports = tavtest::reports();
    EXPECT_EQ(reports[0].line, reports[2].line) << "the pointer test comes first";
    EXPECT_NE(reports[2].line, reports[3].line);
}

} // namespace
