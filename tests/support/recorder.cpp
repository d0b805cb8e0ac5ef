#include <mutex>

#include "support.hpp"

#ifdef TAVUTIL_COVERAGE
extern "C" void __gcov_dump(void);
#endif

namespace tavtest {
namespace {
std::mutex lock; // the library may report from several threads at once
std::vector<Report> all;

// Keeps one report (made while allocations are paused, so that recording
// never disturbs a run).
void record(Report r) {
    const std::lock_guard<std::mutex> hold(lock);
    all.push_back(std::move(r));
}
} // namespace

void clear_reports() {
    const std::lock_guard<std::mutex> hold(lock);
    all.clear();
}
const std::vector<Report> &reports() { return all; }

std::vector<std::string> report_summary() {
    std::vector<std::string> out;
    for (const Report &r : all) {
        const std::string at = r.function + " " + r.path;
        if (r.kind == Report::kTrace) {
            out.push_back("trace " + at + " " + std::to_string(r.status));
        } else if (r.kind == Report::kPerror) {
            out.push_back("perror " + at + " " + std::to_string(r.error_number) + " " + r.text);
        } else {
            const bool plain = r.path.empty() && r.line == 0;
            out.push_back("log " + (plain ? r.function + " " : at + ": ") + r.text);
        }
    }
    return out;
}

std::string reported() {
    std::string text;
    for (const std::string &report : report_summary()) {
        text += "|" + report;
    }
    return text;
}

std::string said() {
    const std::string all = reported();
    clear_reports();
    return all.empty() ? all : all.substr(1);
}

void child_exit(int code) {
#ifdef TAVUTIL_COVERAGE
    __gcov_dump();
#endif
    _exit(code);
}

} // namespace tavtest

// The test program defines the entry points itself, so every call the library
// makes lands here instead of in the stand-ins.
using tavtest::Report;

extern "C" void tav_trace_save(const char *function, const char *path, int32_t line,
                               tav_status status) {
    tavtest::AllocPause pause;
    tavtest::record({Report::kTrace, function, path, line, status, 0, 0, 0, "", ""});
}

extern "C" void tav_util_log_internal(int32_t severity, int32_t module, const char *function,
                                      const char *file, int32_t line, const char *format, ...) {
    tavtest::AllocPause pause;
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    std::string text(std::max(std::vsnprintf(nullptr, 0, format, args), 0), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(args);
    tavtest::record(
        {Report::kLog, function, file, line, TAV_OK, severity, module, 0, format, text});
}

extern "C" void tav_util_log_internal_perror(int32_t error_number, int32_t severity, int32_t module,
                                             const char *function, const char *path, int32_t line,
                                             const char *message) {
    tavtest::AllocPause pause;
    tavtest::record({Report::kPerror, function, path, line, TAV_OK, severity, module, error_number,
                     "", message});
}
