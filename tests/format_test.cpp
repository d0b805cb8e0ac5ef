#include "support.hpp"

const std::string kVsize = "trace tav_util_printf_vsize src/string/vasprintf_posix.cpp ",
                  kVas = "trace tav_util_vasprintf src/string/vasprintf.cpp ";

// vsize status and size, then status, errno slot, size asked, out, blocks left, reports
static std::string formatted(long nth, bool nulls, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *const untouched = reinterpret_cast<char *>(1);
    char *out = untouched;
    int32_t slot = 77, size = 99;
    const tav_status sized = tav_util_printf_vsize(format, args, nulls ? nullptr : &size);
    tav_status status = TAV_OK;
    const auto run = tavtest::run_allocations(
        nth, [&] { status = tav_util_vasprintf(nulls ? nullptr : &out, format, args, &slot); });
    va_end(args);
    const std::string shown = out == untouched ? "untouched"
                              : !out           ? "null"
                              : status         ? "block"
                                               : out;
    std::free(out == untouched ? nullptr : out);
    return std::to_string(sized) + " " + std::to_string(size) + " " + std::to_string(status) + " " +
           std::to_string(slot) + " " + (run.sizes.empty() ? "" : std::to_string(run.sizes[0])) +
           " " + shown + " " + std::to_string(run.live_blocks) + " " + tavtest::said();
}

TEST(Format, EachCaseLeavesItsOutSlotAndReports) {
    tavtest::clear_reports();
    EXPECT_EQ(formatted(0, false, "%s=00042%%", "key"), "0 11 0 0 11 key=00042% 1 ");
    EXPECT_EQ(formatted(0, false, "%s", ""), "0 1 0 0 1  1 ");
    EXPECT_EQ(formatted(0, true, "%s", ""), "3 99 3 77  untouched 0 " + kVsize + "3|" + kVas + "3");
    EXPECT_EQ(formatted(0, false, nullptr), "3 99 3 77  untouched 0 " + kVsize + "3|" + kVas + "3");
    EXPECT_EQ(formatted(0, false, "%ls", L"\u00e9"),
              "6 -1 6 77  null 0 " + kVsize + "6|" + kVsize + "6|" + kVas + "6");
    EXPECT_EQ(formatted(1, false, "%s", "text"), "0 5 2 77 5 null 0 " + kVas + "2");
    {
        tavtest::VsnprintfInjection inject({EILSEQ, -2, "<%s>"});
        EXPECT_EQ(formatted(0, false, "<%s>", "abc"), "0 6 6 84 6 block 1 " + kVas + "6");
    }
    tavtest::VsnprintfInjection inject({0, 2147483647, "%s"});
    EXPECT_EQ(formatted(0, false, "%s", "x"),
              "0 -2147483648 2 77 18446744071562067968 null 0 " + kVas + "2");
}
