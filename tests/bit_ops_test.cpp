#include "support.hpp"

namespace {

const char kHex[] = "0123456789abcdef";
enum Op { kEncode, kDecode, kMap, kExpand, kShift };
const std::string kNames[] = {"", "", "tav_util_map_bitstring_to_bytes",
                              "tav_util_expand_byte_array", "tav_util_shift_bitstring_left"};

// One call on a copy of `in` in a block of its exact size. A negative `fail_at` passes
// 0x10, 0x20, 0x30 with place -fail_at null. Gives the output and a text: status,
// output (hex, but an encoding's text), size out, sizes asked, reports.
auto call(Op op, const std::string &in, uint64_t length, int64_t arg = 0, long fail_at = 0) {
    Bytes array(in.begin(), in.end());
    uint8_t *out = nullptr;
    uint64_t size = op == kShift ? length : 99;
    void *at[] = {array.data(), op == kShift ? static_cast<void *>(&size) : &out, &size};
    for (uintptr_t i = 0; fail_at < 0 && i < 3; ++i)
        at[i] = i + 1 == uintptr_t(-fail_at) ? nullptr : reinterpret_cast<void *>(16 * i + 16);
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
    const size_t shown = op == kShift ? in.size() : out == nullptr ? 0 : size;
    const std::string output(reinterpret_cast<char *>(op == kShift ? array.data() : out), shown);
    std::string text = std::to_string(status) + " ", said = tavtest::said();
    for (const uint8_t c : output)
        text += op == kEncode ? std::string(1, c) : std::string{kHex[c >> 4], kHex[c & 15]};
    text += (op != kShift && out == nullptr ? "null " : " ") + std::to_string(size);
    for (const size_t asked : run.sizes)
        text += " " + std::to_string(asked);
    EXPECT_EQ(run.live_blocks, status == TAV_OK ? run.allocations : 0) << text;
    std::free(out);
    return std::pair(output, text + (said.empty() ? "" : "|" + said));
}
// Past the end a shift empties the string; a negative factor or a wrapped product fails.
TEST(BitOps, EachRowGivesItsOutputSizeBlocksAndReports) {
    tavtest::clear_reports();
    const std::string in = "bits in a long array", ab = "\xAB\xCD", abc = "\xAB\xCD\xEF";
    // A character just past a range of the alphabet, in either half of a vector step.
    for (const std::string text :
         {"QUJDR[EVGR0hJSktMTU5PUFFSU1RVVldYQUJD", "QU{JDREVGR0hJSktMTU5PUFFSU1RVVldYQUJD",
          "Q:UJDREVGR0hJSktMTU5PUFFSU1RVVldYQUJD", "QUJDREVGR0hJSktMTU5P!UFFSU1RVVldYQUJD"})
        EXPECT_EQ(call(kDecode, text, text.size()).first, "ABCDEFGHIJKLMNOPQRSTUVWXABC");
    EXPECT_EQ((std::tuple{tav_util_to_base64_size(0), tav_util_to_base64_size(2),
                          tav_util_to_base64_size(3), tav_util_to_base64_size(4)}),
              (std::tuple{0u, 4u, 4u, 8u}));
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
          Row{kDecode, "YQ", 2, 0, 0, "0 61 1 3"},
          Row{kDecode, "YWI=", 4, 0, 0, "0 6162 2 3"},
          Row{kDecode, "Y", 1, 0, 0, "0 600000 3 3"},
          Row{kDecode, "YQ==YQ==", 8, 0, 0, "0 610610 3 6"},
          Row{kDecode, "!*\x80 ", 4, 0, 0, "0  0 3"},
          Row{kShift, ab, 2, 4, 0, "0 bcd0 2"},
          Row{kShift, ab, 2, 8, 0, "0 cdcd 1"},
          Row{kShift, ab, 2, 12, 0, "0 d000 1"},
          Row{kShift, abc, 3, 25, 0, "0 000000 0"},
          Row{kShift, abc, 3, 32, 0, "0 abcdef 0"},
          Row{kShift, in, 20, 13, 0, "0 2e8e640d2dc40c240d8dedcce40c2e4e4c2f2000 19"},
          Row{kMap, "\xA0\x05", 2, 0, 0, "0 01000100000000000000000000010001 16 16"},
          Row{kExpand, "\1\2", 2, 3, 0, "0 010101020202 6 6"},
          Row{kExpand, "\1\2", 2, 0, 0, "0  0 0"},
          Row{kExpand, "\1\2", 2, 1, 0, "0 0102 2 2"},
          Row{kEncode, in, 7, 0, 1, "2 null 12 12"},
          Row{kDecode, in, 10, 0, 1, "2 null 6 9"},
          Row{kMap, in, 3, 0, 1, "2 null 24 24" + said(kMap, "", 2)},
          Row{kMap, in, (uint64_t{1} << 61) + 1, 0, 0, "2 null 8 8" + said(kMap, "", 2)},
          Row{kExpand, in, 3, 2, 1, "2 null 6 6" + said(kExpand, "", 2)},
          Row{kExpand, in, UINT64_MAX, -1, 0, "2 null 1 1" + said(kExpand, "", 2)},
          Row{kExpand, in, uint64_t{1} << 62, 4, 0, "2 null 0 0" + said(kExpand, "", 2)},
          Row{kShift, ab, 2, 4, -1, "3 abcd 2" + said(kShift, "(nil) 0x20", 3)},
          Row{kShift, ab, 2, 4, -2, "3 abcd 2" + said(kShift, "0x10 (nil)", 3)},
          Row{kMap, ab, 2, 0, -1, "3 null 99" + said(kMap, "(nil) 0x20 0x30", 3)},
          Row{kMap, ab, 2, 0, -2, "3 null 99" + said(kMap, "0x10 (nil) 0x30", 3)},
          Row{kMap, ab, 2, 0, -3, "3 null 99" + said(kMap, "0x10 0x20 (nil)", 3)},
          Row{kExpand, ab, 2, 2, -1, "3 null 99" + said(kExpand, "(nil) 0x20 0x30", 3)},
          Row{kExpand, ab, 2, 2, -2, "3 null 99" + said(kExpand, "0x10 (nil) 0x30", 3)},
          Row{kExpand, ab, 2, 2, -3, "3 null 99" + said(kExpand, "0x10 0x20 (nil)", 3)}})
        EXPECT_EQ(call(op, input, length, arg, fail_at).second, expected) << op << " " << input;
}

} // namespace
