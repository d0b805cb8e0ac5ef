// Time: timeouts, time values, clocks and calendar. The clock calls are
// stopped at chosen readings or failed (clock_inject), so values are exact;
// the real clocks are checked by bracketing a result between two readings.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>
#include <sys/time.h>
#include <tuple>
#include <vector>

#include "clock_inject.hpp"
#include "internal/timeout.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
using Plan = tavtest::ClockPlan;
using Seen = std::pair<int64_t, Lines>;
constexpr int64_t kMax = INT64_MAX;
constexpr time_t kYear10000 = 253402300800; // the first second asctime_r cannot write
constexpr time_t kNoCalendar = INT64_C(1) << 62;
const Lines kNone;

Plan at(int64_t sec, int64_t nsec = 0) { return {0, {sec, nsec}}; }
Plan fails(int error_number) { return {error_number, {}}; }
std::string trace(const std::string &function, const char *file, int status) {
    return "trace " + function + " src/time/" + file + ".cpp " + std::to_string(status);
}
Lines traced(const std::string &function, const char *file, int status) {
    return status == TAV_OK ? kNone : Lines{trace(function, file, status)};
}
template <typename T> std::pair<int64_t, int64_t> fields(const T &value) {
    if constexpr (requires { value.tv_nsec; }) {
        return {value.tv_sec, value.tv_nsec};
    } else {
        return {value.tv_sec, value.tv_usec};
    }
}

clockid_t last_clock = -1;

// Calls `operation` with `args` under the clock plan: its result and the
// reports it made. The clock id of its last clock_gettime is left in last_clock.
template <typename Operation, typename... Args>
Seen run(const Plan &plan, Operation operation, Args... args) {
    tavtest::clear_reports();
    tavtest::ClockInjection injection(plan);
    const auto result = static_cast<int64_t>(operation(args...));
    last_clock = injection.last_clock();
    return {result, tavtest::report_summary()};
}

// ---- absolute timeouts ---------------------------------------------------

TEST(Timeouts, OffsetAddsCarriesOnceAndTestsHeadroom) {
    struct Row {
        timespec in;
        int64_t val, scale;
        tav_status status;
        timespec out;
    };
    // clang-format off
    const Row rows[] = {
        {{5, 123}, 0, 1, TAV_OK, {5, 123}},              {{5, 123}, 1000, 1000, TAV_OK, {6, 123}},
        {{5, 123}, 999, 1000, TAV_OK, {5, 999000123}},   {{5, 0}, 1, 1000000000, TAV_OK, {5, 1}},
        {{5, 0}, 2, 3, TAV_OK, {5, 666666666}},          {{5, 0}, 7000000001, 7, TAV_OK, {1000000005, 142857142}},
        {{5, 500000000}, 500, 1000, TAV_OK, {6, 0}},     {{5, 999999999}, 2, 1000000000, TAV_OK, {6, 1}},
        {{5, 5000000000}, 0, 1, TAV_OK, {6, 4000000000}}, {{5, kMax}, 1, 1000000000, TAV_OK, {6, kMax - 999999999}},
        {{kMax - 3, 7}, 3, 1, TAV_OK, {kMax, 7}},        {{kMax, 0}, 999, 1000, TAV_OK, {kMax, 999000000}},
        {{5, 0}, 1, 1000000001, TAV_ERR_BAD_ARG, {5, 0}}, {{5, 0}, 1, 0, TAV_ERR_BAD_ARG, {5, 0}},
        {{5, 0}, -1, 1, TAV_ERR_BAD_ARG, {5, 0}},        {{kMax - 3, 7}, 4, 1, TAV_ERR_OVERFLOW, {kMax - 3, 7}},
        {{-1, 0}, 1, 1, TAV_ERR_OVERFLOW, {-1, 0}},      {{kMax, 999999999}, 1, 1000000000, TAV_ERR_OVERFLOW, {kMax, 0}},
        {{kMax - 1, 999999999}, 1000000001, 1000000000, TAV_ERR_OVERFLOW, {kMax, 0}},
        {{5, -1}, 3, 1, TAV_ERR_OVERFLOW, {8, -1}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(&row - rows);
        timespec t = row.in;
        Lines expected = traced("tav_util_abs_time_offset", "timespec_common", row.status);
        if (row.status == TAV_ERR_BAD_ARG) {
            expected.insert(expected.begin(), "log tav_util_abs_time_offset Bad value, val: " +
                                                  std::to_string(row.val) + " scale_to_sec: " +
                                                  std::to_string(row.scale) + "\n");
        }
        EXPECT_EQ(run({}, tav_util_abs_time_offset, &t, row.val, row.scale),
                  Seen(row.status, expected));
        EXPECT_EQ(fields(t), fields(row.out));
        if (row.status == TAV_OK) { // nothing lost or made, counted in 128 bits
            const __int128 g = 1000000000,
                           added = row.val / row.scale * g + row.val % row.scale * (g / row.scale);
            EXPECT_EQ(row.in.tv_sec * g + row.in.tv_nsec + added, t.tv_sec * g + t.tv_nsec);
        }
    }
}

TEST(Timeouts, FutureTimeoutAndExpiry) {
    const std::string overflow =
        "log tav_util_future_timeout Overflow detected when trying to set phase timeout tmp hack";
    const std::string abs = "tav_util_abs_time_offset", future = "tav_util_future_timeout";
    // clang-format off
    const std::tuple<Plan, int64_t, tav_status, timespec, Lines> rows[] = {
        {at(100, 999999999), 1, TAV_OK, {101, 0}, {}},
        {at(100, 999999999), -1, TAV_ERR_BAD_ARG, {100, 999999999},
         {"log " + abs + " Bad value, val: -1 scale_to_sec: 1000000000\n",
          trace(abs, "timespec_common", 7), trace(future, "timespec_common", 7), overflow}},
        {at(kMax, 999999999), 1, TAV_ERR_OVERFLOW, {kMax, 0},
         {trace(abs, "timespec_common", 33), trace(future, "timespec_common", 33), overflow}},
        {fails(EINVAL), 1, TAV_ERR_SYSTEM, {-7, -7},
         {"log " + future + " Failed to get current time.", trace(future, "timespec_common", 6)}},
    };
    // clang-format on
    for (const auto &[plan, val, status, out, reports] : rows) {
        timespec t = {-7, -7};
        EXPECT_EQ(run(plan, tav_util_future_timeout, &t, val, 1000000000), Seen(status, reports));
        EXPECT_EQ(last_clock, CLOCK_REALTIME);
        EXPECT_EQ(fields(t), fields(out));
    }

    // Expiry against a clock at 100 s 500 ns: an equal reading counts.
    const std::pair<timespec, int32_t> expiry[] = {
        {{101, 0}, 0},   {{100, 501}, 0}, {{100, 500}, 1},        {{100, 499}, 1},
        {{99, kMax}, 1}, {{-1, 0}, 1},    {{101, -1000000000}, 0}};
    for (const auto &[timeout, want] : expiry) {
        int32_t expired = 7;
        EXPECT_EQ(run(at(100, 500), tav_util_query_timeout_expired, &timeout, &expired),
                  Seen(TAV_OK, kNone));
        EXPECT_EQ(std::pair(expired, last_clock), std::pair(want, CLOCK_REALTIME));
    }
    int32_t expired = 7;
    EXPECT_EQ(run(fails(EINVAL), tav_util_query_timeout_expired, &expiry[0].first, &expired),
              Seen(TAV_ERR_SYSTEM, traced("tav_util_query_timeout_expired", "timespec_common", 6)));
    EXPECT_EQ(expired, 7);

    // On the real clock a timeout of now lies between two readings, and has
    // expired by the next call.
    timespec before, t, after;
    clock_gettime(CLOCK_REALTIME, &before);
    ASSERT_EQ(tav_util_future_timeout(&t, 0, 1), TAV_OK);
    clock_gettime(CLOCK_REALTIME, &after);
    EXPECT_TRUE(fields(before) <= fields(t) && fields(t) <= fields(after));
    EXPECT_EQ(tav_util_query_timeout_expired(&t, &expired), TAV_OK);
    EXPECT_EQ(expired, 1);
}

TEST(Timeouts, CompareAndTimeLeft) {
    // clang-format off
    const std::tuple<timespec, timespec, int32_t> rows[] = {
        {{1, 5}, {1, 5}, 0},       {{1, 5}, {1, 6}, -1},          {{1, 6}, {1, 5}, 1},  {{1, kMax}, {2, 0}, -1},
        {{2, 0}, {1, 999999999}, 1}, {{-1, 0}, {0, 0}, -1},       {{0, -1}, {0, 0}, -1}};
    // clang-format on
    for (const auto &[first, second, want] : rows) {
        int32_t order = 7;
        EXPECT_EQ(tav_util_cmp_timeout(&first, &second, &order), TAV_OK);
        EXPECT_EQ(order, want) << first.tv_sec << " " << first.tv_nsec;
    }
    int32_t order = 7;
    const timespec *some = &std::get<0>(rows[0]);
    for (int null_at = 0; null_at < 3; ++null_at) {
        const timespec *first = null_at == 0 ? nullptr : some,
                       *second = null_at == 1 ? nullptr : some;
        int32_t *out = null_at == 2 ? nullptr : &order;
        char line[128];
        std::snprintf(line, sizeof line,
                      "log tav_util_cmp_timeout NULL argument detected: %p %p %p",
                      static_cast<const void *>(first), static_cast<const void *>(second),
                      static_cast<void *>(out));
        EXPECT_EQ(
            run({}, tav_util_cmp_timeout, first, second, out),
            Seen(TAV_ERR_NULL_ARG, {line, trace("tav_util_cmp_timeout", "timespec_common", 3)}));
    }
    EXPECT_EQ(order, 7);

    // Time left against a clock at 100.25 s; a clock that fails leaves the buffer.
    const Lines failed = {"log tav_util_query_timeout_left Failed to get current time.",
                          trace("tav_util_query_timeout_left", "timespec_common", 6)};
    // clang-format off
    const std::tuple<Plan, int64_t, uint64_t, const char *, Seen> left[] = {
        {at(100, 250000000), 112, 64, "1.250000e+01 seconds", {TAV_OK, kNone}},
        {at(100, 250000000), 90, 64, "-9.500000e+00 seconds", {TAV_OK, kNone}},
        {at(100, 250000000), 112, 5, "1.25", {TAV_OK, kNone}},
        {at(100, 250000000), 112, 0, "untouched", {TAV_OK, kNone}},
        {fails(EINVAL), 112, 64, "untouched", {TAV_ERR_SYSTEM, failed}}};
    // clang-format on
    for (const auto &[plan, sec, size, text, seen] : left) {
        char buffer[64] = "untouched";
        const timespec timeout = {sec, 750000000};
        EXPECT_EQ(run(plan, tav_util_query_timeout_left, &timeout, buffer, size), seen);
        EXPECT_STREQ(buffer, text);
        EXPECT_EQ(last_clock, CLOCK_REALTIME);
    }
    EXPECT_EQ(tav_util_query_timeout_left(some, nullptr, 0), TAV_OK);
}

// ---- time values ------------------------------------------------------------

TEST(TimeValues, FutureTimeAndSafeAdd) {
    // clang-format off
    const std::tuple<int64_t, int64_t, tav_status, int64_t> rows[] = {
        {kMax, 0, TAV_OK, kMax},       {kMax, 1, TAV_ERR_OVERFLOW, kMax}, {kMax - 1, 1, TAV_OK, kMax},
        {0, -1, TAV_ERR_OVERFLOW, 0},  {-5, -1, TAV_ERR_OVERFLOW, -5},    {-5, kMax, TAV_OK, kMax - 5},
        // A negative tv_sec that passes the test wraps in the sum.
        {INT64_MIN, -1, TAV_OK, kMax}, {-5, INT64_MIN, TAV_OK, kMax - 4}};
    // clang-format on
    for (const auto &[sec, seconds, status, out] : rows) {
        __int128 headroom = static_cast<__int128>(kMax) - seconds; // the wrap made another way
        headroom -= headroom > kMax ? static_cast<__int128>(1) << 64 : 0;
        EXPECT_EQ(status != TAV_OK, headroom < sec);
        timeval tv = {sec, 777};
        EXPECT_EQ(run({}, tav_util_safe_add_seconds, &tv, seconds),
                  Seen(status, traced("tav_util_safe_add_seconds", "timeval_common", status)));
        EXPECT_EQ(fields(tv), std::pair(out, int64_t{777}));
    }

    // clang-format off
    const std::tuple<Plan, int32_t, bool, tav_status, timeval, Lines> future[] = {
        {at(100, 250999000), 5, false, TAV_OK, {105, 250999}, kNone},
        {at(100), -1, true, TAV_ERR_NULL_ARG, {-7, -7}, traced("tav_util_future_time", "future_time_linux", 3)},
        {at(100), -1, false, TAV_ERR_BAD_ARG, {-7, -7}, traced("tav_util_future_time", "future_time_linux", 7)},
        {fails(EINVAL), 1, false, TAV_ERR_SYSTEM, {-7, -7}, traced("tav_util_future_time", "future_time_linux", 6)},
        // Passed up untraced: the callee's entry alone.
        {at(kMax, 5000), 1, false, TAV_ERR_OVERFLOW, {kMax, 5}, traced("tav_util_safe_add_seconds", "timeval_common", 33)},
    };
    // clang-format on
    for (const auto &[plan, seconds, null_tv, status, out, reports] : future) {
        timeval tv = {-7, -7};
        EXPECT_EQ(run(plan, tav_util_future_time, seconds, null_tv ? nullptr : &tv),
                  Seen(status, reports));
        EXPECT_EQ(fields(tv), fields(out));
    }
    timeval before, tv, after;
    gettimeofday(&before, nullptr);
    ASSERT_EQ(tav_util_future_time(0, &tv), TAV_OK);
    gettimeofday(&after, nullptr);
    EXPECT_TRUE(fields(before) <= fields(tv) && fields(tv) <= fields(after));
}

TEST(TimeValues, CompareAndDifference) {
    // clang-format off
    const std::tuple<timeval, timeval, int32_t, int32_t, double> rows[] = {
        {{1, 5}, {1, 5}, 0, 0, 0.0},
        {{1, 1500000}, {2, 0}, -1, 0, 0.5}, // the seconds decide; nothing is normalised
        {{2, 0}, {1, 1500000}, 1, 1, -0.5},
        {{1, 5}, {1, 6}, -1, 0, -0x1.0c6f7a0bp-20}, // not -1e-6: each value is made whole first
        {{1, 6}, {1, 5}, 1, 1, 0x1.0c6f7a0bp-20},
        {{-1, 0}, {0, 0}, -1, 0, -1.0},
        {{0, 15}, {0, 0}, 1, 1, 0x1.f75104d551d68p-17}, // 15 times 1e-6; 15 / 1e6 ends in 9
        {{1700000000, 123457}, {1700000000, 3}, 1, 1, 0.12345385551452637},
    };
    // clang-format on
    for (const auto &[first, second, cmp, greater, diff] : rows) {
        EXPECT_EQ(std::tuple(tav_util_timeval_cmp(&first, &second),
                             tav_util_time_greater_than(&first, &second),
                             tav_util_time_diff_seconds(&first, &second)),
                  std::tuple(cmp, greater, diff))
            << first.tv_sec << " " << first.tv_usec;
    }
}

TEST(TimeValues, HumanTimeAndMilliseconds) {
    const double inf = __builtin_inf(), nan = __builtin_nan("");
    // clang-format off
    const std::tuple<double, size_t, const char *> human[] = {
        {0, 32, "0 seconds"},   {1, 32, "1 second"},     {1.4, 32, "1 seconds"}, {1.5, 32, "2 seconds"},
        {2.5, 32, "2 seconds"}, {59.7, 32, "60 seconds"}, {60, 32, "1 minute"},  {90, 32, "2 minutes"},
        {3599, 32, "60 minutes"}, {3600, 32, "1 hour"},  {5400, 32, "2 hours"},  {86399, 32, "24 hours"},
        {86400, 32, "1 day"},   {129600, 32, "2 days"},  {-30, 32, "-30 seconds"}, {nan, 32, "nan days"},
        {-nan, 32, "-nan days"}, {inf, 32, "inf days"},  {-inf, 32, "-inf seconds"},
        {90, 4, "2 m"},         {90, 0, "untouched"},    {90, 0x80000000, "untouched"}, // refused, unreported
    };
    // clang-format on
    for (const auto &[seconds, size, text] : human) {
        char buffer[32] = "untouched";
        EXPECT_EQ(run({}, tav_util_snprintf_human_time, buffer, size, seconds),
                  Seen(TAV_OK, kNone));
        EXPECT_STREQ(buffer, text) << seconds;
    }

    const std::pair<uint64_t, timeval> to_tv[] = {
        {1500, {1, 500000}}, {0, {0, 0}}, {UINT64_MAX, {18446744073709551, 615000}}};
    for (const auto &[ms, want] : to_tv) {
        timeval tv = {-7, -7};
        uint64_t back = 7;
        EXPECT_EQ(tav_util_ms_to_timeval(ms, &tv), TAV_OK);
        EXPECT_EQ(fields(tv), fields(want));
        EXPECT_EQ(tav_util_timeval_to_ms(&tv, &back), TAV_OK);
        EXPECT_EQ(back, ms);
    }
    // clang-format off
    const std::pair<timeval, uint64_t> to_ms[] = {
        {{1, 999}, 1000},         // truncated, not rounded
        {{0, -1500}, UINT64_MAX}, // the division truncates towards zero
        {{kMax, 0}, static_cast<uint64_t>(static_cast<unsigned __int128>(kMax) * 1000)}, {{-1, 1000}, UINT64_MAX - 998}};
    // clang-format on
    for (const auto &[tv, want] : to_ms) {
        uint64_t ms = 7;
        EXPECT_EQ(tav_util_timeval_to_ms(&tv, &ms), TAV_OK);
        EXPECT_EQ(ms, want);
    }
    uint64_t ms = 7;
    EXPECT_EQ(run({}, tav_util_ms_to_timeval, 1500, nullptr), Seen(TAV_ERR_NULL_ARG, kNone));
    const Lines entry = traced("tav_util_timeval_to_ms", "timeval_common", 3);
    EXPECT_EQ(run({}, tav_util_timeval_to_ms, nullptr, &ms), Seen(TAV_ERR_NULL_ARG, entry));
    EXPECT_EQ(run({}, tav_util_timeval_to_ms, &to_ms[0].first, nullptr),
              Seen(TAV_ERR_NULL_ARG, entry));
    EXPECT_EQ(ms, 7u);
}

// ---- clocks and calendar ----------------------------------------------------

// The 24 characters of ctime_r, made another way.
std::string calendar_text(time_t when) {
    tm broken_down;
    char text[64];
    localtime_r(&when, &broken_down);
    std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", &broken_down);
    return text;
}

TEST(Clocks, NowStr) {
    // clock, null buffer, null size, size, status, size after, slot after
    // clang-format off
    const std::tuple<Plan, bool, bool, size_t, tav_status, size_t, int32_t> rows[] = {
        {at(0), false, false, 26, TAV_OK, 24, 77},           {at(1700000000), false, false, 64, TAV_OK, 24, 77},
        {at(0), false, false, 25, TAV_ERR_BAD_ARG, 25, 77},  {at(0), true, false, 26, TAV_ERR_NULL_ARG, 26, 77},
        {at(0), false, true, 26, TAV_ERR_NULL_ARG, 26, 77},  {fails(EPERM), false, false, 26, TAV_ERR_SYSTEM, 26, EPERM},
        // Left to this library: a reading the calendar cannot write fails too.
        {at(kNoCalendar), false, false, 26, TAV_ERR_SYSTEM, 26, EINVAL},
        {at(kYear10000), false, false, 26, TAV_ERR_SYSTEM, 26, EOVERFLOW}, // ctime_r wrote, then failed
    };
    // clang-format on
    for (const auto &[plan, null_buffer, null_size, size_in, status, size_out, slot_out] : rows) {
        for (const bool with_slot : {true, false}) {
            SCOPED_TRACE(plan.at.tv_sec);
            char buffer[64] = "untouched";
            size_t size = size_in;
            int32_t slot = 77;
            EXPECT_EQ(run(plan, tav_util_now_str, null_buffer ? nullptr : buffer,
                          null_size ? nullptr : &size, with_slot ? &slot : nullptr),
                      Seen(status, traced("tav_util_now_str", "now_str_linux", status)));
            EXPECT_EQ(std::pair(size, slot), std::pair(size_out, with_slot ? slot_out : 77));
            if (plan.at.tv_sec != kYear10000) {
                EXPECT_EQ(buffer, status == TAV_OK ? calendar_text(plan.at.tv_sec) : "untouched");
            }
        }
    }
    // The real clock: the text of a reading between two others.
    char buffer[26];
    size_t size = sizeof buffer;
    const time_t before = time(nullptr);
    ASSERT_EQ(tav_util_now_str(buffer, &size, nullptr), TAV_OK);
    bool found = false;
    for (time_t t = before, after = time(nullptr); t <= after; ++t) {
        found = found || calendar_text(t) == buffer;
    }
    EXPECT_TRUE(found) << buffer;
}

TEST(Clocks, BrokenDownTimes) {
    const time_t when = 1700000000;
    tm out = {}, local;
    EXPECT_EQ(run(at(when), tav_util_get_broken_down_time, &out), Seen(TAV_OK, kNone));
    EXPECT_EQ(mktime(&out), when); // the local zone's inverse
    EXPECT_EQ(tav_util_localtime_r(&when, &local), &local);
    EXPECT_EQ(mktime(&local), when);
    EXPECT_EQ(tav_util_localtime_r(&kNoCalendar, &local), nullptr);
    for (const auto &[plan, line] : {std::pair(fails(EPERM), "Failed to read time"),
                                     std::pair(at(kNoCalendar), "Failed to unpick time")}) {
        EXPECT_EQ(run(plan, tav_util_get_broken_down_time, &out),
                  Seen(TAV_ERR_SYSTEM, {"log tav_util_get_broken_down_time " + std::string(line),
                                        trace("tav_util_get_broken_down_time", "tm_common", 6)}));
    }

    // gmtime, checked by its inverse; asctime against the Epoch's own text.
    for (const time_t t : {time_t{0}, time_t{-1}, time_t{951782400}, kYear10000 - 1, kYear10000}) {
        tm utc = {};
        EXPECT_EQ(tav_util_gmtime(&t, &utc), TAV_OK);
        EXPECT_EQ(timegm(&utc), t);
    }
    const time_t zero = 0, too_far = kMax;
    tm epoch, far;
    EXPECT_EQ(run({}, tav_util_gmtime, &too_far, &far),
              Seen(TAV_ERR_SYSTEM, traced("tav_util_gmtime", "tm_common", 6)));
    tav_util_gmtime(&zero, &epoch);
    tav_util_gmtime(&kYear10000, &far);
    // clang-format off
    const std::tuple<const tm *, bool, size_t, tav_status, const char *> asctime_rows[] = {
        {&epoch, false, 26, TAV_OK, "Thu Jan  1 00:00:00 1970\n"}, // the newline stays
        {&epoch, false, 25, TAV_ERR_TOO_SMALL, "untouched"},  {nullptr, false, 26, TAV_ERR_NULL_ARG, "untouched"},
        {&epoch, true, 26, TAV_ERR_NULL_ARG, "untouched"},    {&far, false, 26, TAV_ERR_SYSTEM, nullptr}};
    // clang-format on
    for (const auto &[broken_down, null_buffer, size, status, text] : asctime_rows) {
        char buffer[32] = "untouched";
        EXPECT_EQ(run({}, tav_util_asctime, broken_down, null_buffer ? nullptr : buffer, size),
                  Seen(status, traced("tav_util_asctime", "tm_common", status)));
        if (text != nullptr) {
            EXPECT_STREQ(buffer, text);
        }
    }
}

uint64_t nanos(int64_t sec, int64_t nsec) { return sec * UINT64_C(1000000000) + nsec; }

TEST(Clocks, CountsTimerAndCounter) {
    // clang-format off
    const std::tuple<Plan, uint64_t, uint64_t, uint64_t> rows[] = {
        {at(1700000000, 123456789), 1700000000123456789, 1700000000123, 1700000000123456},
        // Above 4611686018 s the seconds' product is rounded as a double.
        {at(4611686019, 7), 4611686019000000519, 4611686019000, 4611686019000000},
        {at(18446744073), 18446744072999999488u, 18446744073000, 18446744073000000},
        // Left to this library: a point that 64 bits cannot count is 0.
        {at(18446744074), 0, 18446744074000, 18446744074000000},
        {at(-1, 999999999), 0, UINT64_MAX, UINT64_MAX},
        {fails(EINVAL), 0, 0, 0},
    };
    // clang-format on
    for (const auto &[plan, point, msec, usec] : rows) {
        EXPECT_EQ(run(plan, tav_util_timer_point), Seen(point, kNone));
        EXPECT_EQ(last_clock, CLOCK_REALTIME);
        EXPECT_EQ(run(plan, tav_util_walltime_msec), Seen(msec, kNone));
        EXPECT_EQ(run(plan, tav_util_walltime_usec), Seen(usec, kNone));
    }
    // The real clocks: each count lies between two readings of its clock.
    timespec a, b;
    clock_gettime(CLOCK_REALTIME, &a);
    const uint64_t point = tav_util_timer_point();
    clock_gettime(CLOCK_REALTIME, &b);
    EXPECT_TRUE(nanos(a.tv_sec, a.tv_nsec) <= point && point <= nanos(b.tv_sec, b.tv_nsec));
    timeval c, d;
    gettimeofday(&c, nullptr);
    const uint64_t msec = tav_util_walltime_msec(), usec = tav_util_walltime_usec();
    gettimeofday(&d, nullptr);
    const uint64_t from = nanos(c.tv_sec, c.tv_usec * 1000), to = nanos(d.tv_sec, d.tv_usec * 1000);
    EXPECT_TRUE(from / 1000000 <= msec && msec <= usec / 1000 && usec <= to / 1000);

    EXPECT_EQ(tav_util_timer_elapsed_seconds(0, 1500000000), 1.5);
    EXPECT_EQ(tav_util_timer_elapsed_seconds(1, 0), 18446744073.709553); // unsigned: no sign
    EXPECT_EQ(tav_util_sleep(0), 0u);

#if defined(__aarch64__) || defined(__x86_64__)
    // The counter, bracketed by two reads of the same register.
    auto counter = [] {
        uint64_t value;
#if defined(__aarch64__)
        __asm__ __volatile__("mrs %0, cntvct_el0" : "=r"(value));
#else
        uint32_t low, high;
        __asm__ __volatile__("rdtsc" : "=a"(low), "=d"(high));
        value = (static_cast<uint64_t>(high) << 32) | low;
#endif
        return value;
    };
    const uint64_t before = counter(), cycles = tav_util_read_cycles(), after = counter();
    EXPECT_TRUE(before <= cycles && cycles <= after);
#endif
}

} // namespace
