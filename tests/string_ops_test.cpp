#include <array>
#include <clocale>
#include <cwchar>
#include <dlfcn.h>
#include <random>

#include "rows.hpp"

namespace {
using Lines = std::vector<std::string>;
// What the filling pass of mbsrtowcs does, and whether the block can be had.
enum Plan { kAsIs, kFillFails, kStopsShort, kNoMemory } mbsrtowcs_plan = kAsIs;
} // namespace

extern "C" size_t mbsrtowcs(wchar_t *to, const char **from, size_t limit, mbstate_t *state) {
    using Fn = size_t (*)(wchar_t *, const char **, size_t, mbstate_t *);
    static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "mbsrtowcs"));
    const Plan plan = to != nullptr ? mbsrtowcs_plan : kAsIs;
    return plan == kFillFails ? size_t(-1) : real(to, from, limit - (plan == kStopsShort), state);
}

// Texts longer than any address space holds, for the join's overflow tests.
const char *const kHuge[] = {"\x01half", "\x01all"};
extern "C" size_t strlen(const char *text) noexcept {
    const volatile char *p = text;
    size_t n = text == kHuge[0] ? SIZE_MAX / 2 + 1 : text == kHuge[1] ? SIZE_MAX : 0;
    for (; n < SIZE_MAX / 2 && p[n] != '\0'; ++n) {
    }
    return n;
}

namespace {

class StringOps : public ::testing::Test {
    void SetUp() override { tavtest::clear_reports(); }
    void TearDown() override { std::setlocale(LC_CTYPE, "C"); }
};

Lines traces(const std::string &function, std::vector<int> statuses) {
    const char *path = function == "tav_util_char_to_wchar" ? "string/convert_linux" : "string_ops";
    Lines lines;
    for (int status : statuses) {
        lines.push_back("trace " + function + " src/" + path + ".cpp " + std::to_string(status));
    }
    return lines;
}

TEST_F(StringOps, ReplaceWalksToTheFirstZeroByteOrTheMaximum) {
    const auto replaced = [](std::string text, uint64_t maximum, char from = '.', char to = '/') {
        EXPECT_EQ(tav_util_str_replace(text.data(), maximum, from, to), TAV_OK);
        return text;
    };
    EXPECT_EQ(replaced("a.b.c", 99), "a/b/c");
    EXPECT_EQ(replaced("a.b.c", 3), "a/b.c");
    EXPECT_EQ(replaced("a.b.c", 0), "a.b.c");
    EXPECT_EQ(replaced("a.b.c", 99, '\0'), "a.b.c");
    EXPECT_EQ(replaced({"a.b\0.c", 6}, 99, '.', '\0'), std::string("a\0b\0.c", 6));
    EXPECT_EQ(tav_util_str_replace(nullptr, 5, 'a', 'b'), TAV_OK);
}

TEST_F(StringOps, HexTextBothWaysAndItsOneFailure) {
    const Bytes bytes = {0x00, 0xAB, 0x01, 0x23, 0x45, 0x67, 0x89, 0xCD, 0xEF};
    char *text = nullptr;
    ASSERT_EQ(tav_util_sprintf_bytes(bytes.data(), bytes.size(), &text), TAV_OK);
    EXPECT_STREQ(text, "00ab0123456789cdef");
    std::free(text);
    const auto scanned = [](const char *hex, uint64_t length) {
        uint8_t *out = nullptr;
        const auto run =
            tavtest::run_allocations(0, [&] { tav_util_sscanf_bytes(hex, length, &out); });
        EXPECT_EQ(run.sizes, std::vector<size_t>{length / 2});
        const Bytes result(out, out + length / 2);
        std::free(out);
        return result;
    };
    EXPECT_EQ(scanned("00AB", 4), (Bytes{0x00, 0xAB}));
    EXPECT_EQ(scanned("00ab7", 5), (Bytes{0x00, 0xAB}));
    EXPECT_EQ(scanned("7", 1), Bytes{});
    EXPECT_EQ(scanned("zz12", 4), (Bytes{0x00, 0x12})) << "no byte before the first";
    EXPECT_EQ(scanned("12", 8), (Bytes{18, 18, 18, 18})) << "nothing behind the terminator read";
    // The second run is too long for any block: refused, not sized by a wrapped sum.
    uint8_t *out = nullptr;
    tavtest::run_allocations(
        1, [&] { EXPECT_EQ(tav_util_sprintf_bytes(bytes.data(), 0, &text), TAV_ERR_NOMEM); });
    EXPECT_EQ(text, nullptr);
    text = reinterpret_cast<char *>(1);
    tavtest::run_allocations(0, [&] {
        EXPECT_EQ(tav_util_sprintf_bytes(bytes.data(), 1ull << 63, &text), TAV_ERR_NOMEM);
    });
    EXPECT_EQ(text, nullptr);
    tavtest::run_allocations(
        1, [&] { EXPECT_EQ(tav_util_sscanf_bytes("0102", 4, &out), TAV_ERR_NOMEM); });
    EXPECT_EQ(out, nullptr);
    Lines expected;
    for (std::string op : {"sprintf", "sprintf", "sscanf"}) {
        expected.push_back("log tav_util_" + op + "_bytes Allocation failed");
        expected.push_back("trace tav_util_" + op + "_bytes src/string_ops.cpp 2");
    }
    EXPECT_EQ(tavtest::report_summary(), expected);
}

// Every byte is what sscanf "%2x" reads at its place, keeping the value
// before: all pairs behind "5a" with various tails, long blank runs, and
// digits in steps of sixteen pairs with one other character at each place,
// at every length. "%02x" writes every length of bytes to 40.
TEST_F(StringOps, HexTextMatchesSscanfAndSnprintf) {
    const std::string blanks(3001, ' '),
        digits = "0123456789abcdefABCDEF5a7F00ffe1" + std::string(48, 'c');
    std::vector<std::pair<std::string, uint64_t>> texts = {
        {blanks + "c3" + std::string(999, '\n'), UINT64_MAX},
        {"7f" + blanks + "zz" + blanks + "-1 ", UINT64_MAX}};
    for (const std::string tail : {"", "0", "7f", "x", "g", " 1", "\t\n-f", "x9", "  "}) {
        for (int pair = 0; pair < 65536; ++pair) {
            texts.emplace_back(std::string{'5', 'a', char(pair >> 8), char(pair)} + tail, 4);
        }
    }
    for (size_t bad = 0; bad <= digits.size(); ++bad) {
        std::string text = digits;
        bad < text.size() && (text[bad] = bad % 3 == 1 ? ' ' : 'g');
        for (uint64_t length = 0; length <= text.size(); ++length) {
            texts.emplace_back(text, length);
        }
    }
    for (auto &[text, length] : texts) {
        length = std::min<uint64_t>(length, text.size());
        uint8_t *bytes = nullptr;
        ASSERT_EQ(tav_util_sscanf_bytes(text.c_str(), length, &bytes), TAV_OK);
        unsigned value = 0;
        for (size_t i = 0; i < length / 2; ++i) {
            std::sscanf(text.c_str() + 2 * i, "%2x", &value);
            ASSERT_EQ(bytes[i], value & 0xFF) << i << " of " << length << " of '" << text << "'";
        }
        std::free(bytes);
    }
    Bytes bytes;
    std::string expected;
    for (int byte = 0; byte <= 40; ++byte) {
        char *text = nullptr, pair[3];
        ASSERT_EQ(tav_util_sprintf_bytes(bytes.data(), bytes.size(), &text), TAV_OK);
        EXPECT_EQ(text, expected);
        std::free(text);
        bytes.push_back(static_cast<uint8_t>(byte * 0x35 + 0x0F)); // every nibble, over time
        std::snprintf(pair, sizeof pair, "%02x", bytes.back());
        expected += pair;
    }
}

// Each row runs once with each allocation failing (the array, then each
// token), then whole. An empty delimiter never matches. Behind the worked
// rows, one-byte delimiters at several densities, split by the plain rule.
TEST_F(StringOps, SplitTableAndFailures) {
    std::vector<std::array<std::string, 3>> rows = {
        {"", ",", ""},           {",,,", ",", ""},         {"abc", ",", "abc"},
        {"a,b", ",", "a|b"},     {",a,b", ",", "a|b"},     {"a,,b", ",", "a|b"},
        {"a,b,", ",", "a|b"},    {",,a,,b,,", ",", "a|b"}, {"a--b", "--", "a|b"},
        {"a---b", "--", "a|-b"}, {"a----b", "--", "a|b"},  {"-a--", "--", "-a"},
        {"ab", "abc", "ab"},     {"a,b", "", "a,b"},       {"", "", ""}};
    const auto by_rule = [&](const std::string &text, char d) {
        std::string runs;
        for (const char c : text) {
            runs += c != d ? std::string(1, c)
                           : std::string(runs.empty() || runs.back() == '|' ? "" : "|");
        }
        rows.push_back({text, std::string(1, d),
                        runs.substr(0, runs.size() - (!runs.empty() && runs.back() == '|'))});
    };
    std::mt19937 engine(5);
    std::string alternating;
    for (int i = 0; i < 1000; ++i) {
        alternating += "a,";
    }
    by_rule(alternating, ',');
    for (const char d : {',', '\xff'}) {
        for (size_t length = 0; length <= 70; ++length) {
            for (const unsigned one_in : {2, 5, 40}) {
                std::string text;
                for (size_t i = 0; i < length; ++i) {
                    text += engine() % one_in == 0 ? d : static_cast<char>('a' + i % 26);
                }
                by_rule(text, d);
            }
        }
    }
    char **tokens = nullptr;
    uint64_t count = 99;
    for (const auto &row : rows) {
        tav_status status = TAV_OK;
        std::vector<uint64_t> counts;
        std::vector<size_t> sizes;
        const auto op = [&] {
            tavtest::clear_reports();
            status = tav_util_split(row[0].c_str(), row[1].c_str(), &tokens, &count);
        };
        tavtest::for_each_allocation_failure(op, [&](long nth, const tavtest::AllocRun &run) {
            EXPECT_EQ(status, TAV_ERR_NOMEM);
            EXPECT_EQ(tokens, nullptr);
            EXPECT_EQ(run.live_blocks, 0);
            counts.push_back(count);
            sizes = run.sizes;
            const char *why = nth == 1 ? "Memory allocation failed" : "Failed to allocate memory";
            EXPECT_EQ(tavtest::report_summary(),
                      (Lines{std::string("log tav_util_split ") + why,
                             "trace tav_util_split src/string_ops.cpp 2"}));
        });
        EXPECT_EQ(status, TAV_OK);
        EXPECT_TRUE(tavtest::reports().empty());
        EXPECT_EQ(tokens == nullptr, count == 0);
        EXPECT_EQ(counts, std::vector<uint64_t>(count + (count > 0), count)) << "kept on failure";
        std::vector<size_t> expected_sizes(count > 0, sizeof(char *) * count);
        std::string joined;
        for (uint64_t i = 0; i < count; ++i) {
            joined += (i > 0 ? "|" : "") + std::string(tokens[i]);
            expected_sizes.push_back(std::strlen(tokens[i]) + 1);
            std::free(tokens[i]);
        }
        std::free(tokens);
        expected_sizes.resize(std::min<size_t>(expected_sizes.size(), 64)); // as many as recorded
        EXPECT_EQ(joined, row[2]) << row[0] << " " << row[1];
        EXPECT_EQ(sizes, expected_sizes) << row[0] << " " << row[1];
    }
    for (int gap = 0; gap < 4; ++gap) { // each pointer null in turn
        const void *at[] = {"a", ",", &tokens, &count};
        at[gap] = nullptr;
        EXPECT_EQ(tav_util_split(static_cast<const char *>(at[0]), static_cast<const char *>(at[1]),
                                 static_cast<char ***>(const_cast<void *>(at[2])),
                                 static_cast<uint64_t *>(const_cast<void *>(at[3]))),
                  TAV_ERR_NULL_ARG);
        char line[160];
        std::snprintf(line, sizeof line,
                      "log tav_util_split NULL argument detected: %p %p %p %p|%s", at[0], at[1],
                      at[2], at[3], "trace tav_util_split src/string_ops.cpp 3");
        EXPECT_EQ(tavtest::said(), line);
    }
}

TEST_F(StringOps, JoinSizesWithTheTerminatorAndFailsCleanly) {
    const char *texts[] = {"a", "", "b"};
    char *out = nullptr;
    uint64_t size = 0;
    const struct {
        uint64_t count;
        const char *separator, *joined;
    } rows[] = {{3, ",", "a,,b"}, {3, "--", "a----b"}, {1, "--", "a"}};
    for (const auto &row : rows) {
        const size_t whole = std::strlen(row.joined) + 1;
        tav_status status = TAV_OK;
        const auto op = [&] {
            status = tav_util_join(texts, row.count, row.separator, &out, &size);
        };
        const auto failed = tavtest::run_allocations(1, op);
        EXPECT_EQ(status, TAV_ERR_NOMEM);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(size, whole);
        EXPECT_EQ(failed.sizes, std::vector<size_t>{whole});
        tavtest::run_allocations(0, op);
        EXPECT_STREQ(out, row.joined);
        EXPECT_EQ(size, whole);
        std::free(out);
    }
    out = reinterpret_cast<char *>(1);
    size = 77;
    EXPECT_EQ(tav_util_join(texts, 0, ",", &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(nullptr, 2, ",", &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(texts, 2, nullptr, &out, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(texts, 2, ",", &out, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_join(texts, 2, ",", nullptr, &size), TAV_ERR_NULL_ARG);
    EXPECT_EQ(std::tuple(out, size), std::tuple(reinterpret_cast<char *>(1), 77u));
    const char *huge[] = {kHuge[0], kHuge[0]};
    EXPECT_EQ(tav_util_join(huge, 2, "", &out, &size), TAV_ERR_OVERFLOW);
    EXPECT_EQ(size, uint64_t{1} << 63);
    EXPECT_EQ(tav_util_join(kHuge + 1, 1, "", &out, &size), TAV_ERR_OVERFLOW);
    EXPECT_EQ(std::tuple(out, size), std::tuple(reinterpret_cast<char *>(1), UINT64_MAX));
    EXPECT_EQ(tavtest::report_summary(), traces("tav_util_join", {2, 2, 2, 3, 3, 3, 3, 3, 33, 33}));
}

TEST_F(StringOps, AppendKeepsEveryByteAndTheLengthOrLeavesBoth) {
    char *text = nullptr;
    uint64_t length = 12345;
    const auto append = [&](const char *addition, uint64_t size) {
        return tav_util_append_string(&text, &length, addition, size);
    };
    EXPECT_EQ(tav_util_append_string(nullptr, &length, "a", 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_append_string(&text, nullptr, "a", 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(append(nullptr, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(append("a", 0), TAV_ERR_BAD_ARG);
    tavtest::run_allocations(1, [&] { EXPECT_EQ(append("xy", 2), TAV_ERR_NOMEM); });
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(length, 12345u);
    // The first text reads to the zero byte, yet its length and block take the
    // whole addition; the second comes from inside the old text, zero byte and all.
    ASSERT_EQ(append("ab\0cdef", 5), TAV_OK);
    EXPECT_STREQ(text, "ab");
    ASSERT_EQ(append(text + 2, 3), TAV_OK);
    const std::string kept("ab\0cd\0cd\0", 9);
    EXPECT_EQ(std::string(text, length + 1), kept);
    const auto run = tavtest::run_allocations(1, [&] { EXPECT_EQ(append("a", 1), TAV_ERR_NOMEM); });
    EXPECT_EQ(run.live_blocks, 0);
    // A sum of the largest value leaves no room for the terminator.
    for (uint64_t wrong : {uint64_t{0}, UINT64_MAX - 2, UINT64_MAX - 1}) {
        length = wrong;
        EXPECT_EQ(append("ab", 2), wrong == 0 ? TAV_ERR_BAD_ARG : TAV_ERR_OVERFLOW);
        EXPECT_EQ(length, wrong);
    }
    EXPECT_EQ(std::string(text, kept.size()), kept);
    std::free(text);
    EXPECT_EQ(tavtest::report_summary(),
              traces("tav_util_append_string", {3, 3, 3, 7, 2, 2, 7, 33, 33}));
}

// The failure table: out is left alone on a null argument or an invalid
// text, null when the block cannot be had, else the caller's block.
TEST_F(StringOps, WideConversionAndItsFailureTable) {
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    wchar_t *const untouched = reinterpret_cast<wchar_t *>(1);
    wchar_t *out = nullptr;
    uint64_t length = 0;
    EXPECT_EQ(tav_util_char_to_wchar("a", 0, nullptr, &length), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_char_to_wchar("a", 0, &out, nullptr), TAV_ERR_NULL_ARG);
    tav_util_char_to_wchar("\xc3\xa9", 0, &out, &length); // libc sets up its converter, allocating
    std::free(out);
    const struct {
        const char *text;
        Plan plan;
        tav_status status;
        uint64_t length;
        std::wstring block; // with the terminator; empty when there is none
    } cases[] = {{nullptr, kAsIs, TAV_ERR_NULL_ARG, 77, {}},
                 {"", kAsIs, TAV_OK, 0, {L"", 1}},
                 {"\xc3\xa9t\xe2\x82\xac", kAsIs, TAV_OK, 3, {L"\u00e9t\u20ac", 4}},
                 {"ab\xff", kAsIs, TAV_ERR_BAD_ARG, UINT64_MAX, {}},
                 {"abc", kNoMemory, TAV_ERR_NOMEM, 3, {}},
                 {"abc", kFillFails, TAV_ERR_BAD_ARG, UINT64_MAX, {L"\0\0\0", 4}},
                 {"abc", kStopsShort, TAV_ERR_TOO_SMALL, 3, {L"abc", 4}}};
    for (const auto &c : cases) {
        out = untouched;
        length = 77;
        mbsrtowcs_plan = c.plan;
        const auto run = tavtest::run_allocations(c.plan == kNoMemory, [&] {
            EXPECT_EQ(tav_util_char_to_wchar(c.text, 0, &out, &length), c.status);
        });
        EXPECT_EQ(length, c.length) << c.status;
        EXPECT_EQ(run.live_blocks, !c.block.empty()) << c.status;
        if (c.block.empty()) {
            EXPECT_EQ(out, c.status == TAV_ERR_NOMEM ? nullptr : untouched) << c.status;
        } else {
            EXPECT_EQ(run.sizes, std::vector<size_t>{4 * c.block.size()});
            EXPECT_EQ(std::wstring(out, c.block.size()), c.block) << c.text;
            std::free(out);
        }
    }
    mbsrtowcs_plan = kAsIs;
    EXPECT_EQ(tavtest::report_summary(), traces("tav_util_char_to_wchar", {3, 3, 3, 7, 2, 7, 16}));
}

} // namespace
