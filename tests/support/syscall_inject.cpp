#include "syscall_inject.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "alloc_inject.hpp"
#include "recorder.hpp"

namespace {

tavtest::SyscallPlan plan;
bool active = false;
std::vector<std::string> log;
size_t done[2] = {};
int failures = 0;

template <typename Fn> Fn libc(Fn, const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
// Resolved before main: dlsym may allocate, which would shift a test's count.
#define REAL(name) const auto real_##name = libc(&::name, #name)
// clang-format off
REAL(open); REAL(read); REAL(write); REAL(lseek); REAL(fstat);
REAL(fsync); REAL(close); REAL(fflush); REAL(fopen); REAL(fclose);
// clang-format on

const char *path_of(int fd) {
    thread_local char link[32], target[1024]; // fsync may come from several threads
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    target[std::max(::readlink(link, target, sizeof target - 1), ssize_t{0})] = '\0';
    return target;
}

// Records the call, built without allocating; true when the plan fails it.
bool recorded(const char *format, ...) {
    if (!active) {
        return false;
    }
    char text[1200];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    tavtest::AllocPause pause;
    const size_t reports = tavtest::reports().size();
    log.emplace_back(text + (reports ? " ^" + std::to_string(reports) : ""));
    const bool fails = plan.fail &&
                       (log.back() + " ").rfind(plan.fail + std::string(" "), 0) == 0 &&
                       ++failures == plan.fail_nth;
    errno = fails ? plan.error : errno;
    return fails;
}

// A read (which 0) or write (1): the plan's next step, or the real call.
template <typename Real> ssize_t transfer(int which, size_t count, Real real) {
    const auto &steps = which == 0 ? plan.reads : plan.writes;
    if (recorded(which == 0 ? "read %zu" : "write %zu", count)) {
        return -1;
    }
    const long step = active && done[which] < steps.size() ? steps[done[which]++] : -2;
    errno = step == -1 ? plan.error : errno;
    return step == 0 || step == -1 ? step : real(step > 0 ? std::min(count, size_t(step)) : count);
}

} // namespace

extern "C" {

int open(const char *path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const unsigned mode = flags & O_CREAT ? va_arg(args, unsigned) : 0;
    va_end(args);
    const bool fails = flags & O_CREAT ? recorded("open %s %o %o", path, flags, mode)
                                       : recorded("open %s %o", path, flags);
    return fails ? -1 : real_open(path, flags, mode);
}
ssize_t read(int fd, void *buf, size_t count) {
    return transfer(0, count, [&](size_t n) { return real_read(fd, buf, n); });
}
ssize_t write(int fd, const void *buf, size_t count) {
    return transfer(1, count, [&](size_t n) { return real_write(fd, buf, n); });
}
off_t lseek(int fd, off_t offset, int whence) {
    return recorded("lseek %jd %d", intmax_t(offset), whence) ? -1 : real_lseek(fd, offset, whence);
}
int fstat(int fd, struct stat *st) { return recorded("fstat") ? -1 : real_fstat(fd, st); }
int fsync(int fd) { return recorded("fsync %s", path_of(fd)) ? -1 : real_fsync(fd); }
int close(int fd) { return recorded("close %s", path_of(fd)) ? -1 : real_close(fd); }
int fflush(FILE *stream) { return recorded("fflush") ? EOF : real_fflush(stream); }
FILE *fopen(const char *path, const char *mode) {
    recorded("fopen %s %s", path, mode);
    return real_fopen(active && plan.on_fopen ? plan.on_fopen(path) : path, mode);
}
int fclose(FILE *stream) {
    const bool fails = recorded("fclose");
    const int result = real_fclose(stream);
    errno = fails ? plan.error : errno;
    return fails ? EOF : result;
}

} // extern "C"

namespace tavtest {

SyscallInjection::SyscallInjection(SyscallPlan p) {
    plan = std::move(p);
    log.clear();
    done[0] = done[1] = failures = 0;
    active = true;
}
SyscallInjection::~SyscallInjection() { active = false; }
const std::vector<std::string> &SyscallInjection::calls() const { return log; }

} // namespace tavtest
