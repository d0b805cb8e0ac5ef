// Base64 and bit strings: worked values, cross-checks against literal
// byte-at-a-time references, the skipping rule, the blocks' bounds and every
// failure with its reports.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;
const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

uint8_t *const kUntouched = reinterpret_cast<uint8_t *>(1); // a pointer never handed back

Bytes bytes_of(const std::string &text) { return Bytes(text.begin(), text.end()); }

Bytes random_bytes(std::mt19937 &engine, size_t length) {
    Bytes out(length);
    for (auto &byte : out) {
        byte = static_cast<uint8_t>(engine());
    }
    return out;
}

std::string pointer_text(const void *pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

struct Encoded {
    tav_status status;
    std::string text;
    uint64_t size;
    tavtest::AllocRun run;
};

Encoded encode(const Bytes &input, long fail_at = 0) {
    Encoded e{TAV_ERR_SYSTEM, "", 0, {}};
    char *out = reinterpret_cast<char *>(kUntouched);
    e.run = tavtest::run_allocations(fail_at, [&] {
        e.status = tav_util_base64_encode(input.data(), input.size(), &out, &e.size);
    });
    if (out != nullptr && out != reinterpret_cast<char *>(kUntouched)) {
        e.text.assign(out, e.size);
        std::free(out);
    }
    return e;
}

struct Decoded {
    tav_status status;
    Bytes bytes;
    uint64_t size;
    tavtest::AllocRun run;
    bool out_null;
};

Decoded decode(const std::string &text, long fail_at = 0) {
    Decoded d{TAV_ERR_SYSTEM, {}, 0, {}, false};
    uint8_t *out = kUntouched;
    d.run = tavtest::run_allocations(fail_at, [&] {
        d.status = tav_util_base64_decode(text.data(), text.size(), &out, &d.size);
    });
    d.out_null = out == nullptr;
    if (out != nullptr && out != kUntouched) {
        d.bytes.assign(out, out + d.size);
        std::free(out);
    }
    return d;
}

// The encoder's rule, bit by bit.
std::string reference_encode(const Bytes &input) {
    std::string out;
    for (size_t i = 0; i < input.size(); i += 3) {
        uint32_t group = 0;
        for (size_t k = 0; k < 3; ++k) {
            group = group << 8 | (i + k < input.size() ? input[i + k] : 0);
        }
        const size_t chars = input.size() - i >= 3 ? 4 : input.size() - i + 1;
        for (size_t k = 0; k < 4; ++k) {
            out += k < chars ? kAlphabet[(group >> (18 - 6 * k)) & 0x3F] : '=';
        }
    }
    return out;
}

// The decoder's walk as stated: groups of four usable characters, each
// written whole into a generous buffer, then the correction for the last.
Bytes reference_decode(const std::string &text) {
    Bytes out;
    size_t place = 0, count = 0;
    while (place < text.size()) {
        int values[4] = {0, 0, 0, 0};
        count = 0;
        while (count < 4 && place < text.size()) {
            const auto found = kAlphabet.find(text[place++]);
            if (found != std::string::npos) {
                values[count++] = static_cast<int>(found);
            }
        }
        if (count == 0) {
            break;
        }
        out.push_back(static_cast<uint8_t>(values[0] << 2 | values[1] >> 4));
        out.push_back(static_cast<uint8_t>(values[1] << 4 | values[2] >> 2));
        out.push_back(static_cast<uint8_t>((values[2] << 6 & 0xC0) | values[3]));
    }
    out.resize(out.size() - (count == 3 ? 1 : count == 2 ? 2 : 0));
    return out;
}

class BitOps : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::clear_reports(); }
};

// ---- Base64 -------------------------------------------------------------------

TEST_F(BitOps, Base64SizeCountsStartedGroups) {
    const uint64_t sizes[] = {0, 4, 4, 4, 8, 8, 8, 12, 12, 12};
    for (uint64_t n = 0; n < 10; ++n) {
        EXPECT_EQ(tav_util_to_base64_size(n), sizes[n]) << n;
    }
}

TEST_F(BitOps, EncodesTheWorkedValuesIntoExactBlocks) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"a", "YQ=="},
        {"ab", "YWI="},
        {"abc", "YWJj"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\xff\xfe\xfd\xfc\xfb\xfa\xf9\xf8", "//79/Pv6+fg="}};
    for (const auto &[plain, encoded] : cases) {
        const Encoded e = encode(bytes_of(plain));
        EXPECT_EQ(e.status, TAV_OK);
        EXPECT_EQ(e.text, encoded);
        EXPECT_EQ(e.size, encoded.size());
        EXPECT_EQ(e.run.sizes, std::vector<size_t>{encoded.size()}) << "no terminator";
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

// Every length across the word-wide path and its tails, all byte values.
TEST_F(BitOps, EncodeMatchesTheRuleAtEveryLength) {
    std::mt19937 engine(7);
    for (size_t length = 0; length < 70; ++length) {
        const Bytes input = random_bytes(engine, length);
        EXPECT_EQ(encode(input).text, reference_encode(input)) << length;
        EXPECT_EQ(tav_util_to_base64_size(length), reference_encode(input).size());
    }
}

TEST_F(BitOps, DecodesTheWorkedValues) {
    const std::pair<std::string, Bytes> cases[] = {
        {"", {}},
        {"YQ==", {'a'}},
        {"YWI=", {'a', 'b'}},
        {"YWJj", {'a', 'b', 'c'}},
        {"YQ", {'a'}},
        {"Y", {0x60, 0, 0}},              // one character is a whole group
        {"YQ==YQ==", {0x61, 0x06, 0x10}}, // padding does not end the text
        {"YQ==YWJj", {0x61, 0x06, 0x16, 0x26}},
        {"=\n \x80", {}},
        {"YWJj\n\n", {'a', 'b', 'c'}}};
    for (const auto &[text, plain] : cases) {
        const Decoded d = decode(text);
        EXPECT_EQ(d.status, TAV_OK) << text;
        EXPECT_EQ(d.bytes, plain) << text;
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

// Every byte outside the alphabet is dropped wherever it stands.
TEST_F(BitOps, DecodeSkipsEveryForeignByte) {
    for (int byte = 0; byte < 256; ++byte) {
        if (kAlphabet.find(static_cast<char>(byte)) != std::string::npos) {
            continue;
        }
        const std::string foreign(1, static_cast<char>(byte));
        for (const std::string &text :
             {foreign + "YWJj", "Y" + foreign + "WJj", "YWJ" + foreign + "j", "YWJj" + foreign}) {
            EXPECT_EQ(decode(text).bytes, bytes_of("abc")) << byte;
        }
    }
}

// The byte count follows the usable characters only: 4 give 3, a last group
// of 3 gives 2, of 2 gives 1, of 1 gives 3.
TEST_F(BitOps, DecodedSizeFollowsTheUsableCharacters) {
    const uint64_t sizes[] = {0, 3, 1, 2, 3, 6, 4, 5, 6, 9};
    for (size_t usable = 0; usable < 10; ++usable) {
        EXPECT_EQ(decode(std::string(usable, 'Q') + "====").size, sizes[usable]) << usable;
        EXPECT_EQ(decode(" " + std::string(usable, 'Q')).size, sizes[usable]) << usable;
    }
}

TEST_F(BitOps, DecodeIgnoresLineBreaks) {
    std::mt19937 engine(11);
    const Bytes input = random_bytes(engine, 1000);
    std::string wrapped, text = reference_encode(input);
    for (size_t i = 0; i < text.size(); i += 76) {
        wrapped += text.substr(i, 76) + "\n";
    }
    EXPECT_EQ(decode(wrapped).bytes, input);
}

// Random mixes of usable and foreign bytes, at every length up to 40, so
// that groups cross the fast path's boundaries in every way.
TEST_F(BitOps, DecodeMatchesTheWalkOnMixedInput) {
    std::mt19937 engine(3);
    for (int round = 0; round < 2000; ++round) {
        std::string text(engine() % 41, '\0');
        for (char &c : text) {
            c = engine() % 4 != 0 ? kAlphabet[engine() % 64] : static_cast<char>(engine());
        }
        EXPECT_EQ(decode(text).bytes, reference_decode(text)) << text;
    }
}

// Lengths that are not a multiple of 4, all usable: the last group lies past
// (length / 4) * 3 and is written whole. The block is sized for every started
// group; ASan watches the writes.
TEST_F(BitOps, DecodeBlockHoldsALastGroupPastTheFigure) {
    for (size_t length = 1; length < 41; ++length) {
        const Decoded d = decode(std::string(length, 'A'));
        EXPECT_EQ(d.status, TAV_OK);
        EXPECT_EQ(d.run.sizes, std::vector<size_t>{(length + 3) / 4 * 3}) << length;
        const uint64_t last_group_bytes[] = {0, 3, 1, 2};
        EXPECT_EQ(d.size, length / 4 * 3 + last_group_bytes[length % 4]) << length;
    }
}

TEST_F(BitOps, Base64AllocationFailureIsSilentAndKeepsTheFigure) {
    const Encoded e = encode(bytes_of("abcdefg"), 1);
    EXPECT_TRUE(e.run.injected);
    EXPECT_EQ(e.status, TAV_ERR_NOMEM);
    EXPECT_EQ(e.size, 12u);
    const Decoded d = decode("YWJjZGVmZw", 1);
    EXPECT_EQ(d.status, TAV_ERR_NOMEM);
    EXPECT_TRUE(d.out_null);
    EXPECT_EQ(d.size, 6u) << "(length / 4) * 3";
    EXPECT_EQ(e.run.live_blocks + d.run.live_blocks, 0);
    EXPECT_TRUE(tavtest::reports().empty());
}

// ---- bit strings ----------------------------------------------------------------

// The shift as stated, byte by byte, on a copy of the array at full size.
Bytes reference_shift(Bytes array, uint64_t length, uint64_t shift) {
    const uint64_t r = shift & 7, w = shift >> 3, n = length - w;
    if (r == 0) {
        std::memmove(array.data(), array.data() + w, n);
        return array;
    }
    const uint8_t m = static_cast<uint8_t>(0xFF >> r);
    for (uint64_t i = 0; i + 1 < n; ++i) {
        array[i] =
            static_cast<uint8_t>((array[i + w] & m) << r | (array[i + w + 1] & ~m) >> (8 - r));
    }
    array[n - 1] = static_cast<uint8_t>((array[n - 1 + w] & m) << r);
    std::fill(array.begin() + static_cast<long>(n), array.begin() + static_cast<long>(n + w), 0);
    return array;
}

// The array in a block of exactly its size, so ASan sees any stray access.
std::pair<Bytes, uint64_t> shift(const Bytes &array, uint64_t shift_bits) {
    auto *block = static_cast<uint8_t *>(std::malloc(array.size()));
    std::copy(array.begin(), array.end(), block);
    uint64_t length = array.size();
    EXPECT_EQ(tav_util_shift_bitstring_left(block, &length, shift_bits), TAV_OK);
    Bytes after(block, block + array.size());
    std::free(block);
    return {after, length};
}

TEST_F(BitOps, ShiftsTheWorkedValues) {
    const struct {
        uint64_t bits;
        Bytes after;
        uint64_t length;
    } cases[] = {{0, {0xAB, 0xCD}, 2},
                 {4, {0xBC, 0xD0}, 2},
                 {8, {0xCD, 0xCD}, 1},
                 {12, {0xD0, 0x00}, 1},
                 {16, {0xAB, 0xCD}, 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(shift({0xAB, 0xCD}, c.bits), std::make_pair(c.after, c.length)) << c.bits;
    }
}

TEST_F(BitOps, ShiftMatchesTheRuleAtEveryLengthAndShift) {
    std::mt19937 engine(5);
    for (size_t length = 1; length < 40; ++length) {
        const Bytes array = random_bytes(engine, length);
        for (uint64_t bits = 0; bits <= 8 * length; ++bits) {
            EXPECT_EQ(shift(array, bits),
                      std::make_pair(reference_shift(array, length, bits), length - bits / 8))
                << length << " " << bits;
        }
    }
}

// A whole-byte part past the string (or at its end with bits to move) is held
// at the length: the string empties; moved bits clear the array, else it stays.
TEST_F(BitOps, ShiftPastTheStringEmptiesItInBounds) {
    const Bytes array = {0xAB, 0xCD, 0xEF};
    EXPECT_EQ(shift(array, 25), std::make_pair(Bytes{0, 0, 0}, uint64_t{0}));
    EXPECT_EQ(shift(array, 32), std::make_pair(array, uint64_t{0}));
    EXPECT_EQ(shift(array, UINT64_MAX), std::make_pair(Bytes{0, 0, 0}, uint64_t{0}));
    EXPECT_EQ(shift({}, 3), std::make_pair(Bytes{}, uint64_t{0}));
}

TEST_F(BitOps, ShiftOfNullArgumentsChangesNothing) {
    uint8_t byte = 0x5A;
    uint64_t length = 1;
    EXPECT_EQ(tav_util_shift_bitstring_left(nullptr, &length, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_shift_bitstring_left(&byte, nullptr, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(byte, 0x5A);
    EXPECT_EQ(length, 1u);
    const std::string fn = "tav_util_shift_bitstring_left";
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"log " + fn + " NULL argument detected: (nil) " + pointer_text(&length),
                     "trace " + fn + " src/bit_ops.cpp 3",
                     "log " + fn + " NULL argument detected: " + pointer_text(&byte) + " (nil)",
                     "trace " + fn + " src/bit_ops.cpp 3"}));
}

struct Made {
    tav_status status;
    Bytes bytes;
    uint64_t size;
    tavtest::AllocRun run;
    bool out_null;
};

// With no factor: tav_util_map_bitstring_to_bytes.
Made make(const Bytes &input, uint64_t length, std::optional<int32_t> factor, long fail_at = 0) {
    Made m{TAV_ERR_SYSTEM, {}, 7, {}, false};
    uint8_t *out = kUntouched;
    m.run = tavtest::run_allocations(fail_at, [&] {
        m.status = factor ? tav_util_expand_byte_array(input.data(), length, *factor, &out, &m.size)
                          : tav_util_map_bitstring_to_bytes(input.data(), length, &out, &m.size);
    });
    m.out_null = out == nullptr;
    if (out != nullptr && out != kUntouched) {
        m.bytes.assign(out, out + m.size);
        std::free(out);
    }
    return m;
}

TEST_F(BitOps, MapsEveryByteToItsBits) {
    EXPECT_EQ(make({0xA0}, 1, {}).bytes, (Bytes{1, 0, 1, 0, 0, 0, 0, 0}));
    Bytes all(256), expected;
    for (int byte = 0; byte < 256; ++byte) {
        all[byte] = static_cast<uint8_t>(byte);
        for (int bit = 7; bit >= 0; --bit) {
            expected.push_back((byte >> bit) & 1);
        }
    }
    const Made m = make(all, all.size(), {});
    EXPECT_EQ(m.bytes, expected);
    EXPECT_EQ(m.run.sizes, std::vector<size_t>{2048});
    const Made empty = make({0xA0}, 0, {});
    EXPECT_EQ(empty.status, TAV_OK);
    EXPECT_EQ(empty.size, 0u);
}

TEST_F(BitOps, ExpandsEachByteFactorTimes) {
    EXPECT_EQ(make({1, 2}, 2, 3).bytes, (Bytes{1, 1, 1, 2, 2, 2}));
    EXPECT_EQ(make({1, 2}, 2, 1).bytes, (Bytes{1, 2}));
    const Made zero = make({1, 2}, 2, 0);
    EXPECT_EQ(zero.status, TAV_OK);
    EXPECT_EQ(zero.run.sizes, std::vector<size_t>{0});
    EXPECT_TRUE(tavtest::reports().empty());
}

// A failed allocation, a negative factor and a product that wraps past 64
// bits: each fails the same way, leaves nothing allocated and writes nothing.
TEST_F(BitOps, SizesThatCannotBeMetFailWithTheirReports) {
    const Bytes one = {0xFF};
    const struct {
        Made made;
        uint64_t size;
        const char *fn;
    } cases[] = {
        {make(one, 1, {}, 1), 8, "tav_util_map_bitstring_to_bytes"},
        {make(one, (uint64_t{1} << 61) + 1, {}), 8, "tav_util_map_bitstring_to_bytes"},
        {make(one, 1, 2, 1), 2, "tav_util_expand_byte_array"},
        {make(one, 2, -3), static_cast<uint64_t>(-6), "tav_util_expand_byte_array"},
        {make(one, UINT64_MAX, -1), 1, "tav_util_expand_byte_array"},
        {make(one, uint64_t{1} << 62, 4), 0, "tav_util_expand_byte_array"},
    };
    Lines expected;
    for (const auto &c : cases) {
        EXPECT_EQ(c.made.status, TAV_ERR_NOMEM) << c.size;
        EXPECT_TRUE(c.made.out_null);
        EXPECT_EQ(c.made.size, c.size);
        EXPECT_EQ(c.made.run.sizes, std::vector<size_t>{c.size}) << "malloc sees the figure";
        EXPECT_EQ(c.made.run.live_blocks, 0);
        expected.push_back(std::string("log ") + c.fn + " Memory allocation failed");
        expected.push_back(std::string("trace ") + c.fn + " src/bit_ops.cpp 2");
    }
    EXPECT_EQ(tavtest::report_summary(), expected);
}

TEST_F(BitOps, NullParametersAreLoggedAndTraced) {
    uint8_t byte = 1, *out = nullptr;
    uint64_t size = 5;
    EXPECT_EQ(tav_util_map_bitstring_to_bytes(nullptr, 1, &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_map_bitstring_to_bytes(&byte, 1, nullptr, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_expand_byte_array(&byte, 1, 2, &out, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(size, 5u);
    const std::string map = "tav_util_map_bitstring_to_bytes",
                      expand = "tav_util_expand_byte_array";
    const std::string b = pointer_text(&byte), o = pointer_text(&out), s = pointer_text(&size);
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"log " + map + " NULL parameter detected: (nil) " + o + " " + s,
                     "trace " + map + " src/bit_ops.cpp 3",
                     "log " + map + " NULL parameter detected: " + b + " (nil) " + s,
                     "trace " + map + " src/bit_ops.cpp 3",
                     "log " + expand + " NULL parameter detected: " + b + " " + o + " (nil)",
                     "trace " + expand + " src/bit_ops.cpp 3"}));
}

} // namespace
