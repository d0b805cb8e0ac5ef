// Time: absolute timeouts, time values and clocks. The clock calls are
// stopped at chosen readings or failed (clock_inject), so that every value is
// exact; the few readings of the real clock are bracketed by two readings of
// the same clock.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "clock_inject.hpp"
#include "internal/timeout.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
constexpr int64_t kMax = INT64_MAX;
const std::string kTimespecPath = " src/time/timespec_common.cpp ";

std::string trace(const std::string &function, const std::string &path, tav_status status) {
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

} // namespace
