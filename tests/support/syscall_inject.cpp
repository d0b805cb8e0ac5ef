#include "syscall_inject.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "alloc_inject.hpp"

namespace {

tavtest::SyscallPlan plan;
bool active = false;
std::vector<std::string> log;
size_t reads_done = 0, writes_done = 0;
int fail_count = 0;

// libc's own entry points.
template <typename Fn> Fn libc(Fn, const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
// Resolved before main: dlsym may allocate on its first call, and inside a
// test that would shift the allocation count the test is checking.
#define REAL(name) const auto real_##name = libc(&::name, #name)
REAL(open);
REAL(read);
REAL(write);
REAL(lseek);
REAL(fstat);
REAL(fsync);
REAL(close);
REAL(fflush);
REAL(fopen);
REAL(fclose);

std::string path_of(int fd) {
    char link[64], target[512];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t n = ::readlink(link, target, sizeof target);
    return n < 0 ? std::to_string(fd) : std::string(target, static_cast<size_t>(n));
}

// Records the call with the arguments `describe` gives (built outside any
// allocation count); true when the plan fails it, with errno set.
template <typename Describe> bool recorded(const char *name, Describe describe) {
    if (!active) {
        return false;
    }
    {
        tavtest::AllocPause pause;
        const std::string arguments = describe();
        log.push_back(arguments.empty() ? name : std::string(name) + " " + arguments);
    }
    if (plan.fail == nullptr || std::string(plan.fail) != name || ++fail_count != plan.fail_nth) {
        return false;
    }
    errno = plan.error;
    return true;
}
#define ARGS(...) [&] { return std::string(__VA_ARGS__); }

// A scripted transfer: the step's result, or -2 to pass through (with
// `count` cut to the step's size).
long scripted(const std::vector<long> &steps, size_t &done, size_t &count) {
    const long step = done < steps.size() ? steps[done] : -2;
    ++done;
    if (step > 0 && static_cast<size_t>(step) < count) {
        count = static_cast<size_t>(step);
    }
    errno = step == -1 ? plan.error : errno;
    return step <= 0 ? step : -2;
}

} // namespace

extern "C" {

int open(const char *path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    // Read whether or not the caller passed it: the library always does.
    const auto mode = va_arg(args, unsigned);
    va_end(args);
    char numbers[32];
    std::snprintf(numbers, sizeof numbers, plan.open_modes ? " %o %o" : " %o",
                  static_cast<unsigned>(flags), mode);
    return recorded("open", ARGS(path + std::string(numbers))) ? -1 : real_open(path, flags, mode);
}

ssize_t read(int fd, void *buf, size_t count) {
    if (recorded("read", ARGS(std::to_string(count)))) {
        return -1;
    }
    const long step = active ? scripted(plan.reads, reads_done, count) : -2;
    return step != -2 ? step : real_read(fd, buf, count);
}

ssize_t write(int fd, const void *buf, size_t count) {
    if (recorded("write", ARGS(std::to_string(count)))) {
        return -1;
    }
    const long step = active ? scripted(plan.writes, writes_done, count) : -2;
    return step != -2 ? step : real_write(fd, buf, count);
}

off_t lseek(int fd, off_t offset, int whence) {
    return recorded("lseek", ARGS(std::to_string(offset) + " " + std::to_string(whence)))
               ? -1
               : real_lseek(fd, offset, whence);
}

int fstat(int fd, struct stat *st) { return recorded("fstat", ARGS()) ? -1 : real_fstat(fd, st); }

int fsync(int fd) { return recorded("fsync", ARGS(path_of(fd))) ? -1 : real_fsync(fd); }

int close(int fd) { return recorded("close", ARGS(path_of(fd))) ? -1 : real_close(fd); }

int fflush(FILE *stream) { return recorded("fflush", ARGS()) ? EOF : real_fflush(stream); }

FILE *fopen(const char *path, const char *mode) {
    recorded("fopen", ARGS(path + std::string(" ") + mode));
    if (active && plan.before_fopen) {
        plan.before_fopen();
    }
    if (active && plan.fopen_from != nullptr && std::string(path) == plan.fopen_from) {
        path = plan.fopen_to;
    }
    return real_fopen(path, mode);
}

int fclose(FILE *stream) {
    const bool fails = recorded("fclose", ARGS());
    const int result = real_fclose(stream);
    if (fails) {
        errno = plan.error;
        return EOF;
    }
    return result;
}

} // extern "C"

namespace tavtest {

SyscallInjection::SyscallInjection(SyscallPlan p) {
    plan = std::move(p);
    log.clear();
    reads_done = writes_done = fail_count = 0;
    active = true;
}

SyscallInjection::~SyscallInjection() { active = false; }

const std::vector<std::string> &SyscallInjection::calls() const { return log; }

} // namespace tavtest
