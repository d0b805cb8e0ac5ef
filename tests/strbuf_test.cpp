// The string buffer: growth capacities, failure lines and what survives them,
// the hex dump layout (checked against one append per piece), substitute.
#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"
#include "vsnprintf_inject.hpp"

namespace {

using Lines = std::vector<std::string>;
using Buffer = std::unique_ptr<tav_util_strbuf, decltype(&tav_util_strbuf_free)>;

Buffer make_buffer(int32_t capacity, const std::string &text = "") {
    Buffer buffer(tav_util_strbuf_new(capacity), &tav_util_strbuf_free);
    tav_util_strbuf_append_f(buffer.get(), "%s", text.c_str());
    return buffer;
}

// A record in the test's own storage, its block made as make_buffer makes it.
tav_util_strbuf record_with(int32_t capacity, const std::string &text) {
    Buffer buffer = make_buffer(capacity, text);
    const tav_util_strbuf record = *buffer;
    buffer->text = nullptr;
    return record;
}

// A failed append makes its own line, then always the same second one.
Lines failure(const std::string &function, const std::string &first) {
    return {"log " + function + " " + first, "log " + function + " Error in strbuf"};
}

class Strbuf : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::clear_reports(); }
};

TEST_F(Strbuf, NewAllocatesTheDefaultsOrNothing) {
    tav_util_strbuf *record = nullptr;
    auto run = tavtest::run_allocations(0, [&] { record = tav_util_strbuf_new(0); });
    EXPECT_EQ(run.sizes, (std::vector<size_t>{sizeof(tav_util_strbuf), 128}));
    EXPECT_STREQ(tav_util_strbuf_getstr(record), "");
    EXPECT_EQ(record->hex_limit, 256);
    tav_util_strbuf_free(record);
    for (const long nth : {1, 2, 0}) { // nth 0: a negative capacity is a huge size
        run = tavtest::run_allocations(nth, [&] { record = tav_util_strbuf_new(nth ? 64 : -1); });
        EXPECT_EQ(record, nullptr);
        EXPECT_EQ(run.live_blocks, 0);
    }
    EXPECT_EQ(tav_util_strbuf_getstr(nullptr), nullptr);
    tav_util_strbuf_set_hex_limit(nullptr, 5);
    tav_util_strbuf_clear(nullptr);
    EXPECT_TRUE(tavtest::reports().empty());
}

// No growth while capacity - length exceeds the count, else count + length
// + 128, with the new tail zeroed; a zero-filled record starts at 128.
TEST_F(Strbuf, AppendGrowsByCountLengthAndMargin) {
    struct Row {
        int32_t capacity; // -1: a zero-filled record
        size_t held, appended;
        int32_t expected;
    };
    for (const Row row : {Row{16, 0, 15, 16}, Row{16, 0, 16, 144}, Row{128, 100, 50, 278},
                          Row{128, 127, 0, 128}, Row{8, 7, 1, 136}, Row{-1, 0, 127, 128}}) {
        const std::string held(row.held, 'h'), piece(row.appended, 'a');
        tav_util_strbuf record =
            row.capacity < 0 ? tav_util_strbuf{nullptr, 0, 0} : record_with(row.capacity, held);
        EXPECT_EQ(tav_util_strbuf_append_f(&record, "%s", piece.c_str()), int(row.appended));
        EXPECT_EQ(record.text, held + piece);
        EXPECT_EQ(record.capacity, row.expected);
        for (int32_t at = int32_t(row.held + row.appended); at < record.capacity; ++at) {
            EXPECT_EQ(record.text[at], '\0') << "byte " << at;
        }
        std::free(record.text);
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(Strbuf, ClearKeepsTheBlockAndTheNextAppendStartsOver) {
    Buffer buffer = make_buffer(16, "abcdefghij");
    tav_util_strbuf_set_hex_limit(buffer.get(), 7);
    tav_util_strbuf_clear(buffer.get());
    EXPECT_EQ(std::string(buffer->text + 1), "bcdefghij") << "bytes behind the first stay";
    EXPECT_EQ(tav_util_strbuf_append_f(buffer.get(), "%s", "xy"), 2);
    EXPECT_STREQ(buffer->text, "xy");
    EXPECT_EQ(buffer->capacity, 16);
    EXPECT_EQ(buffer->hex_limit, 7);
}

// What a failed append leaves: its lines, the result -1, and the old block
// holding the old text and as much of the new as fitted.
TEST_F(Strbuf, FailedAppendsReportAndKeepTheOldBlock) {
    char block[8] = "";
    struct Row {
        int32_t capacity; // 0: a zero-filled record; 2^30: claimed by an 8-byte block
        long nth;
        bool minus_one; // vsnprintf keeps on failing
        std::string line, text;
        int32_t capacity_after;
        std::vector<size_t> sizes;
    };
    const Row rows[] = {
        {0, 1, false, "Alloc failed for strbuf", "(null)", 0, {128}},
        {16, 1, false, "Could not realloc strbuf to 147", "abc0123456789AB", 16, {147}},
        {128, 4, true, "Could not realloc strbuf to 2048", "abc", 1024, {256, 512, 1024, 2048}},
        // The capacity field cannot describe 2 GiB: refused without a realloc
        // (the failing vsnprintf writes nothing, so the claim is never used).
        {1 << 30, 0, true, "Could not realloc strbuf to 2147483648", "", 1 << 30, {}},
    };
    for (const Row &row : rows) {
        tav_util_strbuf record{nullptr, 0, 0};
        if (row.capacity == 1 << 30) {
            record = tav_util_strbuf{block, row.capacity, 0};
        } else if (row.capacity > 0) {
            record = record_with(row.capacity, "abc");
        }
        tavtest::clear_reports();
        int32_t appended = 0;
        tavtest::AllocRun run;
        {
            tavtest::VsnprintfInjection inject({row.minus_one ? EOVERFLOW : 0, -2, "%s"});
            run = tavtest::run_allocations(row.nth, [&] {
                appended = tav_util_strbuf_append_f(&record, "%s", "0123456789ABCDEF");
            });
        }
        EXPECT_EQ(appended, -1);
        EXPECT_EQ(run.sizes, row.sizes);
        EXPECT_EQ(run.live_blocks, row.sizes.size() > 1 ? 1 : 0);
        EXPECT_EQ(record.text ? std::string(record.text) : "(null)", row.text);
        EXPECT_EQ(record.capacity, row.capacity_after);
        EXPECT_EQ(tavtest::report_summary(), failure("tav_util_strbuf_append_fv", row.line));
        if (record.text != block) {
            std::free(record.text);
        }
    }
    tavtest::clear_reports();
    tav_util_strbuf untouched{nullptr, 0, 0};
    EXPECT_EQ(tav_util_strbuf_append_f(nullptr, "%d", 1), -1);
    EXPECT_EQ(tav_util_strbuf_append_f(&untouched, nullptr), -1);
    EXPECT_EQ(untouched.text, nullptr);
    Lines expected = failure("tav_util_strbuf_append_fv", "NULL strbuf");
    expected.push_back("log tav_util_strbuf_append_fv NULL format");
    expected.push_back("log tav_util_strbuf_append_fv Error in strbuf");
    EXPECT_EQ(tavtest::report_summary(), expected);
}

// Every attempt formats from a fresh copy: the caller may use its list again.
TEST_F(Strbuf, TheCallersListSurvivesGrowingAppends) {
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

// The layout as one append per piece: the oracle for the library's dump,
// which copies in directly the pieces that fit.
void dump_piece_by_piece(tav_util_strbuf *record, const char *prefix, const unsigned char *bytes,
                         int64_t length) {
    const char *indent = prefix != nullptr ? prefix : "    ";
    unsigned char row[16];
    auto row_characters = [&](int64_t count) {
        for (int64_t j = 0; j < count; ++j) {
            tav_util_strbuf_append_f(record, "%c", std::isprint(row[j]) ? row[j] : '.');
        }
    };
    int64_t i = 0;
    for (; i < length && (record->hex_limit == 0 || i < record->hex_limit); ++i) {
        if (i == 0) {
            tav_util_strbuf_append_f(record, "%s", indent);
        } else if (i % 16 == 0) {
            tav_util_strbuf_append_f(record, " : ");
            row_characters(16);
            tav_util_strbuf_append_f(record, "\n%s", indent);
        } else {
            tav_util_strbuf_append_f(record, "%s", i % 8 == 0 ? " - " : " ");
        }
        tav_util_strbuf_append_f(record, "%02X", bytes[i]);
        row[i % 16] = bytes[i];
    }
    if (i > 0) {
        tav_util_strbuf_append_f(record, " : ");
        row_characters((i - 1) % 16 + 1);
    }
    tav_util_strbuf_append_f(record, "\n");
}

// 0x41 (A) onwards for 20 bytes, then each byte its index.
std::vector<unsigned char> sample_bytes() {
    std::vector<unsigned char> bytes(1000);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i < 20 ? 0x41 + i : i);
    }
    return bytes;
}

std::string dump(const char *prefix, int64_t length, int32_t limit,
                 const std::vector<unsigned char> &bytes = sample_bytes()) {
    Buffer buffer = make_buffer(0);
    tav_util_strbuf_set_hex_limit(buffer.get(), limit);
    tav_util_strbuf_hexdump(buffer.get(), prefix, bytes.data(), length);
    return buffer->text;
}

TEST_F(Strbuf, HexDumpLayouts) {
    const std::string first = "    41 42 43 44 45 46 47 48 - 49 4A 4B 4C 4D 4E 4F 50 : "
                              "ABCDEFGHIJKLMNOP\n";
    ASSERT_EQ(first.size(), 73u) << "72 characters and the line end";
    struct Row {
        const char *prefix;
        int64_t length;
        int32_t limit;
        std::string expected;
    };
    const Row rows[] = {
        {nullptr, 20, 0, first + "    51 52 53 54 : QRST\n"},
        {nullptr, 20, 21, first + "    51 52 53 54 : QRST\n"},
        {nullptr, 16, 0, first},
        {nullptr, 17, 0, first + "    51 : Q\n"},
        {nullptr, 17, 16, first},
        {"", 9, 0, "41 42 43 44 45 46 47 48 - 49 : ABCDEFGHI\n"},
        {"> ", 3, 2, "> 41 42 : AB\n"},
        {nullptr, 20, -1, "\n"},
        {nullptr, -20, 0, "\n"},
        {nullptr, 0, 0, ""},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(dump(row.prefix, row.length, row.limit), row.expected)
            << "length " << row.length << ", limit " << row.limit;
    }
    const std::string stopped = dump(nullptr, 1000, 256);
    EXPECT_EQ(stopped.size(), 16u * 73) << "stops at the limit, with no mark";
    EXPECT_EQ(stopped.substr(stopped.size() - 73),
              "    F0 F1 F2 F3 F4 F5 F6 F7 - F8 F9 FA FB FC FD FE FF : ................\n");
    EXPECT_EQ(dump(nullptr, 1000, 0).size(), 62u * 73 + 4 + 8 * 3 - 1 + 3 + 8 + 1);
    EXPECT_EQ(dump(nullptr, 5, 0, {0x00, 0x7F, 0x20, 0xFF, 0x7E}), "    00 7F 20 FF 7E : .. .~\n");
    tav_util_strbuf_hexdump(nullptr, nullptr, "x", 1);
}

// Whatever the record's room, and wherever a growth fails, the dump leaves
// the text, capacity, lines and blocks that one append per piece leaves.
TEST_F(Strbuf, HexDumpActsAsOneAppendPerPieceUnderEveryFailure) {
    struct Case {
        int32_t capacity; // -1: a zero-filled record
        const char *prefix;
        int64_t length;
        int32_t limit;
    };
    std::vector<unsigned char> bytes(600);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i * 37);
    }
    for (const Case c :
         {Case{-1, nullptr, 40, 0}, Case{16, nullptr, 300, 0}, Case{128, "", 33, 0},
          Case{8, "indent-longer-than-a-row: ", 600, 500}, Case{1, nullptr, 17, 0}}) {
        auto outcome = [&](long nth, auto dumper) {
            tav_util_strbuf record{nullptr, 0, 0};
            if (c.capacity >= 0) {
                record = record_with(c.capacity, "head ");
            }
            record.hex_limit = c.limit;
            tavtest::clear_reports();
            const auto run = tavtest::run_allocations(
                nth, [&] { dumper(&record, c.prefix, bytes.data(), c.length); });
            const std::string text = record.text != nullptr ? record.text : "(null)";
            std::free(record.text);
            return std::tuple(text, record.capacity, tavtest::report_summary(), run.sizes,
                              run.live_blocks, run.injected);
        };
        for (long nth = 0;; ++nth) {
            const auto ours = outcome(nth, tav_util_strbuf_hexdump);
            ASSERT_EQ(ours, outcome(nth, dump_piece_by_piece)) << c.capacity << ", nth " << nth;
            if (nth > 0 && !std::get<5>(ours)) {
                break;
            }
            EXPECT_EQ(std::get<2>(ours).size(), nth == 0 ? 0u : 2u);
        }
    }
}

// Matches are found left to right without overlap, and replaced text is not
// searched again; the result is the change in length.
TEST_F(Strbuf, SubstituteTable) {
    struct Row {
        const char *text, *needle;
        int32_t limit;
        const char *replacement, *expected;
        int32_t delta;
    };
    const Row rows[] = {
        {"a-b-c-d", "-", 2, "==", "a==b==c-d", 2},
        {"abcXabcY", "abc", 0, "12345", "12345X12345Y", 4},
        {"keep abc", "abc", 0, "", "keep ", -3},
        {"100% abc %d", "abc", 0, "7", "100% 7 %d", -2},
        {"a-b", "-", -1, "+", "a-b", 0},
        {"plain", "zz", 0, "+", "plain", 0},
        {"aaa", "aa", 0, "b", "ba", -1},
        {"ab", "a", 0, "aa", "aab", 1},
        // An empty needle matches at the start without moving on: a limit
        // repeats the replacement there, and no limit replaces nothing.
        {"xy", "", 2, "<>", "<><>xy", 4},
        {"xy", "", 0, "<>", "xy", 0},
    };
    for (const Row &row : rows) {
        Buffer buffer = make_buffer(16, row.text);
        tav_util_strbuf_set_hex_limit(buffer.get(), 9);
        const char *old_block = buffer->text;
        EXPECT_EQ(
            tav_util_strbuf_substitute(buffer.get(), row.needle, row.limit, "%s", row.replacement),
            row.delta)
            << row.text << " / " << row.needle;
        EXPECT_STREQ(buffer->text, row.expected);
        EXPECT_NE(buffer->text, old_block) << "the text always moves to a new block";
        EXPECT_EQ(buffer->hex_limit, 9);
    }
    // Each match formats from a fresh copy of the arguments.
    Buffer buffer = make_buffer(4, "$ and $ and $");
    EXPECT_EQ(tav_util_strbuf_substitute(buffer.get(), "$", 0, "%s%d", "r", 5), 3);
    EXPECT_STREQ(buffer->text, "r5 and r5 and r5");
    EXPECT_EQ(buffer->capacity, 13 + 128) << "the scratch record starts at the record's capacity";
    tav_util_strbuf empty{nullptr, 0, 0};
    const auto run = tavtest::run_allocations(0, [&] {
        tav_util_strbuf_substitute(nullptr, "-", 0, "+");
        tav_util_strbuf_substitute(buffer.get(), nullptr, 0, "+");
        tav_util_strbuf_substitute(buffer.get(), "-", 0, nullptr);
        tav_util_strbuf_substitute(&empty, "-", 0, "+");
    });
    EXPECT_EQ(run.allocations, 0);
    EXPECT_TRUE(tavtest::reports().empty());
}

// Without its scratch record substitute leaves the text as it was. A failed
// growth of the scratch text cuts that piece short and counts -1; the next
// append grows it again.
TEST_F(Strbuf, SubstituteUnderEveryAllocationFailure) {
    Buffer buffer = make_buffer(8, "a-b-c");
    char *old_block = buffer->text;
    int32_t delta = 0;
    tavtest::clear_reports();
    const long failures = tavtest::for_each_allocation_failure(
        [&] { delta = tav_util_strbuf_substitute(buffer.get(), "-", 0, "%s", "0123456789"); },
        [&](long nth, const tavtest::AllocRun &run) {
            if (nth <= 2) {
                EXPECT_EQ(delta, 0);
                EXPECT_EQ(buffer->text, old_block);
                EXPECT_STREQ(buffer->text, "a-b-c");
                EXPECT_EQ(run.live_blocks, 0);
                EXPECT_EQ(tavtest::report_summary(),
                          failure("tav_util_strbuf_substitute_v", "Alloc failed for strbuf"));
            } else {
                EXPECT_EQ(delta, 7);
                EXPECT_STREQ(buffer->text, "a012345b0123456789c");
                EXPECT_EQ(buffer->capacity, 136);
                EXPECT_EQ(run.live_blocks, 1) << "only the record's new text";
                EXPECT_EQ(tavtest::report_summary(),
                          failure("tav_util_strbuf_append_fv", "Could not realloc strbuf to 139"));
            }
            buffer = make_buffer(8, "a-b-c");
            old_block = buffer->text;
            tavtest::clear_reports();
        });
    EXPECT_EQ(failures, 3);
}

} // namespace
