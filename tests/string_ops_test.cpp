#include <clocale>
#include <cwchar>
#include <dlfcn.h>

#include "support.hpp"

// What the filling pass of mbsrtowcs does, and whether the block can be had.
static enum Plan { kAsIs, kFillFails, kStopsShort, kNoMemory } mbsrtowcs_plan = kAsIs;

extern "C" size_t mbsrtowcs(wchar_t *to, const char **from, size_t limit, mbstate_t *state) {
    using Fn = size_t (*)(wchar_t *, const char **, size_t, mbstate_t *);
    static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "mbsrtowcs"));
    const Plan plan = to != nullptr ? mbsrtowcs_plan : kAsIs;
    return plan == kFillFails ? size_t(-1) : real(to, from, limit - (plan == kStopsShort), state);
}

// Texts longer than any address space holds, for the join's overflow tests.
static const char *const kHuge[] = {"\x01half", "\x01all"};
extern "C" size_t strlen(const char *text) noexcept {
    const volatile char *p = text;
    size_t n = text == kHuge[0] ? SIZE_MAX / 2 + 1 : text == kHuge[1] ? SIZE_MAX : 0;
    for (; n < SIZE_MAX / 2 && p[n] != '\0'; ++n) {
    }
    return n;
}

// Each status traced by `function`, after the line `logged` if there is one.
static std::string traced(const char *function, std::initializer_list<int> statuses,
                          const std::string &logged = "") {
    const std::string path = std::strstr(function, "wchar") ? "string/convert_linux" : "string_ops";
    std::string lines;
    for (int status : statuses) {
        lines += (logged.empty() ? "" : "|log " + (function + (" " + logged))) + "|trace " +
                 (function + (" src/" + path)) + ".cpp " + std::to_string(status);
    }
    return lines.substr(1);
}

// `op` with allocation `nth` failing: its status, first allocation size and blocks left.
static std::string ran(long nth, const std::function<tav_status()> &op) {
    tav_status status = TAV_OK;
    const auto run = tavtest::run_allocations(nth, [&] { status = op(); });
    return std::to_string(status) + " " + std::to_string(run.sizes.empty() ? 0 : run.sizes[0]) +
           " " + std::to_string(run.live_blocks);
}

TEST(StringOps, Replace) {
    using Row = std::tuple<std::string, uint64_t, char, char, std::string>;
    for (auto [text, maximum, from, to, expected] :
         {Row{"a.b.c", 3, '.', '/', "a/b.c"}, Row{"a.b.c", 0, '.', '/', "a.b.c"},
          Row{"a.b.c", 99, '\0', '/', "a.b.c"}, Row{{"a.b\0.c", 6}, 99, '.', '\0', {"a\0b\0.c", 6}},
          Row{"", 5, 'a', 'b', ""}}) {
        EXPECT_EQ(tav_util_str_replace(text.empty() ? nullptr : text.data(), maximum, from, to),
                  TAV_OK);
        EXPECT_EQ(text, expected);
    }
}

// Each byte is what sscanf "%2x" reads at its place, keeping the value before.
TEST(StringOps, HexText) {
    tavtest::clear_reports();
    const std::string hex = "00ab0123456789abcdeffedcba9876543210f00f5aa5c33cff7e81e7183cc3a55a69";
    uint8_t *out = nullptr;
    char *text = nullptr;
    const auto agrees = [&out](const std::string &input, uint64_t length) {
        std::free(out);
        ASSERT_EQ(tav_util_sscanf_bytes(input.c_str(), length, &out), TAV_OK);
        unsigned value = 0;
        for (size_t i = 0; i < length / 2; ++i) { // past the text the bytes keep the last value
            2 * i < std::strlen(input.c_str()) && std::sscanf(input.c_str() + 2 * i, "%2x", &value);
            ASSERT_EQ(out[i], value & 0xFF) << i << " of " << length << " of '" << input << "'";
        }
    };
    agrees(hex, hex.size()); // two vector steps and more, both ways
    ASSERT_EQ(tav_util_sprintf_bytes(out, hex.size() / 2, &text), TAV_OK);
    EXPECT_EQ(text, hex);
    std::free(text);
    agrees("7f" + std::string(3001, ' ') + "zz" + std::string(999, '\n') + "-1 ", 4010);
    agrees("00AB", 8);
    const std::string digits = "0123456789abcdefABCDEF5a7F00ffe1cccc";
    for (const std::string tail : {"", "0", "7f", "x", "g", " 1", "\t\n-f", "x9", "  "}) {
        for (int pair = 0; pair < 65536; ++pair) { // each pair and tail in a run of digits
            std::string input = digits;
            input.insert(2 * (pair % 19), std::string{char(pair >> 8), char(pair)} + tail);
            agrees(input, pair % 45);
        }
    }
    std::free(out);
    EXPECT_EQ(tavtest::said(), "");
    char *held[] = {reinterpret_cast<char *>(1), reinterpret_cast<char *>(1)};
    EXPECT_EQ(
        std::vector({ran(1, [&] { return tav_util_sprintf_bytes(nullptr, 3, &held[0]); }),
                     ran(0, [&] { return tav_util_sprintf_bytes(nullptr, 1ull << 63, &held[1]); }),
                     ran(1, [&] { return tav_util_sscanf_bytes("0102", 5, &out); })}),
        std::vector<std::string>({"2 7 0", "2 0 0", "2 2 0"}));
    EXPECT_EQ(std::tuple(held[0], held[1], out), std::tuple(nullptr, nullptr, nullptr));
    EXPECT_EQ(tavtest::said(), traced("tav_util_sprintf_bytes", {2, 2}, "Allocation failed") + "|" +
                                   traced("tav_util_sscanf_bytes", {2}, "Allocation failed"));
}

// Each row also under each allocation failure: the count stays.
TEST(StringOps, Split) {
    tavtest::clear_reports();
    std::vector<std::array<std::string, 3>> rows = {
        {"", ",", ""},           {",,,", ",", ""},         {"abc", ",", "abc"},
        {"a,b", ",", "a|b"},     {",a,b", ",", "a|b"},     {"a,,b", ",", "a|b"},
        {"a,b,", ",", "a|b"},    {",,a,,b,,", ",", "a|b"}, {"a--b", "--", "a|b"},
        {"a---b", "--", "a|-b"}, {"a----b", "--", "a|b"},  {"-a--", "--", "-a"},
        {"ab", "abc", "ab"},     {"a,b", "", "a,b"},       {"", "", ""}};
    std::string text, joined; // runs of 1 to 3 delimiters, tokens of every length to 40
    for (int i = 1; i <= 200; ++i) {
        const std::string token(i % 41, 'a' + i % 26);
        text += std::string(1 + i % 3, '\xff') + token;
        joined += token.empty() ? "" : (joined.empty() ? "" : "|") + token;
    }
    rows.push_back({text + '\xff', "\xff", joined});
    // A delimiter inside, then past, the first 16 of 16 to 31 bytes.
    rows.push_back({"0123456789,bcdefghijk", ",", "0123456789|bcdefghijk"});
    rows.push_back({"0123456789abcdefghij,x", ",", "0123456789abcdefghij|x"});
    char **tokens = nullptr;
    uint64_t count = 99;
    for (const auto &row : rows) {
        tav_status status = TAV_OK;
        const auto found =
            uint64_t(std::count(row[2].begin(), row[2].end(), '|') + !row[2].empty());
        const long failures = tavtest::for_each_allocation_failure(
            [&] { status = tav_util_split(row[0].c_str(), row[1].c_str(), &tokens, &count); },
            [&](long nth, const tavtest::AllocRun &run) {
                const char *why =
                    nth == 1 ? "Memory allocation failed" : "Failed to allocate memory";
                EXPECT_EQ(std::tuple(status, tokens, count, run.live_blocks, tavtest::said()),
                          std::tuple(TAV_ERR_NOMEM, nullptr, found, 0,
                                     traced("tav_util_split", {2}, why)));
            });
        std::string joined;
        for (uint64_t i = 0; i < count; ++i) {
            joined += (i > 0 ? "|" : "") + std::string(tokens[i]);
            std::free(tokens[i]);
        }
        std::free(tokens);
        EXPECT_EQ(std::tuple(status, tavtest::said(), tokens == nullptr, joined, failures),
                  std::tuple(TAV_OK, "", found == 0, row[2], long(found + (found > 0))))
            << row[0] << row[1];
    }
    for (int gap = 0; gap < 4; ++gap) { // each pointer null in turn
        const void *at[] = {"a", ",", &tokens, &count};
        at[gap] = nullptr;
        char line[80];
        std::snprintf(line, sizeof line, "NULL argument detected: %p %p %p %p", at[0], at[1], at[2],
                      at[3]);
        EXPECT_EQ(tav_util_split((const char *)at[0], (const char *)at[1], (char ***)at[2],
                                 (uint64_t *)at[3]),
                  TAV_ERR_NULL_ARG);
        EXPECT_EQ(tavtest::said(), traced("tav_util_split", {3}, line));
    }
}

// An overflow leaves the size summed so far, a failed block the whole size.
TEST(StringOps, Join) {
    tavtest::clear_reports();
    const char *texts[] = {"a", "", "b"}, *huge[] = {kHuge[0], kHuge[0]};
    char *const untouched = reinterpret_cast<char *>(1);
    char *out = untouched;
    uint64_t size = 77;
    const auto join = [&](const char *const *from, uint64_t count, const char *separator,
                          long nth = 0) {
        const std::string status =
            ran(nth, [&] { return tav_util_join(from, count, separator, &out, &size); });
        const std::string shown = status + " " + std::to_string(size) + " " +
                                  (out == untouched ? "untouched" : out ?: "null");
        std::free(out == untouched ? nullptr : out);
        out = untouched;
        return shown;
    };
    EXPECT_EQ(tav_util_join(texts, 2, ",", &out, nullptr) +
                  tav_util_join(texts, 2, ",", nullptr, &size),
              2 * TAV_ERR_NULL_ARG);
    EXPECT_EQ(join(texts, 0, ",") + "; " + join(nullptr, 2, ",") + "; " + join(texts, 2, nullptr),
              "3 0 0 77 untouched; 3 0 0 77 untouched; 3 0 0 77 untouched");
    EXPECT_EQ(join(huge, 2, "") + "; " + join(kHuge + 1, 1, ""),
              "33 0 0 9223372036854775808 untouched; 33 0 0 18446744073709551615 untouched");
    EXPECT_EQ(join(texts, 3, ",", 1) + "; " + join(texts, 3, ",") + "; " + join(texts, 3, "--") +
                  "; " + join(texts, 1, "--"),
              "2 5 0 5 null; 0 5 1 5 a,,b; 0 7 1 7 a----b; 0 2 1 2 a");
    EXPECT_EQ(tavtest::said(), traced("tav_util_join", {3, 3, 3, 3, 3, 33, 33, 2}));
}

// The first block takes the whole addition; the second comes from inside it.
TEST(StringOps, Append) {
    tavtest::clear_reports();
    char *text = nullptr;
    uint64_t length = 12345;
    const auto append = [&](uint64_t from, const char *addition, uint64_t size, long nth = 0) {
        length = from;
        const std::string status =
            ran(nth, [&] { return tav_util_append_string(&text, &length, addition, size); });
        return status + " " + std::to_string(length);
    };
    EXPECT_EQ(tav_util_append_string(nullptr, &length, "a", 1) +
                  tav_util_append_string(&text, nullptr, "a", 1),
              2 * TAV_ERR_NULL_ARG);
    EXPECT_EQ(
        std::vector({append(1, nullptr, 1), append(1, "a", 0), append(1, "xy", 2, 1),
                     append(12345, "ab\0cdef", 5), append(5, text + 2, 3), append(8, "a", 1, 1),
                     append(0, "ab", 2), append(UINT64_MAX - 2, "ab", 2),
                     append(UINT64_MAX - 1, "ab", 2), append(8, "ab", 2)}),
        std::vector<std::string>({"3 0 0 1", "7 0 0 1", "2 3 0 1", "0 6 1 5", "0 9 1 8", "2 10 0 8",
                                  "7 0 0 0", "33 0 0 18446744073709551613",
                                  "33 0 0 18446744073709551614", "0 11 1 10"}));
    EXPECT_EQ(std::string(text, 11), std::string("ab\0cd\0cdab", 11));
    std::free(text);
    EXPECT_EQ(tavtest::said(), traced("tav_util_append_string", {3, 3, 3, 7, 2, 2, 7, 33, 33}));
}

TEST(StringOps, WideConversion) {
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    std::mbstowcs(nullptr, "\xc3\xa9", 0); // libc sets up its converter, allocating
    tavtest::clear_reports();
    wchar_t *const untouched = reinterpret_cast<wchar_t *>(1);
    wchar_t *out = nullptr;
    uint64_t length = 0;
    EXPECT_EQ(tav_util_char_to_wchar("a", 0, nullptr, &length) +
                  tav_util_char_to_wchar("a", 0, &out, nullptr),
              2 * TAV_ERR_NULL_ARG);
    using Row = std::tuple<const char *, Plan, std::string, std::wstring>;
    for (const auto &[text, plan, expected, block] :
         {Row{nullptr, kAsIs, "3 0 0 77", L"untouched"}, Row{"", kAsIs, "0 4 1 0", {L"", 1}},
          Row{"\xc3\xa9t\xe2\x82\xac", kAsIs, "0 16 1 3", {L"\u00e9t\u20ac", 4}},
          Row{"ab\xff", kAsIs, "7 0 0 18446744073709551615", L"untouched"},
          Row{"abc", kNoMemory, "2 16 0 3", L"null"},
          Row{"abc", kFillFails, "7 16 1 18446744073709551615", {L"\0\0\0", 4}},
          Row{"abc", kStopsShort, "16 16 1 3", {L"abc", 4}}}) {
        out = untouched, length = 77, mbsrtowcs_plan = plan;
        const std::string status = ran(plan == kNoMemory, [&, text = text] {
            return tav_util_char_to_wchar(text, 0, &out, &length);
        });
        const bool held = out != untouched && out != nullptr;
        EXPECT_EQ(
            std::tuple(status + " " + std::to_string(length), held ? std::wstring(out, block.size())
                                                              : out ? L"untouched"
                                                                    : L"null"),
            std::tuple(expected, block));
        std::free(held ? out : nullptr);
    }
    mbsrtowcs_plan = kAsIs;
    std::setlocale(LC_CTYPE, "C");
    EXPECT_EQ(tavtest::said(), traced("tav_util_char_to_wchar", {3, 3, 3, 7, 2, 7, 16}));
}
