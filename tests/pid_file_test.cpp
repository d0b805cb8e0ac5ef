// The pid file claim on real files and processes: each row sets the file up,
// claims it, and reads back the status, pid_out, the file's bytes and mode,
// and the reports; no descriptor or lock may be left behind.
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "alloc_inject.hpp"
#include "host_inject.hpp"
#include "recorder.hpp"
#include "syscall_inject.hpp"
#include "tavutil.h"

namespace {

const std::string kSrc = " src/process/pid_file_linux.cpp";
const std::string kClaim = "|trace tav_util_claim_pid_file" + kSrc + " ";
const std::string kLine = "|log tav_util_claim_pid_file" + kSrc + ": ";
const std::string kWrite = "|log write_pid_file" + kSrc + ": ";
const std::string kMe = std::to_string(getpid());

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
    std::string text() const { return std::to_string(pid); }
};

long open_descriptors() {
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

// "status pid_out bytes mode" (" locked" when a fresh descriptor can't lock
// the file, " fd+N" for descriptors left open), then the reports.
std::string claim(const std::string &path, const char *program) {
    const long before = open_descriptors();
    tavtest::clear_reports();
    uint32_t holder = 0;
    const tav_status status = tav_util_claim_pid_file(path.c_str(), program, &holder);
    std::string line = std::to_string(status) + " " + std::to_string(holder) + " ";
    struct stat st {};
    if (stat(path.c_str(), &st) == 0) {
        std::ifstream in(path);
        char mode[8];
        std::snprintf(mode, sizeof mode, " %o", st.st_mode & 07777);
        line += std::string(std::istreambuf_iterator<char>(in), {}) + mode;
        const int fd = open(path.c_str(), O_RDONLY);
        line += flock(fd, LOCK_EX | LOCK_NB) == 0 ? "" : " locked";
        close(fd);
    } else {
        line += "absent";
    }
    const long left = open_descriptors() - before;
    return line + (left != 0 ? " fd+" + std::to_string(left) : "") + tavtest::reported();
}

// The mode of a created file: 0664 less the umask, as the kernel shows it.
std::string created_mode() {
    std::ifstream status("/proc/self/status");
    std::string key;
    while (status >> key && key != "Umask:") {
    }
    unsigned mask = 0;
    status >> std::oct >> mask;
    char mode[8];
    std::snprintf(mode, sizeof mode, "%o", 0664 & ~mask);
    return mode;
}

class PidFile : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/pidfile-XXXXXX";
        dir_ = mkdtemp(pattern);
        path_ = dir_ + "/app.pid";
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
    const std::string created = "0 0 " + kMe + " " + created_mode();
    const std::string l = live.text(), p101(101, 'm'), rewritten = "0 0 " + kMe + " 600";
    const std::string held = "52 " + l + " " + l + " 600" + kClaim + "52",
                      mine = "52 " + kMe + " " + kMe + " 600" + kClaim + "52";
    const std::tuple<std::optional<std::string>, std::string, std::string> rows[] = {
        // clang-format off
        {std::nullopt, "myprog", created},
        {std::nullopt, p101, created}, // the name is not measured on this path
        {"", p101, rewritten},
        {std::to_string(ended), "myprog", rewritten},
        {l, "myprog", held},
        {l, "myprog-extra", held},
        {l, "otherprog", rewritten},
        {l, std::string(100, 'm'), rewritten},
        {l, p101, "7 0 " + l + " 600" + kClaim + "7"},
        {l + "\n", "myprog", rewritten}, // the line end is part of the path
        {kMe, argv0, mine}, // a second claim of its own
        {kMe, "", mine}, // any command line matches
        {"self", "", "6 0 self 600" + kClaim + "6"}, // a live entry, but no number
        {"self", "nomatch", rewritten},
        {"self/cmdline", "myprog", "6 0 self/cmdline 600|trace map_pid_to_exe" + kSrc + " 6" + kClaim + "6"},
        // clang-format on
    };
    for (const auto &[content, program, expected] : rows) {
        prepare(content);
        EXPECT_EQ(claim(path_, program.c_str()), expected)
            << content.value_or("absent") << "/" << program;
    }
    uint32_t holder = 0;
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_claim_pid_file(nullptr, "p", &holder) +
                  tav_util_claim_pid_file(path_.c_str(), nullptr, &holder) +
                  tav_util_claim_pid_file(path_.c_str(), "p", nullptr),
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
    holder.reset();
    prepare(std::nullopt);
    tavtest::HostInjection racing({.before_flock = [&] { holder.emplace("", path_.c_str()); }});
    EXPECT_EQ(claim(path_, "p"), "6 0  " + created_mode() + " locked" + refused);
}

// The creator holds the lock until its pid is written: a claim made in that
// moment fails instead of finding an empty, stale file.
TEST_F(PidFile, TheNewFileIsGuardedUntilWritten) {
    std::string racer;
    tavtest::SyscallPlan plan;
    plan.before_fopen = [&, fired = false]() mutable {
        if (!std::exchange(fired, true)) {
            racer = tavtest::in_child([&] { return claim(path_, "p"); });
        }
    };
    {
        tavtest::SyscallInjection inject(plan);
        uint32_t holder = 0;
        tav_util_claim_pid_file(path_.c_str(), "p", &holder);
    }
    EXPECT_EQ(racer.substr(0, racer.find('|')), "6 0  " + created_mode() + " locked");
    EXPECT_EQ(claim(path_, ""), "52 " + kMe + " " + kMe + " " + created_mode() + kClaim + "52");
}

// Opens with their flags and modes (a mode only where one is created), then
// the write's stream flushed and closed before the claim's descriptor.
TEST_F(PidFile, CallsAndWriteFailures) {
    prepare("0");
    tavtest::SyscallPlan plan;
    plan.open_modes = true;
    {
        tavtest::SyscallInjection inject(plan);
        claim(path_, "p");
        std::vector<std::string> calls; // a mode means something with O_CREAT alone
        for (const std::string &call : inject.calls()) {
            unsigned flags = 0;
            const bool open = std::sscanf(call.c_str(), "open %*s %o", &flags) == 1;
            calls.push_back(open && (flags & O_CREAT) == 0 ? call.substr(0, call.rfind(' '))
                                                           : call);
        }
        calls.erase(calls.begin() + 2,
                    std::find(calls.begin(), calls.end(), "open /proc/0/cmdline 0"));
        calls.resize(7); // without the file reader's own calls, and claim()'s checks
        EXPECT_EQ(calls,
                  (std::vector<std::string>{"open " + path_ + " 302 664", "open " + path_ + " 2",
                                            "open /proc/0/cmdline 0", "fopen " + path_ + " w",
                                            "fflush", "fclose", "close " + path_}));
    }
    // The reader's stream is closed first, so the write's fclose is the second.
    for (const auto &[failing, nth, word] :
         {std::tuple{"fflush", 1, "flush"}, {"fclose", 2, "close"}}) {
        plan.fail = failing;
        plan.fail_nth = nth;
        tavtest::SyscallInjection inject(plan);
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
                  if (!tavtest::drop_to_nobody()) {
                      return std::string("could not drop privileges");
                  }
                  umask(0222);
                  return claim(closed + "/app.pid", "p") + "\n" + claim(path_, "p") + "\n" +
                         claim(fresh, "p");
              }),
              "39 0 absent" + kClaim + "39\n6 0 1 644" + kLine + "Failed to open pid file " +
                  path_ + "  Reason: Permission denied" + kClaim + "6\n6 0  444" + kWrite +
                  "Failed to open pid file " + fresh +
                  "  Reason: Permission denied|trace write_pid_file" + kSrc + " 6");
}

// Each allocation of a claim on a live holder's file failing in turn: the
// reader's stream and block, the path, the command line's block. "size live|reports"
TEST_F(PidFile, EveryAllocationFailure) {
    const Process live("myprog");
    prepare(live.text());
    std::string seen;
    uint32_t holder = 0;
    auto claim_live = [&] {
        tavtest::clear_reports(), tav_util_claim_pid_file(path_.c_str(), "myprog", &holder);
    };
    claim_live(); // libc's one-time set-up allocates outside the counted runs
    tavtest::for_each_allocation_failure(claim_live, [&](long, const tavtest::AllocRun &run) {
        seen += "\n" + std::to_string(run.sizes.back()) + " " + std::to_string(run.live_blocks) +
                tavtest::reported();
    });
    const std::string read = "|trace tav_util_read_named_file src/file/common.cpp ",
                      map = "|trace map_pid_to_exe" + kSrc + " 2";
    const size_t digits = live.text().size();
    EXPECT_EQ(seen, "\n472 0" + read + "6" + kClaim + "6\n" + std::to_string(digits + 1) + " 0" +
                        read + "2" + kClaim + "2\n" + std::to_string(digits + 15) +
                        " 0|trace tav_util_vasprintf src/string/vasprintf.cpp 2" + map + map +
                        kClaim + "2\n8 0" + map + kClaim + "2");
}

} // namespace
