#include "support.hpp"

static std::string failed(const std::string &first,
                          const char *function = "tav_util_strbuf_append_fv") {
    return "log " + (function + (" " + first)) + "|log " + function + " Error in strbuf";
}

// result|block to its last byte not zero, a zero as '~'|capacity|blocks left|reports
static std::string outcome(int32_t capacity, const char *text, long nth,
                           const std::function<int32_t(tav_util_strbuf *)> &op,
                           bool *injected = nullptr) {
    tav_util_strbuf *b = capacity < 0 ? static_cast<tav_util_strbuf *>(std::calloc(1, sizeof *b))
                                      : tav_util_strbuf_new(capacity);
    capacity < 0 || tav_util_strbuf_append_f(b, "%s", text);
    int32_t result = 0;
    const auto run = tavtest::run_allocations(nth, [&] { result = op(b); });
    const size_t held = b->capacity >> 20 ? std::strlen(b->text) : size_t(b->capacity);
    std::string all = b->text ? std::string(b->text, held) : "(null)";
    all.erase(all.find_last_not_of('\0') + 1);
    std::replace(all.begin(), all.end(), '\0', '~');
    injected && (*injected = run.injected);
    all = std::to_string(result) + "|" + all + "|" + std::to_string(b->capacity) + "|";
    tav_util_strbuf_free(b);
    return all + std::to_string(run.live_blocks) + "|" + tavtest::said();
}

TEST(Strbuf, NewAndClear) {
    const auto clear = [](tav_util_strbuf *b) {
        const int32_t made = b->hex_limit;
        tav_util_strbuf_set_hex_limit(b, 5), tav_util_strbuf_clear(b);
        tav_util_strbuf_hexdump(b, "", nullptr, 5);
        return tav_util_strbuf_getstr(b) == b->text ? made * 10 + b->hex_limit : 0;
    };
    EXPECT_EQ(outcome(0, "abc", 0, clear) + outcome(-1, "", 0, clear),
              "2565|~bc|128|0|5|(null)|0|0|");
    for (const long nth : {1, 2, 0}) { // 0: a negative capacity is a huge size
        tav_util_strbuf *record = nullptr;
        const auto run =
            tavtest::run_allocations(nth, [&] { record = tav_util_strbuf_new(nth ? 64 : -1); });
        EXPECT_EQ(std::tuple(record, run.live_blocks), std::tuple(nullptr, 0L));
    }
    tav_util_strbuf_free(nullptr), tav_util_strbuf_set_hex_limit(nullptr, 5);
    tav_util_strbuf_clear(nullptr), tav_util_strbuf_hexdump(nullptr, nullptr, "x", 1);
    EXPECT_EQ(std::tuple(tav_util_strbuf_getstr(nullptr), tav_util_strbuf_append_f(nullptr, "x")),
              std::tuple(nullptr, -1));
    EXPECT_EQ(tavtest::said(), failed("NULL strbuf"));
}

// -1 from vsnprintf doubles the block; 2 GiB is refused without a realloc.
TEST(Strbuf, Append) {
    using Row = std::tuple<int32_t, const char *, long, bool, std::string>;
    for (const auto &[capacity, appended, nth, minus_one, expected] :
         {Row{8, "0123", 0, false, "4|abc0123|8|0|"},
          Row{8, "01234", 0, false, "5|abc01234|136|1|"}, Row{-1, "01", 0, false, "2|01|128|1|"},
          Row{8, nullptr, 0, false, "-1|abc|8|0|" + failed("NULL format")},
          Row{-1, "01", 1, false, "-1|(null)|0|0|" + failed("Alloc failed for strbuf")},
          Row{16, "0123456789ABCDEF", 1, false,
              "-1|abc0123456789AB|16|0|" + failed("Could not realloc strbuf to 147")},
          Row{128, "0", 4, true, "-1|abc|1024|1|" + failed("Could not realloc strbuf to 2048")},
          Row{1 << 30, "0", 0, true,
              "-1|abc|1073741824|0|" + failed("Could not realloc strbuf to 2147483648")}}) {
        const auto op = [=, capacity = capacity, appended = appended,
                         minus_one = minus_one](tav_util_strbuf *b) {
            b->capacity = b->text ? capacity : 0;
            tavtest::VsnprintfInjection inject({minus_one ? EOVERFLOW : 0, -2, "%s"});
            return tav_util_strbuf_append_f(b, appended ? "%s" : nullptr, appended);
        };
        EXPECT_EQ(outcome(capacity == 1 << 30 ? 8 : capacity, "abc", nth, op), expected);
    }
}

// Without its first block the first piece is lost and the next makes it.
TEST(Strbuf, HexDump) {
    const std::string first = // 72 characters and the line end
        "    41 42 43 44 45 46 47 48 - 49 4A 4B 4C 4D 4E 4F 50 : ABCDEFGHIJKLMNOP\n";
    using Row = std::tuple<const char *, int64_t, int32_t, long, std::string>;
    for (const auto &[prefix, length, limit, nth, expected] :
         {Row{nullptr, 20, 0, 0, first + "    51 52 53 54 : QRST\n"},
          Row{nullptr, 30, 25, 0, first + "    51 52 53 54 00 7F 20 FF - 7E : QRST.. .~\n"},
          Row{nullptr, 17, 16, 0, first}, Row{"> ", 3, 2, 0, "> 41 42 : AB\n"},
          Row{"> ", 3, 2, 1, "41 42 : AB\n"}, Row{nullptr, 20, -1, 0, "\n"},
          Row{nullptr, -20, 0, 0, "\n"}, Row{nullptr, 0, 0, 0, "(null)"}}) {
        const auto dump = [prefix = prefix, length = length, limit = limit](tav_util_strbuf *b) {
            b->hex_limit = limit;
            tav_util_strbuf_hexdump(b, prefix, "ABCDEFGHIJKLMNOPQRST\x00\x7F\x20\xFF\x7E*****",
                                    length);
            return 0;
        };
        EXPECT_EQ(outcome(-1, "", nth, dump), "0|" + expected + (length ? "|128|1|" : "|0|0|") +
                                                  (nth ? failed("Alloc failed for strbuf") : ""));
    }
}

// The oracle: substitution of "<>" as one append per piece.
static int32_t by_pieces(tav_util_strbuf *record, const char *format) {
    tav_util_strbuf *scratch = tav_util_strbuf_new(record->capacity);
    const char *pos = record->text;
    uint32_t delta = 0;
    for (const char *match; (match = std::strstr(pos, "<>")) != nullptr; pos = match + 2) {
        tav_util_strbuf_append_f(scratch, "%.*s", static_cast<int>(match - pos), pos);
        delta += uint32_t(tav_util_strbuf_append_f(scratch, format, 0)) - 2;
    }
    tav_util_strbuf_append_f(scratch, "%s", pos);
    std::swap(record->text, scratch->text);
    record->capacity = scratch->capacity;
    tav_util_strbuf_free(scratch);
    return static_cast<int32_t>(delta);
}

TEST(Strbuf, Substitute) {
    using Row = std::tuple<const char *, const char *, int32_t, const char *, const char *>;
    for (const auto &[text, needle, limit, format, expected] :
         {Row{"a-b-c-d", "-", 2, "==", "2|a==b==c-d|16|1|"},
          Row{"100% abc %d", "abc", 0, "", "-3|100%  %d|16|1|"},
          Row{"a-b", "-", -1, "+", "0|a-b|16|1|"}, Row{"aaa", "aa", 0, "b", "-1|ba|16|1|"},
          Row{"ab", "a", 0, "%sa", "5|12345ab|16|1|"}, Row{"xy", "", 2, "<>", "4|<><>xy|16|1|"},
          Row{"xy", "", 0, "<>", "0|xy|16|1|"}, Row{"x", nullptr, 0, "+", "0|x|16|0|"},
          Row{"x", "-", 0, nullptr, "0|x|16|0|"}, Row{nullptr, "-", 0, "+", "0|(null)|0|0|"}}) {
        const auto op = [=, needle = needle, limit = limit, format = format](tav_util_strbuf *b) {
            return tav_util_strbuf_substitute(b, needle, limit, format, "12345");
        };
        EXPECT_EQ(outcome(text ? 16 : -1, text ? text : "", 0, op), expected);
    }
    EXPECT_EQ(tav_util_strbuf_substitute(nullptr, "-", 0, "+"), 0);
    // Without the scratch record (the first two allocations) the text stays.
    const std::string many =
        "<>a<>bb<>ccc<>dddd<>eeeee<>ffffff<><>g<>hh<>iii<>jjjj<>kkkkk<>llllll<><>m"
        "<>nn<>ooo<>pppp<>qqqqq<>rrrrrr<><>s<>tt<>uuu<>vvvv<>wwwww<>xxxxxx<>y";
    for (const auto &[capacity, format] :
         {std::pair(8, "[replaced]"), std::pair(64, "%d, twelve chars"), std::pair(8, "%c-")}) {
        const auto ours = [format = format](tav_util_strbuf *b) {
            return tav_util_strbuf_substitute(b, "<>", 0, format, 0);
        };
        const auto theirs = [format = format](tav_util_strbuf *b) { return by_pieces(b, format); };
        const std::string kept = outcome(capacity, many.c_str(), 0, [](auto) { return 0; }) +
                                 failed("Alloc failed for strbuf", "tav_util_strbuf_substitute_v");
        bool injected = true;
        for (long nth = 0; nth <= 1 || injected; ++nth) {
            EXPECT_EQ(outcome(capacity, many.c_str(), nth, ours, &injected),
                      nth == 1 || nth == 2 ? kept : outcome(capacity, many.c_str(), nth, theirs))
                << format << nth;
        }
    }
}
