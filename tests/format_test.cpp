#include "rows.hpp"
#include "vsnprintf_inject.hpp"

namespace {

char *const kUntouched = reinterpret_cast<char *>(1);
const std::string kVsize = "trace tav_util_printf_vsize src/string/vasprintf_posix.cpp ",
                  kVas = "trace tav_util_vasprintf src/string/vasprintf.cpp ";

// Each row: status, out (its text, null, untouched, or an unfinished block),
// errno slot, block size asked for, reports.
TEST(Format, EachCaseLeavesItsOutSlotAndReports) {
    using Row =
        std::tuple<long, tavtest::VsnprintfPlan, bool, const char *, const void *, std::string>;
    for (const auto &[nth, plan, null_out, format, argument, expected] :
         {Row{0, {}, false, "%s=00042%%", "key", "0 key=00042% 0 11 "},
          Row{0, {}, false, "%s", "", "0  0 1 "},
          Row{0, {}, true, "%s", "", "3 untouched 77  " + kVas + "3"},
          Row{0, {}, false, nullptr, "", "3 untouched 77  " + kVas + "3"},
          Row{0, {}, false, "%ls", L"\u00e9", "6 null 77  " + kVsize + "6|" + kVas + "6"},
          Row{1, {}, false, "%s", "text", "2 null 77 5 " + kVas + "2"},
          Row{0, {EILSEQ, -2, "<%s>"}, false, "<%s>", "abc", "6 block 84 6 " + kVas + "6"},
          Row{0,
              {0, 2147483647, "%s"},
              false,
              "%s",
              "x",
              "2 null 77 18446744071562067968 " + kVas + "2"}}) {
        char *out = kUntouched;
        int32_t slot = 77;
        tav_status status = TAV_OK;
        tavtest::clear_reports();
        tavtest::VsnprintfInjection inject(plan);
        const auto run = tavtest::run_allocations(
            nth, [&, null_out = null_out, format = format, argument = argument] {
                status = tav_util_asprintf(null_out ? nullptr : &out, &slot, format, argument);
            });
        const std::string shown = out == kUntouched ? "untouched"
                                  : out == nullptr  ? "null"
                                  : status != 0     ? "block"
                                                    : out;
        EXPECT_EQ(std::to_string(status) + " " + shown + " " + std::to_string(slot) + " " +
                      (run.sizes.empty() ? "" : std::to_string(run.sizes[0])) + " " +
                      tavtest::said() + " " + std::to_string(run.live_blocks),
                  expected + " " + std::to_string(out != kUntouched && out != nullptr));
        std::free(out == kUntouched ? nullptr : out);
    }
}

// The size pass's own refusals; then the caller's list, used again after
// both passes, which work on copies.
std::string vsize_and_twice(bool null_size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int32_t size = 99;
    const tav_status status = tav_util_printf_vsize(format, args, null_size ? nullptr : &size);
    char *a = nullptr, *b = nullptr;
    const bool twice = format && tav_util_vasprintf(&a, format, args, nullptr) == TAV_OK &&
                       tav_util_vasprintf(&b, format, args, nullptr) == TAV_OK;
    va_end(args);
    const std::string both = std::to_string(status) + " " + std::to_string(size) +
                             (twice ? std::string(" ") + a + "," + b : "") + tavtest::said();
    std::free(a), std::free(b);
    return both;
}

TEST(Format, SizeCountsTheTerminatorAndListsAreCopied) {
    tavtest::clear_reports();
    EXPECT_EQ(std::vector({vsize_and_twice(false, "%s %d", "one", 2),
                           vsize_and_twice(false, nullptr), vsize_and_twice(true, "%d", 1)}),
              std::vector<std::string>(
                  {"0 6 one 2,one 2", "3 99" + kVsize + "3", "3 99 1,1" + kVsize + "3"}));
}

} // namespace
