// The option walk, its refusals and its standard handlers.
#include "support.hpp"

namespace {

std::string calls;
char *str;
int32_t number, flag;
tav_status custom_failure = TAV_ERR_TIMEOUT;
extern const tav_util_option rows[];

// Notes "row(argument)" and writes a count that must not steer the walk.
tav_status note(const tav_util_option *row, const char *argument, int32_t *count) {
    calls += std::to_string(row - rows) + "(" + (argument ? argument : "") + ") ";
    *count = 7;
    return row->target ? *static_cast<tav_status *>(row->target) : TAV_OK;
}

// Row 2 answers "--", 3 has a long name only, 4 is shadowed by row 0.
const tav_util_option rows[] = {{'a', "alpha", note, nullptr, 0},
                                {'b', "beta", note, nullptr, 1},
                                {'-', "", note, nullptr, 0},
                                {0, "a", note, nullptr, 0},
                                {'a', "alpha", note, nullptr, 1},
                                {'s', "str", tav_util_getopt_string, &str, 1},
                                {'n', "num", tav_util_getopt_int, &number, 1},
                                {'f', "flag", tav_util_getopt_flag, &flag, 0},
                                {'S', "", tav_util_getopt_string, &str, 0},
                                {'F', "", tav_util_getopt_flag, &flag, 1},
                                {'x', "fail", note, &custom_failure, 0},
                                {'N', "", tav_util_getopt_int, &number, 0},
                                {'h', "", nullptr, nullptr, 0}};

std::string reports() {
    const std::regex trace("trace (tav_util_)?(\\w+) src/getopt_ops\\.cpp"), log("log (\\w+)");
    const std::string said = tavtest::said();
    return said.empty()
               ? ""
               : "|" + std::regex_replace(std::regex_replace(said, trace, "$2"), log, "!$1");
}

// Rows "command line => handler calls, values set, status|reports" through
// tav_util_getopt, or tav_util_getopt_from a start @N; '' is empty.
void walk(const std::vector<std::string> &cases) {
    tavtest::clear_reports();
    for (const std::string &row : cases) {
        std::istringstream in(row.substr(0, row.find(" => ")));
        std::vector<std::string> tokens{std::istream_iterator<std::string>(in), {}};
        const bool from = row[0] == '@';
        std::vector<char *> argv;
        for (std::string &token : tokens) {
            argv.push_back((token = token == "''" ? "" : token).data());
        }
        argv.push_back(nullptr);
        const auto argc = static_cast<int32_t>(argv.size() - 1 - from);
        calls.clear();
        number = flag = 0;
        const tav_status status =
            from ? tav_util_getopt_from(argc, &argv[1], rows, 11, std::stoi(tokens[0].substr(1)))
                 : tav_util_getopt(argc, argv.data(), rows, std::size(rows));
        EXPECT_EQ(calls + (str ? "s=" + std::string(str) + " " : "") +
                      (number ? "n=" + std::to_string(number) + " " : "") + (flag ? "f=1 " : "") +
                      std::to_string(status) + reports(),
                  row.substr(row.find(" => ") + 4));
        tav_util_free(&str);
    }
}

std::string up(const std::string &st) {
    return "|process_option " + st + "|getopt_from " + st + "|getopt_from " + st;
}

TEST(Getopt, Walk) {
    const std::string s300(300, 's'), n300 = std::string(299, '0') + "7";
    walk({"prog -- -abc /alpha --alpha=1 x /a --a /-a -a - / '' /usr/bin ---a -z -b -a -beta "
          "/beta --beta '' => 2() 0() 0() 3() 3() 0() 1(-a) 1(/beta) 1() 0",
          "prog -a -b => 0() 6|!process_option Missing mandatory option\n" + up("6"),
          "prog -s " + s300 + " --num " + n300 + " /flag -f --num -9x => s=" + s300 + " n=-9 f=1 0",
          "prog -s s" + s300 + " => 7|getopt_string 7" + up("7"),
          "prog -n 0" + n300 + " => 7|getopt_int 7" + up("7"),
          "prog -s a -s b => s=a 7|getopt_string 7" + up("7"),
          "prog -n 5 -s '' -n '' => s= n=5 7|getopt_int 7" + up("7"),
          "prog -S => 3|getopt_string 3" + up("3"), "prog -N => 3|getopt_int 3" + up("3"),
          "prog -F x => 7|getopt_flag 7" + up("7"), "prog -h => 3" + up("3"),
          "prog -a --fail -a => 0() 10() 36" + up("36"), "prog => 0", " => 7|getopt 7",
          "@0 -a -N => 0() 0", "@2 prog -a => 0", "@-1 prog -a => 7|getopt_from 7"});
}

// The count is 1 for a flag, else 2.
TEST(Getopt, RefusalsAndAllocationFailure) {
    char *argv[] = {const_cast<char *>("prog"), const_cast<char *>("-s"), const_cast<char *>("v")};
    int32_t n = 0, f = 0, i = 0, s = 0; // counts
    const tav_util_option *string = &rows[5], *num = &rows[6], *flg = &rows[7];
    tavtest::clear_reports();
    std::ostringstream got; // each status in call order
    got << tav_util_getopt(3, nullptr, rows, 1) << tav_util_getopt(3, argv, nullptr, 1)
        << tav_util_getopt(3, argv, rows, 0) << tav_util_getopt_from(3, nullptr, rows, 1, 1)
        << tav_util_getopt_from(3, argv, nullptr, 1, 1) << tav_util_getopt_from(3, argv, rows, 0, 1)
        << tav_util_getopt_from(3, argv, rows, -1, 1) << tav_util_getopt_flag(rows, nullptr, &n)
        << tav_util_getopt_flag(nullptr, nullptr, &n) << tav_util_getopt_int(num, "5", nullptr)
        << tav_util_getopt_string(string, "v", nullptr) << tav_util_getopt_flag(flg, nullptr, &f)
        << tav_util_getopt_int(num, "5", &i) << tav_util_getopt_string(string, "v", &s) << " " << n
        << f << i << s << reports();
    EXPECT_EQ(got.str(), "33733773333000 0122|getopt 3|getopt 3|getopt 7|getopt_from 3|"
                         "getopt_from 3|getopt_from 7|getopt_from 7|getopt_flag 3|getopt_flag 3|"
                         "getopt_int 3|getopt_string 3");
    tav_util_free(&str);
    tav_status status = TAV_OK;
    const long runs = tavtest::for_each_allocation_failure(
        [&] { status = tav_util_getopt(3, argv, rows, std::size(rows)); },
        [&](long, auto &run) { EXPECT_TRUE(status == 2 && !str && run.sizes[0] == 2); });
    EXPECT_EQ(std::tuple(runs, std::string(str), reports()),
              std::tuple(1, "v", "|getopt_string 2|process_option 2|getopt_from 2|getopt_from 2"));
    tav_util_free(&str);
}

} // namespace
