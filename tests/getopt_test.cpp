// The option walk as one table: a command line in; the handler calls (row and
// argument), the stored values, the status and the reports out.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

std::string calls;
char *text;
int32_t number, flag, consumed;
tav_status custom_failure = TAV_ERR_TIMEOUT;
extern const tav_util_option rows[];

// Notes "row(argument)" and writes a count that must not steer the walk.
tav_status note(const tav_util_option *row, const char *argument, int32_t *count) {
    calls += std::to_string(row - rows) + "(" + (argument ? argument : "") + ") ";
    *count = 7;
    return row->target ? *static_cast<tav_status *>(row->target) : TAV_OK;
}

// Row 2 answers "--", 3 has a long name only, 4 is shadowed by row 0, 11 answers "//".
// clang-format off
const tav_util_option rows[] = {
    {'a', "alpha", note, nullptr, 0}, {'b', "beta", note, nullptr, 1}, {'-', "", note, nullptr, 0},
    {0, "a", note, nullptr, 0}, {'a', "alpha", note, nullptr, 1}, {'s', "str", tav_util_getopt_string, &text, 1},
    {'n', "num", tav_util_getopt_int, &number, 1}, {'f', "flag", tav_util_getopt_flag, &flag, 0},
    {'S', "", tav_util_getopt_string, &text, 0}, {'F', "", tav_util_getopt_flag, &flag, 1},
    {'x', "fail", note, &custom_failure, 0}, {'/', "", note, nullptr, 0},
    {'N', "", tav_util_getopt_int, &number, 0}, {'h', "", nullptr, nullptr, 0}};
// clang-format on

// The status, then each report: the function's name for a trace of that
// status ("name:status" for another), "!name text" for a plain line.
std::string reports(tav_status status) {
    std::string seen = std::to_string(status);
    const std::regex traced("^trace (tav_util_)?(\\w+) src/getopt_ops\\.cpp " + seen + "$"),
        other("^trace (tav_util_)?(\\w+) src/getopt_ops\\.cpp (\\d+)$");
    for (const std::string &line : tavtest::report_summary()) {
        const std::string shown =
            std::regex_replace(std::regex_replace(line, traced, "$2"), other, "$2:$3");
        seen += " " + std::regex_replace(shown, std::regex("^log "), "!");
    }
    return seen;
}

TEST(Getopt, Walk) {
    const std::string up = " process_option getopt_from getopt_from", none = "s= n=0 f=0 => ";
    const std::string missing = "6 !process_option Missing mandatory option\n" + up;
    const std::string s300(300, 's'), n300 = std::string(299, '0') + "7";
    // Through tav_util_getopt, or tav_util_getopt_from a start "N:". Tokens split
    // at blanks, '' is empty.
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"prog -- -abc /alpha --alpha=1 x /a --a /-a -a // - / '' /usr/bin ---a -z", "2() 0() 0() 3() 3() 0() 11() " + none + "0"},
        {"prog -b -a -beta /beta --beta ''", "1(-a) 1(/beta) 1() " + none + "0"}, {"prog -a -b", "0() " + none + missing},
        {"prog -s " + s300 + " --num " + n300 + " /flag -f --num -9x", "s=300 n=-9 f=1 => 0"}, {"prog -s s" + s300, none + "7 getopt_string" + up},
        {"prog -n 0" + n300, none + "7 getopt_int" + up}, {"prog -s a -s b", "s=a n=0 f=0 => 7 getopt_string" + up},
        {"prog -n 5 -s '' -n ''", "s= n=5 f=0 => 7 getopt_int" + up}, {"prog -S", none + "3 getopt_string" + up},
        {"prog -N", none + "3 getopt_int" + up}, {"prog -F x", none + "7 getopt_flag" + up}, {"prog -F", none + missing},
        {"prog -h", none + "3" + up}, {"prog -a --fail -a", "0() 10() " + none + "36" + up}, {"prog", none + "0"},
        {"", none + "7 getopt"}, {"0: -a -N", "0() " + none + "0"}, {"2: prog -a", none + "0"}, {"-1: prog -a", none + "7 getopt_from"}};
    // clang-format on
    for (const auto &[command_line, outcome] : cases) {
        std::istringstream words(command_line);
        std::vector<std::string> tokens;
        std::vector<char *> argv;
        tokens.reserve(32);
        int32_t start = -2;
        command_line.find(':') == std::string::npos || (words >> start).ignore(1);
        for (std::string word; words >> word; argv.push_back(tokens.back().data())) {
            tokens.push_back(word == "''" ? "" : word);
        }
        const auto argc = static_cast<int32_t>(tokens.size());
        argv.push_back(nullptr);
        calls.clear(), number = flag = 0;
        tavtest::clear_reports();
        const tav_status status = start == -2
                                      ? tav_util_getopt(argc, argv.data(), rows, std::size(rows))
                                      : tav_util_getopt_from(argc, argv.data(), rows, 12, start);
        const std::string stored = text ? text : "";
        EXPECT_EQ(calls + "s=" + (stored.size() > 9 ? std::to_string(stored.size()) : stored) +
                      " n=" + std::to_string(number) + " f=" + std::to_string(flag) + " => " +
                      reports(status),
                  outcome);
        const auto &made = tavtest::reports(); // traced twice: two lines
        EXPECT_TRUE(made.size() < 3 || made.back().line != made[made.size() - 2].line);
        tav_util_free(&text);
    }
    char *argv[] = {const_cast<char *>("prog"), const_cast<char *>("-s"), const_cast<char *>("v")};
    tavtest::clear_reports();
    // clang-format off
    const std::vector<int> refused = {
        tav_util_getopt(3, nullptr, rows, 1), tav_util_getopt(3, argv, rows, 0), tav_util_getopt_from(3, argv, nullptr, 1, 1),
        tav_util_getopt_from(3, argv, rows, -1, 1), tav_util_getopt_flag(rows, nullptr, &consumed),
        tav_util_getopt_string(&rows[5], "v", nullptr), tav_util_getopt_flag(&rows[7], nullptr, &consumed), consumed,
        tav_util_getopt_int(&rows[6], "5", &consumed), consumed, (consumed = 0, tav_util_getopt_string(&rows[5], "v", &consumed)), consumed,
        tav_util_getopt(3, argv, nullptr, 1), tav_util_getopt_from(3, nullptr, rows, 1, 1), tav_util_getopt_from(3, argv, rows, 0, 1),
        tav_util_getopt_flag(nullptr, nullptr, &consumed), tav_util_getopt_int(&rows[6], nullptr, &consumed), tav_util_getopt_int(&rows[6], "5", nullptr)};
    // clang-format on
    tav_util_free(&text);
    // The refusals, then each standard handler's status and count: 1 for a flag, else 2.
    EXPECT_EQ(refused, (std::vector<int>{3, 7, 3, 7, 3, 3, 0, 1, 0, 2, 0, 2, 3, 3, 7, 3, 3, 3}));
    tav_status status = TAV_OK;
    const long runs = tavtest::for_each_allocation_failure(
        [&] { status = tav_util_getopt(3, argv, rows, std::size(rows)); },
        [&](long, auto &run) { EXPECT_TRUE(status == 2 && !text && run.sizes[0] == 2); });
    EXPECT_EQ(std::tuple(runs, std::string(text)), std::tuple(1, "v"));
    tav_util_free(&text);
    EXPECT_EQ(
        reports(TAV_OK),
        "0 getopt:3 getopt:7 getopt_from:3 getopt_from:7 getopt_flag:3 getopt_string:3 getopt:3 "
        "getopt_from:3 getopt_from:7 getopt_flag:3 getopt_int:3 getopt_int:3 "
        "getopt_string:2 process_option:2 getopt_from:2 getopt_from:2");
}

} // namespace
