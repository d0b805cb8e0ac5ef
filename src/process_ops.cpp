// Processes: a bounded wait on a child, the search of /proc by first
// argument, and signal dispositions.
#include <cctype>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>

#include "internal/frame.hpp"
#include "internal/process_ops.hpp"
#include "internal/timeout.hpp"

extern "C" {

tav_status tav_util_await_child_timeout(int32_t pid, int32_t seconds) {
    struct timespec deadline;
    const tav_status set = tav_util_future_timeout(&deadline, int64_t{seconds}, 1);
    if (set != TAV_OK) {
        return tav::traced_again(TAV_SITE, set);
    }
    // The first poll at once, then one a second; the wait status is not
    // asked for, so a collected child's exit code is lost.
    for (;;) {
        const pid_t ended = ::waitpid(pid, nullptr, WNOHANG);
        if (ended == -1) {
            tav::reasoned_line(errno, TAV_SITE, "Failed to wait for child process %d to end", pid);
            return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
        }
        if (ended != 0) {
            return TAV_OK;
        }
        int32_t expired = 0;
        const tav_status asked = tav_util_query_timeout_expired(&deadline, &expired);
        if (asked != TAV_OK) {
            return tav::traced_again(TAV_SITE, asked);
        }
        if (expired != 0) {
            break;
        }
        ::sleep(1);
    }
    // Killed, not collected: the caller still waits for it.
    if (::kill(pid, SIGKILL) == -1) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to kill process %d", pid);
    }
    return tav::traced(TAV_SITE, TAV_ERR_TIMEOUT);
}

} // extern "C"

namespace {

// ---- process search -----------------------------------------------------

// The entries scandir handed out: each freed in order, then the list.
class ScanList {
  public:
    ScanList(dirent **list, int count) : list_(list), count_(count) {}
    ~ScanList() {
        for (int i = 0; i < count_; ++i) {
            std::free(list_[i]);
        }
        std::free(list_);
    }
    ScanList(const ScanList &) = delete;
    ScanList &operator=(const ScanList &) = delete;

  private:
    dirent **list_;
    int count_;
};

// Builds "/proc/<name>/cmdline" into `path`. A failure is traced again and
// logged under the caller's name, trace first.
tav_status cmdline_path(tav::Site site, const char *name, tav::MallocPtr<char> &path) {
    char *built = nullptr;
    const tav_status status = tav_util_asprintf(&built, nullptr, "/proc/%s/cmdline", name);
    // A block left by a failed fill pass is released with the rest.
    path.reset(built);
    if (status != TAV_OK) {
        tav::traced_again(site, status);
        tav_util_log_internal(tav::kSeverityError, tav::kModule, site.function, "", 0,
                              "Failed to allocate path");
    }
    return status;
}

} // namespace

extern "C" int vet_possible_directory(const struct dirent *entry) {
    if (entry == nullptr || entry->d_type != DT_DIR) {
        return 0;
    }
    for (const char *c = entry->d_name; *c != '\0'; ++c) {
        if (std::isdigit(static_cast<unsigned char>(*c)) == 0) {
            return 0;
        }
    }
    tav::MallocPtr<char> path;
    if (cmdline_path(TAV_SITE, entry->d_name, path) != TAV_OK) {
        return 0;
    }
    const int fd = ::open(path.get(), O_RDONLY);
    path.reset();
    if (fd == -1) {
        return 0;
    }
    ::close(fd);
    return 1;
}

extern "C" {

tav_status tav_util_pid_of(const char *text, int32_t mode, uint32_t **pids, uint64_t *count) {
    dirent **list = nullptr;
    const int n = ::scandir("/proc", &list, vet_possible_directory, alphasort);
    if (n == -1) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to open /proc");
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    const ScanList held(list, n);
    if (n == 0) {
        tav_util_log_internal(tav::kSeverityDebug, tav::kModule, __func__, "", 0,
                              "Nothing suitable in /proc");
        if (pids != nullptr) {
            *pids = nullptr;
        }
        *count = 0;
        return TAV_OK;
    }
    if (pids != nullptr) {
        *pids = static_cast<uint32_t *>(std::malloc(static_cast<size_t>(n) * sizeof(uint32_t)));
        if (*pids == nullptr) {
            TAV_PLAIN_LINE("Failed to allocate memory");
            return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
        }
    }
    uint64_t matches = 0;
    for (int i = 0; i < n; ++i) {
        const char *name = list[i]->d_name;
        tav::MallocPtr<char> path;
        const tav_status built = cmdline_path(TAV_SITE, name, path);
        if (built != TAV_OK) {
            return built;
        }
        const int fd = ::open(path.get(), O_RDONLY);
        if (fd == -1) {
            continue;
        }
        // The first argument ends at the first NUL; terminating after what
        // was read reads the same text as a zero-filled buffer would.
        char first_argument[300];
        const ssize_t got = ::read(fd, first_argument, sizeof first_argument - 1);
        ::close(fd);
        if (got == -1) {
            continue;
        }
        first_argument[got] = '\0';
        path.reset();
        const bool match = mode == 1 ? std::strcmp(first_argument, text) == 0
                                     : std::strstr(first_argument, text) != nullptr;
        if (match) {
            if (pids != nullptr) {
                std::sscanf(name, "%u", &(*pids)[matches]);
            }
            ++matches;
        }
    }
    *count = matches;
    return TAV_OK;
}

} // extern "C"

// ---- signal dispositions ------------------------------------------------

namespace {

constexpr bool in_signal_range(int32_t signum) { return signum >= 1 && signum <= 31; }

// SIGKILL and SIGSTOP can't be ignored anyway; SIGTERM is kept so that the
// process can always be asked to end.
constexpr bool never_ignored(int32_t signum) {
    return signum == SIGKILL || signum == SIGTERM || signum == SIGSTOP;
}

// Sets the handler alone: an empty mask and no flags, so nothing is asked
// for beyond the handler, and the previous disposition is not kept.
bool set_disposition(int32_t signum, void (*handler)(int)) {
    struct sigaction action {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = handler;
    return ::sigaction(signum, &action, nullptr) == 0;
}

// Ignores one signal; a failure is logged under the caller's name.
tav_status ignore(tav::Site site, int32_t signum) {
    if (set_disposition(signum, SIG_IGN)) {
        return TAV_OK;
    }
    const int error = errno;
    tav::reasoned_line(error, site, "Failed to set ignore signal %s (%d)", strsignal(signum),
                       signum);
    return TAV_ERR_SYSTEM;
}

} // namespace

extern "C" {

tav_status tav_util_ignore_signal(int32_t signum) {
    if (never_ignored(signum) || !in_signal_range(signum)) {
        return TAV_OK;
    }
    return ignore(TAV_SITE, signum);
}

tav_status tav_util_ignore_common_signals(void) {
    tav_status status = TAV_OK;
    for (int32_t signum = 1; signum <= 31; ++signum) {
        if (!never_ignored(signum) && ignore(TAV_SITE, signum) != TAV_OK) {
            status = TAV_ERR_SYSTEM;
        }
    }
    return status;
}

tav_status tav_util_reset_signal(int32_t signum) {
    if (!in_signal_range(signum)) {
        TAV_PLAIN_LINE("Invalid or unsupported signal value %d", signum);
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    if (!set_disposition(signum, SIG_DFL)) {
        const int error = errno;
        tav::reasoned_line(error, TAV_SITE, "Failed to reset signal %s (%d)", strsignal(signum),
                           signum);
        return TAV_ERR_SYSTEM;
    }
    return TAV_OK;
}

} // extern "C"
