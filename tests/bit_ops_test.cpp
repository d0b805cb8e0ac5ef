#include <algorithm>
#include <random>

#include "rows.hpp"

namespace {

const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
enum Op { kEncode, kDecode, kMap, kExpand, kShift };
const std::string kNames[] = {"", "", "tav_util_map_bitstring_to_bytes",
                              "tav_util_expand_byte_array", "tav_util_shift_bitstring_left"};
uint8_t *const kUntouched = reinterpret_cast<uint8_t *>(1); // never handed back

// One call on a copy of `in` in a block of exactly its size, so that ASan
// sees any stray access. `arg` is the factor or the shift; a negative
// `fail_at` passes the pointer at that place (-1 the first) null instead of
// failing an allocation. Gives the output (a shifted array: all of it) and the
// call as text: status, output (an encoding's text, else hex), size out, the
// sizes asked for (not a working decoding's), and the reports, the pointers
// written p0, p1, p2.
std::pair<std::string, std::string> call(Op op, const std::string &in, uint64_t length,
                                         int64_t arg = 0, long fail_at = 0) {
    auto *array = static_cast<uint8_t *>(std::malloc(in.size()));
    std::copy(in.begin(), in.end(), array);
    uint8_t *out = kUntouched;
    uint64_t size = op == kShift ? length : 99;
    void *const given[] = {array, op == kShift ? static_cast<void *>(&size) : &out, &size};
    void *at[] = {given[0], given[1], given[2]};
    at[fail_at < 0 ? -1 - fail_at : 0] = fail_at < 0 ? nullptr : array;
    auto *bytes = static_cast<uint8_t *>(at[0]), **o = static_cast<uint8_t **>(at[1]);
    auto *s = static_cast<uint64_t *>(at[op == kShift ? 1 : 2]);
    tav_status status = TAV_ERR_SYSTEM;
    const tavtest::AllocRun run = tavtest::run_allocations(std::max(fail_at, 0L), [&] {
        status =
            op == kEncode   ? tav_util_base64_encode(bytes, length, reinterpret_cast<char **>(o), s)
            : op == kDecode ? tav_util_base64_decode(reinterpret_cast<char *>(bytes), length, o, s)
            : op == kMap    ? tav_util_map_bitstring_to_bytes(bytes, length, o, s)
            : op == kExpand
                ? tav_util_expand_byte_array(bytes, length, static_cast<int32_t>(arg), o, s)
                : tav_util_shift_bitstring_left(bytes, s, static_cast<uint64_t>(arg));
    });
    const bool handed = out != nullptr && out != kUntouched;
    const std::string output(reinterpret_cast<char *>(op == kShift ? array : out), op == kShift
                                                                                       ? in.size()
                                                                                   : handed ? size
                                                                                            : 0);
    std::string text = std::to_string(status) + " ", said = tavtest::said();
    for (const char c : output) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<uint8_t>(c));
        text += op == kEncode ? std::string(1, c) : pair;
    }
    text += (out == nullptr ? "null " : " ") + std::to_string(size);
    for (const size_t asked :
         op != kDecode || status != TAV_OK ? run.sizes : std::vector<size_t>{}) {
        text += " " + std::to_string(asked);
    }
    EXPECT_EQ(run.live_blocks, status == TAV_OK ? run.allocations : 0) << text;
    for (int i = 0; i < 3; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "%p", given[i]);
        for (size_t place; (place = said.find(name)) != std::string::npos;) {
            said.replace(place, std::strlen(name), "p" + std::to_string(i));
        }
    }
    std::free(handed ? out : nullptr);
    std::free(array);
    return {output, text + (said.empty() ? "" : "|" + said)};
}
std::string decode(const std::string &text) { return call(kDecode, text, text.size()).first; }
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
        const std::string text = call(kEncode, input, length).first, bits = bits_of(input, '0');
        EXPECT_EQ(std::tuple(text, decode(text), tav_util_to_base64_size(length),
                             call(kMap, input, length).first),
                  std::tuple(plain, input, plain.size(), bits_of(input, '\0')));
        for (uint64_t shift = 0; shift <= 8 * length; ++shift) { // moved bits leave zeros
            const std::string behind =
                shift % 8 != 0 ? std::string(shift, '0') : bits.substr(8 * length - shift);
            EXPECT_EQ(bits_of(call(kShift, input, length, int64_t(shift)).first, '0'),
                      bits.substr(shift) + behind)
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

// A shift past the end empties the string: moved bits clear the array, else
// it stays. A negative factor or a product past 64 bits fails as a refused
// block. Only the bit-string operations report.
TEST(BitOps, EachRowGivesItsOutputSizeBlocksAndReports) {
    tavtest::clear_reports();
    const std::string in = "YWJjZGVmZw", ab = "\xAB\xCD", abc = "\xAB\xCD\xEF";
    const auto said = [](Op op, const std::string &line, int status) {
        return "|log " + kNames[op] + " " +
               (status == 2    ? "Memory allocation failed"
                : op == kShift ? "NULL argument detected: " + line
                               : "NULL parameter detected: " + line) +
               "|trace " + kNames[op] + " src/bit_ops.cpp " + std::to_string(status);
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
          Row{kMap, in, 3, 0, 1, "2 null 24 24" + said(kMap, "", 2)},
          Row{kMap, in, (uint64_t{1} << 61) + 1, 0, 0, "2 null 8 8" + said(kMap, "", 2)},
          Row{kExpand, in, 3, 2, 1, "2 null 6 6" + said(kExpand, "", 2)},
          Row{kExpand, in, 2, -3, 0,
              "2 null 18446744073709551610 18446744073709551610" + said(kExpand, "", 2)},
          Row{kExpand, in, UINT64_MAX, -1, 0, "2 null 1 1" + said(kExpand, "", 2)},
          Row{kExpand, in, uint64_t{1} << 62, 4, 0, "2 null 0 0" + said(kExpand, "", 2)},
          Row{kShift, ab, 2, 4, -1, "3 abcd 2" + said(kShift, "(nil) p1", 3)},
          Row{kShift, ab, 2, 4, -2, "3 abcd 2" + said(kShift, "p0 (nil)", 3)},
          Row{kMap, ab, 2, 0, -1, "3  99" + said(kMap, "(nil) p1 p2", 3)},
          Row{kMap, ab, 2, 0, -2, "3  99" + said(kMap, "p0 (nil) p2", 3)},
          Row{kMap, ab, 2, 0, -3, "3  99" + said(kMap, "p0 p1 (nil)", 3)},
          Row{kExpand, ab, 2, 2, -1, "3  99" + said(kExpand, "(nil) p1 p2", 3)},
          Row{kExpand, ab, 2, 2, -2, "3  99" + said(kExpand, "p0 (nil) p2", 3)},
          Row{kExpand, ab, 2, 2, -3, "3  99" + said(kExpand, "p0 p1 (nil)", 3)}}) {
        EXPECT_EQ(call(op, input, length, arg, fail_at).second, expected) << op << " " << input;
    }
}

} // namespace
