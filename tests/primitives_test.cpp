// Memory and text primitives: silent, results only.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

TEST(Free, ClearsThePointerAndToleratesNullAndRepeats) {
    char *text = static_cast<char *>(std::malloc(8));
    tav_util_free(&text);
    EXPECT_EQ(text, nullptr);
    tav_util_free(&text); // a second call is harmless
    EXPECT_EQ(text, nullptr);
    tav_util_free(nullptr);
}

// A copy in a fresh calloc block; memdup0 adds one zero byte. A null source,
// and for memdup0 the size that leaves no room for that byte, give null
// without allocating.
TEST(Memdup, CopiesOrYieldsNullWithoutAllocating) {
    const char source[] = {'a', '\0', 'b'};
    auto *copy = static_cast<char *>(tav_util_memdup(source, sizeof source));
    auto *terminated = static_cast<char *>(tav_util_memdup0(source, sizeof source));
    auto *empty = static_cast<char *>(tav_util_memdup0("q", 0));
    ASSERT_TRUE(copy && terminated && empty);
    EXPECT_EQ(std::memcmp(copy, source, sizeof source), 0);
    EXPECT_EQ(std::memcmp(terminated, "a\0b\0", 4), 0);
    EXPECT_EQ(empty[0], '\0');
    for (char *block : {copy, terminated, empty}) {
        std::free(block);
    }
    for (const uint64_t size : {uint64_t{0}, uint64_t{5}, UINT64_MAX}) {
        void *results[3] = {};
        const auto run = tavtest::run_allocations(0, [&] {
            results[0] = tav_util_memdup(nullptr, size);
            results[1] = tav_util_memdup0(nullptr, size);
            results[2] = size == UINT64_MAX ? tav_util_memdup0("x", size) : nullptr;
        });
        EXPECT_EQ(run.allocations, 0);
        EXPECT_EQ(results[0], nullptr);
        EXPECT_EQ(results[1], nullptr);
        EXPECT_EQ(results[2], nullptr);
    }
}

TEST(Memdup, FailedAllocationYieldsNull) {
    void *a = nullptr;
    void *b = nullptr;
    const auto run = tavtest::run_allocations(1, [&] { a = tav_util_memdup("abc", 3); });
    EXPECT_TRUE(run.injected);
    EXPECT_EQ(a, nullptr);
    EXPECT_EQ(tavtest::run_allocations(1, [&] { b = tav_util_memdup0("abc", 3); }).live_blocks, 0);
    EXPECT_EQ(b, nullptr);
}

struct SnprintfCase {
    uint64_t size;
    const char *text;
    int32_t result;
    const char *left; // what the buffer holds afterwards
};

TEST(Snprintf, ReportsTruncationAsFailure) {
    const SnprintfCase cases[] = {
        {4, "abc", 3, "abc"},   // fits with its terminator
        {4, "abcd", -1, "abc"}, // one too long: cut and terminated
        {4, "", 0, ""},         // empty text
        {1, "a", -1, ""},       // only the terminator fits
        {16, "abcdefgh", 8, "abcdefgh"},
    };
    for (const auto &c : cases) {
        char buffer[32];
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(tav_util_snprintf(buffer, c.size, "%s", c.text), c.result) << c.text;
        EXPECT_STREQ(buffer, c.left) << c.text;
    }
}

TEST(Snprintf, SizeZeroWritesNothing) {
    char buffer[4] = {'#', '#', '#', '\0'};
    EXPECT_EQ(tav_util_snprintf(buffer, 0, "%s", ""), -1);
    EXPECT_EQ(tav_util_snprintf(buffer, 0, "%s", "abc"), -1);
    EXPECT_STREQ(buffer, "###");
}

TEST(Snprintf, SizeAboveInt32MaxIsRefusedUntouched) {
    char buffer[8] = "keep";
    // The format is not even looked at: a null one would crash vsnprintf.
    EXPECT_EQ(tav_util_snprintf(buffer, 0x80000000ULL, nullptr), -1);
    EXPECT_EQ(tav_util_snprintf(buffer, UINT64_MAX, "%s", "x"), -1);
    EXPECT_STREQ(buffer, "keep");
    // Exactly 0x7FFFFFFF goes ahead (the buffer is big enough for this text).
    EXPECT_EQ(tav_util_snprintf(buffer, 0x7FFFFFFFULL, "%d", 12), 2);
    EXPECT_STREQ(buffer, "12");
}

TEST(Primitives, NeverReport) {
    tavtest::clear_reports();
    char buffer[2];
    tav_util_snprintf(buffer, sizeof buffer, "%s", "too long");
    tav_util_memdup(nullptr, 1);
    tav_util_free(nullptr);
    EXPECT_TRUE(tavtest::reports().empty());
}

} // namespace
