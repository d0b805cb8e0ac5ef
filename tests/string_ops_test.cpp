// String operations: worked tables, cross-checks against libc, every failure.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <dlfcn.h>
#include <string>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {
using Lines = std::vector<std::string>;
using Bytes = std::vector<uint8_t>;
using Texts = std::vector<std::string>;
// Makes the filling pass of mbsrtowcs fail (1) or stop one character short (2).
int mbsrtowcs_plan = 0;
} // namespace

extern "C" size_t mbsrtowcs(wchar_t *to, const char **from, size_t limit, mbstate_t *state) {
    using Fn = size_t (*)(wchar_t *, const char **, size_t, mbstate_t *);
    static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "mbsrtowcs"));
    if (to != nullptr && mbsrtowcs_plan == 1) {
        return static_cast<size_t>(-1);
    }
    return real(to, from, limit - (to != nullptr && mbsrtowcs_plan == 2), state);
}

namespace {

class StringOps : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::clear_reports(); }
    void TearDown() override {
        mbsrtowcs_plan = 0;
        std::setlocale(LC_CTYPE, "C");
    }
};

Lines traces(const char *function, const char *path, std::vector<int> statuses) {
    Lines lines;
    for (int status : statuses) {
        lines.push_back("trace " + std::string(function) + " src/" + path + " " +
                        std::to_string(status));
    }
    return lines;
}

TEST_F(StringOps, ReplaceWalksToTheFirstZeroByteOrTheMaximum) {
    const struct {
        std::string text;
        uint64_t maximum;
        char from, to;
        std::string expected;
    } cases[] = {{"a.b.c", 99, '.', '/', "a/b/c"},
                 {"a.b.c", 3, '.', '/', "a/b.c"},
                 {"a.b.c", 0, '.', '/', "a.b.c"},
                 {"a.b.c", 99, '\0', '/', "a.b.c"},
                 {{"a.b\0.c", 6}, 99, '.', '\0', {"a\0b\0.c", 6}}};
    for (auto c : cases) {
        EXPECT_EQ(tav_util_str_replace(c.text.data(), c.maximum, c.from, c.to), TAV_OK);
        EXPECT_EQ(c.text, c.expected) << c.maximum;
    }
    EXPECT_EQ(tav_util_str_replace(nullptr, 5, 'a', 'b'), TAV_OK);
}

TEST_F(StringOps, HexTextBothWays) {
    Bytes all(256);
    std::string all_text;
    for (int byte = 0; byte < 256; ++byte) {
        all[byte] = static_cast<uint8_t>(byte);
        all_text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    }
    char *text = nullptr;
    ASSERT_EQ(tav_util_sprintf_bytes(all.data(), all.size(), &text), TAV_OK);
    EXPECT_EQ(text, all_text);
    std::free(text);
    // Byte 0 is 0 when the first pair does not parse; pairs behind the
    // terminator are not read and repeat the last byte.
    const struct {
        std::string hex;
        uint64_t length;
        Bytes expected;
    } cases[] = {{all_text, 512, all},       {"00AB", 4, {0x00, 0xAB}},
                 {"0a0b0", 5, {10, 11}},     {"7", 1, {}},
                 {"zz12", 4, {0x00, 0x12}},  {"-1zz", 4, {0xFF, 0xFF}},
                 {"12", 8, {18, 18, 18, 18}}};
    for (const auto &c : cases) {
        uint8_t *bytes = nullptr;
        const auto run = tavtest::run_allocations(
            0, [&] { tav_util_sscanf_bytes(c.hex.c_str(), c.length, &bytes); });
        EXPECT_EQ(run.sizes, std::vector<size_t>{c.expected.size()});
        EXPECT_EQ(Bytes(bytes, bytes + c.expected.size()), c.expected) << c.hex;
        std::free(bytes);
    }
    EXPECT_TRUE(tavtest::reports().empty());
    tavtest::run_allocations(1, [&] { tav_util_sprintf_bytes(all.data(), 0, &text); });
    EXPECT_EQ(text, nullptr);
    // A run too long for any block is refused, not sized by a wrapped sum.
    text = all_text.data();
    tavtest::run_allocations(0, [&] { tav_util_sprintf_bytes(all.data(), 1ull << 63, &text); });
    uint8_t *bytes = all.data();
    tavtest::run_allocations(1, [&] { tav_util_sscanf_bytes("0102", 4, &bytes); });
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(bytes, nullptr);
    Lines expected;
    for (std::string op :
         {"tav_util_sprintf_bytes", "tav_util_sprintf_bytes", "tav_util_sscanf_bytes"}) {
        expected.push_back("log " + op + " Allocation failed");
        expected.push_back("trace " + op + " src/string_ops.cpp 2");
    }
    EXPECT_EQ(tavtest::report_summary(), expected);
}

// Every byte equals what sscanf "%2x" reads at its place of the whole text,
// keeping the value before on failure: all pairs with various tails, and
// long blank runs.
TEST_F(StringOps, HexPairsReadExactlyAsSscanfDoes) {
    const std::string blanks(3001, ' ');
    Texts texts = {blanks + "c3" + std::string(999, '\n'), "7f" + blanks + "zz" + blanks + "-1 "};
    for (const std::string tail : {"", "0", "7f", "x", "g", " 1", "\t\n-f", "x9", "  "}) {
        for (int pair = 0; pair < 65536; ++pair) {
            texts.push_back({'5', 'a', static_cast<char>(pair >> 8), static_cast<char>(pair)});
            texts.back() += tail;
        }
    }
    for (const std::string &text : texts) {
        // The pair texts are read as two pairs, the long ones whole.
        const uint64_t length = text.size() < 1000 ? 4 : text.size();
        uint8_t *bytes = nullptr;
        ASSERT_EQ(tav_util_sscanf_bytes(text.c_str(), length, &bytes), TAV_OK);
        unsigned value = 0;
        for (size_t i = 0; i < length / 2; ++i) {
            std::sscanf(text.c_str() + 2 * i, "%2x", &value);
            ASSERT_EQ(bytes[i], value & 0xFF) << i << " of '" << text << "'";
        }
        std::free(bytes);
    }
}

// The tokens of a split joined by '|', checking the status and count.
std::string split(const char *text, const char *delimiter) {
    char **tokens = nullptr;
    uint64_t count = 99;
    EXPECT_EQ(tav_util_split(text, delimiter, &tokens, &count), TAV_OK);
    EXPECT_EQ(tokens == nullptr, count == 0);
    std::string joined;
    for (uint64_t i = 0; i < count; ++i) {
        joined += (i > 0 ? "|" : "") + std::string(tokens[i]);
        std::free(tokens[i]);
    }
    std::free(tokens);
    return joined;
}

TEST_F(StringOps, SplitFollowsTheWorkedTable) {
    // The last two rows: an empty delimiter never matches.
    const char *const rows[][3] = {
        {"", ",", ""},           {",,,", ",", ""},         {"abc", ",", "abc"},
        {"a,b", ",", "a|b"},     {",a,b", ",", "a|b"},     {"a,,b", ",", "a|b"},
        {"a,b,", ",", "a|b"},    {",,a,,b,,", ",", "a|b"}, {"a--b", "--", "a|b"},
        {"a---b", "--", "a|-b"}, {"a----b", "--", "a|b"},  {"-a--", "--", "-a"},
        {"ab", "abc", "ab"},     {"a,b", "", "a,b"},       {"", "", ""}};
    for (const auto &row : rows) {
        EXPECT_EQ(split(row[0], row[1]), row[2]) << row[0] << " " << row[1];
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(StringOps, SplitFailuresAreLoggedTracedAndCleanedUp) {
    char **tokens = nullptr;
    EXPECT_EQ(tav_util_split("a", nullptr, &tokens, nullptr), TAV_ERR_NULL_ARG);
    char line[128];
    std::snprintf(line, sizeof line, "log tav_util_split NULL argument detected: %p %p %p %p",
                  static_cast<const void *>("a"), nullptr, static_cast<void *>(&tokens), nullptr);
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{line, "trace tav_util_split src/string_ops.cpp 3"}));

    tav_status status = TAV_OK;
    uint64_t count = 0;
    const auto op = [&] {
        tavtest::clear_reports();
        status = tav_util_split(",ab,,c,def", ",", &tokens, &count);
    };
    EXPECT_EQ(tavtest::run_allocations(0, op).sizes, (std::vector<size_t>{24, 3, 2, 4}));
    const auto release = [&] {
        for (uint64_t i = 0; i < count; ++i) {
            std::free(tokens[i]);
        }
        std::free(tokens);
    };
    release();
    const long failures = tavtest::for_each_allocation_failure(op, [&](long nth, auto &run) {
        EXPECT_EQ(status, TAV_ERR_NOMEM);
        EXPECT_EQ(tokens, nullptr);
        EXPECT_EQ(count, 3u);
        EXPECT_EQ(run.live_blocks, 0);
        const char *why = nth == 1 ? "Memory allocation failed" : "Failed to allocate memory";
        EXPECT_EQ(tavtest::report_summary(), (Lines{std::string("log tav_util_split ") + why,
                                                    "trace tav_util_split src/string_ops.cpp 2"}));
    });
    release(); // the run past the last allocation succeeded
    EXPECT_EQ(failures, 4);
}

TEST_F(StringOps, JoinSizesWithTheTerminatorAndFailsCleanly) {
    const char *three[] = {"a", "", "b"};
    char *out = nullptr;
    uint64_t size = 0;
    const auto run =
        tavtest::run_allocations(0, [&] { tav_util_join(three, 3, ",", &out, &size); });
    EXPECT_STREQ(out, "a,,b");
    EXPECT_EQ(run.sizes, std::vector<size_t>{5});
    EXPECT_EQ(size, 5u);
    std::free(out);
    ASSERT_EQ(tav_util_join(three, 1, "--", &out, &size), TAV_OK);
    EXPECT_STREQ(out, "a");
    EXPECT_EQ(size, 2u);
    std::free(out);

    const char *texts[] = {"a", "bc"};
    out = reinterpret_cast<char *>(1);
    size = 77;
    EXPECT_EQ(tav_util_join(texts, 0, ",", &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(nullptr, 2, ",", &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(texts, 2, nullptr, &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(texts, 2, ",", &out, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(out, reinterpret_cast<char *>(1));
    EXPECT_EQ(size, 77u);
    tav_status status = TAV_OK;
    tavtest::run_allocations(1, [&] { status = tav_util_join(texts, 2, ",", &out, &size); });
    EXPECT_EQ(status, TAV_ERR_NOMEM);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(tavtest::report_summary(),
              traces("tav_util_join", "string_ops.cpp", {3, 3, 3, 3, 2}));
}

// A text and its length as a caller keeps them; the bytes include the
// terminator.
struct Counted {
    char *text = nullptr;
    uint64_t length = 12345;
    ~Counted() { std::free(text); }
    tav_status append(const char *addition, uint64_t size) {
        return tav_util_append_string(&text, &length, addition, size);
    }
    std::string bytes() const { return std::string(text, length + 1); }
};

TEST_F(StringOps, AppendKeepsEveryByteAndTheLength) {
    Counted s;
    // The first text reads to the zero byte, its length is the whole
    // addition, and the next append copies only bytes its block holds.
    ASSERT_EQ(s.append("ab\0cdef", 5), TAV_OK);
    EXPECT_STREQ(s.text, "ab");
    EXPECT_EQ(s.bytes(), std::string("ab\0cd\0", 6));
    ASSERT_EQ(s.append("e\0f", 3), TAV_OK);
    EXPECT_EQ(s.bytes(), std::string("ab\0cde\0f\0", 9));
    ASSERT_EQ(s.append(s.text + 3, 2), TAV_OK) << "an addition inside the old text";
    EXPECT_EQ(s.bytes(), std::string("ab\0cde\0fcd\0", 11));
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(StringOps, AppendFailuresLeaveTheTextAndLength) {
    Counted s;
    EXPECT_EQ(tav_util_append_string(nullptr, &s.length, "a", 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_append_string(&s.text, nullptr, "a", 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(s.append(nullptr, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(s.append("a", 0), TAV_ERR_BAD_ARG);
    tavtest::run_allocations(1, [&] { EXPECT_EQ(s.append("xy", 2), TAV_ERR_NOMEM); });
    EXPECT_EQ(s.text, nullptr);
    EXPECT_EQ(s.length, 12345u);
    ASSERT_EQ(s.append("xyz", 3), TAV_OK);
    const auto run =
        tavtest::run_allocations(1, [&] { EXPECT_EQ(s.append("a", 1), TAV_ERR_NOMEM); });
    EXPECT_EQ(run.live_blocks, 0);
    EXPECT_EQ(s.bytes(), std::string("xyz", 4));
    s.length = 0;
    EXPECT_EQ(s.append("a", 1), TAV_ERR_BAD_ARG);
    // A sum of the largest value leaves no room for the terminator.
    for (uint64_t length : {UINT64_MAX - 2, UINT64_MAX - 1}) {
        s.length = length;
        EXPECT_EQ(s.append("ab", 2), TAV_ERR_OVERFLOW);
        EXPECT_EQ(s.length, length);
    }
    EXPECT_STREQ(s.text, "xyz");
    EXPECT_EQ(tavtest::report_summary(),
              traces("tav_util_append_string", "string_ops.cpp", {3, 3, 3, 7, 2, 2, 7, 33, 33}));
}

// What the conversion leaves: status, the block's wide characters (with
// the terminator), length out, and the blocks left to the caller.
struct Converted {
    tav_status status = TAV_OK;
    wchar_t *out = reinterpret_cast<wchar_t *>(1);
    uint64_t length = 77;
    tavtest::AllocRun run;
    Converted(const char *text, long fail_at = 0) {
        run = tavtest::run_allocations(
            fail_at, [&] { status = tav_util_char_to_wchar(text, 0, &out, &length); });
    }
    std::wstring wide() const { return std::wstring(out, length + 1); }
};

TEST_F(StringOps, WideConversionAndItsFailureTable) {
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    std::free(Converted("\xc3\xa9").out); // libc sets up the converter, allocating
    Converted empty(""), text("\xc3\xa9t\xe2\x82\xac");
    EXPECT_EQ(empty.wide(), std::wstring(L"", 1));
    EXPECT_EQ(text.wide(), std::wstring(L"\u00e9t\u20ac", 4));
    EXPECT_EQ(text.run.sizes, std::vector<size_t>{16});
    std::free(empty.out);
    std::free(text.out);
    wchar_t *out = nullptr;
    uint64_t length = 0;
    EXPECT_EQ(tav_util_char_to_wchar(nullptr, 0, &out, &length), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_char_to_wchar("a", 0, nullptr, &length), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_char_to_wchar("a", 0, &out, nullptr), TAV_ERR_NULL_ARG);
    Converted invalid("ab\xff"), no_memory("abc", 1);
    mbsrtowcs_plan = 1;
    Converted fill_failed("abc");
    mbsrtowcs_plan = 2;
    Converted stopped_short("abc");
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(invalid.out, reinterpret_cast<wchar_t *>(1));
    EXPECT_EQ(invalid.length, UINT64_MAX);
    EXPECT_EQ(no_memory.out, nullptr);
    EXPECT_EQ(no_memory.length, 3u);
    EXPECT_EQ(fill_failed.length, UINT64_MAX);
    EXPECT_EQ(fill_failed.run.live_blocks, 1) << "the block is the caller's";
    EXPECT_EQ(stopped_short.wide(), std::wstring(L"abc", 4));
    EXPECT_EQ(stopped_short.run.live_blocks, 1);
    std::free(fill_failed.out);
    std::free(stopped_short.out);
    EXPECT_EQ(tavtest::report_summary(),
              traces("tav_util_char_to_wchar", "string/convert_linux.cpp", {3, 3, 3, 7, 2, 7, 16}));
}

} // namespace
