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

std::string random_bytes(std::mt19937 &engine, size_t length) {
    std::string out(length, '\0');
    std::generate(out.begin(), out.end(), [&] { return static_cast<char>(engine()); });
    return out;
}
std::string bits_of(const std::string &bytes, char zero) { // one per bit, high bit first
    std::string bits;
    for (size_t i = 0; i < 8 * bytes.size(); ++i) {
        bits += static_cast<char>(zero + (bytes[i / 8] >> (7 - i % 8) & 1));
    }
    return bits;
}
// The plain error line and trace entry of a bit-string operation's failure.
std::string reported(Op op, const std::string &text, tav_status status) {
    return "log " + kNames[op] + " " + text + "|trace " + kNames[op] + " src/bit_ops.cpp " +
           std::to_string(status);
}

TEST(BitOps, Base64GivesTheWorkedValuesSilentlyInExactBlocks) {
    tavtest::clear_reports();
    const std::pair<std::string, std::string> encoded[] = {
        {"", ""},        {"a", "YQ=="},        {"ab", "YWI="},
        {"abc", "YWJj"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}};
    for (const auto &[plain, text] : encoded) {
        const Result e = call(kEncode, plain, plain.size());
        EXPECT_EQ(std::make_tuple(e.status, e.bytes, e.run.sizes),
                  std::make_tuple(TAV_OK, text, std::vector<size_t>{text.size()})); // no terminator
        EXPECT_EQ(decode(text), plain);
        EXPECT_EQ(tav_util_to_base64_size(plain.size()), text.size());
    }
    // One character is a whole group, and padding does not end the text.
    const std::tuple<std::string, const char *, size_t> decoded[] = {
        {"YQ", "a", 1},
        {"Y", "\x60\0\0", 3},
        {"YQ==YQ==", "\x61\x06\x10", 3},
        {"=\t \x80", "", 0},
        {"YWJj\r\r", "abc", 3}};
    for (const auto &[text, bytes, size] : decoded) {
        const Result d = call(kDecode, text, text.size());
        EXPECT_EQ(std::make_tuple(d.status, d.bytes),
                  std::make_tuple(TAV_OK, std::string(bytes, size)));
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

// Round trips at every length across the word-wide paths; foreign bytes, dense
// or alone in a clean run, decode as the text without them.
TEST(BitOps, Base64RoundTripsAndSkipsForeignBytes) {
    std::mt19937 engine(3);
    for (size_t length = 0; length < 80; ++length) {
        const std::string input = random_bytes(engine, length);
        std::string plain; // group by group, as the rule reads
        for (size_t i = 0; i < length; i += 3) {
            const auto byte = [&](size_t k) { return k < length ? uint8_t(input[k]) : 0u; };
            const unsigned group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
            for (size_t c = 0; c < 4; ++c) {
                plain += i + c <= length ? kAlphabet[group >> (18 - 6 * c) & 63] : '=';
            }
        }
        const std::string text = call(kEncode, input, length).bytes;
        EXPECT_EQ(text, plain) << length;
        EXPECT_EQ(decode(text), input) << length;
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

// Past its end a shift empties the string: moved bits clear the array, else it
// stays. The sweep drops `bits` of the bits as text and packs the rest.
TEST(BitOps, ShiftMapAndExpandGiveTheWorkedValuesAndMatchTheBitsAsText) {
    tavtest::clear_reports();
    const std::tuple<std::string, uint64_t, const char *, uint64_t> cases[] = {
        {"\xAB\xCD", 0, "\xAB\xCD", 2},          {"\xAB\xCD", 4, "\xBC\xD0", 2},
        {"\xAB\xCD", 8, "\xCD\xCD", 1},          {"\xAB\xCD", 12, "\xD0\0", 1},
        {"\xAB\xCD", 16, "\xAB\xCD", 0},         {"\xAB\xCD\xEF", 25, "\0\0\0", 0},
        {"\xAB\xCD\xEF", 32, "\xAB\xCD\xEF", 0}, {"\xAB\xCD\xEF", UINT64_MAX, "\0\0\0", 0}};
    for (const auto &[array, bits, after, length] : cases) {
        const Result r = call(kShift, array, array.size(), static_cast<int64_t>(bits));
        EXPECT_EQ(std::make_tuple(r.status, r.bytes, r.size),
                  std::make_tuple(TAV_OK, std::string(after, array.size()), length));
    }
    EXPECT_EQ(call(kMap, "\xA0", 1).bytes, std::string("\1\0\1\0\0\0\0\0", 8));
    const std::tuple<Op, int32_t, std::string> spread[] = {
        {kExpand, 3, "\1\1\1\2\2\2"}, {kExpand, 0, ""}, {kMap, 0, ""}};
    for (const auto &[op, factor, out] : spread) {
        const Result r = call(op, "\1\2", op == kMap ? 0 : 2, factor);
        EXPECT_EQ(std::make_tuple(r.status, r.bytes, r.run.sizes),
                  std::make_tuple(TAV_OK, out, std::vector<size_t>{out.size()}));
    }
    EXPECT_TRUE(tavtest::reports().empty());
    std::mt19937 engine(5);
    for (size_t length = 1; length < 24; ++length) {
        const std::string array = random_bytes(engine, length), text = bits_of(array, '0');
        EXPECT_EQ(call(kMap, array, length).bytes, bits_of(array, '\0'));
        for (uint64_t bits = 0; bits <= 8 * length; ++bits) {
            const std::string behind =
                bits % 8 != 0 ? std::string(bits, '0') : text.substr(text.size() - bits);
            const Result r = call(kShift, array, length, static_cast<int64_t>(bits));
            EXPECT_EQ(std::make_tuple(bits_of(r.bytes, '0'), r.size),
                      std::make_tuple(text.substr(bits) + behind, length - bits / 8))
                << length << " " << bits;
        }
    }
}

// One allocation each; a negative factor or a product past 64 bits fails as a
// refused one. Out is null, size out keeps the figure, nothing stays
// allocated, and only the bit-string operations report.
TEST(BitOps, EveryAllocationFailureIsReported) {
    tavtest::clear_reports();
    const std::string in = "YWJjZGVmZw";
    // Operation, length, factor, failing allocation, size asked, size out.
    const uint64_t kWraps8 = (uint64_t{1} << 61) + 1, kHuge = uint64_t{1} << 62;
    const std::tuple<Op, uint64_t, int32_t, long, size_t, uint64_t> cases[] = {
        {kEncode, 7, 0, 1, 12, 12},
        {kDecode, 10, 0, 1, 9, 6},
        {kMap, 3, 0, 1, 24, 24},
        {kMap, kWraps8, 0, 0, 8, 8},
        {kExpand, 3, 2, 1, 6, 6},
        {kExpand, 2, -3, 0, -6, -6},
        {kExpand, UINT64_MAX, -1, 0, 1, 1},
        {kExpand, kHuge, 4, 0, 0, 0}};
    for (const auto &[op, length, factor, fail_at, asked, size] : cases) {
        const Result r = call(op, in, length, factor, fail_at);
        EXPECT_EQ(std::make_tuple(r.status, r.out, r.size, r.run.sizes, r.run.live_blocks),
                  std::make_tuple(TAV_ERR_NOMEM, static_cast<uint8_t *>(nullptr), size,
                                  std::vector<size_t>{asked}, 0L))
            << op << " " << length;
        EXPECT_EQ(tavtest::said(),
                  op < kMap ? "" : reported(op, "Memory allocation failed", TAV_ERR_NOMEM));
    }
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
            expected += (expected.empty() ? "" : "|") + reported(op, line, TAV_ERR_NULL_ARG);
        }
    }
    EXPECT_EQ(tavtest::said(), expected);
    EXPECT_EQ(std::make_tuple(byte, length, size), std::make_tuple(0x5A, 1u, 5u));
}

} // namespace
