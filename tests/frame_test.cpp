// What the family tests leave open in the reporting frame: the fields their
// summaries do not show, the reason for an unknown number, a long message
// cut, and the guards that release unless handed on.
#include <fcntl.h>

#include "internal/frame.hpp"
#include "rows.hpp"

namespace {

const std::string kHere = tav::source_path(__FILE__);
tav_status twice(tav_status status) {
    const tav::Site tested = TAV_SITE;
    return tav::traced_twice(tested, TAV_SITE, status);
}
void plain(const char *text) { TAV_PLAIN_LINE("Could not use %s", text); }
void reasoned(int number, const char *text) {
    tav::reasoned_line(number, TAV_SITE, "Could not open %s", text);
}
void failed() { tav::perror_line(EACCES, TAV_SITE, "setenv failed"); }

TEST(Frame, EachWordMakesExactlyItsCalls) {
    static_assert(std::string_view(tav::source_path("/a/src/b/src/string/x.cpp")) ==
                  "src/string/x.cpp");
    tavtest::clear_reports();
    twice(TAV_ERR_NOMEM);
    plain("100% sure");
    reasoned(99999, std::string(5000, 'm').c_str());
    failed();
    // Kind, function, path, line (L when above 0 and new), status,
    // severity/module, error number, format=text.
    std::string all;
    int32_t last_line = 0;
    for (const tavtest::Report &r : tavtest::reports()) {
        all += std::to_string(r.kind) + " " + r.function + " " +
               (r.path == kHere ? "here" : r.path) +
               (r.line > 0 ? r.line != last_line ? " L " : " same " : " 0 ") +
               std::to_string(r.status) + " " + std::to_string(r.severity) + "/" +
               std::to_string(r.module) + " " + std::to_string(r.error_number) + " " + r.format +
               "=" + r.text + ";";
        last_line = r.line;
    }
    EXPECT_EQ(all, "0 twice here L 2 0/0 0 =;0 twice here L 2 0/0 0 =;"
                   "1 plain  0 0 3/128 0 Could not use %s=Could not use 100% sure;"
                   "1 reasoned here L 0 3/128 0 %s  Reason: %s=Could not open " +
                       std::string(2047 - 15, 'm') + "  Reason: " + strerror(99999) +
                       ";2 failed here L 0 3/128 13 =setenv failed;");
}

TEST(Frame, GuardsReleaseUnlessHandedOn) {
    int closed = -1, kept = -1;
    const auto run = tavtest::run_allocations(0, [&] {
        tav::UniqueFd guard(open("/dev/null", O_RDONLY)), handed_on(open("/dev/null", O_RDONLY));
        tav::MallocPtr<char> block(static_cast<char *>(std::malloc(4)));
        tav::UniqueFile stream(fopen("/dev/null", "r"));
        closed = guard.get(), kept = handed_on.release();
    });
    EXPECT_EQ(std::tuple(fcntl(closed, F_GETFD), fcntl(kept, F_GETFD) >= 0, run.live_blocks),
              std::tuple(-1, true, 0));
    close(kept);
}

} // namespace
