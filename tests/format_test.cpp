#include "support.hpp"

const std::string kVsize = "trace tav_util_printf_vsize src/string/vasprintf_posix.cpp ",
                  kVas = "|trace tav_util_vasprintf src/string/vasprintf.cpp ";

// vsize status, size, then status, errno slot, size asked, out, blocks left, reports
static std::string formatted(long nth, bool null_out, bool null_size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *out = reinterpret_cast<char *>(1);
    int32_t slot = 77;
    int32_t size = 99;
    std::string shown =
        std::to_string(tav_util_printf_vsize(format, args, null_size ? nullptr : &size));
    shown += " " + std::to_string(size) + " ";
    tav_status status = TAV_OK;
    const auto run = tavtest::run_allocations(
        nth, [&] { status = tav_util_vasprintf(null_out ? nullptr : &out, format, args, &slot); });
    va_end(args);
    shown += std::to_string(status) + " " + std::to_string(slot) + " " +
             (run.sizes.empty() ? "" : std::to_string(run.sizes[0])) + " " +
             (out == reinterpret_cast<char *>(1) ? "untouched"
              : out == nullptr                   ? "null"
              : status != TAV_OK                 ? "block"
                                                 : out) +
             " " + std::to_string(run.live_blocks) + " " + tavtest::said();
    std::free(out == reinterpret_cast<char *>(1) ? nullptr : out);
    return shown;
}

TEST(Format, EachCaseLeavesItsOutSlotAndReports) {
    tavtest::clear_reports();
    EXPECT_EQ(formatted(0, false, false, "%s=00042%%", "key"), "0 11 0 0 11 key=00042% 1 ");
    EXPECT_EQ(formatted(0, false, false, "%s", ""), "0 1 0 0 1  1 ");
    EXPECT_EQ(formatted(0, true, true, "%s", ""),
              "3 99 3 77  untouched 0 " + kVsize + "3" + kVas + "3");
    EXPECT_EQ(formatted(0, false, false, nullptr),
              "3 99 3 77  untouched 0 " + kVsize + "3" + kVas + "3");
    EXPECT_EQ(formatted(0, false, false, "%ls", L"\u00e9"),
              "6 -1 6 77  null 0 " + kVsize + "6|" + kVsize + "6" + kVas + "6");
    EXPECT_EQ(formatted(1, false, false, "%s", "text"),
              "0 5 2 77 5 null 0 " + kVas.substr(1) + "2");
    {
        tavtest::VsnprintfInjection inject({EILSEQ, -2, "<%s>"});
        EXPECT_EQ(formatted(0, false, false, "<%s>", "abc"),
                  "0 6 6 84 6 block 1 " + kVas.substr(1) + "6");
    }
    tavtest::VsnprintfInjection inject({0, 2147483647, "%s"});
    EXPECT_EQ(formatted(0, false, false, "%s", "x"),
              "0 -2147483648 2 77 18446744071562067968 null 0 " + kVas.substr(1) + "2");
    char *out = nullptr;
    EXPECT_EQ(tav_util_asprintf(&out, nullptr, "%d-%s", 7, "x"), TAV_OK);
    EXPECT_STREQ(out, "7-x");
    std::free(out);
}
