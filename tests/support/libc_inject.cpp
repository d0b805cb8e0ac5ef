// The libc calls the test program interposes, each behaving as libc's until
// a test asks otherwise: the file calls (recorded and scripted), the process
// and host calls, the clocks and vsnprintf.
#include <dirent.h>
#include <dlfcn.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <utility>

#include "support.hpp"

namespace {

template <typename Fn> Fn next(Fn, const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
// Resolved before main: dlsym may allocate, which would shift a test's count.
#define REAL(name) const auto real_##name = next(&::name, #name)
// Called before main too (by a sanitizer's start-up): looked up at the first
// call, without a guarded static (a sanitizer intercepts the guard).
#define REAL_AT_FIRST_CALL(name)                                                                   \
    decltype(&::name) real_##name() {                                                              \
        static decltype(&::name) found = nullptr;                                                  \
        return found ? found : (found = next(&::name, #name));                                     \
    }
// clang-format off
REAL(open); REAL(read); REAL(write); REAL(lseek); REAL(fstat); REAL(fsync); REAL(close);
REAL(fflush); REAL(fopen); REAL(fclose); REAL(fork); REAL(waitpid); REAL(kill); REAL(sigaction);
REAL(scandir); REAL(flock);
REAL_AT_FIRST_CALL(sysconf) REAL_AT_FIRST_CALL(clock_gettime) REAL_AT_FIRST_CALL(gettimeofday)
REAL_AT_FIRST_CALL(time) REAL_AT_FIRST_CALL(vsnprintf) REAL_AT_FIRST_CALL(fwrite)
    // clang-format on

    int failed(int error) {
    return errno = error, -1;
}

tavtest::SyscallPlan plan;
bool recording = false;
std::vector<std::string> log;
size_t done[3] = {};
int failures = 0;
tavtest::HostFaults faults;
tavtest::ClockPlan clock_plan;
bool clock_stopped = false;
clockid_t last_clock_id = -1;
tavtest::VsnprintfPlan vsnprintf_plan;
bool vsnprintf_planned = false;

const char *path_of(int fd) {
    thread_local char link[32], target[1024]; // fsync may come from several threads
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    target[std::max(::readlink(link, target, sizeof target - 1), ssize_t{0})] = '\0';
    return target;
}

// Records the call, built without allocating; true when the plan fails it.
bool recorded(const char *format, ...) {
    if (!recording) {
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

// The plan's next step of a read (which 0), write (1) or fwrite (2).
long next_step(int which) {
    const auto &steps = which == 0 ? plan.reads : which == 1 ? plan.writes : plan.fwrites;
    return recording && done[which] < steps.size() ? steps[done[which]++] : -2;
}

// A read (which 0) or write (1): the plan's next step, or the real call.
template <typename Real> ssize_t transfer(int which, size_t count, Real real) {
    if (recorded(which == 0 ? "read %zu" : "write %zu", count)) {
        return -1;
    }
    const long step = next_step(which);
    errno = step == -1 ? plan.error : errno;
    return step == 0 || step == -1 ? step : real(step > 0 ? std::min(count, size_t(step)) : count);
}

bool vsnprintf_applies(const char *format) { // not declared nonnull, unlike libc's
    return vsnprintf_planned &&
           (vsnprintf_plan.only_format == nullptr ||
            (format != nullptr && std::strcmp(format, vsnprintf_plan.only_format) == 0));
}

bool clock_fails() { return clock_plan.fail_with != 0 && failed(clock_plan.fail_with); }

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
    return real_fopen(recording && plan.on_fopen ? plan.on_fopen(path) : path, mode);
}
size_t fwrite(const void *data, size_t size, size_t count, FILE *stream) {
    const long step = next_step(2);
    return real_fwrite()(data, size, step >= 0 ? std::min(count, size_t(step)) : count, stream);
}
int fclose(FILE *stream) {
    const bool fails = recorded("fclose");
    const int result = real_fclose(stream);
    errno = fails ? plan.error : errno;
    return fails ? EOF : result;
}

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
    return name == faults.sysconf_name ? (errno = EINVAL, faults.sysconf_result)
                                       : real_sysconf()(name);
}
int flock(int fd, int operation) {
    if (const std::function<void()> before = std::exchange(faults.before_flock, nullptr)) {
        before();
    }
    return real_flock(fd, operation);
}

int clock_gettime(clockid_t clock, struct timespec *out) noexcept {
    return !clock_stopped                           ? real_clock_gettime()(clock, out)
           : (last_clock_id = clock, clock_fails()) ? -1
                                                    : (*out = clock_plan.at, 0);
}
int gettimeofday(struct timeval *out, void *zone) noexcept {
    return !clock_stopped  ? real_gettimeofday()(out, zone)
           : clock_fails() ? -1
                           : (*out = {clock_plan.at.tv_sec, clock_plan.at.tv_nsec / 1000}, 0);
}
time_t time(time_t *out) noexcept {
    const time_t now = !clock_stopped  ? real_time()(nullptr)
                       : clock_fails() ? -1
                                       : clock_plan.at.tv_sec;
    return out != nullptr ? (*out = now) : now;
}

int vsnprintf(char *buffer, size_t size, const char *format, va_list args) {
    const bool applies = vsnprintf_applies(format);
    if (applies && size > 0 && vsnprintf_plan.fail_sized_with != 0) {
        return failed(vsnprintf_plan.fail_sized_with);
    }
    if (applies && size == 0 && vsnprintf_plan.size_pass_result != -2) {
        return static_cast<int>(vsnprintf_plan.size_pass_result);
    }
    return real_vsnprintf()(buffer, size, format, args);
}

} // extern "C"

namespace tavtest {

SyscallInjection::SyscallInjection(SyscallPlan p) {
    plan = std::move(p);
    log.clear();
    done[0] = done[1] = done[2] = failures = 0;
    recording = true;
}
SyscallInjection::~SyscallInjection() { recording = false; }
const std::vector<std::string> &SyscallInjection::calls() const { return log; }

HostFaults &host_faults() { return faults; }

ClockInjection::ClockInjection(const ClockPlan &p) {
    clock_plan = p, clock_stopped = true, last_clock_id = -1;
}
ClockInjection::~ClockInjection() { clock_stopped = false; }
clockid_t ClockInjection::last_clock() const { return last_clock_id; }

VsnprintfInjection::VsnprintfInjection(const VsnprintfPlan &p) {
    real_vsnprintf(); // resolved before the plan is in force
    vsnprintf_plan = p, vsnprintf_planned = true;
}
VsnprintfInjection::~VsnprintfInjection() { vsnprintf_planned = false; }

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
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
