// Records every call of the three entry points of the closed libraries, so a
// test can state exactly which reports an operation made and in what order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tavutil.h"

namespace tavtest {

// One call of tav_trace_save, tav_util_log_internal or
// tav_util_log_internal_perror, in the order made.
struct Report {
    enum Kind { kTrace, kLog, kPerror } kind;
    std::string function;
    std::string path; // source path (trace, perror) or file (log)
    int32_t line = 0;
    tav_status status = TAV_OK; // trace only
    int32_t severity = 0;       // log, perror
    int32_t module = 0;         // log, perror
    int32_t error_number = 0;   // perror only
    std::string format;         // log only
    std::string text;           // log: fully formatted; perror: the message
};

void clear_reports();
const std::vector<Report> &reports();

// The reports as "trace fn path status", "log fn text" (no file, line 0),
// "log fn path: text" (with a place) and "perror fn path errno message".
std::vector<std::string> report_summary();

// Ends a forked test child; a coverage build first writes out what it ran.
[[noreturn]] void child_exit(int code);

} // namespace tavtest
