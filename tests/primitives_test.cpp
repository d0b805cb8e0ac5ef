#include "support.hpp"

TEST(Primitives, CopiesFormatsAndPassesThrough) {
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
    using Fit = std::tuple<uint64_t, const char *, int32_t, const char *>;
    for (const auto &[size, text, result, left] :
         {Fit{4, "abc", 3, "abc"}, Fit{4, "abcd", -1, "abc"}, Fit{0, "", -1, "####"},
          Fit{0x80000000, nullptr, -1, "####"}, Fit{0x7FFFFFFF, "12", 2, "12"}}) {
        char buffer[8] = "####";
        EXPECT_EQ(tav_util_snprintf(buffer, size, text ? "%s" : nullptr, text), result);
        EXPECT_STREQ(buffer, left);
    }
    tav_util_free(nullptr);
    char text[8] = "xyz", *copy = tav_util_strndup("abcdef", 3);
    EXPECT_EQ(std::tuple(tav_util_strcasecmp("ABC", "abd") < 0, tav_util_strncpy(text, "ab", 4),
                         tav_util_getline(stdin, nullptr, nullptr), std::string(copy)),
              std::tuple(true, text, -1, "abc"));
    std::free(copy);
}
