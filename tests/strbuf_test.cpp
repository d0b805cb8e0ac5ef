// The string buffer: growth, failed appends and what survives them, the hex
// dump (cross-checked against one append per piece) and substitute.
#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"
#include "vsnprintf_inject.hpp"

namespace {

using Buffer = std::unique_ptr<tav_util_strbuf, decltype(&tav_util_strbuf_free)>;

// A negative capacity gives a zero-filled record, which no append has touched.
Buffer make_buffer(int32_t capacity, const char *text = "") {
    if (capacity < 0) {
        return {static_cast<tav_util_strbuf *>(std::calloc(1, sizeof(tav_util_strbuf))),
                &tav_util_strbuf_free};
    }
    Buffer buffer(tav_util_strbuf_new(capacity), &tav_util_strbuf_free);
    tav_util_strbuf_append_f(buffer.get(), "%s", text);
    return buffer;
}

std::vector<std::string> failure(const std::string &function, const std::string &first) {
    return {"log " + function + " " + first, "log " + function + " Error in strbuf"};
}

// New, and appends that fit while capacity - length exceeds the count, else
// grow to count + length + 128 with the tail zeroed; clear keeps the block.
TEST(Strbuf, NewGrowthAndClear) {
    tavtest::clear_reports();
    tav_util_strbuf *record = nullptr;
    auto run = tavtest::run_allocations(0, [&] { record = tav_util_strbuf_new(0); });
    EXPECT_EQ(run.sizes, (std::vector<size_t>{sizeof(tav_util_strbuf), 128}));
    EXPECT_STREQ(tav_util_strbuf_getstr(record), "");
    EXPECT_EQ(std::tie(record->capacity, record->hex_limit), std::tuple(128, 256));
    tav_util_strbuf_free(record);
    for (const long nth : {1, 2, 0}) { // nth 0: a negative capacity is a huge size
        run = tavtest::run_allocations(nth, [&] { record = tav_util_strbuf_new(nth ? 64 : -1); });
        EXPECT_EQ(record, nullptr);
        EXPECT_EQ(run.live_blocks, 0);
    }
    EXPECT_EQ(tav_util_strbuf_getstr(nullptr), nullptr);
    tav_util_strbuf_set_hex_limit(nullptr, 5);
    tav_util_strbuf_clear(nullptr);

    using Row = std::tuple<int32_t, size_t, size_t, int32_t>; // capacity, held, appended, grown
    for (const auto &[capacity, held_length, appended, grown] :
         {Row{16, 0, 15, 16}, Row{16, 0, 16, 144}, Row{128, 100, 50, 278}, Row{-1, 0, 127, 128}}) {
        const std::string held(held_length, 'h'), text = held + std::string(appended, 'a');
        Buffer buffer = make_buffer(capacity, held.c_str());
        EXPECT_EQ(tav_util_strbuf_append_f(buffer.get(), "%s", text.c_str() + held_length),
                  int(appended));
        EXPECT_EQ(std::tie(buffer->text, buffer->capacity), std::tuple(text, grown));
        EXPECT_EQ(std::string(buffer->text + text.size(), grown - text.size()),
                  std::string(grown - text.size(), '\0'));
        buffer->hex_limit = 7;
        tav_util_strbuf_clear(buffer.get());
        EXPECT_EQ(buffer->text + 1, text.substr(1)) << "bytes behind the first stay";
        EXPECT_EQ(tav_util_strbuf_append_f(buffer.get(), "%s", "xy"), 2);
        EXPECT_STREQ(buffer->text, "xy");
        EXPECT_EQ(std::tie(buffer->capacity, buffer->hex_limit), std::tuple(grown, 7));
    }
    EXPECT_TRUE(tavtest::reports().empty());

    // Every attempt formats from a fresh copy: the caller may use its list again.
    Buffer buffer = make_buffer(4);
    auto append_twice = [&](const char *format, ...) {
        va_list args;
        va_start(args, format);
        tav_util_strbuf_append_fv(buffer.get(), format, args);
        tav_util_strbuf_append_fv(buffer.get(), format, args);
        va_end(args);
    };
    append_twice("[%s %d]", "long enough to grow", 42);
    EXPECT_STREQ(buffer->text, "[long enough to grow 42][long enough to grow 42]");
}

// A failed append: its lines, -1, and the old block holding the old text and
// what fitted of the new. vsnprintf answering -1 doubles the block.
TEST(Strbuf, FailedAppendsReportAndKeepTheOldBlock) {
    using Row = std::tuple<int32_t, long, bool, const char *, int32_t, const char *>;
    const Row rows[] = {
        // capacity, failing allocation, -1, text, capacity after, line
        {-1, 1, false, "(null)", 0, "Alloc failed for strbuf"},
        {16, 1, false, "abc0123456789AB", 16, "Could not realloc strbuf to 147"},
        {128, 4, true, "abc", 1024, "Could not realloc strbuf to 2048"},
        // An 8-byte block claiming 1 GiB: 2 GiB is refused without a realloc.
        {1 << 30, 0, true, "abc", 1 << 30, "Could not realloc strbuf to 2147483648"},
    };
    for (const auto &[capacity, nth, minus_one, text, after, line] : rows) {
        Buffer buffer = make_buffer(capacity == 1 << 30 ? 8 : capacity, "abc");
        buffer->capacity = buffer->text ? capacity : 0;
        tavtest::clear_reports();
        int32_t appended = 0;
        const tavtest::VsnprintfPlan plan{minus_one ? EOVERFLOW : 0, -2, "%s"};
        const auto run = tavtest::run_allocations(nth, [&] {
            tavtest::VsnprintfInjection inject(plan);
            appended = tav_util_strbuf_append_f(buffer.get(), "%s", "0123456789ABCDEF");
        });
        EXPECT_EQ(std::tie(appended, run.allocations), std::tuple(-1, nth));
        EXPECT_EQ(buffer->text ? buffer->text : "(null)", std::string(text));
        EXPECT_EQ(buffer->capacity, after);
        EXPECT_EQ(tavtest::report_summary(), failure("tav_util_strbuf_append_fv", line));
    }
    Buffer untouched = make_buffer(-1);
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_strbuf_append_f(nullptr, "%d", 1), -1);
    EXPECT_EQ(tavtest::report_summary(), failure("tav_util_strbuf_append_fv", "NULL strbuf"));
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_strbuf_append_f(untouched.get(), nullptr), -1);
    EXPECT_EQ(tavtest::report_summary(), failure("tav_util_strbuf_append_fv", "NULL format"));
    EXPECT_EQ(untouched->text, nullptr);
}

// The layout as one append per piece: the oracle for the library's dump,
// which copies in directly the pieces that fit.
void dump_piece_by_piece(tav_util_strbuf *record, const char *prefix, const unsigned char *bytes,
                         int64_t length) {
    const char *indent = prefix != nullptr ? prefix : "    ";
    unsigned char row[16];
    auto row_characters = [&](int64_t count) {
        tav_util_strbuf_append_f(record, " : ");
        for (int64_t j = 0; j < count; ++j) {
            tav_util_strbuf_append_f(record, "%c", std::isprint(row[j]) ? row[j] : '.');
        }
    };
    int64_t i = 0;
    for (; i < length && (record->hex_limit == 0 || i < record->hex_limit); ++i) {
        if (i > 0 && i % 16 == 0) {
            row_characters(16);
            tav_util_strbuf_append_f(record, "\n%s", indent);
        } else {
            tav_util_strbuf_append_f(record, "%s", i == 0 ? indent : i % 8 == 0 ? " - " : " ");
        }
        tav_util_strbuf_append_f(record, "%02X", bytes[i]);
        row[i % 16] = bytes[i];
    }
    if (i > 0) {
        row_characters((i - 1) % 16 + 1);
    }
    if (length != 0) {
        tav_util_strbuf_append_f(record, "\n");
    }
}

// The worked layouts from a zero-filled record; and, from records of several
// sizes and under every allocation failure, the text, capacity, lines and
// blocks that one append per piece leaves.
TEST(Strbuf, HexDump) {
    std::vector<unsigned char> bytes(1000); // A to T, five unprintable or edge bytes, then i
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i < 20   ? 0x41 + i
                                              : i < 25 ? "\x00\x7F\x20\xFF\x7E"[i - 20]
                                                       : i);
    }
    auto outcome = [&](int32_t capacity, const char *prefix, int64_t length, int32_t limit,
                       long nth, auto dumper) {
        Buffer buffer = make_buffer(capacity, "head ");
        buffer->hex_limit = limit;
        tavtest::clear_reports();
        const auto run = tavtest::run_allocations(
            nth, [&] { dumper(buffer.get(), prefix, bytes.data(), length); });
        return std::tuple(std::string(buffer->text ? buffer->text : "(null)"), buffer->capacity,
                          tavtest::report_summary(), run.sizes, run.live_blocks, run.injected);
    };
    auto dump = [&](const char *prefix, int64_t length, int32_t limit) {
        return std::get<0>(outcome(-1, prefix, length, limit, 0, tav_util_strbuf_hexdump));
    };
    const std::string first = // 72 characters and the line end
        "    41 42 43 44 45 46 47 48 - 49 4A 4B 4C 4D 4E 4F 50 : ABCDEFGHIJKLMNOP\n";
    using Row = std::tuple<const char *, int64_t, int32_t, std::string>;
    for (const auto &[prefix, length, limit, expected] : std::initializer_list<Row>{
             {nullptr, 20, 0, first + "    51 52 53 54 : QRST\n"},
             {nullptr, 20, 21, first + "    51 52 53 54 : QRST\n"},
             {nullptr, 30, 25, first + "    51 52 53 54 00 7F 20 FF - 7E : QRST.. .~\n"},
             {nullptr, 16, 0, first},
             {nullptr, 17, 0, first + "    51 : Q\n"},
             {nullptr, 17, 16, first},
             {"", 9, 0, "41 42 43 44 45 46 47 48 - 49 : ABCDEFGHI\n"},
             {"> ", 3, 2, "> 41 42 : AB\n"},
             {nullptr, 20, -1, "\n"},
             {nullptr, -20, 0, "\n"},
             {nullptr, 0, 0, "(null)"}, // nothing appended, not even the line end
         }) {
        EXPECT_EQ(dump(prefix, length, limit), expected) << length << ", limit " << limit;
        for (const int32_t capacity : {-1, 1, 16}) {
            for (long nth = 0, injected = 1; injected; ++nth) {
                const auto ours =
                    outcome(capacity, prefix, length, limit, nth, tav_util_strbuf_hexdump);
                ASSERT_EQ(ours, outcome(capacity, prefix, length, limit, nth, dump_piece_by_piece))
                    << length << ", capacity " << capacity << ", nth " << nth;
                injected = nth == 0 || std::get<5>(ours);
            }
        }
    }
    const std::string stopped = dump(nullptr, 1000, 256);
    EXPECT_EQ(stopped.size(), 16u * 73) << "stops at the limit, with no mark";
    EXPECT_EQ(stopped.substr(stopped.size() - 73),
              "    F0 F1 F2 F3 F4 F5 F6 F7 - F8 F9 FA FB FC FD FE FF : ................\n");
    EXPECT_EQ(dump(nullptr, 1000, 0).size(), 62u * 73 + 4 + 8 * 3 - 1 + 3 + 8 + 1);
    tav_util_strbuf_hexdump(nullptr, nullptr, "x", 1);
}

// Matches left to right, not overlapping, replaced text not searched again;
// the result is the change in length.
TEST(Strbuf, Substitute) {
    using Row =
        std::tuple<const char *, const char *, int32_t, const char *, const char *, int32_t>;
    for (const auto &[text, needle, limit, replacement, expected, delta] :
         std::initializer_list<Row>{
             {"a-b-c-d", "-", 2, "==", "a==b==c-d", 2},
             {"abcXabcY", "abc", 0, "12345", "12345X12345Y", 4},
             {"keep abc", "abc", 0, "", "keep ", -3},
             {"100% abc %d", "abc", 0, "7", "100% 7 %d", -2},
             {"a-b", "-", -1, "+", "a-b", 0},
             {"plain", "zz", 0, "+", "plain", 0},
             {"aaa", "aa", 0, "b", "ba", -1},
             {"ab", "a", 0, "aa", "aab", 1},
             {"xy", "", 2, "<>", "<><>xy", 4}, // an empty needle stays at the start,
             {"xy", "", 0, "<>", "xy", 0},     // and unlimited it matches nothing
         }) {
        Buffer buffer = make_buffer(16, text);
        buffer->hex_limit = 9;
        const char *old_block = buffer->text;
        EXPECT_EQ(tav_util_strbuf_substitute(buffer.get(), needle, limit, "%s", replacement), delta)
            << text << " / " << needle;
        EXPECT_STREQ(buffer->text, expected);
        EXPECT_NE(buffer->text, old_block) << "the text always moves to a new block";
        EXPECT_EQ(buffer->hex_limit, 9);
    }
    // Each match formats from a fresh copy; the scratch starts at the record's capacity.
    Buffer buffer = make_buffer(4, "$ and $ and $"), empty = make_buffer(-1);
    EXPECT_EQ(tav_util_strbuf_substitute(buffer.get(), "$", 0, "%s%d", "r", 5), 3);
    EXPECT_STREQ(buffer->text, "r5 and r5 and r5");
    EXPECT_EQ(buffer->capacity, 13 + 128);
    tavtest::clear_reports();
    const auto run = tavtest::run_allocations(0, [&] {
        tav_util_strbuf_substitute(nullptr, "-", 0, "+");
        tav_util_strbuf_substitute(buffer.get(), nullptr, 0, "+");
        tav_util_strbuf_substitute(buffer.get(), "-", 0, nullptr);
        tav_util_strbuf_substitute(empty.get(), "-", 0, "+");
    });
    EXPECT_EQ(run.allocations, 0);
    EXPECT_TRUE(tavtest::reports().empty());

    // Without its scratch record the text stays; a failed growth of the scratch
    // text cuts a piece short and counts -1.
    buffer = make_buffer(8, "a-b-c");
    const char *old_block = buffer->text;
    int32_t delta = 0;
    const long failures = tavtest::for_each_allocation_failure(
        [&] { delta = tav_util_strbuf_substitute(buffer.get(), "-", 0, "%s", "0123456789"); },
        [&](long nth, const tavtest::AllocRun &run) {
            const bool scratch = nth <= 2; // the scratch record or its first block
            EXPECT_EQ(std::tie(delta, buffer->capacity),
                      std::tuple(scratch ? 0 : 7, scratch ? 8 : 136));
            EXPECT_STREQ(buffer->text, scratch ? "a-b-c" : "a012345b0123456789c");
            EXPECT_EQ(buffer->text == old_block, scratch);
            EXPECT_EQ(run.live_blocks, scratch ? 0 : 1) << "only the record's new text";
            EXPECT_EQ(
                tavtest::report_summary(),
                scratch ? failure("tav_util_strbuf_substitute_v", "Alloc failed for strbuf")
                        : failure("tav_util_strbuf_append_fv", "Could not realloc strbuf to 139"));
            buffer = make_buffer(8, "a-b-c");
            old_block = buffer->text;
            tavtest::clear_reports();
        });
    EXPECT_EQ(failures, 3);
}

// Substitution as one append per piece, the record measured at each: the
// oracle for the library's, which keeps the length and copies in directly
// the pieces that fit.
int32_t substitute_piece_by_piece(tav_util_strbuf *record, const char *needle, const char *format,
                                  ...) {
    va_list args;
    va_start(args, format);
    tav_util_strbuf *scratch = tav_util_strbuf_new(record->capacity);
    const char *pos = record->text;
    uint32_t delta = 0;
    for (const char *match; (match = std::strstr(pos, needle)) != nullptr;
         pos = match + std::strlen(needle)) {
        tav_util_strbuf_append_f(scratch, "%.*s", static_cast<int>(match - pos), pos);
        va_list copy;
        va_copy(copy, args);
        delta += static_cast<uint32_t>(tav_util_strbuf_append_fv(scratch, format, copy));
        va_end(copy);
        delta -= static_cast<uint32_t>(std::strlen(needle));
    }
    tav_util_strbuf_append_f(scratch, "%s", pos);
    va_end(args);
    std::swap(record->text, scratch->text);
    record->capacity = scratch->capacity;
    tav_util_strbuf_free(scratch);
    return static_cast<int32_t>(delta);
}

// Many matches, so that the scratch text grows many times; a literal
// replacement, a formatted one, and one that writes a zero byte (the text
// ends there, and the next piece overwrites it). Text, capacity, block sizes
// and lines, under every failure of a growth, are those of the oracle.
TEST(Strbuf, SubstituteKeepsWhatOneAppendPerPieceMakes) {
    std::string text;
    for (int i = 0; i < 60; ++i) {
        text += std::string(i % 7, 'a' + i % 26) + "<>";
    }
    const struct {
        int32_t capacity;
        const char *format, *argument;
    } rows[] = {{8, "[replaced]", nullptr}, {64, "%s!", "twelve chars"}, {8, "%c-", nullptr}};
    for (const auto &row : rows) {
        const char *format = row.format, *argument = row.argument;
        auto outcome = [&](long nth, auto substitute) {
            Buffer buffer = make_buffer(row.capacity, text.c_str());
            tavtest::clear_reports();
            int32_t delta = 0;
            const auto run = tavtest::run_allocations(nth, [&] {
                delta = argument ? substitute(buffer.get(), "<>", 0, format, argument)
                                 : substitute(buffer.get(), "<>", 0, format, 0);
            });
            return std::tuple(delta, std::string(buffer->text), buffer->capacity,
                              tavtest::report_summary(), run.sizes, run.injected);
        };
        auto oracle = [](tav_util_strbuf *record, const char *needle, int32_t, const char *format,
                         auto argument) {
            return substitute_piece_by_piece(record, needle, format, argument);
        };
        // From the third allocation on: the scratch record's own two are
        // the other test's.
        for (long nth = 0, injected = 1; injected; nth = nth == 0 ? 3 : nth + 1) {
            const auto ours = outcome(nth, tav_util_strbuf_substitute);
            ASSERT_EQ(ours, outcome(nth, oracle)) << format << ", nth " << nth;
            injected = nth == 0 || std::get<5>(ours);
        }
    }
}

} // namespace
