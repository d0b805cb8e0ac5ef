// Formatted allocation: sizes, the case table, the errno slot and the reports.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
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

TEST_F(Format, FormatsIntoABlockOfExactlyItsSize) {
    char *out = nullptr;
    int32_t slot = -7;
    tav_status status = TAV_ERR_SYSTEM;
    const auto run = tavtest::run_allocations(
        0, [&] { status = tav_util_asprintf(&out, &slot, "%s=%05d%%", "key", 42); });
    ASSERT_EQ(status, TAV_OK);
    EXPECT_STREQ(out, "key=00042%");
    EXPECT_EQ(slot, 0);
    EXPECT_EQ(run.sizes, std::vector<size_t>{11});
    EXPECT_EQ(run.live_blocks, 1);
    std::free(out);
    EXPECT_TRUE(tavtest::reports().empty());
}

TEST_F(Format, EmptyFormatGivesAOneByteBlock) {
    char *out = kUntouched;
    const auto run = tavtest::run_allocations(
        0, [&] { EXPECT_EQ(tav_util_asprintf(&out, nullptr, "%s", ""), TAV_OK); });
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(run.sizes, std::vector<size_t>{1});
    std::free(out);
}

TEST_F(Format, NullArgumentsAreTracedAndTouchNothing) {
    int32_t slot = 77;
    EXPECT_EQ(tav_util_asprintf(nullptr, &slot, "%d", 1), TAV_ERR_NULL_ARG);
    char *out = kUntouched;
    EXPECT_EQ(tav_util_asprintf(&out, &slot, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(out, kUntouched);
    EXPECT_EQ(slot, 77);
    // asprintf passes the status up untraced: the entries are vasprintf's own.
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"trace tav_util_vasprintf src/string/vasprintf.cpp 3",
                     "trace tav_util_vasprintf src/string/vasprintf.cpp 3"}));
}

TEST_F(Format, FailedAllocationIsTracedWithNullOut) {
    char *out = kUntouched;
    int32_t slot = 77;
    tav_status status = TAV_OK;
    const auto run =
        tavtest::run_allocations(1, [&] { status = tav_util_asprintf(&out, &slot, "%s", "text"); });
    EXPECT_TRUE(run.injected);
    EXPECT_EQ(status, TAV_ERR_NOMEM);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(slot, 77);
    EXPECT_EQ(run.live_blocks, 0);
    EXPECT_EQ(tavtest::report_summary(),
              Lines{"trace tav_util_vasprintf src/string/vasprintf.cpp 2"});
}

// A wide character with no form in the C locale makes the size pass fail.
TEST_F(Format, FailedSizePassIsTracedTwiceAndLeavesTheSlot) {
    char *out = kUntouched;
    int32_t slot = 77;
    EXPECT_EQ(tav_util_asprintf(&out, &slot, "%ls", L"\u00e9"), TAV_ERR_SYSTEM);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(slot, 77);
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"trace tav_util_printf_vsize src/string/vasprintf_posix.cpp 6",
                     "trace tav_util_vasprintf src/string/vasprintf.cpp 6"}));
}

TEST_F(Format, FailedFillPassKeepsTheBlockAndFillsTheSlot) {
    char *out = kUntouched;
    int32_t slot = 0;
    tav_status status = TAV_OK;
    tavtest::AllocRun run;
    {
        tavtest::VsnprintfInjection inject({EILSEQ, -2, "<%s>"});
        run = tavtest::run_allocations(
            0, [&] { status = tav_util_asprintf(&out, &slot, "<%s>", "abc"); });
        EXPECT_EQ(inject.changed(), 1);
    }
    EXPECT_EQ(status, TAV_ERR_SYSTEM);
    EXPECT_EQ(slot, EILSEQ);
    ASSERT_NE(out, nullptr);
    EXPECT_NE(out, kUntouched);
    EXPECT_EQ(run.sizes, std::vector<size_t>{6});
    EXPECT_EQ(run.live_blocks, 1) << "the unfinished block is the caller's";
    std::free(out);
    EXPECT_EQ(tavtest::report_summary(),
              Lines{"trace tav_util_vasprintf src/string/vasprintf.cpp 6"});
}

// A text of 2147483647 characters needs 2^31 bytes, which wraps the 32-bit
// size; the widened size cannot be allocated. (The size pass is told the
// count: formatting two gigabytes for real takes seconds.)
TEST_F(Format, SizeOfTwoGigabytesWrapsAndFailsToAllocate) {
    char *out = kUntouched;
    tav_status status = TAV_OK;
    tavtest::AllocRun run;
    {
        tavtest::VsnprintfInjection inject({0, 2147483647, "%s"});
        run = tavtest::run_allocations(
            0, [&] { status = tav_util_asprintf(&out, nullptr, "%s", "x"); });
    }
    EXPECT_EQ(status, TAV_ERR_NOMEM);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(run.sizes, std::vector<size_t>{static_cast<size_t>(INT64_C(-2147483648))});
    EXPECT_EQ(tavtest::report_summary(),
              Lines{"trace tav_util_vasprintf src/string/vasprintf.cpp 2"});
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
