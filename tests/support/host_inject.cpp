#include "host_inject.hpp"
#include "recorder.hpp"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <dlfcn.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

tavtest::HostFaults faults;

// Resolved before main, so that no test's allocation count sees dlsym.
template <typename Fn> Fn next(Fn, const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
#define REAL(name) const auto real_##name = next(&::name, #name)
REAL(fork);
REAL(waitpid);
REAL(kill);
REAL(sigaction);
REAL(scandir);
REAL(flock);

int failed(int error) { return errno = error, -1; }

} // namespace

extern "C" {

pid_t fork() { return faults.fork_errno != 0 ? failed(faults.fork_errno) : real_fork(); }

pid_t waitpid(pid_t pid, int *status, int options) {
    if (faults.before_waitpid) {
        faults.before_waitpid();
    }
    return real_waitpid(pid, status, options);
}

int kill(pid_t pid, int signum) {
    return faults.kill_errno != 0 ? failed(faults.kill_errno) : real_kill(pid, signum);
}

int sigaction(int signum, const struct sigaction *action, struct sigaction *old) {
    const bool fails = signum > 0 && signum < 64 && (faults.sigaction_fails >> signum & 1) != 0;
    return fails ? failed(EINVAL) : real_sigaction(signum, action, old);
}

int scandir(const char *path, dirent ***list, int (*filter)(const dirent *),
            int (*compare)(const dirent **, const dirent **)) {
    return real_scandir(faults.scandir_in ? faults.scandir_in : path, list, filter, compare);
}

long sysconf(int name) {
    // Asked for before main, by a sanitizer's start-up too: looked up at the
    // first call, without a guarded static (a sanitizer intercepts the guard).
    static decltype(&::sysconf) real_sysconf = nullptr;
    if (real_sysconf == nullptr) {
        real_sysconf = next(&::sysconf, "sysconf");
    }
    return name == faults.sysconf_name ? (errno = EINVAL, faults.sysconf_result)
                                       : real_sysconf(name);
}

int flock(int fd, int operation) {
    if (const std::function<void()> before = std::exchange(faults.before_flock, nullptr)) {
        before();
    }
    return real_flock(fd, operation);
}

} // extern "C"

namespace tavtest {

HostFaults &host_faults() { return faults; }

std::string reported() {
    std::string text;
    for (const std::string &report : report_summary()) {
        text += "|" + report;
    }
    return text;
}

bool drop_to_nobody() {
    return setresgid(65534, 65534, 65534) == 0 && setresuid(65534, 65534, 0) == 0;
}

std::string in_child(const std::function<std::string()> &body) {
    constexpr size_t kRoom = 1 << 16;
    void *shared = mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        std::snprintf(static_cast<char *>(shared), kRoom, "%s", body().c_str());
        [[maybe_unused]] const int root = seteuid(0); // kept as saved by drop_to_nobody
        child_exit(0);
    }
    int wstatus = 0;
    waitpid(child, &wstatus, 0);
    const std::string text = wstatus == 0
                                 ? static_cast<char *>(shared)
                                 : "child ended with wait status " + std::to_string(wstatus);
    munmap(shared, kRoom);
    return text;
}

} // namespace tavtest
