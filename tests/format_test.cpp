// Formatted allocation: sizes, the case table, the errno slot and the reports.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"
#include "vsnprintf_inject.hpp"

namespace {

using Lines = std::vector<std::string>;
char *const kUntouched = reinterpret_cast<char *>(0x1);

class Format : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::clear_reports(); }
};

// One row per case of formatted allocation: what the call leaves in out and
// in the errno slot, the block sizes asked for, the blocks left to the caller
// and the trace entries, deepest first.
TEST_F(Format, EachCaseLeavesItsOutSlotAndReports) {
    enum Out { kText, kNull, kSame, kBlock };
    struct Row {
        const char *name;
        long fail_at;                // allocation to fail (0: none)
        tavtest::VsnprintfPlan plan; // how vsnprintf misbehaves
        tav_status status;
        Out out;
        int32_t slot;
        std::vector<size_t> sizes;
        Lines reports;
        std::function<tav_status(char **, int32_t *)> call;
    };
    const std::string vsize = "trace tav_util_printf_vsize src/string/vasprintf_posix.cpp ";
    const std::string vas = "trace tav_util_vasprintf src/string/vasprintf.cpp ";
    // clang-format off
    const Row rows[] = {
        {"success", 0, {}, TAV_OK, kText, 0, {11}, {},
         [](char **o, int32_t *e) { return tav_util_asprintf(o, e, "%s=%05d%%", "key", 42); }},
        {"empty format", 0, {}, TAV_OK, kText, 0, {1}, {},
         [](char **o, int32_t *e) { return tav_util_asprintf(o, e, "%s", ""); }},
        // asprintf passes the status up untraced: the entry is vasprintf's.
        {"null out", 0, {}, TAV_ERR_NULL_ARG, kSame, 77, {}, {vas + "3"},
         [](char **, int32_t *e) { return tav_util_asprintf(nullptr, e, "%d", 1); }},
        {"null format", 0, {}, TAV_ERR_NULL_ARG, kSame, 77, {}, {vas + "3"},
         [](char **o, int32_t *e) { return tav_util_asprintf(o, e, nullptr); }},
        // A wide character with no form in the C locale fails the size pass.
        {"size pass fails", 0, {}, TAV_ERR_SYSTEM, kNull, 77, {}, {vsize + "6", vas + "6"},
         [](char **o, int32_t *e) { return tav_util_asprintf(o, e, "%ls", L"\u00e9"); }},
        {"malloc fails", 1, {}, TAV_ERR_NOMEM, kNull, 77, {5}, {vas + "2"},
         [](char **o, int32_t *e) { return tav_util_asprintf(o, e, "%s", "text"); }},
        // The unfinished block stays in out: it is the caller's.
        {"fill pass fails", 0, {EILSEQ, -2, "<%s>"}, TAV_ERR_SYSTEM, kBlock, EILSEQ, {6}, {vas + "6"},
         [](char **o, int32_t *e) { return tav_util_asprintf(o, e, "<%s>", "abc"); }},
        // 2147483647 characters wrap the 32-bit size; the widened size cannot
        // be allocated. (The count is injected: formatting 2 GiB takes seconds.)
        {"size wraps", 0, {0, 2147483647, "%s"}, TAV_ERR_NOMEM, kNull, 77,
         {static_cast<size_t>(INT64_C(-2147483648))}, {vas + "2"},
         [](char **o, int32_t *e) { return tav_util_asprintf(o, e, "%s", "x"); }},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        tavtest::clear_reports();
        char *out = kUntouched;
        int32_t slot = 77;
        tav_status status = TAV_OK;
        tavtest::AllocRun run;
        {
            tavtest::VsnprintfInjection inject(row.plan);
            run = tavtest::run_allocations(row.fail_at, [&] { status = row.call(&out, &slot); });
        }
        EXPECT_EQ(status, row.status);
        EXPECT_EQ(slot, row.slot);
        EXPECT_EQ(run.sizes, row.sizes);
        EXPECT_EQ(tavtest::report_summary(), row.reports);
        switch (row.out) {
        case kText:
            ASSERT_NE(out, nullptr);
            EXPECT_STREQ(out, row.sizes[0] == 1 ? "" : "key=00042%");
            break;
        case kNull:
            EXPECT_EQ(out, nullptr);
            break;
        case kSame:
            EXPECT_EQ(out, kUntouched);
            break;
        case kBlock:
            EXPECT_NE(out, nullptr);
            EXPECT_NE(out, kUntouched);
            break;
        }
        EXPECT_EQ(run.live_blocks, row.out == kText || row.out == kBlock ? 1 : 0);
        if (row.out == kText || row.out == kBlock) {
            std::free(out);
        }
    }
}

TEST_F(Format, VsizeCountsTheTerminator) {
    auto vsize = [](int32_t *size_out, const char *format, ...) {
        va_list args;
        va_start(args, format);
        const tav_status status = tav_util_printf_vsize(format, args, size_out);
        va_end(args);
        return status;
    };
    int32_t size = 0;
    EXPECT_EQ(vsize(&size, "%d-%s", 123, "ab"), TAV_OK);
    EXPECT_EQ(size, 7);
    EXPECT_EQ(vsize(&size, "%s", ""), TAV_OK);
    EXPECT_EQ(size, 1);
    EXPECT_EQ(vsize(&size, "%ls", L"\u00e9"), TAV_ERR_SYSTEM);
    EXPECT_EQ(size, -1) << "size out keeps the negative count";
    EXPECT_EQ(vsize(nullptr, "%d", 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(vsize(&size, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"trace tav_util_printf_vsize src/string/vasprintf_posix.cpp 6",
                     "trace tav_util_printf_vsize src/string/vasprintf_posix.cpp 3",
                     "trace tav_util_printf_vsize src/string/vasprintf_posix.cpp 3"}));
}

// Both passes work on copies: the caller may use its list again.
TEST_F(Format, TheCallersListIsNotConsumed) {
    auto twice = [](std::string *first, std::string *second, const char *format, ...) {
        va_list args;
        va_start(args, format);
        char *a = nullptr;
        char *b = nullptr;
        tav_util_vasprintf(&a, format, args, nullptr);
        tav_util_vasprintf(&b, format, args, nullptr);
        va_end(args);
        *first = a;
        *second = b;
        std::free(a);
        std::free(b);
    };
    std::string first, second;
    twice(&first, &second, "%s %d %s", "one", 2, "three");
    EXPECT_EQ(first, "one 2 three");
    EXPECT_EQ(second, "one 2 three");
}

} // namespace
