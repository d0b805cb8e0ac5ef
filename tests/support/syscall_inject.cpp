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

// libc's own entry points, resolved once, before a plan is in force.
struct Libc {
    template <typename Fn> static Fn find(const char *name) {
        return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
    }
#define TAVTEST_REAL(name) decltype(&::name) name = find<decltype(&::name)>(#name)
    TAVTEST_REAL(open);
    TAVTEST_REAL(read);
    TAVTEST_REAL(write);
    TAVTEST_REAL(lseek);
    TAVTEST_REAL(fstat);
    TAVTEST_REAL(fsync);
    TAVTEST_REAL(close);
    TAVTEST_REAL(fflush);
    TAVTEST_REAL(fclose);
    TAVTEST_REAL(fopen);
#undef TAVTEST_REAL
};

const Libc &libc() {
    static const Libc resolved;
    return resolved;
}
#define REAL(name) libc().name

std::string path_of(int fd) {
    char link[64], target[512];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t n = ::readlink(link, target, sizeof target - 1);
    return n < 0 ? std::to_string(fd) : std::string(target, static_cast<size_t>(n));
}

void record(const std::string &entry) {
    tavtest::AllocPause pause;
    log.push_back(entry);
}

// True when this call is the one the plan fails; errno is then set.
bool fails(const char *name) {
    if (!active || plan.fail == nullptr || std::string(plan.fail) != name ||
        ++fail_count != plan.fail_nth) {
        return false;
    }
    errno = plan.error;
    return true;
}

// The scripted step for a transfer of `count`, or -2 to pass through.
long scripted(const std::vector<long> &steps, size_t &done, size_t &count) {
    const long step = done < steps.size() ? steps[done] : -2;
    ++done;
    if (step > 0 && static_cast<size_t>(step) < count) {
        count = static_cast<size_t>(step);
    }
    if (step == -1) {
        errno = plan.error;
    }
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
    if (active) {
        char entry[64];
        std::snprintf(entry, sizeof entry, plan.open_modes ? " %o %o" : " %o",
                      static_cast<unsigned>(flags), mode);
        record("open " + std::string(path) + entry);
    }
    return fails("open") ? -1 : REAL(open)(path, flags, mode);
}

ssize_t read(int fd, void *buf, size_t count) {
    if (active) {
        record("read " + std::to_string(count));
        const long step = scripted(plan.reads, reads_done, count);
        if (step != -2) {
            return step;
        }
    }
    return REAL(read)(fd, buf, count);
}

ssize_t write(int fd, const void *buf, size_t count) {
    if (active) {
        record("write " + std::to_string(count));
        const long step = scripted(plan.writes, writes_done, count);
        if (step != -2) {
            return step;
        }
    }
    return REAL(write)(fd, buf, count);
}

off_t lseek(int fd, off_t offset, int whence) {
    if (active) {
        record("lseek " + std::to_string(offset) + " " + std::to_string(whence));
    }
    return fails("lseek") ? -1 : REAL(lseek)(fd, offset, whence);
}

int fstat(int fd, struct stat *st) {
    if (active) {
        record("fstat");
    }
    return fails("fstat") ? -1 : REAL(fstat)(fd, st);
}

int fsync(int fd) {
    if (active) {
        record("fsync " + path_of(fd));
    }
    return fails("fsync") ? -1 : REAL(fsync)(fd);
}

int close(int fd) {
    if (active) {
        record("close " + path_of(fd));
    }
    const int result = REAL(close)(fd);
    return fails("close") ? -1 : result;
}

int fflush(FILE *stream) {
    if (active) {
        record("fflush");
    }
    return fails("fflush") ? EOF : REAL(fflush)(stream);
}

FILE *fopen(const char *path, const char *mode) {
    if (active) {
        record("fopen " + std::string(path) + " " + mode);
        if (plan.before_fopen) {
            plan.before_fopen();
        }
        if (plan.fopen_from != nullptr && std::string(path) == plan.fopen_from) {
            path = plan.fopen_to;
        }
    }
    return REAL(fopen)(path, mode);
}

int fclose(FILE *stream) {
    if (active) {
        record("fclose");
    }
    const int result = REAL(fclose)(stream);
    return fails("fclose") ? EOF : result;
}

} // extern "C"

namespace tavtest {

SyscallInjection::SyscallInjection(SyscallPlan p) {
    libc();
    plan = std::move(p);
    log.clear();
    reads_done = writes_done = 0;
    fail_count = 0;
    active = true;
}

SyscallInjection::~SyscallInjection() { active = false; }

const std::vector<std::string> &SyscallInjection::calls() const { return log; }

} // namespace tavtest
