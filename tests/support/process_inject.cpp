#include "process_inject.hpp"

#include <cerrno>
#include <csignal>
#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

namespace {

tavtest::ProcessFaults faults;

template <typename Fn> Fn next(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
// Resolved before main, so that no test's allocation count sees dlsym.
const auto real_fork = next<pid_t (*)()>("fork");
const auto real_waitpid = next<pid_t (*)(pid_t, int *, int)>("waitpid");
const auto real_kill = next<int (*)(pid_t, int)>("kill");
const auto real_sigaction =
    next<int (*)(int, const struct sigaction *, struct sigaction *)>("sigaction");
using Filter = int (*)(const dirent *);
using Compare = int (*)(const dirent **, const dirent **);
const auto real_scandir = next<int (*)(const char *, dirent ***, Filter, Compare)>("scandir");

int failed(int error) {
    errno = error;
    return -1;
}

} // namespace

extern "C" {

pid_t fork() { return faults.fork_errno != 0 ? failed(faults.fork_errno) : real_fork(); }

pid_t waitpid(pid_t pid, int *status, int options) {
    if (faults.before_waitpid != nullptr) {
        faults.before_waitpid();
    }
    return real_waitpid(pid, status, options);
}

int kill(pid_t pid, int signum) {
    return faults.kill_errno != 0 ? failed(faults.kill_errno) : real_kill(pid, signum);
}

int sigaction(int signum, const struct sigaction *action, struct sigaction *old) {
    if (signum > 0 && signum < 64 && (faults.sigaction_fails >> signum & 1) != 0) {
        return failed(EINVAL);
    }
    return real_sigaction(signum, action, old);
}

int scandir(const char *path, dirent ***list, Filter filter, Compare compare) {
    if (faults.scandir_errno != 0) {
        return failed(faults.scandir_errno);
    }
    return real_scandir(faults.scandir_in != nullptr ? faults.scandir_in : path, list, filter,
                        compare);
}

} // extern "C"

namespace tavtest {

ProcessFaultInjection::ProcessFaultInjection(const ProcessFaults &planned) { faults = planned; }
ProcessFaultInjection::~ProcessFaultInjection() { faults = ProcessFaults{}; }

} // namespace tavtest
