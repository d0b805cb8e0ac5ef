// The string buffer: growth capacities, failure lines and what survives them,
// the hex dump layout (checked against one append per piece), substitute.
#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"
#include "vsnprintf_inject.hpp"

namespace {

using Lines = std::vector<std::string>;
using Buffer = std::unique_ptr<tav_util_strbuf, decltype(&tav_util_strbuf_free)>;

Buffer make_buffer(int32_t capacity, const char *text = "") {
    Buffer buffer(tav_util_strbuf_new(capacity), &tav_util_strbuf_free);
    tav_util_strbuf_append_f(buffer.get(), "%s", text);
    return buffer;
}

// Every failure of an append ends in the same second line.
Lines failure(const char *function, const std::string &first) {
    return {std::string("log ") + function + " " + first,
            std::string("log ") + function + " Error in strbuf"};
}

class Strbuf : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::clear_reports(); }
};

TEST_F(Strbuf, NewGivesAnEmptyTextAndTheDefaults) {
    tav_util_strbuf *record = nullptr;
    const auto run = tavtest::run_allocations(0, [&] { record = tav_util_strbuf_new(0); });
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(tav_util_strbuf_getstr(record), "");
    EXPECT_EQ(record->capacity, 128);
    EXPECT_EQ(record->hex_limit, 256);
    EXPECT_EQ(run.sizes, (std::vector<size_t>{sizeof(tav_util_strbuf), 128}));
    tav_util_strbuf_free(record);
    EXPECT_EQ(tav_util_strbuf_getstr(nullptr), nullptr);
    tav_util_strbuf_free(nullptr);
    tav_util_strbuf_set_hex_limit(nullptr, 5);
    tav_util_strbuf_clear(nullptr);
}

TEST_F(Strbuf, NewFailsSilentlyAndLeavesNothing) {
    tav_util_strbuf *record = nullptr;
    const long failures =
        tavtest::for_each_allocation_failure([&] { record = tav_util_strbuf_new(64); },
                                             [&](long, const tavtest::AllocRun &run) {
                                                 EXPECT_EQ(record, nullptr);
                                                 EXPECT_EQ(run.live_blocks, 0);
                                             });
    EXPECT_EQ(failures, 2);
    tav_util_strbuf_free(record); // made by the last run, in which nothing failed
    const auto run = tavtest::run_allocations(0, [&] { record = tav_util_strbuf_new(-1); });
    EXPECT_EQ(record, nullptr) << "a negative capacity is a huge size";
    EXPECT_EQ(run.live_blocks, 0);
    EXPECT_TRUE(tavtest::reports().empty());
}

// The growth rule: no growth while capacity - length exceeds the count,
// otherwise count + length + 128; the new tail of the block is zeroed.
TEST_F(Strbuf, AppendGrowsByCountLengthAndMargin) {
    struct Row {
        int32_t capacity;
        size_t held, appended;
        int32_t expected_capacity;
    };
    for (const Row row : {Row{16, 0, 15, 16}, Row{16, 0, 16, 144}, Row{128, 100, 50, 278},
                          Row{128, 127, 0, 128}, Row{8, 7, 1, 136}}) {
        Buffer buffer = make_buffer(row.capacity, std::string(row.held, 'h').c_str());
        const std::string piece(row.appended, 'a');
        EXPECT_EQ(tav_util_strbuf_append_f(buffer.get(), "%s", piece.c_str()), int(row.appended));
        EXPECT_EQ(buffer->text, std::string(row.held, 'h') + piece);
        ASSERT_EQ(buffer->capacity, row.expected_capacity);
        for (int32_t at = int32_t(row.held + row.appended); at < buffer->capacity; ++at) {
            ASSERT_EQ(buffer->text[at], '\0') << "byte " << at;
        }
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(Strbuf, ZeroFilledRecordGetsItsBlockOnTheFirstAppend) {
    for (const int32_t preset : {0, 16}) {
        tav_util_strbuf record{nullptr, preset, 0};
        int32_t appended = 0;
        const auto run = tavtest::run_allocations(
            0, [&] { appended = tav_util_strbuf_append_f(&record, "x%d", 1); });
        EXPECT_EQ(appended, 2);
        EXPECT_STREQ(record.text, "x1");
        EXPECT_EQ(run.sizes, std::vector<size_t>{preset == 0 ? 128u : 16u});
        std::free(record.text);
    }
}

TEST_F(Strbuf, ClearKeepsTheBlockAndTheNextAppendStartsOver) {
    Buffer buffer = make_buffer(16, "abcdefghij");
    tav_util_strbuf_set_hex_limit(buffer.get(), 7);
    tav_util_strbuf_clear(buffer.get());
    EXPECT_STREQ(buffer->text, "");
    EXPECT_EQ(std::string(buffer->text + 1), "bcdefghij") << "bytes behind the first stay";
    EXPECT_EQ(tav_util_strbuf_append_f(buffer.get(), "%s", "xy"), 2);
    EXPECT_STREQ(buffer->text, "xy");
    EXPECT_EQ(buffer->capacity, 16);
    EXPECT_EQ(buffer->hex_limit, 7);
}

TEST_F(Strbuf, NullArgumentsOfAppendAreLoggedTwice) {
    EXPECT_EQ(tav_util_strbuf_append_f(nullptr, "%d", 1), -1);
    Buffer buffer = make_buffer(0, "kept");
    EXPECT_EQ(tav_util_strbuf_append_f(buffer.get(), nullptr), -1);
    EXPECT_STREQ(buffer->text, "kept");
    Lines expected = failure("tav_util_strbuf_append_fv", "NULL strbuf");
    for (const std::string &line : failure("tav_util_strbuf_append_fv", "NULL format")) {
        expected.push_back(line);
    }
    EXPECT_EQ(tavtest::report_summary(), expected);
}

TEST_F(Strbuf, FailedFirstBlockLeavesTheRecordUnchanged) {
    tav_util_strbuf record{nullptr, 0, 0};
    int32_t appended = 0;
    const auto run = tavtest::run_allocations(
        1, [&] { appended = tav_util_strbuf_append_f(&record, "%s", "x"); });
    EXPECT_TRUE(run.injected);
    EXPECT_EQ(appended, -1);
    EXPECT_EQ(record.text, nullptr);
    EXPECT_EQ(record.capacity, 0);
    EXPECT_EQ(tavtest::report_summary(),
              failure("tav_util_strbuf_append_fv", "Alloc failed for strbuf"));
}

// The old block stays, holding the old text and as much of the new as fitted.
TEST_F(Strbuf, FailedGrowthKeepsTheOldBlockWithWhatFitted) {
    Buffer buffer = make_buffer(16, "abc");
    char *const old_block = buffer->text;
    int32_t appended = 0;
    const auto run = tavtest::run_allocations(
        1, [&] { appended = tav_util_strbuf_append_f(buffer.get(), "%s", "0123456789ABCDEF"); });
    EXPECT_EQ(appended, -1);
    EXPECT_EQ(run.live_blocks, 0);
    EXPECT_EQ(buffer->text, old_block);
    EXPECT_STREQ(buffer->text, "abc0123456789AB");
    EXPECT_EQ(buffer->capacity, 16);
    EXPECT_EQ(tavtest::report_summary(),
              failure("tav_util_strbuf_append_fv", "Could not realloc strbuf to 147"));
}

TEST_F(Strbuf, MinusOneFromVsnprintfDoublesUntilReallocFails) {
    Buffer buffer = make_buffer(128);
    tavtest::VsnprintfInjection inject({EOVERFLOW, -2, "<%s>"});
    int32_t appended = 0;
    const auto run = tavtest::run_allocations(
        4, [&] { appended = tav_util_strbuf_append_f(buffer.get(), "<%s>", "x"); });
    EXPECT_EQ(appended, -1);
    EXPECT_EQ(run.sizes, (std::vector<size_t>{256, 512, 1024, 2048}));
    EXPECT_EQ(inject.changed(), 4);
    EXPECT_EQ(buffer->capacity, 1024);
    EXPECT_EQ(run.live_blocks, 1) << "only the record's grown block";
    EXPECT_EQ(tavtest::report_summary(),
              failure("tav_util_strbuf_append_fv", "Could not realloc strbuf to 2048"));
}

// The capacity field cannot describe 2 GiB: that growth is refused without a
// realloc. (The record claims a capacity its block lacks; the failing
// vsnprintf writes nothing, so the claim is never acted on.)
TEST_F(Strbuf, GrowthToTwoGigabytesIsRefused) {
    char block[8] = "";
    tav_util_strbuf record{block, INT32_C(1) << 30, 0};
    tavtest::VsnprintfInjection inject({EOVERFLOW, -2, "<%s>"});
    int32_t appended = 0;
    const auto run = tavtest::run_allocations(
        0, [&] { appended = tav_util_strbuf_append_f(&record, "<%s>", "x"); });
    EXPECT_EQ(appended, -1);
    EXPECT_EQ(run.allocations, 0);
    EXPECT_EQ(record.text, block);
    EXPECT_EQ(record.capacity, INT32_C(1) << 30);
    EXPECT_EQ(tavtest::report_summary(),
              failure("tav_util_strbuf_append_fv", "Could not realloc strbuf to 2147483648"));
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

// The dump with one append per piece of its layout, the way the layout is
// told: the oracle for the library's dump, which copies in pieces that fit.
void dump_piece_by_piece(tav_util_strbuf *record, const char *prefix, const unsigned char *bytes,
                         int64_t length) {
    if (record == nullptr || bytes == nullptr || length == 0) {
        return;
    }
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

std::string dump(const char *prefix, const std::vector<unsigned char> &bytes, int64_t length,
                 int32_t limit) {
    Buffer buffer = make_buffer(0);
    tav_util_strbuf_set_hex_limit(buffer.get(), limit);
    tav_util_strbuf_hexdump(buffer.get(), prefix, bytes.data(), length);
    return buffer->text;
}

std::vector<unsigned char> letters(size_t count) {
    std::vector<unsigned char> bytes(count);
    for (size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(0x41 + i);
    }
    return bytes;
}

TEST_F(Strbuf, HexDumpLayouts) {
    const std::string first_row = "    41 42 43 44 45 46 47 48 - 49 4A 4B 4C 4D 4E 4F 50 : "
                                  "ABCDEFGHIJKLMNOP\n";
    ASSERT_EQ(first_row.size(), 73u) << "72 characters and the line end";
    struct Row {
        const char *prefix;
        int64_t length;
        int32_t limit;
        std::string expected;
    };
    const Row rows[] = {
        {nullptr, 20, 0, first_row + "    51 52 53 54 : QRST\n"},
        {nullptr, 20, 21, first_row + "    51 52 53 54 : QRST\n"},
        {nullptr, 16, 0, first_row},
        {nullptr, 17, 0, first_row + "    51 : Q\n"},
        {nullptr, 17, 16, first_row},
        {"", 9, 0, "41 42 43 44 45 46 47 48 - 49 : ABCDEFGHI\n"},
        {"> ", 3, 2, "> 41 42 : AB\n"},
        {nullptr, 20, -1, "\n"},
        {nullptr, -20, 0, "\n"},
        {nullptr, 0, 0, ""},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(dump(row.prefix, letters(20), row.length, row.limit), row.expected)
            << "length " << row.length << ", limit " << row.limit;
    }
    EXPECT_EQ(dump(nullptr, {0x00, 0x7F, 0x20, 0xFF, 0x7E}, 5, 0), "    00 7F 20 FF 7E : .. .~\n");
    tav_util_strbuf_hexdump(nullptr, nullptr, "x", 1);
    Buffer buffer = make_buffer(0, "kept");
    tav_util_strbuf_hexdump(buffer.get(), nullptr, nullptr, 1);
    EXPECT_STREQ(buffer->text, "kept");
}

TEST_F(Strbuf, HexDumpStopsAtTheLimitWithoutAMark) {
    std::vector<unsigned char> bytes(1000);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i);
    }
    const std::string text = dump(nullptr, bytes, 1000, 256);
    EXPECT_EQ(text.size(), 16u * 73);
    EXPECT_EQ(text.substr(text.size() - 73),
              "    F0 F1 F2 F3 F4 F5 F6 F7 - F8 F9 FA FB FC FD FE FF : ................\n");
    tav_util_strbuf unlimited{nullptr, 0, 0};
    tav_util_strbuf_hexdump(&unlimited, nullptr, bytes.data(), 300);
    EXPECT_EQ(std::strlen(unlimited.text), 18u * 73 + 4 + 12 * 3 - 1 + 2 + 3 + 12 + 1);
    std::free(unlimited.text);
}

// Whatever the record's room and wherever a growth fails, the dump leaves the
// text, capacity, lines and blocks that one append per piece would leave.
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
        struct Outcome {
            std::string text;
            int32_t capacity;
            Lines lines;
            tavtest::AllocRun run;
        };
        auto outcome = [&](long nth, auto dumper) {
            tav_util_strbuf record{nullptr, 0, c.limit};
            if (c.capacity >= 0) {
                Buffer made = make_buffer(c.capacity, "head ");
                record.text = made->text;
                record.capacity = made->capacity;
                made->text = nullptr;
            }
            tavtest::clear_reports();
            Outcome out;
            out.run = tavtest::run_allocations(
                nth, [&] { dumper(&record, c.prefix, bytes.data(), c.length); });
            out.text = record.text != nullptr ? record.text : "(none)";
            out.capacity = record.capacity;
            out.lines = tavtest::report_summary();
            std::free(record.text);
            return out;
        };
        for (long nth = 0;; ++nth) {
            const Outcome ours = outcome(nth, tav_util_strbuf_hexdump);
            const Outcome oracle = outcome(nth, dump_piece_by_piece);
            ASSERT_EQ(ours.text, oracle.text) << "capacity " << c.capacity << ", nth " << nth;
            ASSERT_EQ(ours.capacity, oracle.capacity);
            ASSERT_EQ(ours.lines, oracle.lines);
            ASSERT_EQ(ours.run.sizes, oracle.run.sizes);
            ASSERT_EQ(ours.run.live_blocks, oracle.run.live_blocks);
            ASSERT_EQ(ours.run.injected, oracle.run.injected);
            if (nth > 0 && !ours.run.injected) {
                break;
            }
            EXPECT_EQ(ours.lines.size(), nth == 0 ? 0u : 2u);
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
    EXPECT_TRUE(tavtest::reports().empty());
}

// Each match formats from a fresh copy of the arguments.
TEST_F(Strbuf, SubstituteReusesTheArgumentsAtEveryMatch) {
    Buffer buffer = make_buffer(4, "$ and $ and $");
    EXPECT_EQ(tav_util_strbuf_substitute(buffer.get(), "$", 0, "%s%d", "r", 5), 3);
    EXPECT_STREQ(buffer->text, "r5 and r5 and r5");
    EXPECT_EQ(buffer->capacity, 13 + 128) << "the scratch record starts at the record's capacity";
}

TEST_F(Strbuf, SubstituteWithoutArgumentsOrTextChangesNothing) {
    Buffer buffer = make_buffer(0, "a-b");
    char *const block = buffer->text;
    tav_util_strbuf empty{nullptr, 0, 0};
    const auto run = tavtest::run_allocations(0, [&] {
        tav_util_strbuf_substitute(nullptr, "-", 0, "+");
        tav_util_strbuf_substitute(buffer.get(), nullptr, 0, "+");
        tav_util_strbuf_substitute(buffer.get(), "-", 0, nullptr);
        tav_util_strbuf_substitute(&empty, "-", 0, "+");
    });
    EXPECT_EQ(run.allocations, 0);
    EXPECT_EQ(buffer->text, block);
    EXPECT_EQ(empty.text, nullptr);
    EXPECT_TRUE(tavtest::reports().empty());
}

// Without its scratch record substitute leaves the text as it was. A failed
// growth of the scratch text cuts that piece short, counts -1, and the
// next append grows it again.
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
