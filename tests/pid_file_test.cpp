// The pid file claim on real files and processes: each row sets the file up,
// claims it, and reads back the status, pid_out, the file's bytes and mode,
// and the reports; no descriptor or lock may be left behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>
#include <vector>

#include "alloc_inject.hpp"
#include "host_inject.hpp"
#include "recorder.hpp"
#include "syscall_inject.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
const std::string kSrc = " src/process/pid_file_linux.cpp";
const std::string kClaim = "trace tav_util_claim_pid_file" + kSrc + " ";

// A process that lives until the test ends: `sleep` under a chosen first
// argument, or one holding an exclusive flock on `lock_path`.
struct Process {
    pid_t pid = -1;
    explicit Process(const char *argv0, const char *lock_path = nullptr) {
        int ready[2];
        pipe2(ready, O_CLOEXEC);
        pid = fork();
        if (pid == 0) {
            if (lock_path == nullptr) {
                execl("/bin/sleep", argv0, "1000", static_cast<char *>(nullptr));
            } else if (flock(open(lock_path, O_RDONLY), LOCK_EX) == 0) {
                close(ready[1]);
                pause();
            }
            _exit(1);
        }
        close(ready[1]);
        char byte;
        read(ready[0], &byte, 1); // returns at the exec, or once locked
        close(ready[0]);
    }
    ~Process() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    std::string text() const { return std::to_string(pid); }
};

std::string pid_text() { return std::to_string(getpid()); }

long open_descriptors() {
    long count = 0;
    DIR *dir = opendir("/proc/self/fd");
    while (readdir(dir) != nullptr) {
        ++count;
    }
    closedir(dir);
    return count;
}

// Claims `path` and describes the outcome: status and pid_out, the file's
// bytes and mode, whether a fresh descriptor could lock it, the reports.
Lines claim(const std::string &path, const char *program) {
    const long before = open_descriptors();
    tavtest::clear_reports();
    uint32_t holder = 0;
    const tav_status status = tav_util_claim_pid_file(path.c_str(), program, &holder);
    Lines seen = tavtest::report_summary();
    std::string bytes = "absent";
    struct stat st {};
    if (stat(path.c_str(), &st) == 0) {
        std::ifstream in(path);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
        const int fd = open(path.c_str(), O_RDONLY);
        bytes += flock(fd, LOCK_EX | LOCK_NB) == 0 ? "" : " locked";
        close(fd);
    }
    char mode[8];
    std::snprintf(mode, sizeof mode, "%o", st.st_mode & 07777);
    seen.insert(seen.begin(), {std::to_string(status) + " " + std::to_string(holder), bytes, mode,
                               std::to_string(open_descriptors() - before)});
    return seen;
}

// The process's umask, read from the kernel's view without changing it.
mode_t current_umask() {
    std::ifstream status("/proc/self/status");
    std::string key;
    unsigned mask = 0;
    while (status >> key && key != "Umask:") {
    }
    status >> std::oct >> mask;
    return mask;
}

class PidFile : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/pidfile-XXXXXX";
        dir_ = mkdtemp(pattern);
        path_ = dir_ + "/app.pid";
    }
    void TearDown() override { std::system(("rm -rf " + dir_).c_str()); }
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
    pid_t ended = fork();
    if (ended == 0) {
        _exit(0);
    }
    waitpid(ended, nullptr, 0);
    std::ifstream cmdline("/proc/self/cmdline");
    std::string argv0;
    std::getline(cmdline, argv0, '\0');
    char created_mode[8];
    std::snprintf(created_mode, sizeof created_mode, "%o", 0664 & ~current_umask());
    const std::string me = pid_text(), l = live.text(), p101(101, 'm');
    const std::string mine_new[] = {"0 0", me, created_mode, "0"};
    struct Row {
        std::optional<std::string> content;
        std::string program;
        Lines expected; // as claim() gives it; {} where the file is rewritten
    };
    const Lines rewritten = {"0 0", me, "600", "0"};
    // clang-format off
    const Row rows[] = {
        {std::nullopt, "myprog", Lines(std::begin(mine_new), std::end(mine_new))},
        {std::nullopt, p101, Lines(std::begin(mine_new), std::end(mine_new))}, // no name test
        {"", p101, rewritten},
        {std::to_string(ended), "myprog", rewritten},
        {l, "myprog", {"52 " + l, l, "600", "0", kClaim + "52"}},
        {l, "myprog-extra", {"52 " + l, l, "600", "0", kClaim + "52"}},
        {l, "otherprog", rewritten},
        {l, std::string(100, 'm'), rewritten},
        {l, p101, {"7 0", l, "600", "0", kClaim + "7"}},
        {l + "\n", "myprog", rewritten}, // the line end is part of the path
        {me, argv0, {"52 " + me, me, "600", "0", kClaim + "52"}}, // a second claim of its own
        {me, "", {"52 " + me, me, "600", "0", kClaim + "52"}},   // any command line matches
        {"self", "", {"6 0", "self", "600", "0", kClaim + "6"}}, // a live entry, no number
        {"self", "nomatch", rewritten},
        {"self/cmdline", "myprog", {"6 0", "self/cmdline", "600", "0", // not a directory
         "trace map_pid_to_exe" + kSrc + " 6", kClaim + "6"}},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.content.value_or("absent") + " / " + row.program);
        prepare(row.content);
        EXPECT_EQ(claim(path_, row.program.c_str()), row.expected);
    }
    prepare(l);
    uint32_t holder = 0;
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_claim_pid_file(nullptr, "p", &holder), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_claim_pid_file(path_.c_str(), nullptr, &holder), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_claim_pid_file(path_.c_str(), "p", nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tavtest::report_summary(), Lines(3, kClaim + "3"));
    EXPECT_EQ(claim(dir_ + "/missing/app.pid", "p"),
              (Lines{"6 0", "absent", "0", "0",
                     "log tav_util_claim_pid_file" + kSrc + ": Cannot access pid file " + dir_ +
                         "/missing/app.pid  Reason: No such file or directory",
                     kClaim + "6"}));
}

// Another process's lock makes the claim fail at once, on either path.
TEST_F(PidFile, ALockHeldElsewhereRefusesTheClaim) {
    const std::string refused = "log tav_util_claim_pid_file" + kSrc +
                                ": Failed to lock PID file " + path_ +
                                "  Reason: Resource temporarily unavailable";
    prepare("1");
    {
        const Process holder("", path_.c_str());
        EXPECT_EQ(claim(path_, "p"), (Lines{"6 0", "1 locked", "600", "0", refused, kClaim + "6"}));
    }
    // A claim that opened the new file before its creator locked it wins.
    prepare(std::nullopt);
    std::optional<Process> holder;
    tavtest::BeforeFlock racing([&] { holder.emplace("", path_.c_str()); });
    EXPECT_EQ(claim(path_, "p")[1], " locked");
    EXPECT_EQ(tavtest::report_summary(), (Lines{refused, kClaim + "6"}));
}

// Between creation and write the creator holds the lock: a claim made in
// that moment fails instead of finding an empty, stale file.
TEST_F(PidFile, TheNewFileIsGuardedUntilWritten) {
    prepare(std::nullopt);
    Lines racer;
    tavtest::SyscallPlan plan;
    plan.before_fopen = [&, fired = false]() mutable {
        if (!fired) {
            fired = true;
            racer = tavtest::in_child([&] { return claim(path_, "p"); });
        }
    };
    {
        tavtest::SyscallInjection inject(plan);
        uint32_t holder = 0;
        tav_util_claim_pid_file(path_.c_str(), "p", &holder);
    }
    ASSERT_GE(racer.size(), 2u);
    EXPECT_EQ(racer[0], "6 0");
    EXPECT_EQ(claim(path_, "")[0], "52 " + pid_text()) << "the creator's pid stands";
}

TEST_F(PidFile, CallsAndWriteFailures) {
    prepare("0");
    tavtest::SyscallPlan plan;
    plan.open_modes = true;
    {
        tavtest::SyscallInjection inject(plan);
        uint32_t holder = 0;
        EXPECT_EQ(tav_util_claim_pid_file(path_.c_str(), "p", &holder), TAV_OK);
        // Those of the read in between are the file reader's own.
        Lines calls = inject.calls();
        calls.erase(calls.begin() + 2,
                    std::find(calls.begin(), calls.end(), "open /proc/0/cmdline 0 0"));
        EXPECT_EQ(calls, (Lines{"open " + path_ + " 302 664", "open " + path_ + " 2 0",
                                "open /proc/0/cmdline 0 0", "fopen " + path_ + " w", "fflush",
                                "fclose", "close " + path_}));
    }
    // The reader's stream is closed first, so the write's fclose is the second.
    for (const auto &[failing, nth, word] :
         {std::tuple{"fflush", 1, "flush"}, {"fclose", 2, "close"}}) {
        plan.fail = failing;
        plan.fail_nth = nth;
        tavtest::SyscallInjection inject(plan);
        EXPECT_EQ(claim(path_, "p"),
                  (Lines{"6 0", pid_text(), "600", "0",
                         "log write_pid_file" + kSrc + ": Failed to " + word +
                             " written pid file " + path_ + "  Reason: Input/output error"}));
    }
}

// Refusals by permission, seen without root's privileges.
TEST_F(PidFile, PermissionRefusals) {
    const std::string open_line =
        "log tav_util_claim_pid_file" + kSrc + ": Failed to open pid file ";
    chmod(dir_.c_str(), 0777);
    prepare("1");
    chmod(path_.c_str(), 0644);
    const std::string closed = dir_ + "/closed";
    mkdir(closed.c_str(), 0755);
    EXPECT_EQ(tavtest::in_child([&] {
                  if (setgid(65534) != 0 || setuid(65534) != 0) {
                      return Lines{"could not drop privileges"};
                  }
                  umask(0222);
                  const std::string fresh = dir_ + "/fresh.pid";
                  Lines seen = claim(closed + "/app.pid", "p");
                  for (const Lines &more : {claim(path_, "p"), claim(fresh, "p")}) {
                      seen.insert(seen.end(), more.begin(), more.end());
                  }
                  return seen;
              }),
              (Lines{"39 0", "absent", "0", "0", kClaim + "39", "6 0", "1", "644", "0",
                     open_line + path_ + "  Reason: Permission denied", kClaim + "6", "6 0", "",
                     "444", "0",
                     "log write_pid_file" + kSrc + ": Failed to open pid file " + dir_ +
                         "/fresh.pid  Reason: Permission denied",
                     "trace write_pid_file" + kSrc + " 6"}));
}

// Each allocation of a claim on a live holder's file failing in turn.
TEST_F(PidFile, EveryAllocationFailure) {
    const Process live("myprog");
    prepare(live.text());
    Lines seen;
    tav_status status = TAV_OK;
    tavtest::for_each_allocation_failure(
        [&] {
            tavtest::clear_reports();
            uint32_t holder = 0;
            status = tav_util_claim_pid_file(path_.c_str(), "myprog", &holder);
        },
        [&](long, const tavtest::AllocRun &run) {
            std::string line = std::to_string(status) + " " + std::to_string(run.sizes.back()) +
                               " " + std::to_string(run.live_blocks);
            for (const std::string &report : tavtest::report_summary()) {
                line += " | " + report;
            }
            seen.push_back(line);
        });
    const std::string read = "trace tav_util_read_named_file src/file/common.cpp ";
    const std::string map = "trace map_pid_to_exe" + kSrc + " ";
    const std::string size = std::to_string(live.text().size() + 1);
    const std::string path =
        std::to_string(std::string("/proc//cmdline").size() + live.text().size() + 1);
    EXPECT_EQ(seen,
              (Lines{"6 472 0 | " + read + "6 | " + kClaim + "6",
                     "2 " + size + " 0 | " + read + "2 | " + kClaim + "2",
                     "2 " + path + " 0 | trace tav_util_vasprintf src/string/vasprintf.cpp 2 | " +
                         map + "2 | " + map + "2 | " + kClaim + "2",
                     "2 8 0 | " + map + "2 | " + kClaim + "2"}));
}

} // namespace
