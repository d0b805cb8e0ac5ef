#include "support.hpp"

TEST(Primitives, CopiesAndPassThroughs) {
    using Row = std::tuple<const char *, uint64_t, bool, long, std::string>;
    for (const auto &[source, size, terminated, nth, expected] :
         {Row{"a\0b", 3, false, 0, {"a\0b|3", 5}}, Row{"a\0b", 3, true, 0, {"a\0b\0|4", 6}},
          Row{"q", 0, true, 0, {"\0|1", 3}}, Row{nullptr, 5, false, 0, "null|0"},
          Row{nullptr, 0, true, 0, "null|0"}, Row{"x", UINT64_MAX, true, 0, "null|0"},
          Row{"abc", 3, false, 1, "null|3"}, Row{"abc", 3, true, 1, "null|4"}}) {
        char *block = nullptr;
        const auto run = tavtest::run_allocations(
            nth, [&, source = source, size = size, terminated = terminated] {
                block = static_cast<char *>(terminated ? tav_util_memdup0(source, size)
                                                       : tav_util_memdup(source, size));
            });
        const size_t asked = run.sizes.empty() ? 0 : run.sizes[0];
        EXPECT_EQ((block ? std::string(block, asked) : "null") + "|" + std::to_string(asked),
                  expected);
        tav_util_free(&block);
        EXPECT_EQ(block, nullptr);
    }
    tav_util_free(nullptr);
    char text[8] = "xyz";
    const char *hay = "abcabc";
    EXPECT_EQ(std::tuple(tav_util_strnlen("abcdef", 4), tav_util_strcasecmp("ABC", "abd") < 0,
                         tav_util_memmem(hay, 6, "ca", 2), tav_util_strncpy(text, "ab", 4)),
              std::tuple(4u, true, hay + 2, text));
    EXPECT_EQ(std::string(text, 5), std::string("ab\0\0\0", 5));
    char *copy = tav_util_strndup("abcdef", 3), *line = nullptr;
    uint64_t capacity = 0;
    FILE *stream = fmemopen(const_cast<char *>("one\ntwo"), 7, "r");
    const int64_t got = tav_util_getline(stream, &line, &capacity);
    EXPECT_EQ(std::tuple(std::string(copy), got, std::string(line)), std::tuple("abc", 4, "one\n"));
    std::fclose(stream);
    std::free(copy);
    std::free(line);
}

TEST(Primitives, SnprintfRefusesWhatDoesNotFit) {
    using Row = std::tuple<uint64_t, const char *, int32_t, const char *>;
    for (const auto &[size, text, result, left] :
         {Row{4, "abc", 3, "abc"}, Row{4, "abcd", -1, "abc"}, Row{0, "", -1, "####"},
          Row{0x80000000, nullptr, -1, "####"}, Row{0x7FFFFFFF, "12", 2, "12"}}) {
        char buffer[8] = "####";
        EXPECT_EQ(tav_util_snprintf(buffer, size, text ? "%s" : nullptr, text), result);
        EXPECT_STREQ(buffer, left);
    }
}
