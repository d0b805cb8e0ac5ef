// The 64-bit hash: worked values, the inputs that hash alike, every length
// around the word size against a byte-at-a-time reference, and the reports.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Bytes = std::vector<unsigned char>;
constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5A;

uint64_t hash_of(const void *data, size_t length) {
    uint64_t result = kUntouched;
    EXPECT_EQ(tav_util_hash64(data, length, &result), TAV_OK);
    return result;
}
uint64_t hash_of(const Bytes &bytes) { return hash_of(bytes.data(), bytes.size()); }

// Reads one byte at a time and packs by distance from the end, sharing
// nothing with the library's word loads.
uint64_t reference_hash(const Bytes &bytes) {
    auto scramble = [](uint64_t h) {
        h ^= h << 10;
        h ^= h >> 15;
        h ^= h << 4;
        return h ^ (h >> 13);
    };
    uint64_t h = 1;
    for (size_t w = 0; w < bytes.size() / 8; ++w) {
        uint64_t word = 0;
        for (int b = 0; b < 8; ++b) {
            word += static_cast<uint64_t>(bytes[8 * w + b]) << (8 * b);
        }
        h = scramble(h + word);
    }
    if (const size_t k = bytes.size() % 8; k != 0) {
        uint64_t word = 0;
        for (size_t d = 1; d <= k; ++d) {
            word += static_cast<uint64_t>(bytes[bytes.size() - d]) << (8 * (d - 1));
        }
        h = scramble(h + word);
    }
    for (int pass = 0; pass < 16; ++pass) {
        h = scramble(h);
    }
    return h;
}

TEST(Hash, WorkedValuesAndTheInputsThatHashAlike) {
    tavtest::clear_reports();
    EXPECT_EQ(hash_of("abc", 3), 0x5F39FB8F324F2E25u);
    EXPECT_EQ(hash_of("abcdefgh", 8), 0xB3D82310AC69EFB1u);
    EXPECT_EQ(hash_of("abcdefghi", 9), 0x14C34D22EA476743u);
    // The tail's leading zeros vanish and the length is not mixed in; a
    // whole word of 'a' and seven zeros reads as the tail "a".
    for (const Bytes &alike : {Bytes{'a'}, Bytes{0, 'a'}, Bytes{0, 0, 'a'},
                               Bytes{0, 0, 0, 0, 0, 0, 'a'}, Bytes{'a', 0, 0, 0, 0, 0, 0, 0}}) {
        EXPECT_EQ(hash_of(alike), 0x86B8D0A29D36348Bu) << alike.size();
    }
    // A zero behind the letter, or a whole word of zeros ahead, counts.
    EXPECT_NE(hash_of(Bytes{'a', 0}), 0x86B8D0A29D36348Bu);
    EXPECT_NE(hash_of(Bytes{0, 0, 0, 0, 0, 0, 0, 0, 'a'}), 0x86B8D0A29D36348Bu);
    // Each whole word costs a scrambler pass, each zero tail the same one.
    EXPECT_NE(hash_of(Bytes(8, 0)), hash_of(Bytes(16, 0)));
    EXPECT_EQ(hash_of(Bytes(9, 0)), hash_of(Bytes(15, 0)));
    EXPECT_TRUE(tavtest::reports().empty());
}

// Every length from 1 to 40 (tail only, whole words only, both) at every
// alignment, and one long input, against the reference; nothing allocates.
TEST(Hash, EveryLengthAndAlignmentMatchesTheReference) {
    Bytes pattern(100003);
    uint64_t x = 88172645463325252u;
    for (auto &byte : pattern) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        byte = static_cast<unsigned char>(x);
    }
    for (size_t length = 1; length <= 40; ++length) {
        const Bytes data(pattern.begin(), pattern.begin() + static_cast<long>(length));
        const uint64_t expected = reference_hash(data);
        for (size_t offset = 0; offset < 8; ++offset) {
            Bytes shifted(offset + length); // malloc'd, so offset 0 is word-aligned
            std::memcpy(shifted.data() + offset, data.data(), length);
            EXPECT_EQ(hash_of(shifted.data() + offset, length), expected)
                << "length " << length << " offset " << offset;
        }
    }
    uint64_t result = 0;
    const auto run = tavtest::run_allocations(
        0, [&] { EXPECT_EQ(tav_util_hash64(pattern.data(), pattern.size(), &result), TAV_OK); });
    EXPECT_EQ(result, reference_hash(pattern));
    EXPECT_EQ(run.allocations, 0);
}

// Null pointers and an empty input are BAD_ARG, traced once each from two
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
