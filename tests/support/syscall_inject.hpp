// Records the file calls the library makes, in order, and lets a test script
// their results: zero-byte and short transfers, or one call failing. The test
// programs define these calls, forwarding to libc's.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tavtest {

struct SyscallPlan {
    // Successive read (write) calls: -2 passes through, 0 returns 0 without
    // the call, n > 0 moves at most n bytes, -1 fails with `error`. Past the
    // end of the list every call passes through.
    std::vector<long> reads = {}, writes = {};
    // The `fail_nth` call of this name ("open", "fsync", "lseek", "fstat",
    // "fflush", "close", "fclose") fails with `error` instead (null: none).
    // A failing fclose still closes the stream.
    const char *fail = nullptr;
    int fail_nth = 1;
    int error = 5; // EIO
    // Also record the mode each open receives.
    bool open_modes = false;
    // Runs as fopen is called, before it opens (a file can change there).
    std::function<void()> before_fopen = {};
    // fopen of exactly `fopen_from` opens `fopen_to` instead (null: none), so
    // a parser can be fed a prepared file in place of a system one.
    const char *fopen_from = nullptr, *fopen_to = nullptr;
};

// Applies the plan and records while it exists. Entries read "open PATH
// FLAGS[ MODE]" (octal), "read COUNT", "write COUNT", "lseek OFFSET WHENCE",
// "fstat", "fopen PATH MODE", "fsync PATH", "close PATH", "fflush", "fclose"; a descriptor is
// named by the path it stands for.
class SyscallInjection {
  public:
    explicit SyscallInjection(SyscallPlan plan = {});
    ~SyscallInjection();
    SyscallInjection(const SyscallInjection &) = delete;
    SyscallInjection &operator=(const SyscallInjection &) = delete;
    const std::vector<std::string> &calls() const;
};

} // namespace tavtest
