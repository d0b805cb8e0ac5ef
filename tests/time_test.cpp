// Time: absolute timeouts, time values and clocks. The clock calls are
// stopped at chosen readings or failed (clock_inject), so that every value is
// exact; the few readings of the real clock are bracketed by two readings of
// the same clock.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <string>
#include <sys/time.h>
#include <vector>

#include "clock_inject.hpp"
#include "internal/timeout.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
constexpr int64_t kMax = INT64_MAX;
const std::string kTimespecPath = " src/time/timespec_common.cpp ";

std::string trace(const std::string &function, const std::string &path, int status) {
    return "trace " + function + path + std::to_string(status);
}

tavtest::ClockPlan stopped_at(int64_t sec, int64_t nsec) {
    tavtest::ClockPlan plan;
    plan.fixed = true;
    plan.at = {sec, nsec};
    return plan;
}

tavtest::ClockPlan failing(int error_number) {
    tavtest::ClockPlan plan;
    plan.fail_with = error_number;
    return plan;
}

// ---- absolute timeouts ---------------------------------------------------

TEST(Timeouts, OffsetAddsCarriesOnceAndTestsHeadroom) {
    struct Row {
        timespec in;
        int64_t val, scale;
        tav_status status;
        timespec out;
    };
    const std::string bad = "log tav_util_abs_time_offset Bad value, val: ";
    // clang-format off
    const Row rows[] = {
        {{5, 123}, 0, 1, TAV_OK, {5, 123}},
        {{5, 123}, 1000, 1000, TAV_OK, {6, 123}},
        {{5, 123}, 999, 1000, TAV_OK, {5, 999000123}},
        {{5, 0}, 1, 1000000000, TAV_OK, {5, 1}},
        {{5, 0}, 2, 3, TAV_OK, {5, 666666666}},          // the quotient truncated first
        {{5, 0}, 7000000001, 7, TAV_OK, {1000000005, 142857142}},
        {{5, 500000000}, 500, 1000, TAV_OK, {6, 0}},
        {{5, 999999999}, 2, 1000000000, TAV_OK, {6, 1}},
        {{5, 5000000000}, 0, 1, TAV_OK, {6, 4000000000}}, // one second carried, no more
        {{5, kMax - 1}, 1, 1000000000, TAV_OK, {6, kMax - 1000000000}},
        {{kMax - 3, 7}, 3, 1, TAV_OK, {kMax, 7}},
        {{kMax, 0}, 999, 1000, TAV_OK, {kMax, 999000000}},
        {{5, 0}, 1, 1000000001, TAV_ERR_BAD_ARG, {5, 0}},
        {{5, 0}, 1, 0, TAV_ERR_BAD_ARG, {5, 0}},
        {{5, 0}, -1, 1, TAV_ERR_BAD_ARG, {5, 0}},
        {{kMax - 3, 7}, 4, 1, TAV_ERR_OVERFLOW, {kMax - 3, 7}},    // whole seconds
        {{-1, 0}, 1, 1, TAV_ERR_OVERFLOW, {-1, 0}},                // the headroom wraps
        {{kMax, 999999999}, 1, 1000000000, TAV_ERR_OVERFLOW, {kMax, 0}}, // at the carry
        {{kMax - 1, 999999999}, 1000000001, 1000000000, TAV_ERR_OVERFLOW, {kMax, 0}},
        {{5, -1}, 3, 1, TAV_ERR_OVERFLOW, {8, -1}},                // nanoseconds
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.in.tv_sec) + "," + std::to_string(row.in.tv_nsec) + " + " +
                     std::to_string(row.val) + "/" + std::to_string(row.scale));
        tavtest::clear_reports();
        timespec t = row.in;
        EXPECT_EQ(tav_util_abs_time_offset(&t, row.val, row.scale), row.status);
        EXPECT_EQ(t.tv_sec, row.out.tv_sec);
        EXPECT_EQ(t.tv_nsec, row.out.tv_nsec);
        Lines expected;
        if (row.status == TAV_ERR_BAD_ARG) {
            expected.push_back(bad + std::to_string(row.val) +
                               " scale_to_sec: " + std::to_string(row.scale) + "\n");
        }
        if (row.status != TAV_OK) {
            expected.push_back(trace("tav_util_abs_time_offset", kTimespecPath, row.status));
        } else {
            // Nothing is lost or made: the nanoseconds counted in 128 bits agree.
            const __int128 g = 1000000000, q = g / row.scale;
            EXPECT_EQ(t.tv_sec * g + t.tv_nsec, row.in.tv_sec * g + row.in.tv_nsec +
                                                    row.val / row.scale * g +
                                                    row.val % row.scale * q);
        }
        EXPECT_EQ(tavtest::report_summary(), expected);
    }
}

TEST(Timeouts, FutureTimeoutReadsTheRealTimeClock) {
    const std::string overflow =
        "log tav_util_future_timeout Overflow detected when trying to set phase timeout tmp hack";
    struct Row {
        tavtest::ClockPlan plan;
        int64_t val;
        tav_status status;
        timespec out;
        Lines reports;
    };
    const timespec untouched = {-7, -7};
    const Row rows[] = {
        {stopped_at(100, 999999999), 1, TAV_OK, {101, 0}, {}},
        {stopped_at(100, 999999999),
         -1,
         TAV_ERR_BAD_ARG,
         {100, 999999999},
         {"log tav_util_abs_time_offset Bad value, val: -1 scale_to_sec: 1000000000\n",
          trace("tav_util_abs_time_offset", kTimespecPath, TAV_ERR_BAD_ARG),
          trace("tav_util_future_timeout", kTimespecPath, TAV_ERR_BAD_ARG), overflow}},
        {stopped_at(kMax, 999999999),
         1,
         TAV_ERR_OVERFLOW,
         {kMax, 0},
         {trace("tav_util_abs_time_offset", kTimespecPath, TAV_ERR_OVERFLOW),
          trace("tav_util_future_timeout", kTimespecPath, TAV_ERR_OVERFLOW), overflow}},
        {failing(EINVAL),
         1,
         TAV_ERR_SYSTEM,
         untouched,
         {"log tav_util_future_timeout Failed to get current time.",
          trace("tav_util_future_timeout", kTimespecPath, TAV_ERR_SYSTEM)}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.val);
        tavtest::clear_reports();
        timespec t = untouched;
        {
            tavtest::ClockInjection clock(row.plan);
            EXPECT_EQ(tav_util_future_timeout(&t, row.val, 1000000000), row.status);
            EXPECT_EQ(clock.last_clock(), CLOCK_REALTIME);
        }
        EXPECT_EQ(t.tv_sec, row.out.tv_sec);
        EXPECT_EQ(t.tv_nsec, row.out.tv_nsec);
        EXPECT_EQ(tavtest::report_summary(), row.reports);
    }

    // On the real clock: a timeout of now lies between two readings, and has
    // expired by the next call.
    timespec before, t, after;
    clock_gettime(CLOCK_REALTIME, &before);
    ASSERT_EQ(tav_util_future_timeout(&t, 0, 1), TAV_OK);
    clock_gettime(CLOCK_REALTIME, &after);
    int32_t order = 0, expired = 0;
    tav_util_cmp_timeout(&before, &t, &order);
    EXPECT_LE(order, 0);
    tav_util_cmp_timeout(&t, &after, &order);
    EXPECT_LE(order, 0);
    EXPECT_EQ(tav_util_query_timeout_expired(&t, &expired), TAV_OK);
    EXPECT_EQ(expired, 1);
}

TEST(Timeouts, ExpiredWhenTheClockHasReachedIt) {
    struct Row {
        timespec timeout;
        int32_t expired;
    };
    // The clock reads 100 s 500 ns; an equal reading counts as reached.
    const Row rows[] = {{{101, 0}, 0},   {{100, 501}, 0}, {{100, 500}, 1},        {{100, 499}, 1},
                        {{99, kMax}, 1}, {{-1, 0}, 1},    {{101, -1000000000}, 0}};
    tavtest::clear_reports();
    for (const Row &row : rows) {
        int32_t expired = 7;
        tavtest::ClockInjection clock(stopped_at(100, 500));
        EXPECT_EQ(tav_util_query_timeout_expired(&row.timeout, &expired), TAV_OK);
        EXPECT_EQ(clock.last_clock(), CLOCK_REALTIME);
        EXPECT_EQ(expired, row.expired) << row.timeout.tv_sec << " " << row.timeout.tv_nsec;
    }
    int32_t expired = 7;
    {
        tavtest::ClockInjection clock(failing(EINVAL));
        EXPECT_EQ(tav_util_query_timeout_expired(&rows[0].timeout, &expired), TAV_ERR_SYSTEM);
    }
    EXPECT_EQ(expired, 7);
    EXPECT_EQ(tavtest::report_summary(),
              Lines{trace("tav_util_query_timeout_expired", kTimespecPath, TAV_ERR_SYSTEM)});
}

TEST(Timeouts, CompareFieldByField) {
    struct Row {
        timespec first, second;
        int32_t order;
    };
    const Row rows[] = {
        {{1, 5}, {1, 5}, 0},           {{1, 5}, {1, 6}, -1},        {{1, 6}, {1, 5}, 1},
        {{1, kMax}, {2, 0}, -1},       {{2, 0}, {1, 999999999}, 1}, {{-1, 0}, {0, 0}, -1},
        {{1, 2000000000}, {2, 0}, -1}, {{0, -1}, {0, 0}, -1},
    };
    for (const Row &row : rows) {
        int32_t order = 7;
        EXPECT_EQ(tav_util_cmp_timeout(&row.first, &row.second, &order), TAV_OK);
        EXPECT_EQ(order, row.order) << row.first.tv_sec << "," << row.first.tv_nsec << " vs "
                                    << row.second.tv_sec << "," << row.second.tv_nsec;
    }
    const timespec *a = &rows[0].first;
    int32_t order = 7;
    for (int null_at = 0; null_at < 3; ++null_at) {
        tavtest::clear_reports();
        const timespec *first = null_at == 0 ? nullptr : a, *second = null_at == 1 ? nullptr : a;
        int32_t *out = null_at == 2 ? nullptr : &order;
        char text[128];
        std::snprintf(text, sizeof text, "NULL argument detected: %p %p %p",
                      static_cast<const void *>(first), static_cast<const void *>(second),
                      static_cast<void *>(out));
        EXPECT_EQ(tav_util_cmp_timeout(first, second, out), TAV_ERR_NULL_ARG);
        EXPECT_EQ(tavtest::report_summary(),
                  (Lines{"log tav_util_cmp_timeout " + std::string(text),
                         trace("tav_util_cmp_timeout", kTimespecPath, TAV_ERR_NULL_ARG)}));
    }
    EXPECT_EQ(order, 7);
}

TEST(Timeouts, TimeLeftAsText) {
    struct Row {
        timespec timeout;
        uint64_t size;
        const char *text;
    };
    // The clock reads 100.25 s.
    const Row rows[] = {
        {{112, 750000000}, 64, "1.250000e+01 seconds"},
        {{90, 0}, 64, "-1.025000e+01 seconds"},
        {{100, 250000000}, 64, "0.000000e+00 seconds"},
        {{112, 750000000}, 5, "1.25"},
        {{112, 750000000}, 0, "untouched"},
    };
    tavtest::clear_reports();
    for (const Row &row : rows) {
        char buffer[64] = "untouched";
        tavtest::ClockInjection clock(stopped_at(100, 250000000));
        EXPECT_EQ(tav_util_query_timeout_left(&row.timeout, buffer, row.size), TAV_OK);
        EXPECT_EQ(clock.last_clock(), CLOCK_REALTIME);
        EXPECT_STREQ(buffer, row.text);
    }
    EXPECT_EQ(tav_util_query_timeout_left(&rows[0].timeout, nullptr, 0), TAV_OK);
    char buffer[64] = "untouched";
    {
        tavtest::ClockInjection clock(failing(EINVAL));
        EXPECT_EQ(tav_util_query_timeout_left(&rows[0].timeout, buffer, sizeof buffer),
                  TAV_ERR_SYSTEM);
    }
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"log tav_util_query_timeout_left Failed to get current time.",
                     trace("tav_util_query_timeout_left", kTimespecPath, TAV_ERR_SYSTEM)}));
}

// ---- time values ------------------------------------------------------------

const std::string kTimevalPath = " src/time/timeval_common.cpp ";

TEST(TimeValues, FutureTimeAndSafeAdd) {
    // Whether the sum passes the limit, with the headroom's wrap made in 128 bits.
    auto passes_limit = [](int64_t sec, int64_t seconds) {
        __int128 headroom = static_cast<__int128>(kMax) - seconds;
        if (headroom > kMax) {
            headroom -= static_cast<__int128>(1) << 64;
        }
        return headroom < sec;
    };
    struct Row {
        int64_t sec, seconds;
        tav_status status;
        int64_t out;
    };
    const Row rows[] = {
        {kMax, 0, TAV_OK, kMax},        {kMax, 1, TAV_ERR_OVERFLOW, kMax},
        {kMax - 1, 1, TAV_OK, kMax},    {5, 7, TAV_OK, 12},
        {0, -1, TAV_ERR_OVERFLOW, 0},   {kMax, -1, TAV_ERR_OVERFLOW, kMax},
        {-5, -1, TAV_ERR_OVERFLOW, -5}, {INT64_MIN, -1, TAV_OK, kMax},     // wraps
        {-5, kMax, TAV_OK, kMax - 5},   {-5, INT64_MIN, TAV_OK, kMax - 4}, // wraps
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.sec) + " + " + std::to_string(row.seconds));
        tavtest::clear_reports();
        EXPECT_EQ(row.status != TAV_OK, passes_limit(row.sec, row.seconds));
        timeval tv = {row.sec, 777};
        EXPECT_EQ(tav_util_safe_add_seconds(&tv, row.seconds), row.status);
        EXPECT_EQ(tv.tv_sec, row.out);
        EXPECT_EQ(tv.tv_usec, 777);
        EXPECT_EQ(tavtest::report_summary(),
                  row.status == TAV_OK
                      ? Lines{}
                      : Lines{trace("tav_util_safe_add_seconds", kTimevalPath, TAV_ERR_OVERFLOW)});
    }

    const std::string future = "tav_util_future_time", path = " src/time/future_time_linux.cpp ";
    struct FutureRow {
        tavtest::ClockPlan plan;
        int32_t seconds;
        bool null_tv;
        tav_status status;
        timeval out;
        Lines reports;
    };
    const FutureRow future_rows[] = {
        {stopped_at(100, 250999000), 5, false, TAV_OK, {105, 250999}, {}},
        {stopped_at(100, 250999000), 0, false, TAV_OK, {100, 250999}, {}},
        {stopped_at(100, 0), -1, true, TAV_ERR_NULL_ARG, {-7, -7}, {trace(future, path, 3)}},
        {stopped_at(100, 0), -1, false, TAV_ERR_BAD_ARG, {-7, -7}, {trace(future, path, 7)}},
        {failing(EINVAL), 1, false, TAV_ERR_SYSTEM, {-7, -7}, {trace(future, path, 6)}},
        // The callee's entry alone: the status is passed up untraced.
        {stopped_at(kMax, 5000),
         1,
         false,
         TAV_ERR_OVERFLOW,
         {kMax, 5},
         {trace("tav_util_safe_add_seconds", kTimevalPath, TAV_ERR_OVERFLOW)}},
    };
    for (const FutureRow &row : future_rows) {
        SCOPED_TRACE(row.seconds);
        tavtest::clear_reports();
        timeval tv = {-7, -7};
        {
            tavtest::ClockInjection clock(row.plan);
            EXPECT_EQ(tav_util_future_time(row.seconds, row.null_tv ? nullptr : &tv), row.status);
        }
        EXPECT_EQ(tv.tv_sec, row.out.tv_sec);
        EXPECT_EQ(tv.tv_usec, row.out.tv_usec);
        EXPECT_EQ(tavtest::report_summary(), row.reports);
    }
    timeval before, tv, after;
    gettimeofday(&before, nullptr);
    ASSERT_EQ(tav_util_future_time(0, &tv), TAV_OK);
    gettimeofday(&after, nullptr);
    EXPECT_LE(tav_util_timeval_cmp(&before, &tv), 0);
    EXPECT_LE(tav_util_timeval_cmp(&tv, &after), 0);
}

TEST(TimeValues, CompareAndDifference) {
    struct Row {
        timeval first, second;
        int32_t cmp, greater;
        double diff;
    };
    // clang-format off
    const Row rows[] = {
        {{1, 5}, {1, 5}, 0, 0, 0.0},
        {{1, 1500000}, {2, 0}, -1, 0, 0.5},   // the seconds decide; nothing is normalised
        {{2, 0}, {1, 1500000}, 1, 1, -0.5},
        {{1, 5}, {1, 6}, -1, 0, -0x1.0c6f7a0bp-20}, // not -1e-6: whole values first
        {{1, 6}, {1, 5}, 1, 1, 0x1.0c6f7a0bp-20},
        {{-1, 0}, {0, 0}, -1, 0, -1.0},
        {{0, -1}, {0, 0}, -1, 0, -0x1.0c6f7a0b5ed8dp-20},
        // 15 us: the product by 1e-6 ends in ...d68, the quotient by 1e6 in ...d69.
        {{0, 15}, {0, 0}, 1, 1, 0x1.f75104d551d68p-17},
        // Each value becomes a double on its own before the subtraction.
        {{1700000000, 123457}, {1700000000, 3}, 1, 1, 0.12345385551452637},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.first.tv_sec) + "," + std::to_string(row.first.tv_usec) +
                     " vs " + std::to_string(row.second.tv_sec) + "," +
                     std::to_string(row.second.tv_usec));
        EXPECT_EQ(tav_util_timeval_cmp(&row.first, &row.second), row.cmp);
        EXPECT_EQ(tav_util_time_greater_than(&row.first, &row.second), row.greater);
        EXPECT_EQ(tav_util_time_diff_seconds(&row.first, &row.second), row.diff);
    }
}

TEST(TimeValues, HumanTime) {
    struct Row {
        double seconds;
        const char *text;
    };
    const double inf = __builtin_inf(), nan = __builtin_nan("");
    const Row rows[] = {
        {0, "0 seconds"},     {1, "1 second"},      {1.4, "1 seconds"},     {1.5, "2 seconds"},
        {2.5, "2 seconds"},   {59.7, "60 seconds"}, {60, "1 minute"},       {90, "2 minutes"},
        {3599, "60 minutes"}, {3600, "1 hour"},     {5400, "2 hours"},      {86399, "24 hours"},
        {86400, "1 day"},     {129600, "2 days"},   {-30, "-30 seconds"},   {nan, "nan days"},
        {-nan, "-nan days"},  {inf, "inf days"},    {-inf, "-inf seconds"},
    };
    tavtest::clear_reports();
    for (const Row &row : rows) {
        char buffer[32] = "untouched";
        EXPECT_EQ(tav_util_snprintf_human_time(buffer, sizeof buffer, row.seconds), TAV_OK);
        EXPECT_STREQ(buffer, row.text) << row.seconds;
    }
    // A text cut short, and sizes that write nothing, are no failure.
    char buffer[32] = "untouched";
    EXPECT_EQ(tav_util_snprintf_human_time(buffer, 4, 90), TAV_OK);
    EXPECT_STREQ(buffer, "2 m");
    EXPECT_EQ(tav_util_snprintf_human_time(buffer, 0, 90), TAV_OK);
    EXPECT_EQ(tav_util_snprintf_human_time(buffer, uint64_t{0x80000000}, 90), TAV_OK);
    EXPECT_STREQ(buffer, "2 m");
    EXPECT_EQ(tavtest::report_summary(), Lines{});
}

TEST(TimeValues, Milliseconds) {
    struct Row {
        uint64_t ms;
        timeval tv;
    };
    const Row rows[] = {
        {1500, {1, 500000}}, {0, {0, 0}}, {UINT64_MAX, {18446744073709551, 615000}}};
    tavtest::clear_reports();
    for (const Row &row : rows) {
        timeval tv = {-7, -7};
        EXPECT_EQ(tav_util_ms_to_timeval(row.ms, &tv), TAV_OK);
        EXPECT_EQ(tv.tv_sec, row.tv.tv_sec);
        EXPECT_EQ(tv.tv_usec, row.tv.tv_usec);
        uint64_t back = 7;
        EXPECT_EQ(tav_util_timeval_to_ms(&tv, &back), TAV_OK);
        EXPECT_EQ(back, row.ms);
    }
    EXPECT_EQ(tav_util_ms_to_timeval(1500, nullptr), TAV_ERR_NULL_ARG); // silent

    struct ToRow {
        timeval tv;
        uint64_t ms;
    };
    const ToRow to_rows[] = {
        {{1, 999}, 1000},         // truncated, not rounded
        {{0, -1500}, UINT64_MAX}, // the division truncates towards zero
        {{kMax, 0}, static_cast<uint64_t>((static_cast<unsigned __int128>(kMax) * 1000))},
        {{-1, 1000}, UINT64_MAX - 998},
    };
    for (const ToRow &row : to_rows) {
        uint64_t ms = 7;
        EXPECT_EQ(tav_util_timeval_to_ms(&row.tv, &ms), TAV_OK);
        EXPECT_EQ(ms, row.ms) << row.tv.tv_sec << "," << row.tv.tv_usec;
    }
    uint64_t ms = 7;
    EXPECT_EQ(tav_util_timeval_to_ms(nullptr, &ms), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_timeval_to_ms(&to_rows[0].tv, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(ms, 7u);
    const std::string entry = trace("tav_util_timeval_to_ms", kTimevalPath, TAV_ERR_NULL_ARG);
    EXPECT_EQ(tavtest::report_summary(), (Lines{entry, entry}));
}

} // namespace
