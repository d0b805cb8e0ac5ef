// What every test shares: the headers it draws on, the recorder of the three
// entry points of the closed libraries, and the interposers that make libc's
// allocator, file, process and clock calls fail or look elsewhere on request.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

#include "tavutil.h"

using Bytes = std::vector<unsigned char>;

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

// The reports so far, summaries joined by '|'; then forgotten.
std::string said();

// The reports recorded so far, each behind a '|'.
std::string reported();

// Ends a forked test child; a coverage build first writes out what it ran.
[[noreturn]] void child_exit(int code);

// Runs `body` in a forked child and hands back its text (at most 64 KiB), or
// how the child ended if it did not return.
std::string in_child(const std::function<std::string()> &body);

// A file's bytes, whole ("" when it can't be read).
std::string slurp(const std::string &path);

// Becomes nobody (user and group 65534) in a child; in_child takes root back
// before the child ends, so that its coverage counts can still be written.
bool drop_to_nobody();

// The test program defines malloc, calloc, realloc and free, so every
// allocation the library makes (and libc's inside strdup, fopen, scandir...)
// passes there: a run can fail its nth allocation and count what it leaves.
struct AllocRun {
    bool injected = false;     // the chosen allocation was reached and failed
    long allocations = 0;      // allocation calls made by the run
    long live_blocks = 0;      // blocks the run allocated and did not free
    std::vector<size_t> sizes; // sizes asked for by its first 64 calls (calloc: the product)
};

// Runs `op` with allocation number `fail_at` (1 = the first) failing; 0 lets
// every allocation succeed. Reports and assertions belong outside `op`.
AllocRun run_allocations(long fail_at, const std::function<void()> &op);

// Runs `op` once for each allocation it makes, that one failing, and hands
// each run to `check`. Returns how many runs injected a failure.
long for_each_allocation_failure(const std::function<void()> &op,
                                 const std::function<void(long nth, const AllocRun &)> &check);

// While one exists, allocations are neither counted nor failed.
struct AllocPause {
    AllocPause();
    ~AllocPause();
    AllocPause(const AllocPause &) = delete;
};

// Records the file calls the library makes and scripts their results. Entries:
// "open PATH FLAGS[ MODE]" (octal, the mode with O_CREAT), "read N", "write N",
// "lseek OFFSET WHENCE", "fstat", "fopen PATH MODE", "fsync PATH", "close PATH",
// "fflush", "fclose"; a call made after N > 0 reports ends in " ^N".
struct SyscallPlan {
    // Successive read (write) results: -2 passes through, 0 returns 0, n > 0
    // moves at most n bytes, -1 fails with `error`; later calls pass through.
    // Each fwrite (not recorded) moves at most n items for a step n >= 0 of
    // `fwrites`; any other step, or none left, passes through.
    std::vector<long> reads = {}, writes = {}, fwrites = {};
    const char *fail = nullptr; // the `fail_nth` call so named fails (fclose still closes)
    int fail_nth = 1;
    int error = 5; // EIO
    // Runs at each fopen and names the file it opens instead.
    std::function<const char *(const char *path)> on_fopen = {};
};

// Applies the plan and records while it exists.
struct SyscallInjection {
    explicit SyscallInjection(SyscallPlan plan = {});
    ~SyscallInjection();
    SyscallInjection(const SyscallInjection &) = delete;
    const std::vector<std::string> &calls() const;
};

// Makes the process and host calls of the library fail or look elsewhere.
struct HostFaults {
    int fork_errno = 0, kill_errno = 0; // fork, kill fail with this (0: behave)
    uint64_t sigaction_fails = 0;       // bit n set: sigaction(n, ...) fails with EINVAL
    const char *scandir_in = nullptr;   // scandir reads this directory instead
    int sysconf_name = -1;              // sysconf of it gives sysconf_result, errno EINVAL
    long sysconf_result = 0;
    std::function<void()> before_waitpid = {}; // runs at each waitpid
    std::function<void()> before_flock = {};   // runs once, at the next flock
};
HostFaults &host_faults();

// Applies the faults while it exists.
struct HostInjection {
    explicit HostInjection(const HostFaults &faults) { host_faults() = faults; }
    ~HostInjection() { host_faults() = {}; }
};

// Stops the clock calls (clock_gettime, gettimeofday, time) at a chosen
// reading, or fails them; libc's otherwise.
struct ClockPlan {
    int fail_with = 0;       // each call returns -1 with this errno (0: none fails)
    struct timespec at = {}; // the reading otherwise; gettimeofday gives whole microseconds
};

struct ClockInjection {
    explicit ClockInjection(const ClockPlan &plan);
    ~ClockInjection();
    clockid_t last_clock() const; // of the last clock_gettime under the plan (-1: none)
};

// Makes vsnprintf misbehave: calls with a size fail with an errno, or calls
// of size 0 report a chosen count.
struct VsnprintfPlan {
    int fail_sized_with = 0;           // errno for calls with a size (0: behave)
    long long size_pass_result = -2;   // result of size 0 calls (-2: behave)
    const char *only_format = nullptr; // only this format is affected (null: all)
};

struct VsnprintfInjection {
    explicit VsnprintfInjection(const VsnprintfPlan &plan);
    ~VsnprintfInjection();
    VsnprintfInjection(const VsnprintfInjection &) = delete;
};

} // namespace tavtest
