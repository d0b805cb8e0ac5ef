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

TEST(Memdup, CopiesIntoAFreshBlock) {
    const char source[] = {'a', '\0', 'b'};
    auto *copy = static_cast<char *>(tav_util_memdup(source, sizeof source));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, source);
    EXPECT_EQ(std::memcmp(copy, source, sizeof source), 0);
    std::free(copy);
}

TEST(Memdup, NullSourceYieldsNullWithoutAllocating) {
    for (uint64_t size : {uint64_t{0}, uint64_t{5}, UINT64_MAX}) {
        void *a = reinterpret_cast<void *>(1);
        void *b = reinterpret_cast<void *>(1);
        const auto run = tavtest::run_allocations(0, [&] {
            a = tav_util_memdup(nullptr, size);
            b = tav_util_memdup0(nullptr, size);
        });
        EXPECT_EQ(a, nullptr);
        EXPECT_EQ(b, nullptr);
        EXPECT_EQ(run.allocations, 0);
    }
}

TEST(Memdup0, AppendsOneZeroByte) {
    auto *copy = static_cast<char *>(tav_util_memdup0("xyz", 3));
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "xyz");
    std::free(copy);
    auto *empty = static_cast<char *>(tav_util_memdup0("q", 0));
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty[0], '\0');
    std::free(empty);
}

// The largest size has no room for the terminator: refused, nothing copied.
TEST(Memdup0, LargestSizeYieldsNull) {
    const auto run =
        tavtest::run_allocations(0, [] { EXPECT_EQ(tav_util_memdup0("x", UINT64_MAX), nullptr); });
    EXPECT_EQ(run.allocations, 0);
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

TEST(PassThrough, BehaveAsTheirLibcNamesakes) {
    EXPECT_EQ(tav_util_strnlen("abcdef", 3), 3U);
    EXPECT_EQ(tav_util_strnlen("ab", 10), 2U);
    char *dup = tav_util_strndup("abcdef", 4);
    EXPECT_STREQ(dup, "abcd");
    std::free(dup);
    char destination[6] = "#####";
    EXPECT_EQ(tav_util_strncpy(destination, "ab", 4), destination);
    EXPECT_EQ(std::memcmp(destination, "ab\0\0#", 5), 0);
    const char hay[] = "one\0two";
    EXPECT_EQ(tav_util_memmem(hay, sizeof hay, "two", 3), hay + 4);
    EXPECT_EQ(tav_util_memmem(hay, sizeof hay, "six", 3), nullptr);
    EXPECT_EQ(tav_util_strcasecmp("HeLLo", "hello"), 0);
    EXPECT_LT(tav_util_strcasecmp("a", "B"), 0);
}

TEST(Getline, TakesTheStreamFirst) {
    char data[] = "first\nsecond";
    FILE *stream = fmemopen(data, std::strlen(data), "r");
    ASSERT_NE(stream, nullptr);
    char *line = nullptr;
    uint64_t capacity = 0;
    EXPECT_EQ(tav_util_getline(stream, &line, &capacity), 6);
    EXPECT_STREQ(line, "first\n");
    EXPECT_EQ(tav_util_getline(stream, &line, &capacity), 6);
    EXPECT_STREQ(line, "second");
    EXPECT_EQ(tav_util_getline(stream, &line, &capacity), -1);
    std::free(line);
    std::fclose(stream);
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
