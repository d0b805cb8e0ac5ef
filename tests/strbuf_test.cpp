#include <cctype>
#include <memory>

#include "rows.hpp"
#include "vsnprintf_inject.hpp"

namespace {

using Buffer = std::unique_ptr<tav_util_strbuf, decltype(&tav_util_strbuf_free)>;
using Dump = void (*)(tav_util_strbuf *, const char *, const void *, int64_t);

// A negative capacity gives a zero-filled record that no append has touched.
Buffer make(int32_t capacity, const char *text = "") {
    Buffer b(capacity < 0 ? static_cast<tav_util_strbuf *>(std::calloc(1, sizeof(tav_util_strbuf)))
                          : tav_util_strbuf_new(capacity),
             &tav_util_strbuf_free);
    capacity < 0 || tav_util_strbuf_append_f(b.get(), "%s", text);
    return b;
}
std::string failed(const std::string &function, const std::string &first) {
    return "log " + function + " " + first + "|log " + function + " Error in strbuf";
}
void append_twice(tav_util_strbuf *record, const char *format, ...) {
    va_list args;
    va_start(args, format);
    tav_util_strbuf_append_fv(record, format, args);
    tav_util_strbuf_append_fv(record, format, args);
    va_end(args);
}

TEST(Strbuf, NewGrowthAndClear) {
    tavtest::clear_reports();
    tav_util_strbuf *record = nullptr;
    auto run = tavtest::run_allocations(0, [&] { record = tav_util_strbuf_new(0); });
    const int32_t made_limit = record->hex_limit;
    tav_util_strbuf_set_hex_limit(record, 5);
    EXPECT_EQ(std::tuple(run.sizes, std::string(tav_util_strbuf_getstr(record)), record->capacity,
                         made_limit, record->hex_limit),
              std::tuple(std::vector<size_t>{sizeof *record, 128}, "", 128, 256, 5));
    tav_util_strbuf_free(record);
    for (const long nth : {1, 2, 0}) { // 0: a negative capacity is a huge size
        run = tavtest::run_allocations(nth, [&] { record = tav_util_strbuf_new(nth ? 64 : -1); });
        EXPECT_EQ(std::tuple(record, run.live_blocks), std::tuple(nullptr, 0L));
    }
    tav_util_strbuf_free(nullptr), tav_util_strbuf_set_hex_limit(nullptr, 5);
    tav_util_strbuf_clear(nullptr);
    EXPECT_EQ(tav_util_strbuf_getstr(nullptr), nullptr);
    using Row = std::tuple<int32_t, size_t, size_t, int32_t>; // capacity, held, appended, grown
    for (const auto &[capacity, held, appended, grown] :
         {Row{16, 0, 15, 16}, Row{16, 0, 16, 144}, Row{128, 100, 50, 278}, Row{-1, 0, 127, 128}}) {
        const std::string kept(held, 'h'), text = kept + std::string(appended, 'a');
        Buffer b = make(capacity, kept.c_str());
        EXPECT_EQ(tav_util_strbuf_append_f(b.get(), "%s", text.c_str() + held), int(appended));
        EXPECT_EQ(std::tuple(std::string(b->text, grown), b->capacity),
                  std::tuple(text + std::string(grown - text.size(), '\0'), grown));
        b->hex_limit = 7;
        tav_util_strbuf_clear(b.get());
        EXPECT_EQ(b->text + 1, text.substr(1));
        EXPECT_EQ(tav_util_strbuf_append_f(b.get(), "%s", "xy"), 2);
        EXPECT_EQ(std::tuple(std::string(b->text), b->capacity, b->hex_limit),
                  std::tuple("xy", grown, 7));
    }
    Buffer b = make(4);
    append_twice(b.get(), "[%s %d]", "long enough to grow", 42);
    EXPECT_STREQ(b->text, "[long enough to grow 42][long enough to grow 42]");
    EXPECT_EQ(tavtest::said(), "");
}

// The old block survives a failure, holding what fitted; -1 from vsnprintf
// doubles the block. The last row: 2 GiB is refused without a realloc.
TEST(Strbuf, FailedAppendsReportAndKeepTheOldBlock) {
    using Row = std::tuple<int32_t, long, bool, const char *, int32_t, const char *>;
    for (const auto &[capacity, nth, minus_one, text, after, line] :
         {Row{-1, 1, false, "(null)", 0, "Alloc failed for strbuf"},
          Row{16, 1, false, "abc0123456789AB", 16, "Could not realloc strbuf to 147"},
          Row{128, 4, true, "abc", 1024, "Could not realloc strbuf to 2048"},
          Row{1 << 30, 0, true, "abc", 1 << 30, "Could not realloc strbuf to 2147483648"}}) {
        Buffer b = make(capacity == 1 << 30 ? 8 : capacity, "abc");
        b->capacity = b->text ? capacity : 0;
        tavtest::clear_reports();
        int32_t appended = 0;
        const auto run = tavtest::run_allocations(nth, [&] {
            tavtest::VsnprintfInjection inject({minus_one ? EOVERFLOW : 0, -2, "%s"});
            appended = tav_util_strbuf_append_f(b.get(), "%s", "0123456789ABCDEF");
        });
        EXPECT_EQ(std::tuple(appended, run.allocations, b->text ? b->text : "(null)", b->capacity),
                  std::tuple(-1, nth, std::string(text), after));
        EXPECT_EQ(tavtest::said(), failed("tav_util_strbuf_append_fv", line));
    }
    Buffer untouched = make(-1);
    EXPECT_EQ(tav_util_strbuf_append_f(nullptr, "%d", 1), -1);
    EXPECT_EQ(tav_util_strbuf_append_f(untouched.get(), nullptr), -1);
    tav_util_strbuf_clear(untouched.get()),
        tav_util_strbuf_hexdump(untouched.get(), "", nullptr, 5);
    EXPECT_EQ(untouched->text, nullptr);
    EXPECT_EQ(tavtest::said(), failed("tav_util_strbuf_append_fv", "NULL strbuf") + "|" +
                                   failed("tav_util_strbuf_append_fv", "NULL format"));
}

// The layout as one append per piece: the oracle for the library's dump,
// which copies in directly the pieces that fit.
void dump_by_pieces(tav_util_strbuf *r, const char *prefix, const void *data, int64_t length) {
    const auto *bytes = static_cast<const unsigned char *>(data);
    int64_t i = 0;
    const auto row = [&](int64_t count) {
        tav_util_strbuf_append_f(r, " : ");
        for (int64_t j = i - count; j < i; ++j) {
            tav_util_strbuf_append_f(r, "%c", std::isprint(bytes[j]) ? bytes[j] : '.');
        }
    };
    for (; i < length && (r->hex_limit == 0 || i < r->hex_limit); ++i) {
        const char *indent = prefix != nullptr ? prefix : "    ";
        i > 0 && i % 16 == 0 ? row(16), tav_util_strbuf_append_f(r, "\n%s", indent)
                             : tav_util_strbuf_append_f(r, "%s",
                                                        i == 0       ? indent
                                                        : i % 8 == 0 ? " - "
                                                                     : " ");
        tav_util_strbuf_append_f(r, "%02X", bytes[i]);
    }
    i > 0 && (row((i - 1) % 16 + 1), true);
    length != 0 && tav_util_strbuf_append_f(r, "\n");
}

// The worked layouts from a zero-filled record; from records of several
// sizes, under every allocation failure, what one append per piece leaves.
TEST(Strbuf, HexDump) {
    Bytes bytes(1000); // A to T, five unprintable or edge bytes, then i
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = i < 20 ? 0x41 + i : i < 25 ? "\x00\x7F\x20\xFF\x7E"[i - 20] : i;
    }
    const auto outcome = [&](int32_t capacity, const char *prefix, int64_t length, int32_t limit,
                             long nth, Dump dump) {
        Buffer b = make(capacity, "head ");
        b->hex_limit = limit;
        const auto run =
            tavtest::run_allocations(nth, [&] { dump(b.get(), prefix, bytes.data(), length); });
        return std::tuple(std::string(b->text ? b->text : "(null)"), b->capacity, tavtest::said(),
                          run.sizes, run.live_blocks, run.injected);
    };
    const std::string first = // 72 characters and the line end
        "    41 42 43 44 45 46 47 48 - 49 4A 4B 4C 4D 4E 4F 50 : ABCDEFGHIJKLMNOP\n";
    using Row = std::tuple<const char *, int64_t, int32_t, std::string>;
    for (const auto &[prefix, length, limit, expected] :
         {Row{nullptr, 20, 0, first + "    51 52 53 54 : QRST\n"},
          Row{nullptr, 20, 21, first + "    51 52 53 54 : QRST\n"},
          Row{nullptr, 30, 25, first + "    51 52 53 54 00 7F 20 FF - 7E : QRST.. .~\n"},
          Row{nullptr, 16, 0, first}, Row{nullptr, 17, 0, first + "    51 : Q\n"},
          Row{nullptr, 17, 16, first}, Row{"", 9, 0, "41 42 43 44 45 46 47 48 - 49 : ABCDEFGHI\n"},
          Row{"> ", 3, 2, "> 41 42 : AB\n"}, Row{nullptr, 20, -1, "\n"}, Row{nullptr, -20, 0, "\n"},
          Row{nullptr, 0, 0, "(null)"}}) {
        EXPECT_EQ(std::get<0>(outcome(-1, prefix, length, limit, 0, tav_util_strbuf_hexdump)),
                  expected);
        for (const int32_t capacity : {-1, 1, 16}) {
            for (long nth = 0, injected = 1; injected; ++nth) {
                const auto ours =
                    outcome(capacity, prefix, length, limit, nth, tav_util_strbuf_hexdump);
                ASSERT_EQ(ours, outcome(capacity, prefix, length, limit, nth, dump_by_pieces))
                    << nth;
                injected = nth == 0 || std::get<5>(ours);
            }
        }
    }
    const std::string all = std::get<0>(outcome(-1, nullptr, 1000, 0, 0, tav_util_strbuf_hexdump)),
                      stopped =
                          std::get<0>(outcome(-1, nullptr, 1000, 256, 0, tav_util_strbuf_hexdump));
    EXPECT_EQ(all.size(), 62u * 73 + 4 + 8 * 3 - 1 + 3 + 8 + 1);
    EXPECT_EQ(stopped.size(), 16u * 73);
    EXPECT_EQ(stopped.substr(15 * 73),
              "    F0 F1 F2 F3 F4 F5 F6 F7 - F8 F9 FA FB FC FD FE FF : ................\n");
    tav_util_strbuf_hexdump(nullptr, nullptr, "x", 1);
}

// Matches left to right, not overlapping, replaced text not searched again;
// the result is the change in length; the text always moves to a new block.
TEST(Strbuf, Substitute) {
    using Row =
        std::tuple<const char *, const char *, int32_t, const char *, const char *, int32_t>;
    for (const auto &[text, needle, limit, replacement, expected, delta] :
         {Row{"a-b-c-d", "-", 2, "==", "a==b==c-d", 2},
          Row{"abcXabcY", "abc", 0, "12345", "12345X12345Y", 4},
          Row{"keep abc", "abc", 0, "", "keep ", -3},
          Row{"100% abc %d", "abc", 0, "7", "100% 7 %d", -2}, Row{"a-b", "-", -1, "+", "a-b", 0},
          Row{"plain", "zz", 0, "+", "plain", 0}, Row{"aaa", "aa", 0, "b", "ba", -1},
          Row{"ab", "a", 0, "aa", "aab", 1}, Row{"xy", "", 2, "<>", "<><>xy", 4},
          Row{"xy", "", 0, "<>", "xy", 0}}) { // "" matches only when limited
        Buffer b = make(16, text);
        b->hex_limit = 9;
        const char *old_block = b->text;
        EXPECT_EQ(delta, *needle == 'a'
                             ? tav_util_strbuf_substitute(b.get(), needle, limit, "%s", replacement)
                             : tav_util_strbuf_substitute(b.get(), needle, limit, replacement));
        EXPECT_EQ(std::tuple(std::string(b->text), b->text != old_block, b->hex_limit),
                  std::tuple(expected, true, 9));
    }
    Buffer b = make(4, "x"), empty = make(-1);
    const auto run = tavtest::run_allocations(0, [&] {
        tav_util_strbuf_substitute(nullptr, "-", 0, "+"),
            tav_util_strbuf_substitute(b.get(), nullptr, 0, "+");
        tav_util_strbuf_substitute(b.get(), "-", 0, nullptr),
            tav_util_strbuf_substitute(empty.get(), "-", 0, "+");
    });
    EXPECT_EQ(std::tuple(run.allocations, tavtest::said()), std::tuple(0, ""));
    std::string many, replaced; // many matches: the scratch text grows often
    for (int i = 0; i < 60; ++i) {
        many += std::string(i % 7, 'a' + i % 26) + "<>";
        replaced += std::string(i % 7, 'a' + i % 26) + "twelve chars!";
    }
    for (long nth = 0; nth <= 2; ++nth) { // the scratch record's two blocks
        Buffer b = make(64, many.c_str());
        const char *old_block = b->text;
        int32_t delta = 0;
        const auto run = tavtest::run_allocations(nth, [&] {
            delta = tav_util_strbuf_substitute(b.get(), "<>", 0, "%s!", "twelve chars");
        });
        EXPECT_EQ(
            std::tuple(delta, std::string(b->text), b->text == old_block, run.live_blocks,
                       tavtest::said()),
            nth == 0
                ? std::tuple(int(replaced.size() - many.size()), replaced, false, 1L, std::string())
                : std::tuple(0, many, true, 0L,
                             failed("tav_util_strbuf_substitute_v", "Alloc failed for strbuf")));
    }
}

} // namespace
