// The option walk as one table: a command line in, the handler calls
// (row and argument), the stored values, the status and the reports out.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;

std::string calls;
char *text;
int32_t number, flag;
tav_status custom_failure = TAV_ERR_TIMEOUT;
extern const tav_util_option rows[];

// Notes "row(argument)", and writes a count that must not steer the walk.
tav_status note(const tav_util_option *row, const char *argument, int32_t *consumed) {
    calls += std::to_string(row - rows) + "(" + (argument ? argument : "") + ") ";
    *consumed = 7;
    return row->target ? *static_cast<tav_status *>(row->target) : TAV_OK;
}

const tav_util_option rows[] = {
    {'a', "alpha", note, nullptr, 0},               // 0
    {'b', "beta", note, nullptr, 1},                // 1
    {'-', "", note, nullptr, 0},                    // 2: "--"
    {0, "a", note, nullptr, 0},                     // 3: only by a long form
    {'a', "alpha", note, nullptr, 1},               // 4: never, the first match wins
    {'s', "str", tav_util_getopt_string, &text, 1}, // 5
    {'n', "num", tav_util_getopt_int, &number, 1},  // 6
    {'f', "flag", tav_util_getopt_flag, &flag, 0},  // 7
    {'S', "", tav_util_getopt_string, &text, 0},    // 8: no argument to store
    {'F', "", tav_util_getopt_flag, &flag, 1},      // 9: a flag with an argument
    {'x', "fail", note, &custom_failure, 0},        // 10
    {'/', "", note, nullptr, 0},                    // 11: "//"
};

// The traces of a failure passed up from `handler` (none: a custom handler).
Lines up(int status, const std::string &handler = "") {
    Lines lines;
    for (std::string function :
         {handler, std::string("process_option"), std::string("tav_util_getopt_from"),
          std::string("tav_util_getopt_from")}) {
        if (!function.empty()) {
            lines.push_back("trace " + function + " src/getopt_ops.cpp " + std::to_string(status));
        }
    }
    return lines;
}
Lines missing_argument() {
    Lines lines = up(6);
    lines.insert(lines.begin(), "log process_option Missing mandatory option\n");
    return lines;
}

constexpr int32_t kViaGetopt = INT32_MIN; // the walk through tav_util_getopt
const std::string s300(300, 's'),
    s301(301, 's'), n300 = std::string(299, ' ') + "7", n301 = std::string(300, ' ') + "7";

struct Case {
    int32_t start;
    std::vector<const char *> argv;
    tav_status status;
    std::string outcome; // the calls, then s=text n=number f=flag
    Lines reports;
};

TEST(Getopt, WalkTable) {
    const Case cases[] = {
        {kViaGetopt,
         {"prog", "--", "-abc", "/alpha", "--alpha=1", "x", "/a", "--a", "/-a", "-a", "//", "-",
          "/", "", "/usr/bin", "---a"},
         TAV_OK,
         "2() 0() 0() 3() 3() 0() 11() s= n=0 f=0",
         {}},
        {kViaGetopt,
         {"prog", "-b", "-a", "-beta", "/beta", "--beta", ""},
         TAV_OK,
         "1(-a) 1(/beta) 1() s= n=0 f=0",
         {}},
        {kViaGetopt, {"prog", "-a", "-b"}, TAV_ERR_SYSTEM, "0() s= n=0 f=0", missing_argument()},
        {kViaGetopt,
         {"prog", "-s", s300.c_str(), "--num", n300.c_str(), "/flag", "-f", "--num", "-9x"},
         TAV_OK,
         "s=300 chars n=-9 f=1",
         {}},
        {kViaGetopt,
         {"prog", "-s", s301.c_str()},
         TAV_ERR_BAD_ARG,
         "s= n=0 f=0",
         up(7, "tav_util_getopt_string")},
        {kViaGetopt,
         {"prog", "-n", n301.c_str()},
         TAV_ERR_BAD_ARG,
         "s= n=0 f=0",
         up(7, "tav_util_getopt_int")},
        {kViaGetopt,
         {"prog", "-s", "a", "-s", "b"},
         TAV_ERR_BAD_ARG,
         "s=a n=0 f=0",
         up(7, "tav_util_getopt_string")},
        {kViaGetopt,
         {"prog", "-n", "5", "-s", "", "-n", ""},
         TAV_ERR_BAD_ARG,
         "s= n=5 f=0",
         up(7, "tav_util_getopt_int")},
        {kViaGetopt,
         {"prog", "-S"},
         TAV_ERR_NULL_ARG,
         "s= n=0 f=0",
         up(3, "tav_util_getopt_string")},
        {kViaGetopt,
         {"prog", "-F", "x"},
         TAV_ERR_BAD_ARG,
         "s= n=0 f=0",
         up(7, "tav_util_getopt_flag")},
        {kViaGetopt, {"prog", "-F"}, TAV_ERR_SYSTEM, "s= n=0 f=0", missing_argument()},
        {kViaGetopt,
         {"prog", "-a", "--fail", "-a"},
         TAV_ERR_TIMEOUT,
         "0() 10() s= n=0 f=0",
         up(36)},
        {kViaGetopt, {"prog"}, TAV_OK, "s= n=0 f=0", {}},
        {kViaGetopt,
         {},
         TAV_ERR_BAD_ARG,
         "s= n=0 f=0",
         {"trace tav_util_getopt src/getopt_ops.cpp 7"}},
        {0, {"-a"}, TAV_OK, "0() s= n=0 f=0", {}},
        {2, {"prog", "-a"}, TAV_OK, "s= n=0 f=0", {}},
        {-1,
         {"prog", "-a"},
         TAV_ERR_BAD_ARG,
         "s= n=0 f=0",
         {"trace tav_util_getopt_from src/getopt_ops.cpp 7"}},
    };
    for (const Case &c : cases) {
        std::vector<char *> argv;
        for (const char *token : c.argv) {
            argv.push_back(const_cast<char *>(token));
        }
        const auto argc = static_cast<int32_t>(argv.size());
        argv.push_back(nullptr);
        calls.clear(), number = flag = 0;
        tavtest::clear_reports();
        const tav_status status = c.start == kViaGetopt
                                      ? tav_util_getopt(argc, argv.data(), rows, std::size(rows))
                                      : tav_util_getopt_from(argc, argv.data(), rows, 12, c.start);
        const std::string stored = text && std::strlen(text) > 9
                                       ? std::to_string(std::strlen(text)) + " chars"
                                       : (text ? text : "");
        EXPECT_EQ(calls + "s=" + stored + " n=" + std::to_string(number) +
                      " f=" + std::to_string(flag),
                  c.outcome)
            << c.argv.size() << " " << (c.argv.size() > 1 ? c.argv[1] : "");
        EXPECT_EQ(std::tuple(status, tavtest::report_summary()), std::tie(c.status, c.reports))
            << c.outcome;
        const auto &r = tavtest::reports();
        if (r.size() >= 3) { // traced twice: where tested and where returned
            EXPECT_NE(r[r.size() - 1].line, r[r.size() - 2].line);
        }
        std::free(text);
        text = nullptr;
    }
}

TEST(Getopt, ArgumentChecksAndAFailedCopy) {
    char *argv[] = {const_cast<char *>("prog"), const_cast<char *>("-s"), const_cast<char *>("v")};
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_getopt(3, nullptr, rows, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_getopt(3, argv, rows, 0), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_getopt_from(3, argv, nullptr, 1, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_getopt_from(3, argv, rows, -1, 1), TAV_ERR_BAD_ARG);
    Lines expected;
    for (auto [function, status] : {std::pair{"tav_util_getopt", 3},
                                    {"tav_util_getopt", 7},
                                    {"tav_util_getopt_from", 3},
                                    {"tav_util_getopt_from", 7}}) {
        expected.push_back(std::string("trace ") + function + " src/getopt_ops.cpp " +
                           std::to_string(status));
    }
    EXPECT_EQ(tavtest::report_summary(), expected);
    tavtest::clear_reports();
    tav_status status = TAV_OK;
    const long runs = tavtest::for_each_allocation_failure(
        [&] { status = tav_util_getopt(3, argv, rows, std::size(rows)); },
        [&](long, auto &run) {
            EXPECT_EQ(std::tie(status, text, run.sizes),
                      std::tuple(TAV_ERR_NOMEM, nullptr, std::vector<size_t>{2}));
        });
    EXPECT_EQ(std::tuple(runs, std::string(text)), std::tuple(1, "v"));
    EXPECT_EQ(tavtest::report_summary(), up(2, "tav_util_getopt_string"));
    std::free(text);
    text = nullptr;
}

} // namespace
