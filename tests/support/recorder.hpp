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

// Forgets what was recorded so far.
void clear_reports();
const std::vector<Report> &reports();

// A compact, comparable picture of the reports: "trace fn path status",
// "log fn text" (plain lines, with file "" and line 0 checked),
// "log fn path: text" for lines with a source place, "perror fn errno message".
std::vector<std::string> report_summary();

// Ends a forked test child. A coverage build first writes out what the child
// ran, which _exit alone would lose.
[[noreturn]] void child_exit(int code);

} // namespace tavtest
