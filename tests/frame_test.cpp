// The fields the families' report summaries do not show.
#include "internal/frame.hpp"
#include "support.hpp"

namespace {

TEST(Frame, EachWordMakesExactlyItsCalls) {
    static_assert(std::string_view(tav::source_path("/a/src/b/src/x/y.cpp")) == "src/x/y.cpp");
    tavtest::clear_reports();
    TAV_PLAIN_LINE("Could not use %s", "100% sure");
    tav::reasoned_line(99999, TAV_SITE, "Could not open %s", std::string(5000, 'm').c_str());
    std::string all; // severity/module, line (L when above 0 and new), format=text
    int32_t last = 0;
    for (const tavtest::Report &r : tavtest::reports()) {
        all += std::to_string(r.severity) + "/" + std::to_string(r.module) +
               (r.line > 0 ? r.line != last ? " L " : " same " : " 0 ") + r.format + "=" + r.text +
               ";";
        last = r.line;
    }
    EXPECT_EQ(all, "3/128 0 Could not use %s=Could not use 100% sure;3/128 L %s  Reason: %s=Could "
                   "not open " +
                       std::string(2047 - 15, 'm') + "  Reason: " + strerror(99999) + ";");
}

} // namespace
