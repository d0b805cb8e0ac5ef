// String operations: replace, hex text, split, join, append and wide
// conversion; worked tables, cross-checks against libc, every failure path.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
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
char *const kUntouched = reinterpret_cast<char *>(0x1);

// Makes the filling pass of mbsrtowcs fail (1) or stop short of the
// terminator by one wide character of room (2); the counting pass is real.
int mbsrtowcs_plan = 0;

} // namespace

extern "C" size_t mbsrtowcs(wchar_t *destination, const char **source, size_t limit,
                            mbstate_t *state) {
    using Fn = size_t (*)(wchar_t *, const char **, size_t, mbstate_t *);
    static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "mbsrtowcs"));
    if (destination != nullptr && mbsrtowcs_plan == 1) {
        return static_cast<size_t>(-1);
    }
    if (destination != nullptr && mbsrtowcs_plan == 2) {
        --limit;
    }
    return real(destination, source, limit, state);
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

Lines nomem_with_line(const char *function, const char *line) {
    return {std::string("log ") + function + " " + line,
            std::string("trace ") + function + " src/string_ops.cpp 2"};
}

TEST_F(StringOps, ReplaceWalksToTheFirstZeroByteOrTheMaximum) {
    struct Case {
        std::string text;
        uint64_t maximum;
        char from, to;
        std::string expected;
    };
    const Case cases[] = {
        {"a.b.c", 100, '.', '/', "a/b/c"},
        {"a.b.c", 3, '.', '/', "a/b.c"},
        {"a.b.c", 0, '.', '/', "a.b.c"},
        {"a.b.c", 100, '\0', '/', "a.b.c"},
        {std::string("a.b\0.c", 6), 100, '.', '\0', std::string("a\0b\0.c", 6)},
    };
    for (const Case &c : cases) {
        std::string text = c.text;
        EXPECT_EQ(tav_util_str_replace(text.data(), c.maximum, c.from, c.to), TAV_OK);
        EXPECT_EQ(text, c.expected) << c.text << " " << c.maximum;
    }
    EXPECT_EQ(tav_util_str_replace(nullptr, 5, 'a', 'b'), TAV_OK);
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(StringOps, HexTextOfEveryByteMatchesSnprintfAndReadsBack) {
    Bytes all(256);
    std::string expected;
    for (int byte = 0; byte < 256; ++byte) {
        all[byte] = static_cast<uint8_t>(byte);
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", byte);
        expected += pair;
    }
    char *text = kUntouched;
    ASSERT_EQ(tav_util_sprintf_bytes(all.data(), all.size(), &text), TAV_OK);
    EXPECT_EQ(std::string(text), expected);
    uint8_t *bytes = nullptr;
    ASSERT_EQ(tav_util_sscanf_bytes(text, std::strlen(text), &bytes), TAV_OK);
    EXPECT_EQ(Bytes(bytes, bytes + 256), all);
    std::free(bytes);
    std::free(text);

    ASSERT_EQ(tav_util_sprintf_bytes(nullptr, 0, &text), TAV_OK);
    EXPECT_STREQ(text, "");
    std::free(text);
}

TEST_F(StringOps, HexReadingDropsAnOddCharacterAndAllocatesExactly) {
    struct Case {
        const char *hex;
        uint64_t length;
        Bytes expected;
    };
    const Case cases[] = {
        {"00AB", 4, {0x00, 0xAB}},
        {"00ab", 4, {0x00, 0xAB}},
        {"0a0b0", 5, {0x0A, 0x0B}},
        {"7", 1, {}},
        {"", 0, {}},
        // The first pair has no byte before it to repeat: 0 stands in.
        {"zz12", 4, {0x00, 0x12}},
        {"-1zz", 4, {0xFF, 0xFF}},
        // A length beyond the terminator repeats the last byte, unread.
        {"12", 8, {0x12, 0x12, 0x12, 0x12}},
    };
    for (const Case &c : cases) {
        uint8_t *bytes = nullptr;
        tav_status status = TAV_ERR_SYSTEM;
        const auto run = tavtest::run_allocations(
            0, [&] { status = tav_util_sscanf_bytes(c.hex, c.length, &bytes); });
        EXPECT_EQ(status, TAV_OK);
        EXPECT_EQ(run.sizes, std::vector<size_t>{c.expected.size()}) << c.hex;
        EXPECT_EQ(Bytes(bytes, bytes + c.expected.size()), c.expected) << c.hex;
        std::free(bytes);
    }
}

// Each pair, followed by various tails, reads as sscanf "%2x" reads it at
// that place of the whole text, with the byte before it kept on failure.
TEST_F(StringOps, HexPairsReadExactlyAsSscanfDoes) {
    const std::string tails[] = {"", "0", "7f", "x", "g", " 1", "\t\n-f", "x9", "  "};
    for (const std::string &tail : tails) {
        for (int pair = 0; pair < 65536; ++pair) {
            std::string text = "5a";
            text += static_cast<char>(pair >> 8);
            text += static_cast<char>(pair & 0xFF);
            text += tail;
            unsigned value = 0x5A;
            std::sscanf(text.c_str() + 2, "%2x", &value);
            uint8_t *bytes = nullptr;
            ASSERT_EQ(tav_util_sscanf_bytes(text.c_str(), 4, &bytes), TAV_OK);
            const Bytes got(bytes, bytes + 2);
            std::free(bytes);
            ASSERT_EQ(got, (Bytes{0x5A, static_cast<uint8_t>(value)}))
                << "pair " << pair << " tail '" << tail << "'";
        }
    }
}

TEST_F(StringOps, HexPairsInsideLongBlankRunsReadTheirEnds) {
    const std::string blanks(3001, ' ');
    for (const std::string &text : {blanks + "c3" + std::string(1000, '\n'),
                                    "7f" + blanks + "zz" + blanks + "-1\t" + blanks}) {
        uint8_t *bytes = nullptr;
        ASSERT_EQ(tav_util_sscanf_bytes(text.c_str(), text.size(), &bytes), TAV_OK);
        unsigned value = 0;
        for (size_t i = 0; i < text.size() / 2; ++i) {
            std::sscanf(text.c_str() + 2 * i, "%2x", &value);
            ASSERT_EQ(bytes[i], value & 0xFF) << i;
        }
        std::free(bytes);
    }
}

TEST_F(StringOps, HexAllocationFailuresAreLoggedAndTraced) {
    const uint8_t data[] = {1, 2};
    char *text = kUntouched;
    uint8_t *bytes = reinterpret_cast<uint8_t *>(kUntouched);
    tav_status printed = TAV_OK, scanned = TAV_OK;
    tavtest::run_allocations(1, [&] { printed = tav_util_sprintf_bytes(data, 2, &text); });
    tavtest::run_allocations(1, [&] { scanned = tav_util_sscanf_bytes("0102", 4, &bytes); });
    EXPECT_EQ(printed, TAV_ERR_NOMEM);
    EXPECT_EQ(scanned, TAV_ERR_NOMEM);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(bytes, nullptr);
    Lines expected = nomem_with_line("tav_util_sprintf_bytes", "Allocation failed");
    for (const std::string &line : nomem_with_line("tav_util_sscanf_bytes", "Allocation failed")) {
        expected.push_back(line);
    }
    EXPECT_EQ(tavtest::report_summary(), expected);
}

std::vector<std::string> split(const char *text, const char *delimiter, tav_status *status) {
    char **tokens = reinterpret_cast<char **>(kUntouched);
    uint64_t count = 99;
    *status = tav_util_split(text, delimiter, &tokens, &count);
    std::vector<std::string> out;
    if (count == 0) {
        EXPECT_EQ(tokens, nullptr);
    }
    for (uint64_t i = 0; i < count; ++i) {
        out.emplace_back(tokens[i]);
        std::free(tokens[i]);
    }
    std::free(tokens);
    return out;
}

TEST_F(StringOps, SplitFollowsTheWorkedTable) {
    using Tokens = std::vector<std::string>;
    struct Case {
        const char *text, *delimiter;
        Tokens tokens;
    };
    const Case cases[] = {
        {"", ",", {}},
        {",,,", ",", {}},
        {"abc", ",", {"abc"}},
        {"a,b", ",", {"a", "b"}},
        {",a,b", ",", {"a", "b"}},
        {"a,,b", ",", {"a", "b"}},
        {"a,b,", ",", {"a", "b"}},
        {",,a,,b,,", ",", {"a", "b"}},
        {"a--b", "--", {"a", "b"}},
        {"a---b", "--", {"a", "-b"}},
        {"a----b", "--", {"a", "b"}},
        {"-a--", "--", {"-a"}},
        {"ab", "abc", {"ab"}},
        // An empty delimiter never matches: the text is one token, or none.
        {"a,b", "", {"a,b"}},
        {"", "", {}},
    };
    for (const Case &c : cases) {
        tav_status status = TAV_ERR_SYSTEM;
        EXPECT_EQ(split(c.text, c.delimiter, &status), c.tokens) << c.text << " " << c.delimiter;
        EXPECT_EQ(status, TAV_OK);
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(StringOps, SplitNamesEveryPointerOfANullArgument) {
    char **tokens = nullptr;
    EXPECT_EQ(tav_util_split("a", nullptr, &tokens, nullptr), TAV_ERR_NULL_ARG);
    char line[128];
    std::snprintf(line, sizeof line, "NULL argument detected: %p %p %p %p",
                  static_cast<const void *>("a"), nullptr, static_cast<void *>(&tokens), nullptr);
    EXPECT_EQ(tavtest::report_summary(), (Lines{std::string("log tav_util_split ") + line,
                                                "trace tav_util_split src/string_ops.cpp 3"}));
}

TEST_F(StringOps, SplitCleansUpEveryFailedAllocation) {
    char **tokens = nullptr;
    uint64_t count = 0;
    tav_status status = TAV_OK;
    const auto whole =
        tavtest::run_allocations(0, [&] { tav_util_split(",ab,,c,def", ",", &tokens, &count); });
    EXPECT_EQ(whole.sizes, (std::vector<size_t>{24, 3, 2, 4}));
    const auto free_tokens = [&] {
        for (uint64_t i = 0; i < count; ++i) {
            std::free(tokens[i]);
        }
        std::free(tokens);
    };
    free_tokens();
    const long failures = tavtest::for_each_allocation_failure(
        [&] {
            tavtest::clear_reports();
            status = tav_util_split(",ab,,c,def", ",", &tokens, &count);
        },
        [&](long nth, const tavtest::AllocRun &run) {
            EXPECT_EQ(status, TAV_ERR_NOMEM) << nth;
            EXPECT_EQ(tokens, nullptr) << nth;
            EXPECT_EQ(count, 3u) << nth;
            EXPECT_EQ(run.live_blocks, 0) << nth;
            EXPECT_EQ(tavtest::report_summary(),
                      nomem_with_line("tav_util_split", nth == 1 ? "Memory allocation failed"
                                                                 : "Failed to allocate memory"));
        });
    EXPECT_EQ(failures, 4);
    // The run past the last allocation succeeds; its tokens are ours.
    ASSERT_EQ(status, TAV_OK);
    free_tokens();
}

TEST_F(StringOps, JoinCountsEveryTextSeparatorAndTheTerminator) {
    struct Case {
        std::vector<const char *> texts;
        const char *separator, *joined;
        uint64_t size;
    };
    const Case cases[] = {
        {{"a", "", "b"}, ",", "a,,b", 5},
        {{"one"}, "--", "one", 4},
        {{"", ""}, "", "", 1},
        {{"ab", "cd", "e"}, ", ", "ab, cd, e", 10},
    };
    for (const Case &c : cases) {
        char *out = nullptr;
        uint64_t size = 0;
        tavtest::AllocRun run = tavtest::run_allocations(0, [&] {
            EXPECT_EQ(tav_util_join(c.texts.data(), c.texts.size(), c.separator, &out, &size),
                      TAV_OK);
        });
        EXPECT_STREQ(out, c.joined);
        EXPECT_EQ(size, c.size);
        EXPECT_EQ(run.sizes, std::vector<size_t>{c.size});
        std::free(out);
    }
}

TEST_F(StringOps, JoinFailuresAreTracedAndLeaveWhatTheyShould) {
    const char *texts[] = {"a", "bc"};
    char *out = kUntouched;
    uint64_t size = 77;
    EXPECT_EQ(tav_util_join(texts, 0, ",", &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(nullptr, 2, ",", &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(texts, 2, nullptr, &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(texts, 2, ",", &out, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(out, kUntouched);
    EXPECT_EQ(size, 77u);
    tav_status status = TAV_OK;
    const auto run =
        tavtest::run_allocations(1, [&] { status = tav_util_join(texts, 2, ",", &out, &size); });
    EXPECT_EQ(status, TAV_ERR_NOMEM);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(run.live_blocks, 0);
    Lines expected(4, "trace tav_util_join src/string_ops.cpp 3");
    expected.push_back("trace tav_util_join src/string_ops.cpp 2");
    EXPECT_EQ(tavtest::report_summary(), expected);
}

// A text and its length as the caller keeps them.
struct Counted {
    char *text = nullptr;
    uint64_t length = 12345;
    ~Counted() { std::free(text); }
    tav_status append(const char *addition, uint64_t length_of_addition) {
        return tav_util_append_string(&text, &length, addition, length_of_addition);
    }
    std::string bytes() const { return std::string(text, length + 1); }
};

TEST_F(StringOps, AppendKeepsEveryByteAndTheLength) {
    Counted s;
    ASSERT_EQ(s.append("abcdef", 3), TAV_OK);
    EXPECT_EQ(s.bytes(), std::string("abc\0", 4));
    ASSERT_EQ(s.append("d\0e", 3), TAV_OK);
    EXPECT_EQ(s.bytes(), std::string("abcd\0e\0", 7));
    // The addition may lie inside the old text.
    ASSERT_EQ(s.append(s.text + 1, 2), TAV_OK);
    EXPECT_EQ(s.bytes(), std::string("abcd\0ebc\0", 9));
    EXPECT_TRUE(tavtest::reports().empty());
}

// A first addition with a zero byte: the text reads to that byte, the length
// is the whole addition, and the next append copies only bytes that exist.
TEST_F(StringOps, AppendAfterAFirstAdditionWithAZeroByteStaysInsideItsBlocks) {
    Counted s;
    ASSERT_EQ(s.append("ab\0cd", 5), TAV_OK);
    EXPECT_STREQ(s.text, "ab");
    EXPECT_EQ(s.length, 5u);
    ASSERT_EQ(s.append("ef", 2), TAV_OK);
    EXPECT_EQ(s.bytes(), std::string("ab\0cdef\0", 8));
}

TEST_F(StringOps, AppendRefusesBadArgumentsAndOverflow) {
    Counted s;
    EXPECT_EQ(tav_util_append_string(nullptr, &s.length, "a", 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_append_string(&s.text, nullptr, "a", 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(s.append(nullptr, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(s.append("a", 0), TAV_ERR_BAD_ARG);
    ASSERT_EQ(s.append("xyz", 3), TAV_OK);
    s.length = 0;
    EXPECT_EQ(s.append("a", 1), TAV_ERR_BAD_ARG);
    // The largest sum has no room for the terminator; one more does not fit.
    for (uint64_t length : {UINT64_MAX - 2, UINT64_MAX - 1}) {
        s.length = length;
        EXPECT_EQ(s.append("ab", 2), TAV_ERR_OVERFLOW);
        EXPECT_EQ(s.length, length);
    }
    EXPECT_STREQ(s.text, "xyz");
    Lines expected(3, "trace tav_util_append_string src/string_ops.cpp 3");
    expected.insert(expected.end(), 2, "trace tav_util_append_string src/string_ops.cpp 7");
    expected.insert(expected.end(), 2, "trace tav_util_append_string src/string_ops.cpp 33");
    EXPECT_EQ(tavtest::report_summary(), expected);
}

TEST_F(StringOps, AppendAllocationFailuresLeaveTheTextAlone) {
    Counted s;
    tav_status status = TAV_OK;
    auto run = tavtest::run_allocations(1, [&] { status = s.append("ab", 2); });
    EXPECT_EQ(status, TAV_ERR_NOMEM);
    EXPECT_EQ(s.text, nullptr);
    EXPECT_EQ(s.length, 12345u);
    ASSERT_EQ(s.append("ab", 2), TAV_OK);
    char *const before = s.text;
    run = tavtest::run_allocations(1, [&] { status = s.append("cd", 2); });
    EXPECT_EQ(status, TAV_ERR_NOMEM);
    EXPECT_EQ(run.live_blocks, 0);
    EXPECT_EQ(s.text, before);
    EXPECT_EQ(s.bytes(), std::string("ab\0", 3));
    EXPECT_EQ(tavtest::report_summary(),
              Lines(2, "trace tav_util_append_string src/string_ops.cpp 2"));
}

// libc sets up a locale's converter on its first use, allocating; that is
// done here, so that a run counts the operation's own allocations only.
void use_utf8() {
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    const char *text = "\xc3\xa9";
    std::mbstate_t state{};
    ASSERT_EQ(std::mbsrtowcs(nullptr, &text, 0, &state), 1u);
}

// One row of the conversion's failure table: status, block, length out.
struct Converted {
    tav_status status;
    wchar_t *out = reinterpret_cast<wchar_t *>(0x1);
    uint64_t length = 77;
    tavtest::AllocRun run;
    Converted(const char *text, long fail_at = 0) {
        run = tavtest::run_allocations(
            fail_at, [&] { status = tav_util_char_to_wchar(text, 0, &out, &length); });
    }
};

TEST_F(StringOps, WideConversionCountsCharactersWithoutTheTerminator) {
    use_utf8();
    Converted empty("");
    EXPECT_EQ(empty.status, TAV_OK);
    EXPECT_EQ(empty.length, 0u);
    EXPECT_EQ(empty.out[0], L'\0');
    EXPECT_EQ(empty.run.sizes, std::vector<size_t>{4});
    std::free(empty.out);
    Converted text("\xc3\xa9t\xe2\x82\xac");
    EXPECT_EQ(text.status, TAV_OK);
    EXPECT_EQ(std::wstring(text.out, text.length + 1), std::wstring(L"\u00e9t\u20ac", 4));
    EXPECT_EQ(text.run.sizes, std::vector<size_t>{16});
    std::free(text.out);
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(StringOps, WideConversionFailureTable) {
    use_utf8();
    wchar_t *out = reinterpret_cast<wchar_t *>(0x1);
    uint64_t length = 77;
    EXPECT_EQ(tav_util_char_to_wchar(nullptr, 0, &out, &length), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_char_to_wchar("a", 0, nullptr, &length), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_char_to_wchar("a", 0, &out, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(out, reinterpret_cast<wchar_t *>(0x1));
    EXPECT_EQ(length, 77u);

    Converted invalid("ab\xff");
    EXPECT_EQ(invalid.status, TAV_ERR_BAD_ARG);
    EXPECT_EQ(invalid.out, reinterpret_cast<wchar_t *>(0x1));
    EXPECT_EQ(invalid.length, UINT64_MAX);

    Converted no_memory("abc", 1);
    EXPECT_EQ(no_memory.status, TAV_ERR_NOMEM);
    EXPECT_EQ(no_memory.out, nullptr);
    EXPECT_EQ(no_memory.length, 3u);

    mbsrtowcs_plan = 1;
    Converted fill_failed("abc");
    EXPECT_EQ(fill_failed.status, TAV_ERR_BAD_ARG);
    EXPECT_EQ(fill_failed.length, UINT64_MAX);
    EXPECT_EQ(fill_failed.run.live_blocks, 1) << "the block is the caller's";
    std::free(fill_failed.out);

    mbsrtowcs_plan = 2;
    Converted short_stop("abc");
    EXPECT_EQ(short_stop.status, TAV_ERR_TOO_SMALL);
    EXPECT_EQ(short_stop.length, 3u);
    EXPECT_EQ(std::wstring(short_stop.out, 4), std::wstring(L"abc", 4));
    std::free(short_stop.out);

    Lines expected(3, "trace tav_util_char_to_wchar src/string/convert_linux.cpp 3");
    for (const char *status : {"7", "2", "7", "16"}) {
        expected.push_back(
            std::string("trace tav_util_char_to_wchar src/string/convert_linux.cpp ") + status);
    }
    EXPECT_EQ(tavtest::report_summary(), expected);
}

} // namespace
