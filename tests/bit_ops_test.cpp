// Base64 and bit strings: worked values, cross-checks, the skipping rule, the
// blocks' bounds and every failure with its reports.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
using Call = std::function<tav_status(uint8_t **out, uint64_t *size_out)>;
const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
uint8_t *const kUntouched = reinterpret_cast<uint8_t *>(1); // never handed back

struct Result {
    tav_status status = TAV_ERR_SYSTEM;
    std::string bytes; // the output, size out long
    uint64_t size = 99;
    tavtest::AllocRun run;
    uint8_t *out = kUntouched;
};

Result run(long fail_at, const Call &call) {
    Result r;
    r.run = tavtest::run_allocations(fail_at, [&] { r.status = call(&r.out, &r.size); });
    if (r.out != nullptr && r.out != kUntouched) {
        r.bytes.assign(reinterpret_cast<char *>(r.out), r.size);
        std::free(r.out);
    }
    return r;
}

const uint8_t *data(const std::string &s) { return reinterpret_cast<const uint8_t *>(s.data()); }

Result encode(const std::string &in, long fail_at = 0) {
    return run(fail_at, [&](uint8_t **o, uint64_t *s) {
        return tav_util_base64_encode(data(in), in.size(), reinterpret_cast<char **>(o), s);
    });
}
Result decode(const std::string &text, long fail_at = 0) {
    return run(fail_at, [&](uint8_t **o, uint64_t *s) {
        return tav_util_base64_decode(text.data(), text.size(), o, s);
    });
}
Result map_bits(const std::string &in, uint64_t length, long fail_at = 0) {
    return run(fail_at, [&](uint8_t **o, uint64_t *s) {
        return tav_util_map_bitstring_to_bytes(data(in), length, o, s);
    });
}
Result expand(const std::string &in, uint64_t length, int32_t factor, long fail_at = 0) {
    return run(fail_at, [&](uint8_t **o, uint64_t *s) {
        return tav_util_expand_byte_array(data(in), length, factor, o, s);
    });
}

std::string random_bytes(std::mt19937 &engine, size_t length) {
    std::string out(length, '\0');
    for (char &c : out) {
        c = static_cast<char>(engine());
    }
    return out;
}

std::string pointer_text(const void *pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
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

// RFC 4648 vectors, and one long enough for the word-wide path.
TEST_F(BitOps, EncodesTheWorkedValuesIntoExactBlocks) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"a", "YQ=="},
        {"ab", "YWI="},
        {"abc", "YWJj"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\xff\xfe\xfd\xfc\xfb\xfa\xf9\xf8", "//79/Pv6+fg="},
        {"Many hands make light work.", "TWFueSBoYW5kcyBtYWtlIGxpZ2h0IHdvcmsu"}};
    for (const auto &[plain, encoded] : cases) {
        const Result e = encode(plain);
        EXPECT_EQ(e.status, TAV_OK);
        EXPECT_EQ(e.bytes, encoded);
        EXPECT_EQ(e.run.sizes, std::vector<size_t>{encoded.size()}) << "no terminator";
        EXPECT_EQ(decode(encoded).bytes, plain);
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

// Every length across the word-wide paths and their tails.
TEST_F(BitOps, RoundTripsAtEveryLength) {
    std::mt19937 engine(7);
    for (size_t length = 0; length < 70; ++length) {
        const std::string input = random_bytes(engine, length);
        const Result e = encode(input);
        EXPECT_EQ(e.size, tav_util_to_base64_size(length));
        EXPECT_EQ(decode(e.bytes).bytes, input) << length;
    }
}

TEST_F(BitOps, DecodesTheWorkedValues) {
    const std::pair<std::string, std::string> cases[] = {
        {"YQ==", "a"},
        {"YQ", "a"},
        {"Y", {'\x60', '\0', '\0'}},  // one character is a whole group
        {"YQ==YQ==", "\x61\x06\x10"}, // padding does not end the text
        {"YQ==YWJj", "\x61\x06\x16\x26"},
        {"=\n \x80", ""},
        {"YWJj\n\n", "abc"}};
    for (const auto &[text, plain] : cases) {
        const Result d = decode(text);
        EXPECT_EQ(d.status, TAV_OK) << text;
        EXPECT_EQ(d.bytes, plain) << text;
    }
}

TEST_F(BitOps, DecodeSkipsEveryForeignByteWhereverItStands) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string foreign(1, static_cast<char>(byte));
        if (kAlphabet.find(foreign) == std::string::npos) {
            for (const std::string &text : {foreign + "YWJj", "Y" + foreign + "WJj",
                                            "YWJ" + foreign + "j", "YWJj" + foreign}) {
                EXPECT_EQ(decode(text).bytes, "abc") << byte;
            }
        }
    }
}

// 4 usable characters give 3 bytes; a last group of 3 gives 2, of 2 gives 1,
// of 1 gives 3.
TEST_F(BitOps, DecodedSizeFollowsTheUsableCharacters) {
    const uint64_t sizes[] = {0, 3, 1, 2, 3, 6, 4, 5, 6, 9};
    for (size_t usable = 0; usable < 10; ++usable) {
        EXPECT_EQ(decode(std::string(usable, 'Q') + "====").size, sizes[usable]) << usable;
        EXPECT_EQ(decode(" " + std::string(usable, 'Q')).size, sizes[usable]) << usable;
    }
}

// Foreign bytes strewn anywhere (and line breaks every 76 characters) decode
// as the text without them, whatever groups they split.
TEST_F(BitOps, DecodeOfMixedTextMatchesTheTextWithoutForeignBytes) {
    std::mt19937 engine(3);
    for (int round = 0; round < 2000; ++round) {
        std::string text(engine() % 41, '\0'), usable;
        for (char &c : text) {
            c = engine() % 4 != 0 ? kAlphabet[engine() % 64] : static_cast<char>(engine());
            usable += kAlphabet.find(c) != std::string::npos ? std::string(1, c) : "";
        }
        EXPECT_EQ(decode(text).bytes, decode(usable).bytes) << text;
    }
    const std::string input = random_bytes(engine, 1000), text = encode(input).bytes;
    std::string wrapped;
    for (size_t i = 0; i < text.size(); i += 76) {
        wrapped += text.substr(i, 76) + "\n";
    }
    EXPECT_EQ(decode(wrapped).bytes, input);
}

// All usable, lengths not a multiple of 4: the last group lies past
// (length / 4) * 3 and is written whole, so the block holds a group for every
// started 4 characters. ASan watches the writes.
TEST_F(BitOps, DecodeBlockHoldsALastGroupPastTheFigure) {
    for (size_t length = 1; length < 41; ++length) {
        const Result d = decode(std::string(length, 'A'));
        const uint64_t last_group_bytes[] = {0, 3, 1, 2};
        EXPECT_EQ(d.run.sizes, std::vector<size_t>{(length + 3) / 4 * 3}) << length;
        EXPECT_EQ(d.size, length / 4 * 3 + last_group_bytes[length % 4]) << length;
    }
}

// Each allocating operation makes one allocation, zero-sized ones included.
// When it fails, out is null, size out keeps the figure, nothing is left
// allocated, and only the bit-string operations report.
TEST_F(BitOps, EveryAllocationFailureIsReported) {
    const std::string in = "YWJjZGVmZw";
    const struct {
        std::function<Result(uint64_t length, long fail_at)> call;
        uint64_t length, size;
        const char *reporter;
    } cases[] = {{[&](uint64_t n, long f) { return encode(in.substr(0, n), f); }, 7, 12, nullptr},
                 {[&](uint64_t n, long f) { return decode(in.substr(0, n), f); }, 10, 6, nullptr},
                 {[&](uint64_t n, long f) { return map_bits(in, n, f); }, 3, 24,
                  "tav_util_map_bitstring_to_bytes"},
                 {[&](uint64_t n, long f) { return expand(in, n, 2, f); }, 3, 6,
                  "tav_util_expand_byte_array"}};
    for (const auto &c : cases) {
        for (const uint64_t length : {c.length, uint64_t{0}}) {
            tavtest::clear_reports();
            EXPECT_EQ(c.call(length, 0).run.allocations, 1);
            const Result r = c.call(length, 1);
            EXPECT_EQ(r.status, TAV_ERR_NOMEM);
            EXPECT_EQ(r.out, nullptr);
            EXPECT_EQ(r.size, length == 0 ? 0 : c.size);
            EXPECT_EQ(r.run.live_blocks, 0);
            Lines expected;
            if (c.reporter != nullptr) {
                expected = {std::string("log ") + c.reporter + " Memory allocation failed",
                            std::string("trace ") + c.reporter + " src/bit_ops.cpp 2"};
            }
            EXPECT_EQ(tavtest::report_summary(), expected);
        }
    }
}

// ---- bit strings ----------------------------------------------------------------

// The array in a block of exactly its size, so ASan sees any stray access.
std::pair<std::string, uint64_t> shift(const std::string &array, uint64_t bits) {
    auto *block = static_cast<uint8_t *>(std::malloc(array.size()));
    std::copy(array.begin(), array.end(), block);
    uint64_t length = array.size();
    EXPECT_EQ(tav_util_shift_bitstring_left(block, &length, bits), TAV_OK);
    std::string after(block, block + array.size());
    std::free(block);
    return {after, length};
}

TEST_F(BitOps, ShiftsTheWorkedValues) {
    const struct {
        uint64_t bits;
        std::string after;
        uint64_t length;
    } cases[] = {{0, "\xAB\xCD", 2},
                 {4, "\xBC\xD0", 2},
                 {8, "\xCD\xCD", 1},
                 {12, {'\xD0', '\0'}, 1},
                 {16, "\xAB\xCD", 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(shift("\xAB\xCD", c.bits), std::make_pair(c.after, c.length)) << c.bits;
    }
}

// Against the bits written out as text: drop `bits` of them, pack the rest.
// With bits to move the array is zero behind the string; without, the bytes
// behind it keep their values.
TEST_F(BitOps, ShiftMatchesTheBitsAsTextAtEveryLengthAndShift) {
    std::mt19937 engine(5);
    for (size_t length = 1; length < 40; ++length) {
        const std::string array = random_bytes(engine, length);
        std::string bits_text;
        for (const char byte : array) {
            for (int bit = 7; bit >= 0; --bit) {
                bits_text += (byte >> bit & 1) != 0 ? '1' : '0';
            }
        }
        for (uint64_t bits = 0; bits <= 8 * length; ++bits) {
            std::string expected = array;
            const std::string moved = bits_text.substr(bits) + std::string(bits, '0');
            for (size_t i = 0; i < length; ++i) {
                if (bits % 8 != 0 || i < length - bits / 8) {
                    expected[i] = static_cast<char>(std::stoi(moved.substr(8 * i, 8), nullptr, 2));
                }
            }
            EXPECT_EQ(shift(array, bits), std::make_pair(expected, length - bits / 8))
                << length << " " << bits;
        }
    }
}

// A whole-byte part past the string (or at its end with bits to move) is held
// at the length: the string empties; moved bits clear the array, else it stays.
TEST_F(BitOps, ShiftPastTheStringEmptiesItInBounds) {
    const std::string zeros(3, '\0');
    EXPECT_EQ(shift("\xAB\xCD\xEF", 25), std::make_pair(zeros, uint64_t{0}));
    EXPECT_EQ(shift("\xAB\xCD\xEF", 32), std::make_pair(std::string("\xAB\xCD\xEF"), uint64_t{0}));
    EXPECT_EQ(shift("\xAB\xCD\xEF", UINT64_MAX), std::make_pair(zeros, uint64_t{0}));
    EXPECT_EQ(shift("", 3), std::make_pair(std::string(), uint64_t{0}));
}

TEST_F(BitOps, MapsEveryByteToItsBits) {
    EXPECT_EQ(map_bits("\xA0", 1).bytes, std::string({1, 0, 1, 0, 0, 0, 0, 0}));
    std::string all, expected;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
        for (int bit = 7; bit >= 0; --bit) {
            expected += static_cast<char>(byte >> bit & 1);
        }
    }
    EXPECT_EQ(map_bits(all, all.size()).bytes, expected);
    EXPECT_EQ(map_bits("x", 0).status, TAV_OK);
}

TEST_F(BitOps, ExpandsEachByteFactorTimes) {
    EXPECT_EQ(expand("\1\2", 2, 3).bytes, "\1\1\1\2\2\2");
    EXPECT_EQ(expand("\1\2", 2, 1).bytes, "\1\2");
    const Result zero = expand("\1\2", 2, 0);
    EXPECT_EQ(zero.status, TAV_OK);
    EXPECT_EQ(zero.run.sizes, std::vector<size_t>{0});
    EXPECT_TRUE(tavtest::reports().empty());
}

// A negative factor and a product that wraps past 64 bits fail as a refused
// allocation: malloc sees the figure, nothing stays allocated or is written.
TEST_F(BitOps, SizesThatCannotBeMetFailWithTheirReports) {
    const struct {
        Result made;
        uint64_t size;
        const char *fn;
    } cases[] = {{map_bits("\xFF", (uint64_t{1} << 61) + 1), 8, "tav_util_map_bitstring_to_bytes"},
                 {expand("\xFF", 2, -3), static_cast<uint64_t>(-6), "tav_util_expand_byte_array"},
                 {expand("\xFF", UINT64_MAX, -1), 1, "tav_util_expand_byte_array"},
                 {expand("\xFF", uint64_t{1} << 62, 4), 0, "tav_util_expand_byte_array"}};
    Lines expected;
    for (const auto &c : cases) {
        EXPECT_EQ(c.made.status, TAV_ERR_NOMEM) << c.size;
        EXPECT_EQ(c.made.out, nullptr);
        EXPECT_EQ(c.made.size, c.size);
        EXPECT_EQ(c.made.run.sizes, std::vector<size_t>{c.size});
        EXPECT_EQ(c.made.run.live_blocks, 0);
        expected.push_back(std::string("log ") + c.fn + " Memory allocation failed");
        expected.push_back(std::string("trace ") + c.fn + " src/bit_ops.cpp 2");
    }
    EXPECT_EQ(tavtest::report_summary(), expected);
}

TEST_F(BitOps, NullArgumentsAreLoggedAndTracedAndChangeNothing) {
    uint8_t byte = 0x5A, *out = nullptr;
    uint64_t length = 1, size = 5;
    EXPECT_EQ(tav_util_shift_bitstring_left(nullptr, &length, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_shift_bitstring_left(&byte, nullptr, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_map_bitstring_to_bytes(nullptr, 1, &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_map_bitstring_to_bytes(&byte, 1, nullptr, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_expand_byte_array(&byte, 1, 2, &out, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(byte, 0x5A);
    EXPECT_EQ(length + size, 6u);
    const std::string shift_fn = "tav_util_shift_bitstring_left";
    const std::string map_fn = "tav_util_map_bitstring_to_bytes";
    const std::string expand_fn = "tav_util_expand_byte_array";
    const std::string b = pointer_text(&byte), l = pointer_text(&length), o = pointer_text(&out),
                      s = pointer_text(&size);
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"log " + shift_fn + " NULL argument detected: (nil) " + l,
                     "trace " + shift_fn + " src/bit_ops.cpp 3",
                     "log " + shift_fn + " NULL argument detected: " + b + " (nil)",
                     "trace " + shift_fn + " src/bit_ops.cpp 3",
                     "log " + map_fn + " NULL parameter detected: (nil) " + o + " " + s,
                     "trace " + map_fn + " src/bit_ops.cpp 3",
                     "log " + map_fn + " NULL parameter detected: " + b + " (nil) " + s,
                     "trace " + map_fn + " src/bit_ops.cpp 3",
                     "log " + expand_fn + " NULL parameter detected: " + b + " " + o + " (nil)",
                     "trace " + expand_fn + " src/bit_ops.cpp 3"}));
}

} // namespace
