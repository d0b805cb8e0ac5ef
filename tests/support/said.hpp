#pragma once

#include <string>

#include "recorder.hpp"

namespace tavtest {

// The reports so far as one text, summaries joined by '|'; then forgotten.
inline std::string said() {
    std::string all;
    for (const std::string &line : report_summary()) {
        all += (all.empty() ? "" : "|") + line;
    }
    clear_reports();
    return all;
}

} // namespace tavtest
