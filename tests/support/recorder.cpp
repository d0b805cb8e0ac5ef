#include "recorder.hpp"

#include "alloc_inject.hpp"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <unistd.h>
#include <utility>

#ifdef TAVUTIL_COVERAGE
extern "C" void __gcov_dump(void);
#endif

namespace tavtest {
namespace {
// The library may report from several threads at once.
std::mutex store_lock;

std::vector<Report> &store() {
    static std::vector<Report> all;
    return all;
}

// A report with the fields every entry point passes.
Report made(Report::Kind kind, const char *function, const char *path, int32_t line) {
    Report r{};
    r.kind = kind;
    r.function = function;
    r.path = path;
    r.line = line;
    return r;
}

void record(Report r) {
    const std::lock_guard<std::mutex> hold(store_lock);
    store().push_back(std::move(r));
}
} // namespace

void clear_reports() {
    const std::lock_guard<std::mutex> hold(store_lock);
    store().clear();
}
const std::vector<Report> &reports() { return store(); }

std::vector<std::string> report_summary() {
    std::vector<std::string> out;
    for (const Report &r : store()) {
        switch (r.kind) {
        case Report::kTrace:
            out.push_back("trace " + r.function + " " + r.path + " " + std::to_string(r.status));
            break;
        case Report::kLog:
            if (r.path.empty() && r.line == 0) {
                out.push_back("log " + r.function + " " + r.text);
            } else {
                out.push_back("log " + r.function + " " + r.path + ": " + r.text);
            }
            break;
        case Report::kPerror:
            out.push_back("perror " + r.function + " " + r.path + " " +
                          std::to_string(r.error_number) + " " + r.text);
            break;
        }
    }
    return out;
}

} // namespace tavtest

// The test programs define the entry points themselves, so every call the
// library makes lands here instead of in the stand-ins.
extern "C" {

void tav_trace_save(const char *function, const char *source_path, int32_t source_line,
                    tav_status status) {
    tavtest::AllocPause pause;
    tavtest::Report r = tavtest::made(tavtest::Report::kTrace, function, source_path, source_line);
    r.status = status;
    tavtest::record(std::move(r));
}

void tav_util_log_internal(int32_t severity, int32_t module, const char *function, const char *file,
                           int32_t line, const char *format, ...) {
    tavtest::AllocPause pause;
    tavtest::Report r = tavtest::made(tavtest::Report::kLog, function, file, line);
    r.severity = severity;
    r.module = module;
    r.format = format;
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int size = std::vsnprintf(nullptr, 0, format, args);
    std::string text(size > 0 ? static_cast<size_t>(size) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(args);
    r.text = text;
    tavtest::record(std::move(r));
}

void tav_util_log_internal_perror(int32_t error_number, int32_t severity, int32_t module,
                                  const char *function, const char *source_path,
                                  int32_t source_line, const char *message) {
    tavtest::AllocPause pause;
    tavtest::Report r = tavtest::made(tavtest::Report::kPerror, function, source_path, source_line);
    r.severity = severity;
    r.module = module;
    r.error_number = error_number;
    r.text = message;
    tavtest::record(std::move(r));
}

} // extern "C"

namespace tavtest {

void child_exit(int code) {
#ifdef TAVUTIL_COVERAGE
    __gcov_dump();
#endif
    _exit(code);
}

} // namespace tavtest
