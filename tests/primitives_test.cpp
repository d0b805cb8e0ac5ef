#include "rows.hpp"

namespace {

TEST(Primitives, MemoryAndPassThroughs) {
    tavtest::clear_reports();
    char *held = static_cast<char *>(std::malloc(8)), *a = nullptr, *b = nullptr, *c = nullptr;
    tav_util_free(&held);
    tav_util_free(&held);
    tav_util_free(nullptr);
    EXPECT_EQ(held, nullptr);
    auto run = tavtest::run_allocations(0, [&] {
        a = static_cast<char *>(tav_util_memdup("a\0b", 3));
        b = static_cast<char *>(tav_util_memdup0("a\0b", 3));
        c = static_cast<char *>(tav_util_memdup0("q", 0));
    });
    EXPECT_EQ(run.sizes, (std::vector<size_t>{3, 4, 1}));
    EXPECT_EQ(std::string(a, 3) + std::string(b, 4) + c[0], std::string("a\0ba\0b\0\0", 8));
    for (char *block : {a, b, c}) {
        std::free(block);
    }
    run = tavtest::run_allocations(0, [&] {
        a = static_cast<char *>(tav_util_memdup(nullptr, 5));
        b = static_cast<char *>(tav_util_memdup0(nullptr, 0));
        c = static_cast<char *>(tav_util_memdup0("x", UINT64_MAX));
    });
    EXPECT_EQ(std::tuple(run.allocations, a, b, c), std::tuple(0, nullptr, nullptr, nullptr));
    tavtest::run_allocations(1, [&] { a = static_cast<char *>(tav_util_memdup("abc", 3)); });
    tavtest::run_allocations(1, [&] { b = static_cast<char *>(tav_util_memdup0("abc", 3)); });
    EXPECT_EQ(std::tuple(a, b), std::tuple(nullptr, nullptr));

    char text[8] = "xyz", *line = tav_util_strndup("abcdef", 3);
    EXPECT_STREQ(line, "abc");
    std::free(line);
    line = nullptr;
    uint64_t capacity = 0;
    FILE *stream = fmemopen(const_cast<char *>("one\ntwo"), 7, "r");
    EXPECT_EQ(tav_util_getline(stream, &line, &capacity), 4);
    EXPECT_STREQ(line, "one\n");
    std::fclose(stream);
    std::free(line);
    EXPECT_EQ(tav_util_strncpy(text, "ab", 4), text);
    EXPECT_EQ(std::string(text, 5), std::string("ab\0\0\0", 5));
    EXPECT_EQ(std::tuple(tav_util_strnlen("abcdef", 4), tav_util_strcasecmp("ABC", "abd") < 0),
              std::tuple(4u, true));
    const char *hay = "abcabc";
    EXPECT_EQ(tav_util_memmem(hay, 6, "ca", 2), hay + 2);
    EXPECT_EQ(tavtest::said(), "");
}

TEST(Primitives, SnprintfRefusesWhatDoesNotFit) {
    const struct {
        uint64_t size;
        const char *text;
        int32_t result;
        const char *left;
    } rows[] = {{4, "abc", 3, "abc"},
                {4, "abcd", -1, "abc"},
                {1, "a", -1, ""},
                {0, "", -1, "####"},
                {0x80000000, nullptr, -1, "####"},
                {UINT64_MAX, "", -1, "####"},
                {0x7FFFFFFF, "12", 2, "12"}};
    for (const auto &row : rows) {
        char buffer[8] = "####";
        EXPECT_EQ(tav_util_snprintf(buffer, row.size, row.text ? "%s" : nullptr, row.text),
                  row.result);
        EXPECT_STREQ(buffer, row.left) << row.size;
    }
    EXPECT_EQ(tavtest::said(), "");
}

} // namespace
