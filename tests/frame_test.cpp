#include <fcntl.h>
#include <functional>
#include <string_view>

#include "internal/frame.hpp"
#include "rows.hpp"

namespace {

const std::string kHere = tav::source_path(__FILE__);
tav_status fail_here() { return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG); }
tav_status twice(tav_status status) {
    const tav::Site tested = TAV_SITE;
    return tav::traced_twice(tested, TAV_SITE, status);
}
void plain_maker(const char *text) { TAV_PLAIN_LINE("Could not use %s", text); }
void reasoned_maker(int number, const char *text) {
    tav::reasoned_line(number, TAV_SITE, "Could not open %s", text);
}
void perror_maker() { tav::perror_line(EACCES, TAV_SITE, "setenv failed"); }

// Every field of every report: kind, function, path, line (L when above 0),
// status, severity/module, error number, format and text.
std::string fields() {
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
    tavtest::clear_reports();
    return all;
}

TEST(Frame, EachWordMakesExactlyItsCalls) {
    static_assert(std::string_view(tav::source_path("/a/src/b/src/string/x.cpp")) ==
                  "src/string/x.cpp");
    static_assert(std::string_view(tav::source_path("src/x.cpp")) == "src/x.cpp");
    const std::string reason = "  Reason: ", cut = std::string(2047 - 15, 'm');
    const std::pair<std::function<void()>, std::string> rows[] = {
        {[] { EXPECT_EQ(fail_here(), TAV_ERR_BAD_ARG); }, "0 fail_here here L 7 0/0 0 =;"},
        {[] { EXPECT_EQ(twice(TAV_ERR_NOMEM), TAV_ERR_NOMEM); },
         "0 twice here L 2 0/0 0 =;0 twice here L 2 0/0 0 =;"},
        {[] { plain_maker("100% sure"); },
         "1 plain_maker  0 0 3/128 0 Could not use %s=Could not use 100% sure;"},
        {[] { reasoned_maker(ENOENT, "/x"); },
         "1 reasoned_maker here L 0 3/128 0 %s  Reason: %s=" + ("Could not open /x" + reason) +
             strerror(ENOENT) + ";"},
        {[] { reasoned_maker(99999, "y"); },
         "1 reasoned_maker here L 0 3/128 0 %s  Reason: %s=" + ("Could not open y" + reason) +
             strerror(99999) + ";"},
        {[&] { reasoned_maker(EPERM, std::string(5000, 'm').c_str()); },
         "1 reasoned_maker here L 0 3/128 0 %s  Reason: %s=Could not open " + cut + reason +
             strerror(EPERM) + ";"},
        {[] { perror_maker(); }, "2 perror_maker here L 0 3/128 13 =setenv failed;"},
    };
    tavtest::clear_reports();
    for (const auto &[call, expected] : rows) {
        call();
        EXPECT_EQ(fields(), expected);
    }
    int32_t slot = -1;
    tav::store_errno(nullptr, 5);
    tav::store_errno(&slot, 5);
    EXPECT_EQ(slot, 5);
}

TEST(Frame, GuardsReleaseUnlessHandedOn) {
    int closed = -1, kept = -1;
    {
        tav::UniqueFd guard(open("/dev/null", O_RDONLY)), handed_on(open("/dev/null", O_RDONLY));
        closed = guard.get();
        kept = handed_on.release();
        EXPECT_FALSE(handed_on);
    }
    EXPECT_EQ(std::tuple(fcntl(closed, F_GETFD), fcntl(kept, F_GETFD) >= 0), std::tuple(-1, true));
    close(kept);
    const auto run = tavtest::run_allocations(0, [] {
        tav::MallocPtr<char> block(static_cast<char *>(std::malloc(4)));
        tav::UniqueFile stream(fopen("/dev/null", "r"));
    });
    EXPECT_EQ(run.live_blocks, 0);
}

} // namespace
