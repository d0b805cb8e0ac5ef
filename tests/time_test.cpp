// Time operations on a stopped or failing clock, and on the real clocks.
#include <charconv>
#include <sys/time.h>

#include "internal/timeout.hpp"
#include "support.hpp"

namespace {

const std::string kMax = std::to_string(INT64_MAX), kAll = std::to_string(UINT64_MAX);

template <typename T> T point(const std::string &word) { // "sec.frac"
    long sec = 0, frac = 0;
    sscanf(word.c_str(), "%ld.%ld", &sec, &frac);
    return {sec, frac};
}
std::string S(auto v) { return std::to_string(v); }
std::string S(double v) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, v).ptr);
}
std::string S(timespec v) { return S(v.tv_sec) + "." + S(v.tv_nsec); }
std::string S(timeval v) { return S(v.tv_sec) + "." + S(v.tv_usec); }
// The 24 characters of ctime_r, made another way.
std::string calendar(time_t when) {
    tm broken_down;
    char text[64];
    std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", localtime_r(&when, &broken_down));
    return text;
}

// A row "[@sec.nsec|@!errno] words => results|reports outputs"; "null" is a
// null pointer, a missing word 32; a trace from src/time/<home>.cpp or
// <name>_linux.cpp reads "name status", a line "!name text", a pointer p.
struct Call {
    tavtest::ClockPlan plan;
    std::vector<std::string> w;
    long long N(int k) { return std::strtoll(w[k].c_str(), nullptr, 10); }
    unsigned long long M(int k) { return std::strtoull(w[k].c_str(), nullptr, 10); }
    template <typename T> T *Q(int k, T &value) { return w[k] == "null" ? nullptr : &value; }
    timespec x = point<timespec>(w[0]), y = point<timespec>(w[1]), a = {-7, -7};
    timeval p = point<timeval>(w[0]), q = point<timeval>(w[1]), u = {-7, -7};
    uint64_t m = 7;
    int32_t i = 7;
    size_t size = M(0);
    char buffer[64] = "untouched";
    tm t = {};
    std::string r = {}, out = {};
    void put(auto status, const auto &...outs) {
        r += (r.empty() ? "" : " ") + S(status);
        ((out += (out.empty() ? "" : " ") + S(outs)), ...);
    }
    void cut(tav_status status) {
        put(status), out = status == TAV_OK || buffer[0] == 'u' ? buffer : "written";
    }
};

void check(const std::string &home, void (*op)(Call &), const std::vector<std::string> &rows) {
    for (const std::string &row : rows) {
        std::istringstream in(row.substr(0, row.find(" => ")));
        std::vector<std::string> w{std::istream_iterator<std::string>(in), {}};
        tavtest::ClockPlan plan;
        if (w[0][0] == '@') {
            w[0][1] == '!' ? void(plan.fail_with = std::stoi(w[0].substr(2)))
                           : void(plan.at = point<timespec>(w[0].substr(1)));
            w.erase(w.begin());
        }
        w.resize(5, "32");
        Call c{plan, w};
        tavtest::clear_reports();
        auto clock = std::make_unique<tavtest::ClockInjection>(plan);
        op(c);
        EXPECT_TRUE(clock->last_clock() == -1 || clock->last_clock() == CLOCK_REALTIME) << row;
        clock.reset();
        const std::regex own("trace tav_util_(\\w+) src/time/(" + home + "|\\1_linux)\\.cpp"),
            log("log tav_util_"), pointer("0x[0-9a-f]+");
        const std::string said = std::regex_replace(
            std::regex_replace(std::regex_replace(tavtest::said(), log, "!"), pointer, "p"), own,
            "$1");
        EXPECT_EQ(c.r + (said.empty() ? "" : "|" + said) + (c.out.empty() ? "" : " " + c.out),
                  row.substr(row.find(" => ") + 4))
            << row;
    }
}

TEST(Time, Tables) {
    const std::string ts = "timespec_common", bad = " => 7|!abs_time_offset Bad value, val: ",
                      o33 = " => 33|abs_time_offset 33 ", not_read = " Failed to get current time.",
                      null = " => 3|!cmp_timeout NULL argument detected: ";
    check(ts, [](Call &c) { c.put(tav_util_abs_time_offset(&c.x, c.N(1), c.N(2)), c.x); },
          {"5.123 0 1 => 0 5.123", "5.123 1000 1000 => 0 6.123", "5.123 999 1000 => 0 5.999000123",
           "5.0 2 3 => 0 5.666666666", "5.500000000 500 1000 => 0 6.0",
           "5.999999999 2 1000000000 => 0 6.1", "5.5000000000 0 1 => 0 6.4000000000",
           "9223372036854775804.7 3 1 => 0 " + kMax + ".7",
           kMax + ".0 999 1000 => 0 " + kMax + ".999000000", "-1.0 1 1" + o33 + "-1.0",
           "5.0 1 1000000001" + bad + "1 scale_to_sec: 1000000001\n|abs_time_offset 7 5.0",
           "5.0 1 0" + bad + "1 scale_to_sec: 0\n|abs_time_offset 7 5.0",
           "5.0 -1 1" + bad + "-1 scale_to_sec: 1\n|abs_time_offset 7 5.0",
           "9223372036854775804.7 4 1" + o33 + "9223372036854775804.7", "5.-1 3 1" + o33 + "8.-1",
           kMax + ".999999999 1 1000000000" + o33 + kMax + ".0"});
    check(ts, [](Call &c) { c.put(tav_util_future_timeout(&c.a, c.N(0), 1000000000), c.a); },
          {"@100.999999999 1 => 0 101.0",
           "@!22 1 => 6|!future_timeout" + not_read + "|future_timeout 6 -7.-7",
           "@100.999999999 -1" + bad + "-1 scale_to_sec: 1000000000\n|abs_time_offset 7" +
               "|future_timeout 7|!future_timeout Overflow detected when trying to set phase "
               "timeout tmp hack 100.999999999"});
    check(ts, [](Call &c) { c.put(tav_util_query_timeout_expired(&c.x, &c.i), c.i); },
          {"@100.500 101.0 => 0 0", "@100.500 100.501 => 0 0", "@100.500 100.500 => 0 1",
           "@100.500 99." + kMax + " => 0 1", "@!22 0.0 => 6|query_timeout_expired 6 7"});
    check(ts,
          [](Call &c) { c.put(tav_util_cmp_timeout(c.Q(0, c.x), c.Q(1, c.y), c.Q(2, c.i)), c.i); },
          {"1.5 1.5 => 0 0", "1.5 1.6 => 0 -1", "1.6 1.5 => 0 1", "1." + kMax + " 2.0 => 0 -1",
           "2.0 1.999999999 => 0 1", "null 1.0" + null + "(nil) p p|cmp_timeout 3 7",
           "1.0 null" + null + "p (nil) p|cmp_timeout 3 7",
           "1.0 1.0 null" + null + "p p (nil)|cmp_timeout 3 7"});
    check(
        ts, [](Call &c) { c.cut(tav_util_query_timeout_left(&c.x, c.buffer, c.M(1))); },
        {"@100.250000000 112.750000000 64 => 0 1.250000e+01 seconds",
         "@100.250000000 112.750000000 5 => 0 1.25",
         "@100.250000000 112.750000000 0 => 0 untouched",
         "@!22 112.0 64 => 6|!query_timeout_left" + not_read + "|query_timeout_left 6 untouched"});
    const std::string tv = "timeval_common", o = " => 33|safe_add_seconds 33 ";
    check(tv, [](Call &c) { c.put(tav_util_safe_add_seconds(&c.p, c.N(1)), c.p); },
          {kMax + ".777 0 => 0 " + kMax + ".777", kMax + ".777 1" + o + kMax + ".777",
           "9223372036854775806.777 1 => 0 " + kMax + ".777", "0.777 -1" + o + "0.777",
           "-9223372036854775808.777 -1 => 0 " + kMax + ".777"});
    check(tv, [](Call &c) { c.put(tav_util_future_time(c.N(0), c.Q(1, c.u)), c.u); },
          {"@100.250999000 5 => 0 105.250999", "@100.0 -1 null => 3|future_time 3 -7.-7",
           "@100.0 -1 => 7|future_time 7 -7.-7", "@!22 1 => 6|future_time 6 -7.-7",
           "@" + kMax + ".5000 1" + o + kMax + ".5"});
    check(tv,
          [](Call &c) {
              c.put(tav_util_timeval_cmp(&c.p, &c.q), tav_util_time_greater_than(&c.p, &c.q),
                    tav_util_time_diff_seconds(&c.p, &c.q));
          },
          {"1.5 1.5 => 0 0 0", "1.1500000 2.0 => -1 0 0.5", "2.0 1.1500000 => 1 1 -0.5",
           "1.5 1.6 => -1 0 -9.999999999177334e-07", "0.15 0.0 => 1 1 1.4999999999999999e-05"});
    check(tv, [](Call &c) { c.put(tav_util_timeval_to_ms(c.Q(0, c.p), c.Q(1, c.m)), c.m); },
          {"1.500000 => 0 1500", "1.999 => 0 1000", "0.-1500 => 0 " + kAll,
           "null => 3|timeval_to_ms 3 7", "1.0 null => 3|timeval_to_ms 3 7"});
    check(tv, [](Call &c) { c.put(tav_util_ms_to_timeval(c.M(0), c.Q(1, c.u)), c.u); },
          {"1500 => 0 1.500000", "0 => 0 0.0", "1500 null => 3 -7.-7"});
    check(tv,
          [](Call &c) { c.cut(tav_util_snprintf_human_time(c.buffer, c.M(1), std::stod(c.w[0]))); },
          {"0 => 0 0 seconds",       "1 => 0 1 second",
           "1.4 => 0 1 seconds",     "1.5 => 0 2 seconds",
           "2.5 => 0 2 seconds",     "59.7 => 0 60 seconds",
           "60 => 0 1 minute",       "90 => 0 2 minutes",
           "3599 => 0 60 minutes",   "3600 => 0 1 hour",
           "5400 => 0 2 hours",      "86399 => 0 24 hours",
           "86400 => 0 1 day",       "129600 => 0 2 days",
           "-30 => 0 -30 seconds",   "nan => 0 nan days",
           "-nan => 0 -nan days",    "inf => 0 inf days",
           "-inf => 0 -inf seconds", "90 4 => 0 2 m",
           "90 0 => 0 untouched",    "90 2147483648 => 0 untouched"});
    const std::string tm = "tm_common", far = "253402300800", // the year 10000
        no = "|now_str 3 26 7 untouched", broken = "|get_broken_down_time 6";
    check(tm,
          [](Call &c) {
              c.cut(tav_util_now_str(c.Q(1, c.buffer[0]), c.Q(2, c.size), &c.i));
              c.out = S(c.size) + " " + S(c.i) + " " +
                      (c.out == calendar(c.plan.at.tv_sec) ? "now" : c.out);
          },
          {"@0.0 26 => 0 24 7 now", "@0.0 25 => 7|now_str 7 25 7 untouched",
           "@0.0 26 null => 3" + no, "@0.0 26 b null => 3" + no,
           "@!1 26 => 6|now_str 6 26 1 untouched",
           "@" + far + ".0 26 => 6|now_str 6 26 75 written"});
    check(tm,
          [](Call &c) {
              c.put(tav_util_get_broken_down_time(&c.t));
              c.out = c.r == "0" ? S(mktime(&c.t)) : "";
          },
          {"@1700000000.0 => 0 1700000000",
           "@!1 => 6|!get_broken_down_time Failed to read time" + broken,
           "@" + kMax + ".0 => 6|!get_broken_down_time Failed to unpick time" + broken});
    // gmtime, then asctime of its result.
    check(tm,
          [](Call &c) {
              c.put(tav_util_gmtime(&c.x.tv_sec, &c.t));
              c.cut(tav_util_asctime(c.Q(2, c.t), c.Q(3, c.buffer[0]), c.M(1)));
          },
          {"0 26 => 0 0 Thu Jan  1 00:00:00 1970\n", "0 25 => 0 16|asctime 16 untouched",
           "0 26 null => 0 3|asctime 3 untouched", "0 26 t null => 0 3|asctime 3 untouched",
           far + " 26 => 0 6|asctime 6 written",
           kMax + " 25 => 6 16|gmtime 6|asctime 16 untouched"});
    // The seconds' product goes through a double; past 64 bits of nanoseconds: 0.
    check(tm,
          [](Call &c) {
              c.put(tav_util_timer_point(), tav_util_walltime_msec(), tav_util_walltime_usec());
          },
          {"@1700000000.123456789 => 1700000000123456789 1700000000123 1700000000123456",
           "@18446744073.0 => 18446744072999999488 18446744073000 18446744073000000",
           "@18446744074.0 => 0 18446744074000 18446744074000000",
           "@-1.999999999 => 0 " + kAll + " " + kAll, "@!22 => 0 0 0"});
}

// Each real reading lies between two others.
TEST(Time, RealClocks) {
    timespec t0, t1, t;
    timeval tv;
    tm local;
    char text[26];
    size_t size = sizeof text;
    int32_t expired = 0;
    const time_t s0 = time(nullptr), huge = INT64_MAX;
    clock_gettime(CLOCK_REALTIME, &t0);
    const int64_t got[] = {tav_util_future_timeout(&t, 0, 1) + tav_util_future_time(0, &tv) +
                               tav_util_now_str(text, &size, nullptr),
                           t.tv_sec * 1000000000 + t.tv_nsec,
                           (tv.tv_sec * 1000000 + tv.tv_usec) * 1000,
                           int64_t(tav_util_timer_point()),
                           int64_t(tav_util_walltime_usec() * 1000),
                           int64_t(tav_util_walltime_msec() * 1000000)};
    clock_gettime(CLOCK_REALTIME, &t1);
    EXPECT_TRUE(got[0] == 0 && (calendar(s0) == text || calendar(time(nullptr)) == text)) << text;
    for (size_t k = 1; k < std::size(got); ++k) {
        EXPECT_TRUE(t0.tv_sec * 1000000000 <= got[k] &&
                    got[k] <= t1.tv_sec * 1000000000 + t1.tv_nsec);
    }
    const uint64_t first = tav_util_read_cycles();
    EXPECT_TRUE(0 < first && first <= tav_util_read_cycles() && tav_util_sleep(0) == 0 &&
                tav_util_query_timeout_expired(&t, &expired) == TAV_OK && expired == 1 &&
                tav_util_localtime_r(&s0, &local) == &local && mktime(&local) == s0 &&
                !tav_util_localtime_r(&huge, &local));
    EXPECT_EQ(S(tav_util_timer_elapsed_seconds(0, 1500000000)) + " " +
                  S(tav_util_timer_elapsed_seconds(1, 0)),
              "1.5 18446744073.709553");
}

} // namespace
