// The pid file claim on real files and processes: each row sets the file up,
// claims it, and reads back the status, pid_out, the file's bytes and mode,
// and the reports; no descriptor or lock may be left behind.
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "alloc_inject.hpp"
#include "host_inject.hpp"
#include "recorder.hpp"
#include "syscall_inject.hpp"
#include "tavutil.h"

namespace {

using std::to_string;
const std::string kSrc = " src/process/pid_file_linux.cpp", kMe = to_string(getpid());
const std::string kClaim = "|trace tav_util_claim_pid_file" + kSrc + " ";
const std::string kLine = "|log tav_util_claim_pid_file" + kSrc + ": ";
const std::string kWrite = "|log write_pid_file" + kSrc + ": ";

// A process that lives until the test ends: `sleep` under a chosen first
// argument, or one that holds an exclusive flock on `lock_path`.
struct Process {
    pid_t pid = -1;
    explicit Process(const char *argv0, const char *lock_path = nullptr) {
        int ready[2];
        pipe2(ready, O_CLOEXEC);
        if ((pid = fork()) == 0) {
            if (lock_path == nullptr) {
                execl("/bin/sleep", argv0, "1000", static_cast<char *>(nullptr));
            } else if (flock(open(lock_path, O_RDONLY), LOCK_EX) == 0) {
                close(ready[1]), pause();
            }
            tavtest::child_exit(1);
        }
        char byte;
        close(ready[1]), read(ready[0], &byte, 1), close(ready[0]); // at the exec, or locked
    }
    ~Process() { kill(pid, SIGKILL), waitpid(pid, nullptr, 0); }
};

long descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}
std::string octal(unsigned mode) { return (std::ostringstream() << std::oct << mode).str(); }
std::string created_mode() { // 0664 less the umask
    const mode_t mask = umask(0);
    return umask(mask), octal(0664 & ~mask);
}

// "status pid_out bytes mode" (" locked" when a fresh descriptor can't lock
// the file, " fd+N" for descriptors left open), then the reports.
std::string claim(const std::string &path, const char *program) {
    const long before = descriptors();
    tavtest::clear_reports();
    uint32_t holder = 0;
    const tav_status st = tav_util_claim_pid_file(path.c_str(), program, &holder);
    std::string line = to_string(st) + " " + to_string(holder) + " ";
    struct stat info {};
    if (stat(path.c_str(), &info) == 0) {
        std::ifstream in(path);
        const int fd = open(path.c_str(), O_RDONLY);
        line += std::string(std::istreambuf_iterator<char>(in), {}) + " " +
                octal(info.st_mode & 07777) + (flock(fd, LOCK_EX | LOCK_NB) == 0 ? "" : " locked");
        close(fd);
    } else {
        line += "absent";
    }
    const long left = descriptors() - before;
    return line + (left != 0 ? " fd+" + to_string(left) : "") + tavtest::reported();
}

class PidFile : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/pidfile-XXXXXX";
        dir_ = mkdtemp(pattern), path_ = dir_ + "/app.pid";
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    // The file as a row wants it: absent, or holding `content` with mode 0600.
    void prepare(const std::optional<std::string> &content) const {
        unlink(path_.c_str());
        if (content) {
            std::ofstream(path_) << *content;
            chmod(path_.c_str(), 0600);
        }
    }
    std::string dir_, path_;
};

TEST_F(PidFile, EachStateOfTheFile) {
    const Process live("myprog-extra");
    const pid_t ended = fork();
    if (ended == 0) {
        tavtest::child_exit(0);
    }
    waitpid(ended, nullptr, 0);
    std::string argv0;
    std::getline(std::ifstream("/proc/self/cmdline"), argv0, '\0');
    const std::string l = to_string(live.pid), p101(101, 'm'),
                      created = "0 0 " + kMe + " " + created_mode();
    const std::string held = "52 " + l + " " + l + " 600" + kClaim + "52",
                      mine = "52 " + kMe + " " + kMe + " 600" + kClaim + "52",
                      rewritten = "0 0 " + kMe + " 600";
    // clang-format off
    const std::tuple<std::optional<std::string>, std::string, std::string> rows[] = {
        {std::nullopt, "myprog", created}, {std::nullopt, p101, created}, // the name is not measured on this path
        {"", p101, rewritten}, {to_string(ended), "myprog", rewritten}, {l, "myprog", held}, {l, "myprog-extra", held},
        {l, "otherprog", rewritten}, {l, std::string(100, 'm'), rewritten}, {l, p101, "7 0 " + l + " 600" + kClaim + "7"},
        {l + "\n", "myprog", rewritten}, // the line end is part of the path
        {kMe, argv0, mine}, {kMe, "", mine}, // a second claim of its own; any command line matches ""
        {"self", "", "6 0 self 600" + kClaim + "6"}, {"self", "nomatch", rewritten}, // a live entry, but no number
        {"self/cmdline", "myprog", "6 0 self/cmdline 600|trace map_pid_to_exe" + kSrc + " 6" + kClaim + "6"},
    };
    // clang-format on
    for (const auto &[content, program, expected] : rows) {
        prepare(content);
        EXPECT_EQ(claim(path_, program.c_str()), expected) << content.value_or("-") << program;
    }
    uint32_t holder = 0;
    tavtest::clear_reports();
    const std::string p = path_;
    EXPECT_EQ(tav_util_claim_pid_file(nullptr, "p", &holder) +
                  tav_util_claim_pid_file(p.c_str(), nullptr, &holder) +
                  tav_util_claim_pid_file(p.c_str(), "p", nullptr),
              9);
    EXPECT_EQ(tavtest::reported(), kClaim + "3" + kClaim + "3" + kClaim + "3");
    const std::string missing = dir_ + "/missing/app.pid";
    EXPECT_EQ(claim(missing, "p"), "6 0 absent" + kLine + "Cannot access pid file " + missing +
                                       "  Reason: No such file or directory" + kClaim + "6");
}

// Another process's lock makes the claim fail at once, on either path: on the
// creating one, the lock is taken between the creation and the claim's lock.
TEST_F(PidFile, ALockHeldElsewhereRefusesTheClaim) {
    const std::string refused = kLine + "Failed to lock PID file " + path_ +
                                "  Reason: Resource temporarily unavailable" + kClaim + "6";
    prepare("1");
    std::optional<Process> holder(std::in_place, "", path_.c_str());
    EXPECT_EQ(claim(path_, "p"), "6 0 1 600 locked" + refused);
    holder.reset(), prepare(std::nullopt);
    tavtest::HostInjection racing({.before_flock = [&] { holder.emplace("", path_.c_str()); }});
    EXPECT_EQ(claim(path_, "p"), "6 0  " + created_mode() + " locked" + refused);
}

// The creator holds the lock until its pid is written: a claim made in that
// moment fails instead of finding an empty, stale file.
TEST_F(PidFile, TheNewFileIsGuardedUntilWritten) {
    std::string racer;
    auto race = [&, fired = false]() mutable {
        racer = std::exchange(fired, true) ? racer
                                           : tavtest::in_child([&] { return claim(path_, "p"); });
    };
    {
        tavtest::SyscallInjection inject({.before_fopen = race});
        uint32_t holder = 0;
        tav_util_claim_pid_file(path_.c_str(), "p", &holder);
    }
    EXPECT_EQ(racer.substr(0, racer.find('|')), "6 0  " + created_mode() + " locked");
    EXPECT_EQ(claim(path_, ""), "52 " + kMe + " " + kMe + " " + created_mode() + kClaim + "52");
}

// Opens with their flags and modes (a mode means something with O_CREAT
// alone), then the write's stream flushed and closed before the descriptor.
TEST_F(PidFile, CallsAndWriteFailures) {
    prepare("0");
    {
        tavtest::SyscallInjection inject({.open_modes = true});
        claim(path_, "p");
        std::vector<std::string> calls;
        for (const std::string &call : inject.calls()) {
            unsigned flags = 0;
            const bool open = std::sscanf(call.c_str(), "open %*s %o", &flags) == 1;
            calls.push_back(open && !(flags & O_CREAT) ? call.substr(0, call.rfind(' ')) : call);
        }
        calls.erase(calls.begin() + 2,
                    std::find(calls.begin(), calls.end(), "open /proc/0/cmdline 0"));
        calls.resize(7); // without the file reader's own calls, and claim()'s checks
        // clang-format off
        EXPECT_EQ(calls, (std::vector<std::string>{"open " + path_ + " 302 664", "open " + path_ + " 2", "open /proc/0/cmdline 0", "fopen " + path_ + " w", "fflush", "fclose", "close " + path_}));
        // clang-format on
    }
    // The reader's stream is closed first, so the write's fclose is the second.
    for (const auto &[failing, nth, word] :
         {std::tuple{"fflush", 1, "flush"}, {"fclose", 2, "close"}}) {
        tavtest::SyscallInjection inject({.fail = failing, .fail_nth = nth});
        EXPECT_EQ(claim(path_, "p"), "6 0 " + kMe + " 600" + kWrite + "Failed to " + word +
                                         " written pid file " + path_ +
                                         "  Reason: Input/output error");
    }
}

// Refusals by permission, seen as nobody: creation refused, the existing file
// refused, and a file created read-only refusing the write's own open.
TEST_F(PidFile, PermissionRefusals) {
    chmod(dir_.c_str(), 0777);
    prepare("1");
    chmod(path_.c_str(), 0644);
    const std::string closed = dir_ + "/closed", fresh = dir_ + "/fresh.pid";
    mkdir(closed.c_str(), 0755);
    EXPECT_EQ(tavtest::in_child([&] {
                  umask(0222);
                  return tavtest::drop_to_nobody()
                             ? claim(closed + "/app.pid", "p") + "\n" + claim(path_, "p") + "\n" +
                                   claim(fresh, "p")
                             : "";
              }),
              // clang-format off
              "39 0 absent" + kClaim + "39\n6 0 1 644" + kLine + "Failed to open pid file " + path_ + "  Reason: Permission denied" + kClaim + "6\n"
              "6 0  444" + kWrite + "Failed to open pid file " + fresh + "  Reason: Permission denied|trace write_pid_file" + kSrc + " 6");
    // clang-format on
}

// Each allocation of a claim on a live holder's file failing in turn: the
// reader's stream and block, the path, the command line's block: "size live|reports".
TEST_F(PidFile, EveryAllocationFailure) {
    const Process live("myprog");
    prepare(to_string(live.pid));
    std::string seen;
    uint32_t holder = 0;
    auto claim_live = [&] {
        tavtest::clear_reports(), tav_util_claim_pid_file(path_.c_str(), "myprog", &holder);
    };
    claim_live(); // libc's one-time set-up allocates outside the counted runs
    tavtest::for_each_allocation_failure(claim_live, [&](long, const tavtest::AllocRun &run) {
        seen += "\n" + to_string(run.sizes.back()) + " " + to_string(run.live_blocks) +
                tavtest::reported();
    });
    const std::string read = "|trace tav_util_read_named_file src/file/common.cpp ",
                      map = "|trace map_pid_to_exe" + kSrc + " 2";
    const size_t digits = to_string(live.pid).size();
    // clang-format off
    EXPECT_EQ(seen, "\n472 0" + read + "6" + kClaim + "6\n" + to_string(digits + 1) + " 0" + read + "2" + kClaim + "2\n" + to_string(digits + 15) + " 0|trace tav_util_vasprintf src/string/vasprintf.cpp 2" + map + map + kClaim + "2\n8 0" + map + kClaim + "2");
    // clang-format on
}

} // namespace
