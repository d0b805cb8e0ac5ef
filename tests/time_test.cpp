// Time operations as scripted calls on a stopped or failing clock, and on the
// real clocks bracketed between two readings.
#include <gtest/gtest.h>

#include <charconv>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <sys/time.h>

#include "clock_inject.hpp"
#include "internal/timeout.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

constexpr int64_t kG = 1000000000;
std::string home; // traces from src/time/<home>.cpp or <name>_linux.cpp read "name status"

std::string S(int64_t v) { return std::to_string(v); }
std::string S(const timespec &t) { return S(t.tv_sec) + "." + S(t.tv_nsec); }
std::string S(const timeval &t) { return S(t.tv_sec) + "." + S(t.tv_usec); }
int64_t N(const timespec &t) { return t.tv_sec * kG + t.tv_nsec; }
std::string D(double v) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, v).ptr);
}
auto &frac(timespec &t) { return t.tv_nsec; }
auto &frac(timeval &t) { return t.tv_usec; }
template <typename T>
requires requires(T &t) { frac(t); }
std::istream &operator>>(std::istream &in, T &t) {
    char dot;
    return in >> t.tv_sec >> dot >> frac(t);
}
// The next token: null for "null", else a pointer to `value`, read from it (P) or not (O).
template <typename T> T *P(std::istream &in, T &value) {
    return in >> std::ws, in.peek() == 'n' ? (in.ignore(4), nullptr) : (in >> value, &value);
}
template <typename T> T *O(std::istream &in, T &value) {
    std::string word;
    return in >> word, word == "null" ? nullptr : &value;
}
// The 24 characters of ctime_r, made another way.
std::string calendar(time_t when) {
    tm broken_down;
    char text[64];
    std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", localtime_r(&when, &broken_down));
    return text;
}

// Runs "[@sec.nsec|@!errno] operation arguments" and gives the result, each
// report ("name status" for a trace, "!name text" for a plain line, pointers
// as p), then the out-arguments. A clock read must be CLOCK_REALTIME.
std::string run(const std::string &script) {
    std::istringstream in(script);
    tavtest::ClockPlan plan;
    std::string op, word, r, out;
    in >> op;
    if (op[0] == '@') {
        std::istringstream at(op.substr(1));
        op[1] == '!' ? at.ignore(1) >> plan.fail_with : at >> plan.at;
        in >> op;
    }
    timespec a = {-7, -7}, b = {};
    timeval u = {-7, -7}, v = {};
    int64_t n = 0;
    uint64_t m = 7;
    int32_t i = 7;
    size_t size = 0;
    char buffer[64] = "untouched";
    tm t = {};
    const auto shown = [&] {
        return r == "0" || buffer[0] == 'u' ? std::string(buffer) : "written";
    };
    const auto cut = [&](tav_status status) { r = S(status), out = shown(); };
    // clang-format off
    const std::map<std::string, std::function<void()>> ops = {
        {"offset", [&] { in >> a >> n >> m, r = S(tav_util_abs_time_offset(&a, n, m)), out = S(a); }},
        {"future", [&] { in >> n, r = S(tav_util_future_timeout(&a, n, kG)), out = S(a); }},
        {"expired", [&] { in >> a, r = S(tav_util_query_timeout_expired(&a, &i)), out = S(i); }},
        {"cmp", [&] { auto *x = P(in, a), *y = P(in, b); r = S(tav_util_cmp_timeout(x, y, O(in, i))), out = S(i); }},
        {"left", [&] { in >> a >> m, cut(tav_util_query_timeout_left(&a, buffer, m)); }},
        {"add", [&] { in >> u >> n, r = S(tav_util_safe_add_seconds(&u, n)), out = S(u); }},
        {"future_time", [&] { in >> n, r = S(tav_util_future_time(n, O(in, u))), out = S(u); }},
        {"tvcmp", [&] { in >> u >> v, r = S(tav_util_timeval_cmp(&u, &v)) + " " + S(tav_util_time_greater_than(&u, &v)); }},
        {"diff", [&] { in >> u >> v, r = D(tav_util_time_diff_seconds(&u, &v)); }},
        {"human", [&] { in >> word >> size, cut(tav_util_snprintf_human_time(buffer, size, std::strtod(word.c_str(), nullptr))); }},
        {"to_ms", [&] { auto *x = P(in, u); r = S(tav_util_timeval_to_ms(x, O(in, m))), out = std::to_string(m); }},
        {"from_ms", [&] { in >> m, r = S(tav_util_ms_to_timeval(m, O(in, u))), out = S(u); }},
        {"now_str", [&] {
             in >> size >> word, r = S(tav_util_now_str(word == "nobuffer" ? nullptr : buffer, word == "nosize" ? nullptr : &size, word == "noslot" ? nullptr : &i));
             out = S(size) + " " + S(i) + " " + (r == "0" && buffer == calendar(plan.at.tv_sec) ? "cal" : shown()); }},
        {"broken", [&] { r = S(tav_util_get_broken_down_time(&t)), out = r == "0" ? S(mktime(&t)) : ""; }},
        {"gmtime", [&] { in >> n, r = S(tav_util_gmtime(&n, &t)), out = r == "0" ? S(timegm(&t)) : ""; }},
        {"localtime", [&] { in >> n, r = tav_util_localtime_r(&n, &t) == &t ? S(mktime(&t)) : "null"; }},
        {"asctime", [&] { in >> n >> size, gmtime_r(&n, &t); auto *x = O(in, t); cut(tav_util_asctime(x, O(in, buffer[0]), size)); }},
        {"point", [&] { r = std::to_string(tav_util_timer_point()); }},
        {"msec", [&] { r = std::to_string(tav_util_walltime_msec()); }},
        {"usec", [&] { r = std::to_string(tav_util_walltime_usec()); }},
        {"elapsed", [&] { in >> m >> size, r = D(tav_util_timer_elapsed_seconds(m, size)); }}};
    // clang-format on
    tavtest::clear_reports();
    {
        tavtest::ClockInjection clock(plan);
        ops.at(op)();
        EXPECT_TRUE(clock.last_clock() == -1 || clock.last_clock() == CLOCK_REALTIME) << script;
    }
    const std::regex own("^trace tav_util_(\\w+) src/time/(" + home + "|\\1_linux)\\.cpp"),
        other("^trace tav_util_(\\w+) src/time/(\\w+)\\.cpp"), log("^log tav_util_"),
        pointer("0x[0-9a-f]+");
    for (const std::string &line : tavtest::report_summary()) {
        const std::string shorter =
            std::regex_replace(std::regex_replace(line, log, "!"), pointer, "p");
        r += "|" + std::regex_replace(std::regex_replace(shorter, own, "$1"), other, "$1@$2");
    }
    return r + (out.empty() ? "" : " " + out);
}

void check(const std::vector<std::pair<std::string, std::string>> &rows) {
    for (const auto &[script, seen] : rows) {
        EXPECT_EQ(run(script), seen) << script;
    }
}

const std::string kOverflow =
    "|!future_timeout Overflow detected when trying to set phase timeout tmp hack";
const std::string kMax = std::to_string(INT64_MAX);

TEST(Time, Timeouts) {
    home = "timespec_common";
    const std::string bad = "7|!abs_time_offset Bad value, val: ", o33 = "33|abs_time_offset 33 ";
    // clang-format off
    check({{"offset 5.123 0 1", "0 5.123"}, {"offset 5.123 1000 1000", "0 6.123"}, {"offset 5.123 999 1000", "0 5.999000123"},
           {"offset 5.0 1 1000000000", "0 5.1"}, {"offset 5.0 2 3", "0 5.666666666"}, {"offset 5.0 7000000001 7", "0 1000000005.142857142"},
           {"offset 5.500000000 500 1000", "0 6.0"}, {"offset 5.999999999 2 1000000000", "0 6.1"}, {"offset 5.5000000000 0 1", "0 6.4000000000"},
           {"offset 5." + kMax + " 1 1000000000", "0 6.9223372035854775808"}, {"offset 9223372036854775804.7 3 1", "0 " + kMax + ".7"},
           {"offset " + kMax + ".0 999 1000", "0 " + kMax + ".999000000"},
           {"offset 5.0 1 1000000001", bad + "1 scale_to_sec: 1000000001\n|abs_time_offset 7 5.0"},
           {"offset 5.0 1 0", bad + "1 scale_to_sec: 0\n|abs_time_offset 7 5.0"},
           {"offset 5.0 -1 1", bad + "-1 scale_to_sec: 1\n|abs_time_offset 7 5.0"},
           {"offset 9223372036854775804.7 4 1", o33 + "9223372036854775804.7"}, {"offset -1.0 1 1", o33 + "-1.0"},
           {"offset " + kMax + ".999999999 1 1000000000", o33 + kMax + ".0"},
           {"offset 9223372036854775806.999999999 1000000001 1000000000", o33 + kMax + ".0"}, {"offset 5.-1 3 1", o33 + "8.-1"},
           {"@100.999999999 future 1", "0 101.0"},
           {"@100.999999999 future -1", bad + "-1 scale_to_sec: 1000000000\n|abs_time_offset 7|future_timeout 7" + kOverflow + " 100.999999999"},
           {"@" + kMax + ".999999999 future 1", "33|abs_time_offset 33|future_timeout 33" + kOverflow + " " + kMax + ".0"},
           {"@!22 future 1", "6|!future_timeout Failed to get current time.|future_timeout 6 -7.-7"},
           {"@100.500 expired 101.0", "0 0"}, {"@100.500 expired 100.501", "0 0"}, {"@100.500 expired 100.500", "0 1"},
           {"@100.500 expired 100.499", "0 1"}, {"@100.500 expired 99." + kMax, "0 1"}, {"@100.500 expired -1.0", "0 1"},
           {"@100.500 expired 101.-1000000000", "0 0"}, {"@!22 expired 0.0", "6|query_timeout_expired 6 7"},
           {"cmp 1.5 1.5 i", "0 0"}, {"cmp 1.5 1.6 i", "0 -1"}, {"cmp 1.6 1.5 i", "0 1"}, {"cmp 1." + kMax + " 2.0 i", "0 -1"},
           {"cmp 2.0 1.999999999 i", "0 1"}, {"cmp -1.0 0.0 i", "0 -1"}, {"cmp 0.-1 0.0 i", "0 -1"},
           {"cmp null 1.0 i", "3|!cmp_timeout NULL argument detected: (nil) p p|cmp_timeout 3 7"},
           {"cmp 1.0 null i", "3|!cmp_timeout NULL argument detected: p (nil) p|cmp_timeout 3 7"},
           {"cmp 1.0 1.0 null", "3|!cmp_timeout NULL argument detected: p p (nil)|cmp_timeout 3 7"},
           {"@100.250000000 left 112.750000000 64", "0 1.250000e+01 seconds"}, {"@100.250000000 left 90.750000000 64", "0 -9.500000e+00 seconds"},
           {"@100.250000000 left 112.750000000 5", "0 1.25"}, {"@100.250000000 left 112.750000000 0", "0 untouched"},
           {"@!22 left 112.0 64", "6|!query_timeout_left Failed to get current time.|query_timeout_left 6 untouched"}});
    // clang-format on
}

TEST(Time, Values) {
    home = "timeval_common";
    const std::string o33 = "33|safe_add_seconds 33 ", all = std::to_string(UINT64_MAX);
    // clang-format off
    check({{"add " + kMax + ".777 0", "0 " + kMax + ".777"}, {"add " + kMax + ".777 1", o33 + kMax + ".777"},
           {"add 9223372036854775806.777 1", "0 " + kMax + ".777"}, {"add 0.777 -1", o33 + "0.777"}, {"add -5.777 -1", o33 + "-5.777"},
           {"add -5.777 " + kMax, "0 9223372036854775802.777"}, {"add -9223372036854775808.777 -1", "0 " + kMax + ".777"},
           {"add -5.777 -9223372036854775808", "0 9223372036854775803.777"},
           {"@100.250999000 future_time 5", "0 105.250999"}, {"@100.0 future_time -1 null", "3|future_time 3 -7.-7"},
           {"@100.0 future_time -1", "7|future_time 7 -7.-7"}, {"@!22 future_time 1", "6|future_time 6 -7.-7"},
           {"@" + kMax + ".5000 future_time 1", o33 + kMax + ".5"},
           {"tvcmp 1.5 1.5", "0 0"}, {"diff 1.5 1.5", "0"}, {"tvcmp 1.1500000 2.0", "-1 0"}, {"diff 1.1500000 2.0", "0.5"}, {"tvcmp 2.0 1.1500000", "1 1"}, {"diff 2.0 1.1500000", "-0.5"},
           {"tvcmp 1.5 1.6", "-1 0"}, {"diff 1.5 1.6", "-9.999999999177334e-07"}, {"tvcmp 1.6 1.5", "1 1"}, {"diff 1.6 1.5", "9.999999999177334e-07"},
           {"tvcmp -1.0 0.0", "-1 0"}, {"diff -1.0 0.0", "-1"}, {"tvcmp 0.15 0.0", "1 1"}, {"diff 0.15 0.0", "1.4999999999999999e-05"},
           {"tvcmp 1700000000.123457 1700000000.3", "1 1"}, {"diff 1700000000.123457 1700000000.3", "0.12345385551452637"},
           {"to_ms 1.500000", "0 1500"}, {"to_ms 1.999", "0 1000"}, {"to_ms 0.-1500", "0 " + all},
           {"to_ms " + kMax + ".0", "0 18446744073709550616"}, {"to_ms -1.1000", "0 18446744073709550617"},
           {"to_ms null", "3|timeval_to_ms 3 7"}, {"to_ms 1.0 null", "3|timeval_to_ms 3 7"},
           {"from_ms 1500", "0 1.500000"}, {"from_ms 0", "0 0.0"}, {"from_ms " + all, "0 18446744073709551.615000"},
           {"from_ms 1500 null", "3 -7.-7"},
           {"human 0 32", "0 0 seconds"}, {"human 1 32", "0 1 second"}, {"human 1.4 32", "0 1 seconds"},
           {"human 1.5 32", "0 2 seconds"}, {"human 2.5 32", "0 2 seconds"}, {"human 59.7 32", "0 60 seconds"},
           {"human 60 32", "0 1 minute"}, {"human 90 32", "0 2 minutes"}, {"human 3599 32", "0 60 minutes"},
           {"human 3600 32", "0 1 hour"}, {"human 5400 32", "0 2 hours"}, {"human 86399 32", "0 24 hours"},
           {"human 86400 32", "0 1 day"}, {"human 129600 32", "0 2 days"}, {"human -30 32", "0 -30 seconds"},
           {"human nan 32", "0 nan days"}, {"human -nan 32", "0 -nan days"}, {"human inf 32", "0 inf days"},
           {"human -inf 32", "0 -inf seconds"}, {"human 90 4", "0 2 m"}, {"human 90 0", "0 untouched"},
           {"human 90 2147483648", "0 untouched"}});
    // clang-format on
}

TEST(Time, Clocks) {
    home = "tm_common";
    const std::string far = "253402300800", beyond = "4611686018427387904",
                      all = std::to_string(UINT64_MAX);
    // clang-format off
    check({{"@0.0 now_str 26", "0 24 7 cal"}, {"@1700000000.0 now_str 64", "0 24 7 cal"},
           {"@0.0 now_str 25", "7|now_str 7 25 7 untouched"}, {"@0.0 now_str 26 nobuffer", "3|now_str 3 26 7 untouched"},
           {"@0.0 now_str 26 nosize", "3|now_str 3 26 7 untouched"}, {"@!1 now_str 26", "6|now_str 6 26 1 untouched"},
           {"@!1 now_str 26 noslot", "6|now_str 6 26 7 untouched"},
           {"@" + beyond + ".0 now_str 26", "6|now_str 6 26 22 untouched"}, // beyond the calendar: a failure too
           {"@" + beyond + ".0 now_str 26 noslot", "6|now_str 6 26 7 untouched"},
           {"@" + far + ".0 now_str 26", "6|now_str 6 26 75 written"},
           {"@1700000000.0 broken", "0 1700000000"}, {"localtime 1700000000", "1700000000"}, {"localtime " + beyond, "null"},
           {"@!1 broken", "6|!get_broken_down_time Failed to read time|get_broken_down_time 6"},
           {"@" + beyond + ".0 broken", "6|!get_broken_down_time Failed to unpick time|get_broken_down_time 6"},
           {"gmtime 0", "0 0"}, {"gmtime -1", "0 -1"}, {"gmtime " + far, "0 " + far}, {"gmtime " + kMax, "6|gmtime 6"},
           {"asctime 0 26", "0 Thu Jan  1 00:00:00 1970\n"}, {"asctime 0 25", "16|asctime 16 untouched"},
           {"asctime 0 26 null", "3|asctime 3 untouched"}, {"asctime 0 26 t null", "3|asctime 3 untouched"},
           {"asctime " + far + " 26", "6|asctime 6 written"},
           {"@1700000000.123456789 point", "1700000000123456789"}, {"@1700000000.123456789 msec", "1700000000123"},
           {"@1700000000.123456789 usec", "1700000000123456"},
           {"@4611686019.7 point", "4611686019000000519"}, // the seconds' product rounded as a double
           {"@18446744073.0 point", "18446744072999999488"}, {"@18446744073.0 usec", "18446744073000000"},
           {"@18446744074.0 point", "0"}, {"@18446744074.0 msec", "18446744074000"}, // past 64 bits of nanoseconds: 0
           {"@-1.999999999 point", "0"}, {"@-1.999999999 msec", all}, {"@-1.999999999 usec", all},
           {"@!22 point", "0"}, {"@!22 msec", "0"}, {"@!22 usec", "0"},
           {"elapsed 0 1500000000", "1.5"}, {"elapsed 1 0", "18446744073.709553"}});
    // clang-format on
}

// The real clocks: each reading lies between two others.
TEST(Time, RealClocks) {
    timespec t0, t1, t;
    timeval tv;
    char text[26];
    size_t size = sizeof text;
    int32_t expired = 0;
    const time_t s0 = time(nullptr);
    clock_gettime(CLOCK_REALTIME, &t0);
    const std::vector<int64_t> got = {
        tav_util_future_timeout(&t, 0, 1),         tav_util_future_time(0, &tv),
        tav_util_now_str(text, &size, nullptr),    N(t),
        (tv.tv_sec * 1000000 + tv.tv_usec) * 1000, int64_t(tav_util_timer_point()),
        int64_t(tav_util_walltime_usec() * 1000),  int64_t(tav_util_walltime_msec() * 1000000)};
    clock_gettime(CLOCK_REALTIME, &t1);
    EXPECT_TRUE(calendar(s0) == text || calendar(time(nullptr)) == text) << text;
    EXPECT_EQ(std::vector<int64_t>(got.begin(), got.begin() + 3), std::vector<int64_t>(3, TAV_OK));
    for (size_t k = 3; k < got.size(); ++k) {
        EXPECT_TRUE(N(t0) / 1000000 * 1000000 <= got[k] && got[k] <= N(t1)) << k;
    }
    EXPECT_TRUE(tav_util_query_timeout_expired(&t, &expired) == TAV_OK && expired == 1);
    const uint64_t first = tav_util_read_cycles(), second = tav_util_read_cycles();
    EXPECT_TRUE(0 < first && first <= second && tav_util_sleep(0) == 0 &&
                tav_util_query_timeout_left(&t, nullptr, 0) == 0);
}

} // namespace
