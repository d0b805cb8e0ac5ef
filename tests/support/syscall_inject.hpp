// Records the file calls the library makes and scripts their results. Entries:
// "open PATH FLAGS[ MODE]" (octal, the mode with O_CREAT), "read N", "write N",
// "lseek OFFSET WHENCE", "fstat", "fopen PATH MODE", "fsync PATH", "close PATH",
// "fflush", "fclose"; a call made after N > 0 reports ends in " ^N".
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tavtest {

struct SyscallPlan {
    // Successive read (write) results: -2 passes through, 0 returns 0, n > 0
    // moves at most n bytes, -1 fails with `error`; later calls pass through.
    std::vector<long> reads = {}, writes = {};
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

} // namespace tavtest
