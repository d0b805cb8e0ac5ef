#include "rows.hpp"
#include "vsnprintf_inject.hpp"

namespace {

const std::string kVsize = "trace tav_util_printf_vsize src/string/vasprintf_posix.cpp ",
                  kVas = "|trace tav_util_vasprintf src/string/vasprintf.cpp ";

// The size pass alone, then the whole: status, errno slot, block size asked
// for, out (its text, null, untouched, or an unfinished block), reports.
std::string format(long nth, bool null_out, int32_t *size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *out = reinterpret_cast<char *>(1);
    int32_t slot = 77;
    std::string shown = std::to_string(tav_util_printf_vsize(format, args, size)) + " ";
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
    int32_t size = 0;
    EXPECT_EQ(format(0, false, &size, "%s=00042%%", "key"), "0 0 0 11 key=00042% 1 ");
    EXPECT_EQ(size, 11);
    EXPECT_EQ(format(0, false, &size, "%s", ""), "0 0 0 1  1 ");
    EXPECT_EQ(format(0, true, nullptr, "%s", ""),
              "3 3 77  untouched 0 " + kVsize + "3" + kVas + "3");
    EXPECT_EQ(format(0, false, &size, nullptr), "3 3 77  untouched 0 " + kVsize + "3" + kVas + "3");
    EXPECT_EQ(format(0, false, &size, "%ls", L"\u00e9"),
              "6 6 77  null 0 " + kVsize + "6|" + kVsize + "6" + kVas + "6");
    EXPECT_EQ(format(1, false, &size, "%s", "text"), "0 2 77 5 null 0 " + kVas.substr(1) + "2");
    {
        tavtest::VsnprintfInjection inject({EILSEQ, -2, "<%s>"});
        EXPECT_EQ(format(0, false, &size, "<%s>", "abc"),
                  "0 6 84 6 block 1 " + kVas.substr(1) + "6");
    }
    tavtest::VsnprintfInjection inject({0, 2147483647, "%s"});
    EXPECT_EQ(format(0, false, &size, "%s", "x"),
              "0 2 77 18446744071562067968 null 0 " + kVas.substr(1) + "2");
    EXPECT_EQ(size, INT32_MIN);
    char *out = nullptr;
    EXPECT_EQ(tav_util_asprintf(&out, nullptr, "%d-%s", 7, "x"), TAV_OK);
    EXPECT_STREQ(out, "7-x");
    std::free(out);
}

} // namespace
