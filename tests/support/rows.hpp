// What the table-driven tests share: the includes, and the reports as one text.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

using Bytes = std::vector<unsigned char>;

namespace tavtest {

// The reports so far, summaries joined by '|'; then forgotten.
inline std::string said() {
    std::string all;
    for (const std::string &line : report_summary()) {
        all += (all.empty() ? "" : "|") + line;
    }
    clear_reports();
    return all;
}

} // namespace tavtest
