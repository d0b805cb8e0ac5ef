// The reporting frame: each reporting word makes exactly its calls.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>

#include "alloc_inject.hpp"
#include "internal/frame.hpp"
#include "recorder.hpp"

namespace {

using tavtest::Report;

class Frame : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::clear_reports(); }
};

tav_status fail_here() { return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG); }

TEST_F(Frame, TracedCarriesNameSourcePathAndStatus) {
    EXPECT_EQ(fail_here(), TAV_ERR_BAD_ARG);
    ASSERT_EQ(tavtest::reports().size(), 1U);
    const Report &r = tavtest::reports()[0];
    EXPECT_EQ(r.kind, Report::kTrace);
    EXPECT_EQ(r.function, "fail_here");
    EXPECT_EQ(r.path, tav::source_path(__FILE__));
    EXPECT_GT(r.line, 0);
}

TEST_F(Frame, SourcePathStartsAtSrc) {
    using std::string_view;
    static_assert(string_view(tav::source_path("/a/src/b/src/string/x.cpp")) == "src/string/x.cpp");
    static_assert(string_view(tav::source_path("/home/u/src/proj/src/x.cpp")) == "src/x.cpp");
    static_assert(string_view(tav::source_path("src/x.cpp")) == "src/x.cpp");
}

tav_status tested_then_returned(tav_status status) {
    const tav::Site tested = TAV_SITE;
    return tav::traced_twice(tested, TAV_SITE, status);
}

TEST_F(Frame, TracedTwiceMakesTwoEntriesOnTwoLines) {
    const tav_status s = tested_then_returned(TAV_ERR_NOMEM);
    EXPECT_EQ(s, TAV_ERR_NOMEM);
    ASSERT_EQ(tavtest::reports().size(), 2U);
    EXPECT_EQ(tavtest::reports()[0].status, TAV_ERR_NOMEM);
    EXPECT_EQ(tavtest::reports()[1].status, TAV_ERR_NOMEM);
    EXPECT_NE(tavtest::reports()[0].line, tavtest::reports()[1].line);
}

void plain_line_maker(const char *caller_text) { TAV_PLAIN_LINE("Could not use %s", caller_text); }

TEST_F(Frame, PlainLineHasNoFileAndLineZero) {
    plain_line_maker("100% sure");
    ASSERT_EQ(tavtest::reports().size(), 1U);
    const Report &r = tavtest::reports()[0];
    EXPECT_EQ(r.kind, Report::kLog);
    EXPECT_EQ(r.severity, 3);
    EXPECT_EQ(r.module, 128);
    EXPECT_EQ(r.function, "plain_line_maker");
    EXPECT_EQ(r.path, "");
    EXPECT_EQ(r.line, 0);
    EXPECT_EQ(r.text, "Could not use 100% sure");
}

void reasoned_maker(int error_number, const char *what) {
    tav::reasoned_line(error_number, TAV_SITE, "Could not open %s", what);
}

TEST_F(Frame, ReasonedLineJoinsMessageAndSystemText) {
    reasoned_maker(ENOENT, "/x");
    ASSERT_EQ(tavtest::reports().size(), 1U);
    const Report &r = tavtest::reports()[0];
    EXPECT_EQ(r.function, "reasoned_maker");
    EXPECT_EQ(r.path, tav::source_path(__FILE__));
    EXPECT_GT(r.line, 0);
    EXPECT_EQ(r.format, "%s  Reason: %s");
    EXPECT_EQ(r.text, std::string("Could not open /x  Reason: ") + std::strerror(ENOENT));
}

// The reason is the XSI strerror_r text, which glibc supplies even for numbers
// it does not know ("Unknown error N"); the numeric fallback stands only
// where a C library leaves the buffer alone.
TEST_F(Frame, UnknownErrorNumberTakesTheSystemText) {
    for (int number : {99999, -5}) {
        tavtest::clear_reports();
        reasoned_maker(number, "y");
        ASSERT_EQ(tavtest::reports().size(), 1U);
        EXPECT_EQ(tavtest::reports()[0].text,
                  std::string("Could not open y  Reason: ") + std::strerror(number));
    }
}

TEST_F(Frame, LongMessageIsCutAt2047Characters) {
    const std::string long_text(5000, 'm');
    reasoned_maker(EPERM, long_text.c_str());
    ASSERT_EQ(tavtest::reports().size(), 1U);
    const std::string expected =
        ("Could not open " + long_text).substr(0, 2047) + "  Reason: " + std::strerror(EPERM);
    EXPECT_EQ(tavtest::reports()[0].text, expected);
}

void perror_maker() { tav::perror_line(EACCES, TAV_SITE, "setenv failed"); }

TEST_F(Frame, PerrorLineCarriesTheSavedNumber) {
    perror_maker();
    ASSERT_EQ(tavtest::reports().size(), 1U);
    const Report &r = tavtest::reports()[0];
    EXPECT_EQ(r.kind, Report::kPerror);
    EXPECT_EQ(r.error_number, EACCES);
    EXPECT_EQ(r.severity, 3);
    EXPECT_EQ(r.module, 128);
    EXPECT_EQ(r.function, "perror_maker");
    EXPECT_EQ(r.path, tav::source_path(__FILE__));
    EXPECT_EQ(r.text, "setenv failed");
}

TEST_F(Frame, NullErrnoSlotIsNeverWritten) {
    tav::store_errno(nullptr, 5); // must not crash
    int32_t slot = -1;
    tav::store_errno(&slot, 5);
    EXPECT_EQ(slot, 5);
}

// The guards release what they own on every path, and nothing once handed on.
TEST(Guards, ReleaseOnScopeExitUnlessHandedOn) {
    int closed = -1;
    int kept = -1;
    {
        tav::UniqueFd guard(open("/dev/null", O_RDONLY));
        tav::UniqueFd handed_on(open("/dev/null", O_RDONLY));
        closed = guard.get();
        kept = handed_on.release();
        EXPECT_FALSE(handed_on);
    }
    EXPECT_EQ(fcntl(closed, F_GETFD), -1);
    EXPECT_NE(fcntl(kept, F_GETFD), -1);
    close(kept);
    const auto run = tavtest::run_allocations(0, [] {
        tav::MallocPtr<char> block(static_cast<char *>(std::malloc(4)));
        tav::UniqueFile stream(fopen("/dev/null", "r"));
    });
    EXPECT_EQ(run.live_blocks, 0);
}

} // namespace
