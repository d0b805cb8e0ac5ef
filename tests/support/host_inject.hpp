// Makes the process and host calls of the library fail or look elsewhere, and
// runs a body in a child when it changes what the process shares.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tavtest {

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

// The reports recorded so far, each behind a '|'.
std::string reported();

// Runs `body` in a forked child and hands back its text (at most 64 KiB), or
// how the child ended if it did not return.
std::string in_child(const std::function<std::string()> &body);

// Becomes nobody (user and group 65534) in a child; in_child takes root back
// before the child ends, so that its coverage counts can still be written.
bool drop_to_nobody();

} // namespace tavtest
