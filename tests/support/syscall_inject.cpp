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

template <typename Fn> Fn libc(Fn, const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
// Resolved before main: dlsym may allocate, which would shift a test's count.
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
    char target[512];
    const ssize_t n = ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, 512);
    return n < 0 ? std::to_string(fd) : std::string(target, static_cast<size_t>(n));
}

// Records "name arguments" outside any allocation count; true when the plan
// fails this call, with errno set.
template <typename Arguments> bool recorded(const char *name, Arguments arguments) {
    if (!active) {
        return false;
    }
    {
        tavtest::AllocPause pause;
        const std::string text = arguments();
        log.push_back(text.empty() ? name : std::string(name) + " " + text);
    }
    if (plan.fail == nullptr || std::string(plan.fail) != name || ++fail_count != plan.fail_nth) {
        return false;
    }
    errno = plan.error;
    return true;
}

const auto none = [] { return std::string(); };

// A scripted transfer's result, or -2 to pass through with `count` cut.
long scripted(const std::vector<long> &steps, size_t &done, size_t &count) {
    const long step = active && done < steps.size() ? steps[done++] : -2;
    count = step > 0 && static_cast<size_t>(step) < count ? static_cast<size_t>(step) : count;
    errno = step == -1 ? plan.error : errno;
    return step;
}

} // namespace

extern "C" {

int open(const char *path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const auto mode = va_arg(args, unsigned); // the library always passes one
    va_end(args);
    char numbers[32];
    std::snprintf(numbers, sizeof numbers, plan.open_modes ? "%o %o" : "%o",
                  static_cast<unsigned>(flags), mode);
    return recorded("open", [&] { return path + std::string(" ") + numbers; })
               ? -1
               : real_open(path, flags, mode);
}

ssize_t read(int fd, void *buf, size_t count) {
    if (recorded("read", [&] { return std::to_string(count); })) {
        return -1;
    }
    const long step = scripted(plan.reads, reads_done, count);
    return step > 0 || step == -2 ? real_read(fd, buf, count) : step;
}

ssize_t write(int fd, const void *buf, size_t count) {
    if (recorded("write", [&] { return std::to_string(count); })) {
        return -1;
    }
    const long step = scripted(plan.writes, writes_done, count);
    return step > 0 || step == -2 ? real_write(fd, buf, count) : step;
}

off_t lseek(int fd, off_t offset, int whence) {
    const auto text = [&] { return std::to_string(offset) + " " + std::to_string(whence); };
    return recorded("lseek", text) ? -1 : real_lseek(fd, offset, whence);
}

int fstat(int fd, struct stat *st) { return recorded("fstat", none) ? -1 : real_fstat(fd, st); }

int fsync(int fd) {
    return recorded("fsync", [&] { return path_of(fd); }) ? -1 : real_fsync(fd);
}

int close(int fd) {
    return recorded("close", [&] { return path_of(fd); }) ? -1 : real_close(fd);
}

int fflush(FILE *stream) { return recorded("fflush", none) ? EOF : real_fflush(stream); }

FILE *fopen(const char *path, const char *mode) {
    recorded("fopen", [&] { return path + std::string(" ") + mode; });
    if (active && plan.before_fopen) {
        plan.before_fopen();
    }
    const bool redirect = active && plan.fopen_from && std::string(path) == plan.fopen_from;
    return real_fopen(redirect ? plan.fopen_to : path, mode);
}

int fclose(FILE *stream) {
    const bool fails = recorded("fclose", none);
    const int result = real_fclose(stream);
    errno = fails ? plan.error : errno;
    return fails ? EOF : result;
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
