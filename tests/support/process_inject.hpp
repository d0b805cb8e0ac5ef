// Lets a test make the process calls of the library fail or look elsewhere:
// fork and kill fail with a chosen errno, sigaction fails for chosen signals,
// scandir fails or scans another directory, and a test's hook runs at each
// waitpid. The test programs define
// these calls, forwarding to libc's.
#pragma once

#include <cstdint>

namespace tavtest {

struct ProcessFaults {
    int fork_errno = 0;                 // fork fails with this (0: behave)
    int kill_errno = 0;                 // kill fails with this
    uint64_t sigaction_fails = 0;       // bit n set: sigaction(n, ...) fails with EINVAL
    int scandir_errno = 0;              // scandir fails with this
    const char *scandir_in = nullptr;   // scandir reads this directory instead
    void (*before_waitpid)() = nullptr; // runs at each waitpid, before the real one
};

// Applies the faults while it exists.
class ProcessFaultInjection {
  public:
    explicit ProcessFaultInjection(const ProcessFaults &faults);
    ~ProcessFaultInjection();
    ProcessFaultInjection(const ProcessFaultInjection &) = delete;
    ProcessFaultInjection &operator=(const ProcessFaultInjection &) = delete;
};

} // namespace tavtest
