#include <algorithm>
#include <random>

#include "rows.hpp"

namespace {

const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
enum Op { kEncode, kDecode, kMap, kExpand, kShift };
const std::string kNames[] = {"", "", "tav_util_map_bitstring_to_bytes",
                              "tav_util_expand_byte_array", "tav_util_shift_bitstring_left"};
uint8_t *const kUntouched = reinterpret_cast<uint8_t *>(1); // never handed back

struct Result {
    tav_status status = TAV_ERR_SYSTEM;
    std::string bytes; // the output, size out long (a shifted array: all of it)
    uint64_t size = 99;
    tavtest::AllocRun run;
    uint8_t *out = kUntouched;
};

// `arg` is the factor or the shift. A shifted array lies in a block of exactly
// its size, so ASan sees any stray access.
Result call(Op op, const std::string &in, uint64_t length, int64_t arg = 0, long fail_at = 0) {
    Result r;
    const auto *bytes = reinterpret_cast<const uint8_t *>(in.data());
    if (op == kShift) {
        r.out = static_cast<uint8_t *>(std::malloc(in.size()));
        std::copy(in.begin(), in.end(), r.out);
        r.size = length;
    }
    r.run = tavtest::run_allocations(fail_at, [&] {
        uint8_t **o = &r.out;
        uint64_t *s = &r.size;
        r.status = op == kEncode
                       ? tav_util_base64_encode(bytes, length, reinterpret_cast<char **>(o), s)
                   : op == kDecode ? tav_util_base64_decode(in.data(), length, o, s)
                   : op == kMap    ? tav_util_map_bitstring_to_bytes(bytes, length, o, s)
                   : op == kExpand
                       ? tav_util_expand_byte_array(bytes, length, static_cast<int32_t>(arg), o, s)
                       : tav_util_shift_bitstring_left(r.out, s, static_cast<uint64_t>(arg));
    });
    if (r.out != nullptr && r.out != kUntouched) {
        r.bytes.assign(reinterpret_cast<char *>(r.out), op == kShift ? in.size() : r.size);
        std::free(r.out);
    }
    return r;
}
std::string decode(const std::string &text) { return call(kDecode, text, text.size()).bytes; }
std::string bits_of(const std::string &bytes, char zero) { // one per bit, high bit first
    std::string bits;
    for (size_t i = 0; i < 8 * bytes.size(); ++i) {
        bits += static_cast<char>(zero + (bytes[i / 8] >> (7 - i % 8) & 1));
    }
    return bits;
}

// Against the rules written out plainly: Base64 group by group, one character
// or byte per bit; a decoding skips foreign bytes wherever they stand.
TEST(BitOps, MatchTheRulesWrittenOut) {
    std::mt19937 engine(3);
    for (size_t length = 0; length < 80; ++length) {
        std::string input(length, '\0'), plain;
        std::generate(input.begin(), input.end(), [&] { return static_cast<char>(engine()); });
        for (size_t i = 0; i < length; i += 3) {
            const auto byte = [&](size_t k) { return k < length ? uint8_t(input[k]) : 0u; };
            const unsigned group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
            for (size_t c = 0; c < 4; ++c) {
                plain += i + c <= length ? kAlphabet[group >> (18 - 6 * c) & 63] : '=';
            }
        }
        const std::string text = call(kEncode, input, length).bytes, bits = bits_of(input, '0');
        EXPECT_EQ(std::tuple(text, decode(text), tav_util_to_base64_size(length),
                             call(kMap, input, length).bytes),
                  std::tuple(plain, input, plain.size(), bits_of(input, '\0')));
        for (uint64_t shift = 0; shift <= 8 * length; ++shift) { // moved bits leave zeros
            const Result r = call(kShift, input, length, static_cast<int64_t>(shift));
            EXPECT_EQ(
                std::tuple(bits_of(r.bytes, '0'), r.size),
                std::tuple(bits.substr(shift) + (shift % 8 != 0 ? std::string(shift, '0')
                                                                : bits.substr(8 * length - shift)),
                           length - shift / 8))
                << length << " " << shift;
        }
    }
    for (int round = 0; round < 2000; ++round) {
        std::string text(engine() % 121, '\0'), usable;
        for (char &c : text) {
            c = engine() % (round % 2 != 0 ? 4 : 100) != 0 ? kAlphabet[engine() % 64]
                                                           : static_cast<char>(engine());
            usable += kAlphabet.find(c) != std::string::npos ? std::string(1, c) : "";
        }
        EXPECT_EQ(decode(text), decode(usable)) << text;
    }
}

// Each row: status, output (an encoding's text, else hex), size out, sizes
// asked for (not a successful decoding's), and reports. A shift past the end
// empties the string: moved bits clear the array, else it stays. A negative
// factor or a product past 64 bits fails as a refused block.
TEST(BitOps, EachRowGivesItsOutputSizeBlocksAndReports) {
    tavtest::clear_reports();
    const std::string in = "YWJjZGVmZw", ab = "\xAB\xCD", abc = "\xAB\xCD\xEF";
    const auto failed = [](Op op) {
        return "|log " + kNames[op] + " Memory allocation failed|trace " + kNames[op] +
               " src/bit_ops.cpp 2";
    };
    using Row = std::tuple<Op, std::string, uint64_t, int64_t, long, std::string>;
    for (const auto &[op, input, length, arg, fail_at, expected] :
         {Row{kEncode, "a", 1, 0, 0, "0 YQ== 4 4"},
          Row{kEncode, "ab", 2, 0, 0, "0 YWI= 4 4"},
          Row{kEncode, "abc", 3, 0, 0, "0 YWJj 4 4"},
          Row{kDecode, "YQ", 2, 0, 0, "0 61 1"}, // one character is a whole group
          Row{kDecode, "Y", 1, 0, 0, "0 600000 3"},
          Row{kDecode, "YQ==YQ==", 8, 0, 0, "0 610610 3"}, // padding does not end it
          Row{kDecode, "=\t \x80", 4, 0, 0, "0  0"},
          Row{kShift, ab, 2, 4, 0, "0 bcd0 2"},
          Row{kShift, ab, 2, 8, 0, "0 cdcd 1"},
          Row{kShift, ab, 2, 12, 0, "0 d000 1"},
          Row{kShift, abc, 3, 25, 0, "0 000000 0"},
          Row{kShift, abc, 3, 32, 0, "0 abcdef 0"},
          Row{kMap, "\xA0", 1, 0, 0, "0 0100010000000000 8 8"},
          Row{kExpand, "\1\2", 2, 3, 0, "0 010101020202 6 6"},
          Row{kExpand, "\1\2", 2, 0, 0, "0  0 0"},
          Row{kEncode, in, 7, 0, 1, "2 null 12 12"},
          Row{kDecode, in, 10, 0, 1, "2 null 6 9"},
          Row{kMap, in, 3, 0, 1, "2 null 24 24" + failed(kMap)},
          Row{kMap, in, (uint64_t{1} << 61) + 1, 0, 0, "2 null 8 8" + failed(kMap)},
          Row{kExpand, in, 3, 2, 1, "2 null 6 6" + failed(kExpand)},
          Row{kExpand, in, 2, -3, 0,
              "2 null 18446744073709551610 18446744073709551610" + failed(kExpand)},
          Row{kExpand, in, UINT64_MAX, -1, 0, "2 null 1 1" + failed(kExpand)},
          Row{kExpand, in, uint64_t{1} << 62, 4, 0, "2 null 0 0" + failed(kExpand)}}) {
        const Result r = call(op, input, length, arg, fail_at);
        std::string text = std::to_string(r.status) + " ", said = tavtest::said();
        for (const char c : r.bytes) {
            char pair[3];
            std::snprintf(pair, sizeof pair, "%02x", static_cast<uint8_t>(c));
            text += op == kEncode ? std::string(1, c) : pair;
        }
        text += (r.out == nullptr ? "null " : " ") + std::to_string(r.size);
        for (const size_t size :
             op != kDecode || fail_at != 0 ? r.run.sizes : std::vector<size_t>{}) {
            text += " " + std::to_string(size);
        }
        EXPECT_EQ(r.run.live_blocks, r.status == TAV_OK ? r.run.allocations : 0) << text;
        EXPECT_EQ(text + (said.empty() ? "" : "|" + said), expected) << op << " " << input;
    }
}

TEST(BitOps, NullArguments) {
    tavtest::clear_reports();
    uint8_t byte = 0x5A, *out = nullptr;
    uint64_t length = 1, size = 5;
    std::string expected;
    for (const Op op : {kShift, kMap, kExpand}) {
        for (int gap = 0; gap < (op == kShift ? 2 : 3); ++gap) { // each pointer null in turn
            void *at[] = {&byte, op == kShift ? static_cast<void *>(&length) : &out, &size};
            at[gap] = nullptr;
            auto *bytes = static_cast<uint8_t *>(at[0]);
            auto **o = static_cast<uint8_t **>(at[1]);
            auto *s = static_cast<uint64_t *>(at[op == kShift ? 1 : 2]);
            EXPECT_EQ(op == kShift ? tav_util_shift_bitstring_left(bytes, s, 1)
                      : op == kMap ? tav_util_map_bitstring_to_bytes(bytes, 1, o, s)
                                   : tav_util_expand_byte_array(bytes, 1, 2, o, s),
                      TAV_ERR_NULL_ARG);
            char line[128];
            std::snprintf(line, sizeof line,
                          op == kShift ? "NULL argument detected: %p %p"
                                       : "NULL parameter detected: %p %p %p",
                          at[0], at[1], at[2]);
            expected +=
                "|log " + kNames[op] + " " + line + "|trace " + kNames[op] + " src/bit_ops.cpp 3";
        }
    }
    EXPECT_EQ("|" + tavtest::said(), expected);
    EXPECT_EQ(std::make_tuple(byte, length, size), std::make_tuple(0x5A, 1u, 5u));
}

} // namespace
