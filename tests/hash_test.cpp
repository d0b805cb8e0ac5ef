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

using Lines = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;
constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5A;
const std::string kBadArg = "trace tav_util_hash64 src/hash_ops.cpp 7";

class Hash : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::clear_reports(); }
};

uint64_t hash_of(const void *data, size_t length) {
    uint64_t result = kUntouched;
    EXPECT_EQ(tav_util_hash64(data, length, &result), TAV_OK);
    return result;
}
uint64_t hash_of(const Bytes &bytes) { return hash_of(bytes.data(), bytes.size()); }
uint64_t hash_of(const std::string &text) { return hash_of(text.data(), text.size()); }

// A transcription that reads one byte at a time and packs with arithmetic,
// sharing nothing with the library's word loads.
uint64_t reference_hash(const Bytes &bytes) {
    auto scramble = [](uint64_t h) {
        h ^= h << 10;
        h ^= h >> 15;
        h ^= h << 4;
        h ^= h >> 13;
        return h;
    };
    uint64_t h = 1;
    const size_t whole = bytes.size() / 8;
    for (size_t w = 0; w < whole; ++w) {
        uint64_t word = 0;
        for (int b = 0; b < 8; ++b) {
            word += static_cast<uint64_t>(bytes[8 * w + b]) << (8 * b);
        }
        h = scramble(h + word);
    }
    const size_t k = bytes.size() % 8;
    if (k != 0) {
        uint64_t word = 0;
        for (size_t d = 1; d <= k; ++d) { // d: distance from the end
            word += static_cast<uint64_t>(bytes[bytes.size() - d]) << (8 * (d - 1));
        }
        h = scramble(h + word);
    }
    for (int pass = 0; pass < 16; ++pass) {
        h = scramble(h);
    }
    return h;
}

TEST_F(Hash, WorkedValues) {
    const struct {
        const char *text;
        uint64_t hash;
    } table[] = {
        {"abc", 0x5F39FB8F324F2E25},
        {"a", 0x86B8D0A29D36348B},
        {"abcdefgh", 0xB3D82310AC69EFB1},
        {"abcdefghi", 0x14C34D22EA476743},
    };
    for (const auto &row : table) {
        EXPECT_EQ(hash_of(std::string(row.text)), row.hash) << row.text;
        EXPECT_EQ(reference_hash(Bytes(row.text, row.text + std::strlen(row.text))), row.hash);
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

// The tail's leading zeros vanish in its word, the length is not mixed in,
// and a whole word of 'a' and seven zeros reads as the tail "a".
TEST_F(Hash, InputsThatHashAlike) {
    const uint64_t a = 0x86B8D0A29D36348B;
    EXPECT_EQ(hash_of(Bytes{'a'}), a);
    EXPECT_EQ(hash_of(Bytes{0, 'a'}), a);
    EXPECT_EQ(hash_of(Bytes{0, 0, 'a'}), a);
    EXPECT_EQ(hash_of(Bytes{0, 0, 0, 0, 0, 0, 'a'}), a);
    EXPECT_EQ(hash_of(Bytes{'a', 0, 0, 0, 0, 0, 0, 0}), a);
    // ...but not a zero behind the letter, nor a whole word of zeros ahead.
    EXPECT_NE(hash_of(Bytes{'a', 0}), a);
    EXPECT_NE(hash_of(Bytes{0, 0, 0, 0, 0, 0, 0, 0, 'a'}), a);
}

TEST_F(Hash, EachWholeWordCostsAPass) {
    const Bytes zeros8(8, 0), zeros16(16, 0), zeros24(24, 0);
    EXPECT_NE(hash_of(zeros8), hash_of(zeros16));
    EXPECT_NE(hash_of(zeros16), hash_of(zeros24));
    // Zero tails of any length add 0 and are scrambled once, alike.
    EXPECT_EQ(hash_of(Bytes(1, 0)), hash_of(Bytes(7, 0)));
    EXPECT_EQ(hash_of(Bytes(9, 0)), hash_of(Bytes(15, 0)));
}

// Every length from 1 to 40 (whole words only, tail only, both), against
// the reference, at every alignment of the data.
TEST_F(Hash, EveryLengthAndAlignmentMatchesTheReference) {
    Bytes pattern(40 + 8);
    for (size_t i = 0; i < pattern.size(); ++i) {
        pattern[i] = static_cast<unsigned char>(0x9E * i + 0x37 + (i >> 3));
    }
    for (size_t length = 1; length <= 40; ++length) {
        const Bytes data(pattern.begin(), pattern.begin() + static_cast<long>(length));
        const uint64_t expected = reference_hash(data);
        for (size_t offset = 0; offset < 8; ++offset) {
            Bytes shifted(offset + length);
            std::memcpy(shifted.data() + offset, data.data(), length);
            EXPECT_EQ(hash_of(shifted.data() + offset, length), expected)
                << "length " << length << " offset " << offset;
        }
    }
}

TEST_F(Hash, LongInputMatchesTheReferenceWithoutAllocating) {
    Bytes data(100003);
    uint64_t x = 88172645463325252u;
    for (auto &byte : data) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        byte = static_cast<unsigned char>(x);
    }
    uint64_t result = 0;
    const auto run = tavtest::run_allocations(
        0, [&] { EXPECT_EQ(tav_util_hash64(data.data(), data.size(), &result), TAV_OK); });
    EXPECT_EQ(result, reference_hash(data));
    EXPECT_EQ(run.allocations, 0);
}

// Null pointers and an empty input are one status, BAD_ARG, traced once;
// the result is left alone and nothing is logged.
TEST_F(Hash, BadArgumentsAreTracedAndLeaveTheResult) {
    uint64_t result = kUntouched;
    EXPECT_EQ(tav_util_hash64(nullptr, 3, &result), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_hash64("abc", 3, nullptr), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_hash64(nullptr, 0, nullptr), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_hash64("abc", 0, &result), TAV_ERR_BAD_ARG);
    EXPECT_EQ(result, kUntouched);
    EXPECT_EQ(tavtest::report_summary(), (Lines{kBadArg, kBadArg, kBadArg, kBadArg}));
    // The pointer test comes first: both reports carry distinct source lines.
    const auto &reports = tavtest::reports();
    EXPECT_EQ(reports[0].line, reports[2].line);
    EXPECT_NE(reports[2].line, reports[3].line);
}

} // namespace
