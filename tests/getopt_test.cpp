// The option walk as one table: a command line in; the handler calls (row and
// argument), the stored values, the status and the reports out.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

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

// Notes "row(argument)" and writes a count that must not steer the walk.
tav_status note(const tav_util_option *row, const char *argument, int32_t *consumed) {
    calls += std::to_string(row - rows) + "(" + (argument ? argument : "") + ") ";
    *consumed = 7;
    return row->target ? *static_cast<tav_status *>(row->target) : TAV_OK;
}

const tav_util_option rows[] = {{'a', "alpha", note, nullptr, 0},
                                {'b', "beta", note, nullptr, 1},
                                {'-', "", note, nullptr, 0},
                                {0, "a", note, nullptr, 0},       // 2: "--"; 3: long only
                                {'a', "alpha", note, nullptr, 1}, // 4: never, the first match wins
                                {'s', "str", tav_util_getopt_string, &text, 1},
                                {'n', "num", tav_util_getopt_int, &number, 1},
                                {'f', "flag", tav_util_getopt_flag, &flag, 0},
                                {'S', "", tav_util_getopt_string, &text, 0},
                                {'F', "", tav_util_getopt_flag, &flag, 1},
                                {'x', "fail", note, &custom_failure, 0},
                                {'/', "", note, nullptr, 0}}; // 11: "//"

// The reports of a failure: one trace by the function that refused, or a
// status passed up from `source` (a standard handler, "" for a custom one, or
// "missing": the logged missing argument) through process_option and the walk.
Lines reports(int status, const std::string &source) {
    const std::string at = " src/getopt_ops.cpp " + std::to_string(status);
    if (status == TAV_OK || source == "tav_util_getopt" || source == "tav_util_getopt_from") {
        return status == TAV_OK ? Lines{} : Lines{"trace " + source + at};
    }
    Lines lines;
    if (source == "missing") {
        lines.push_back("log process_option Missing mandatory option\n");
    } else if (!source.empty()) {
        lines.push_back("trace " + source + at);
    }
    for (const char *up : {"process_option", "tav_util_getopt_from", "tav_util_getopt_from"}) {
        lines.push_back("trace " + std::string(up) + at);
    }
    return lines;
}

constexpr int32_t kViaGetopt = INT32_MIN; // the walk through tav_util_getopt
struct Case {
    int32_t start;
    const char *command_line; // tokens split at blanks; '' empty; S300 and the like are long
    tav_status status;
    const char *outcome; // the calls, then s=text n=number f=flag
    const char *source = "";
};

TEST(Getopt, WalkTable) {
    const Case cases[] = {
        {kViaGetopt, "prog -- -abc /alpha --alpha=1 x /a --a /-a -a // - / '' /usr/bin ---a",
         TAV_OK, "2() 0() 0() 3() 3() 0() 11() s= n=0 f=0", ""},
        {kViaGetopt, "prog -b -a -beta /beta --beta ''", TAV_OK, "1(-a) 1(/beta) 1() s= n=0 f=0"},
        {kViaGetopt, "prog -a -b", TAV_ERR_SYSTEM, "0() s= n=0 f=0", "missing"},
        {kViaGetopt, "prog -s S300 --num N300 /flag -f --num -9x", TAV_OK, "s=300 n=-9 f=1"},
        {kViaGetopt, "prog -s S301", TAV_ERR_BAD_ARG, "s= n=0 f=0", "tav_util_getopt_string"},
        {kViaGetopt, "prog -n N301", TAV_ERR_BAD_ARG, "s= n=0 f=0", "tav_util_getopt_int"},
        {kViaGetopt, "prog -s a -s b", TAV_ERR_BAD_ARG, "s=a n=0 f=0", "tav_util_getopt_string"},
        {kViaGetopt, "prog -n 5 -s '' -n ''", TAV_ERR_BAD_ARG, "s= n=5 f=0", "tav_util_getopt_int"},
        {kViaGetopt, "prog -S", TAV_ERR_NULL_ARG, "s= n=0 f=0", "tav_util_getopt_string"},
        {kViaGetopt, "prog -F x", TAV_ERR_BAD_ARG, "s= n=0 f=0", "tav_util_getopt_flag"},
        {kViaGetopt, "prog -F", TAV_ERR_SYSTEM, "s= n=0 f=0", "missing"},
        {kViaGetopt, "prog -a --fail -a", TAV_ERR_TIMEOUT, "0() 10() s= n=0 f=0", ""},
        {kViaGetopt, "prog", TAV_OK, "s= n=0 f=0"},
        {kViaGetopt, "", TAV_ERR_BAD_ARG, "s= n=0 f=0", "tav_util_getopt"},
        {0, "-a", TAV_OK, "0() s= n=0 f=0"},
        {2, "prog -a", TAV_OK, "s= n=0 f=0"},
        {-1, "prog -a", TAV_ERR_BAD_ARG, "s= n=0 f=0", "tav_util_getopt_from"},
    };
    for (const Case &c : cases) {
        std::vector<std::string> tokens;
        std::istringstream words(c.command_line);
        for (std::string word; words >> word;) {
            const char kind = word[0] == 'S' || word[0] == 'N' ? word[0] : 0;
            const size_t length = kind ? std::stoul(word.substr(1)) : 0;
            tokens.push_back(word == "''"  ? ""
                             : kind == 'S' ? std::string(length, 's')
                             : kind == 'N' ? std::string(length - 1, ' ') + "7"
                                           : word);
        }
        std::vector<char *> argv;
        for (std::string &token : tokens) {
            argv.push_back(token.data());
        }
        argv.push_back(nullptr);
        const auto argc = static_cast<int32_t>(tokens.size());
        calls.clear(), number = flag = 0;
        tavtest::clear_reports();
        const tav_status status = c.start == kViaGetopt
                                      ? tav_util_getopt(argc, argv.data(), rows, std::size(rows))
                                      : tav_util_getopt_from(argc, argv.data(), rows, 12, c.start);
        const size_t length = text ? std::strlen(text) : 0;
        const std::string stored = length > 9 ? std::to_string(length) : text ? text : "";
        EXPECT_EQ(calls + "s=" + stored + " n=" + std::to_string(number) +
                      " f=" + std::to_string(flag),
                  c.outcome)
            << c.command_line;
        EXPECT_EQ(std::tuple(status, tavtest::report_summary()),
                  std::tuple(c.status, reports(c.status, c.source)))
            << c.command_line;
        const auto &made = tavtest::reports();
        if (made.size() >= 3) { // traced twice: where tested and where returned
            EXPECT_NE(made[made.size() - 1].line, made[made.size() - 2].line);
        }
        tav_util_free(&text);
    }
}

TEST(Getopt, ArgumentChecksAndAFailedCopy) {
    char *argv[] = {const_cast<char *>("prog"), const_cast<char *>("-s"), const_cast<char *>("v")};
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_getopt(3, nullptr, rows, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_getopt(3, argv, rows, 0), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_getopt_from(3, argv, nullptr, 1, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_getopt_from(3, argv, rows, -1, 1), TAV_ERR_BAD_ARG);
    tav_status status = TAV_OK;
    const long runs = tavtest::for_each_allocation_failure(
        [&] { status = tav_util_getopt(3, argv, rows, std::size(rows)); },
        [&](long, auto &run) {
            EXPECT_TRUE(status == TAV_ERR_NOMEM && text == nullptr && run.sizes[0] == 2);
        });
    EXPECT_EQ(std::tuple(runs, std::string(text)), std::tuple(1, "v"));
    tav_util_free(&text);
    Lines expected;
    for (auto [code, source] : {std::pair{3, "tav_util_getopt"},
                                {7, "tav_util_getopt"},
                                {3, "tav_util_getopt_from"},
                                {7, "tav_util_getopt_from"},
                                {2, "tav_util_getopt_string"}}) {
        const Lines lines = reports(code, source);
        expected.insert(expected.end(), lines.begin(), lines.end());
    }
    EXPECT_EQ(tavtest::report_summary(), expected);
}

} // namespace
