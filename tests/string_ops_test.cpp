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

static std::string traced(const char *function, std::initializer_list<int> statuses) {
    std::string lines;
    const char *path = std::strstr(function, "wchar") ? "string/convert_linux" : "string_ops";
    for (int status : statuses) {
        lines += std::string(lines.empty() ? "" : "|") + "trace " + function + " src/" + path +
                 ".cpp " + std::to_string(status);
    }
    return lines;
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
    Bytes bytes = {0x00, 0xAB};
    char *text = nullptr, pair[3];
    uint8_t *out = nullptr;
    std::string hex = "00ab";
    for (size_t i = 2; i <= 40; ++i) { // every length over two vector steps
        ASSERT_EQ(tav_util_sprintf_bytes(bytes.data(), i, &text), TAV_OK);
        EXPECT_EQ(text, hex);
        std::free(text);
        bytes.push_back(uint8_t(i * 0x35 + 0xAB));
        std::snprintf(pair, sizeof pair, "%02x", bytes.back());
        hex += pair;
    }
    // Past the text the bytes keep the last value.
    const auto run = tavtest::run_allocations(0, [&] { tav_util_sscanf_bytes("00AB", 8, &out); });
    EXPECT_EQ(std::tuple(run.sizes, Bytes(out, out + 4)),
              std::tuple(std::vector<size_t>{4}, Bytes{0, 0xAB, 0xAB, 0xAB}));
    std::free(out);
    // A second vector step reads at its own place, not before the text.
    const std::string shifted = std::string(32, 'f') + hex;
    ASSERT_EQ(tav_util_sscanf_bytes(shifted.c_str() + 32, 64, &out), TAV_OK);
    EXPECT_EQ(Bytes(out, out + 32), Bytes(bytes.begin(), bytes.begin() + 32));
    std::free(out);
    const std::string blanks(3001, ' '), digits = "0123456789abcdefABCDEF5a7F00ffe1cccc";
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
    for (auto &[hex, length] : texts) {
        length = std::min<uint64_t>(length, hex.size());
        ASSERT_EQ(tav_util_sscanf_bytes(hex.c_str(), length, &out), TAV_OK);
        unsigned value = 0;
        for (size_t i = 0; i < length / 2; ++i) {
            std::sscanf(hex.c_str() + 2 * i, "%2x", &value);
            ASSERT_EQ(out[i], value & 0xFF) << i << " of " << length << " of '" << hex << "'";
        }
        std::free(out);
    }
    EXPECT_EQ(tavtest::said(), "");
    char *held[] = {reinterpret_cast<char *>(1), reinterpret_cast<char *>(1)};
    tavtest::run_allocations(1, [&] { tav_util_sprintf_bytes(bytes.data(), 0, &held[0]); });
    tav_util_sprintf_bytes(bytes.data(), 1ull << 63, &held[1]);
    tavtest::run_allocations(1, [&] { tav_util_sscanf_bytes("0102", 4, &out); });
    EXPECT_EQ(std::tuple(held[0], held[1], out), std::tuple(nullptr, nullptr, nullptr));
    const std::string lost =
        "log tav_util_sprintf_bytes Allocation failed|" + traced("tav_util_sprintf_bytes", {2});
    EXPECT_EQ(tavtest::said(), lost + "|" + lost + "|log tav_util_sscanf_bytes Allocation failed|" +
                                   traced("tav_util_sscanf_bytes", {2}));
}

// Each row also under each allocation failure: the count stays.
TEST(StringOps, Split) {
    std::vector<std::array<std::string, 3>> rows = {
        {"", ",", ""},           {",,,", ",", ""},
        {"abc", ",", "abc"},     {"a,b", ",", "a|b"},
        {",a,b", ",", "a|b"},    {"a,,b", ",", "a|b"},
        {"a,b,", ",", "a|b"},    {",,a,,b,,", ",", "a|b"},
        {"a--b", "--", "a|b"},   {"a---b", "--", "a|-b"},
        {"a----b", "--", "a|b"}, {"-a--", "--", "-a"},
        {"ab", "abc", "ab"},     {"a-b", "--", "a-b"},
        {"a,b", "", "a,b"},      {"", "", ""}};
    for (const char d : {',', '\xff'}) { // tokens of every length to 40, runs of 1 to 3
        for (const int n : {1, 9, 30, 200}) {
            std::string text, joined;
            for (int i = 0; i < n; ++i) {
                const std::string token(i % 41, 'a' + i % 26);
                text += std::string(1 + i % 3, d) + token;
                joined += token.empty() ? "" : (joined.empty() ? "" : "|") + token;
            }
            rows.push_back({text + std::string(n % 2, d), {d}, joined});
        }
    }
    char **tokens = nullptr;
    uint64_t count = 99;
    for (const auto &row : rows) {
        tav_status status = TAV_OK;
        std::vector<uint64_t> counts;
        const auto op = [&] {
            tavtest::clear_reports();
            status = tav_util_split(row[0].c_str(), row[1].c_str(), &tokens, &count);
        };
        tavtest::for_each_allocation_failure(op, [&](long nth, const tavtest::AllocRun &run) {
            const char *why = nth == 1 ? "Memory allocation failed" : "Failed to allocate memory";
            EXPECT_EQ(std::tuple(status, tokens, run.live_blocks, tavtest::said()),
                      std::tuple(TAV_ERR_NOMEM, nullptr, 0,
                                 std::string("log tav_util_split ") + why + "|" +
                                     traced("tav_util_split", {2})));
            counts.push_back(count);
        });
        std::string joined;
        for (uint64_t i = 0; i < count; ++i) {
            joined += (i > 0 ? "|" : "") + std::string(tokens[i]);
            std::free(tokens[i]);
        }
        std::free(tokens);
        EXPECT_EQ(std::tuple(status, tavtest::said(), tokens == nullptr, joined, counts),
                  std::tuple(TAV_OK, "", count == 0, row[2],
                             std::vector<uint64_t>(count + (count > 0), count)))
            << row[0] << row[1];
    }
    for (int gap = 0; gap < 4; ++gap) { // each pointer null in turn
        const void *at[] = {"a", ",", &tokens, &count};
        at[gap] = nullptr;
        char line[160];
        std::snprintf(line, sizeof line, "log tav_util_split NULL argument detected: %p %p %p %p|",
                      at[0], at[1], at[2], at[3]);
        EXPECT_EQ(tav_util_split((const char *)at[0], (const char *)at[1], (char ***)at[2],
                                 (uint64_t *)at[3]),
                  TAV_ERR_NULL_ARG);
        EXPECT_EQ(tavtest::said(), line + traced("tav_util_split", {3}));
    }
}

// An overflow leaves the size summed so far, a failed block the whole size.
TEST(StringOps, Join) {
    tavtest::clear_reports();
    const char *texts[] = {"a", "", "b"}, *huge[] = {kHuge[0], kHuge[0]};
    char *const untouched = reinterpret_cast<char *>(1);
    char *out = untouched;
    uint64_t size = 77;
    EXPECT_EQ(std::vector({tav_util_join(texts, 0, ",", &out, &size),
                           tav_util_join(nullptr, 2, ",", &out, &size),
                           tav_util_join(texts, 2, nullptr, &out, &size),
                           tav_util_join(texts, 2, ",", &out, nullptr),
                           tav_util_join(texts, 2, ",", nullptr, &size)}),
              std::vector(5, TAV_ERR_NULL_ARG));
    std::string shown = std::to_string(size) + (out == untouched ? "u " : "? ");
    using Row = std::tuple<const char *const *, uint64_t, const char *, long>;
    for (const auto &[from, count, separator, nth] :
         {Row{huge, 2, "", 0}, Row{kHuge + 1, 1, "", 0}, Row{texts, 3, ",", 1},
          Row{texts, 3, ",", 0}, Row{texts, 3, "--", 0}, Row{texts, 1, "--", 0}}) {
        out = untouched;
        const auto run =
            tavtest::run_allocations(nth, [&, from = from, count = count, separator = separator] {
                tav_util_join(from, count, separator, &out, &size);
            });
        shown += std::to_string(size) + "=" + std::to_string(run.sizes.empty() ? 0 : run.sizes[0]) +
                 (out == untouched ? "u"
                  : out            ? out
                                   : "null") +
                 " ";
        std::free(out == untouched ? nullptr : out);
    }
    EXPECT_EQ(shown, "77u 9223372036854775808=0u 18446744073709551615=0u 5=5null 5=5a,,b "
                     "7=7a----b 2=2a ");
    EXPECT_EQ(tavtest::said(), traced("tav_util_join", {3, 3, 3, 3, 3, 33, 33, 2}));
}

// The first block takes the whole addition; the second comes from inside it.
TEST(StringOps, Append) {
    tavtest::clear_reports();
    char *text = nullptr;
    uint64_t length = 12345;
    const auto append = [&](const char *addition, uint64_t size, long nth = 0) {
        tav_status status = TAV_OK;
        const auto run = tavtest::run_allocations(
            nth, [&] { status = tav_util_append_string(&text, &length, addition, size); });
        return std::to_string(status) + " " + std::to_string(length) + " " +
               std::to_string(run.live_blocks);
    };
    EXPECT_EQ(std::vector({tav_util_append_string(nullptr, &length, "a", 1),
                           tav_util_append_string(&text, nullptr, "a", 1)}),
              std::vector(2, TAV_ERR_NULL_ARG));
    EXPECT_EQ(std::vector({append(nullptr, 1), append("a", 0), append("xy", 2, 1),
                           append("ab\0cdef", 5), append(text + 2, 3), append("a", 1, 1)}),
              std::vector<std::string>(
                  {"3 12345 0", "7 12345 0", "2 12345 0", "0 5 1", "0 8 1", "2 8 0"}));
    const std::string kept("ab\0cd\0cd\0", 9);
    for (uint64_t wrong : {uint64_t{0}, UINT64_MAX - 2, UINT64_MAX - 1, uint64_t{8}}) {
        EXPECT_EQ(std::string(text, kept.size()), kept);
        length = wrong;
        EXPECT_EQ(append("ab", 2).substr(0, 2), wrong == 8 ? "0 " : wrong ? "33" : "7 ");
    }
    std::free(text);
    EXPECT_EQ(tavtest::said(), traced("tav_util_append_string", {3, 3, 3, 7, 2, 2, 7, 33, 33}));
}

TEST(StringOps, WideConversion) {
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    wchar_t *const untouched = reinterpret_cast<wchar_t *>(1);
    wchar_t *out = nullptr;
    uint64_t length = 0;
    tav_util_char_to_wchar("\xc3\xa9", 0, &out, &length); // libc sets up its converter, allocating
    std::free(out);
    tavtest::clear_reports();
    EXPECT_EQ(std::vector({tav_util_char_to_wchar("a", 0, nullptr, &length),
                           tav_util_char_to_wchar("a", 0, &out, nullptr)}),
              std::vector(2, TAV_ERR_NULL_ARG));
    using Row = std::tuple<const char *, Plan, tav_status, uint64_t, std::wstring>;
    for (const auto &[text, plan, status, size, block] :
         {Row{nullptr, kAsIs, TAV_ERR_NULL_ARG, 77, L"untouched"},
          Row{"", kAsIs, TAV_OK, 0, {L"", 1}},
          Row{"\xc3\xa9t\xe2\x82\xac", kAsIs, TAV_OK, 3, {L"\u00e9t\u20ac", 4}},
          Row{"ab\xff", kAsIs, TAV_ERR_BAD_ARG, UINT64_MAX, L"untouched"},
          Row{"abc", kNoMemory, TAV_ERR_NOMEM, 3, L"null"},
          Row{"abc", kFillFails, TAV_ERR_BAD_ARG, UINT64_MAX, {L"\0\0\0", 4}},
          Row{"abc", kStopsShort, TAV_ERR_TOO_SMALL, 3, {L"abc", 4}}}) {
        out = untouched, length = 77, mbsrtowcs_plan = plan;
        tav_status got = TAV_OK;
        const auto run = tavtest::run_allocations(plan == kNoMemory, [&, text = text] {
            got = tav_util_char_to_wchar(text, 0, &out, &length);
        });
        const bool held = out != untouched && out != nullptr;
        EXPECT_EQ(std::tuple(got, length, run.live_blocks,
                             held  ? std::wstring(out, block.size())
                             : out ? L"untouched"
                                   : L"null"),
                  std::tuple(status, size, held, block));
        std::free(held ? out : nullptr);
    }
    mbsrtowcs_plan = kAsIs;
    std::setlocale(LC_CTYPE, "C");
    EXPECT_EQ(tavtest::said(), traced("tav_util_char_to_wchar", {3, 3, 3, 7, 2, 7, 16}));
}
