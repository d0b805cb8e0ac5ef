// The pid file claim on real files, with this process as the live holder.
#include <gtest/gtest.h>

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

using std::to_string;
const std::string kSrc = " src/process/pid_file_linux.cpp", kMe = to_string(getpid());
const std::string kClaim = "|trace tav_util_claim_pid_file" + kSrc + " ";
const std::string kLine = "|log tav_util_claim_pid_file" + kSrc + ": ";
const std::string kWrite = "|log write_pid_file" + kSrc + ": Failed to ";
const std::string kCreated = [] { // 0664 less the umask
    const mode_t mask = umask(0);
    return umask(mask), std::string(1, '0' + (6 & ~mask >> 6)) + to_string(6 & ~mask >> 3) +
                            to_string(4 & ~mask);
}();

long descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// "status pid_out bytes mode" (" locked" when a fresh descriptor can't lock
// the file, " fd+N" for descriptors left open), the calls made if a plan is
// given, then the reports.
std::string claim(const std::string &path, const std::string &program,
                  std::optional<tavtest::SyscallPlan> plan = {}) {
    const long before = descriptors();
    std::optional<tavtest::SyscallInjection> inject;
    if (plan) {
        inject.emplace(*plan);
    }
    uint32_t holder = 0;
    tavtest::clear_reports();
    const tav_status st = tav_util_claim_pid_file(path.c_str(), program.c_str(), &holder);
    std::string line = to_string(st) + " " + to_string(holder) + " ", calls;
    for (const std::string &call : inject ? inject->calls() : std::vector<std::string>{}) {
        calls += (calls.empty() ? " [" : "; ") + call;
    }
    calls += calls.empty() ? "" : "]";
    inject.reset();
    const std::string reports = tavtest::reported();
    struct stat info {};
    if (stat(path.c_str(), &info) == 0) {
        const int fd = open(path.c_str(), O_RDONLY);
        char mode[8];
        std::snprintf(mode, sizeof mode, " %o", info.st_mode & 07777);
        line += std::string(std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {}) +
                mode + (flock(fd, LOCK_EX | LOCK_NB) == 0 ? "" : " locked");
        close(fd);
    } else {
        line += "absent";
    }
    const long left = descriptors() - before;
    return line + (left != 0 ? " fd+" + to_string(left) : "") + calls + reports;
}

class PidFile : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/pidfile-XXXXXX";
        dir = mkdtemp(pattern), path = dir + "/app.pid";
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    // The file as a row wants it: absent, or holding `content` with mode 0600.
    void prepare(const std::optional<std::string> &content) const {
        unlink(path.c_str());
        if (content) {
            std::ofstream(path) << *content;
            chmod(path.c_str(), 0600);
        }
    }
    std::string dir, path;
};

TEST_F(PidFile, EachStateOfTheFile) {
    const pid_t ended = fork();
    if (ended == 0) {
        tavtest::child_exit(0);
    }
    waitpid(ended, nullptr, 0);
    std::string argv0;
    std::getline(std::ifstream("/proc/self/cmdline"), argv0, '\0');
    const std::string m = kMe, mm = "52 " + m + " " + m + " 600" + kClaim + "52", p101(101, 'm'),
                      stale = "0 0 " + m + " 600", fresh = "0 0 " + m + " " + kCreated;
    const std::string mine = argv0.substr(0, argv0.size() - 1), other = argv0 + "x";
    // clang-format off
    const std::tuple<std::optional<std::string>, std::string, std::string> rows[] = {
        {std::nullopt, "p", fresh}, {std::nullopt, p101, fresh}, // the name is not measured on this path
        {"", p101, stale}, {to_string(ended), "p", stale}, {m, argv0, mm}, {m, mine, mm}, {m, "", mm},
        {m, other, stale}, {m, std::string(100, 'm'), stale}, {m, p101, "7 0 " + m + " 600" + kClaim + "7"},
        {m + "\n", argv0, stale}, // the line end is part of the path
        {"self", "", "6 0 self 600" + kClaim + "6"}, {"self", "nomatch", stale}, // a live entry, but no number
        {"self/cmdline", "p", "6 0 self/cmdline 600|trace map_pid_to_exe" + kSrc + " 6" + kClaim + "6"},
    };
    // clang-format on
    for (const auto &[content, program, expected] : rows) {
        prepare(content);
        EXPECT_EQ(claim(path, program), expected) << content.value_or("-") << program;
    }
    uint32_t holder = 0;
    tavtest::clear_reports();
    const int nulls = tav_util_claim_pid_file(nullptr, "p", &holder) +
                      tav_util_claim_pid_file("p", nullptr, &holder) +
                      tav_util_claim_pid_file("p", "p", nullptr);
    EXPECT_EQ(to_string(nulls) + tavtest::reported(),
              "9" + kClaim + "3" + kClaim + "3" + kClaim + "3");
    EXPECT_EQ(claim(dir + "/none/p", "p"), "6 0 absent" + kLine + "Cannot access pid file " + dir +
                                               "/none/p  Reason: No such file or directory" +
                                               kClaim + "6");
}

// Another lock makes the claim fail at once, on either path: on the creating
// one, it is taken between the creation and the claim's lock.
TEST_F(PidFile, ALockHeldElsewhereRefusesTheClaim) {
    const std::string refused = kLine + "Failed to lock PID file " + path +
                                "  Reason: Resource temporarily unavailable" + kClaim + "6";
    prepare("1");
    int held = open(path.c_str(), O_RDONLY);
    flock(held, LOCK_EX);
    EXPECT_EQ(claim(path, "p"), "6 0 1 600 locked" + refused);
    close(held), prepare(std::nullopt);
    tavtest::HostInjection racing(
        {.before_flock = [&] { flock(held = open(path.c_str(), O_RDONLY), LOCK_EX); }});
    EXPECT_EQ(claim(path, "p"), "6 0  " + kCreated + " locked fd+1" + refused);
    close(held);
}

// The creator holds the lock until its pid is written: a claim made in that
// moment fails instead of finding an empty, stale file.
TEST_F(PidFile, TheNewFileIsGuardedUntilWritten) {
    std::string racer;
    claim(path, "p", tavtest::SyscallPlan{.on_fopen = [&](const char *named) {
              racer = racer.empty() ? tavtest::in_child([&] { return claim(path, "p"); }) : racer;
              return named;
          }});
    EXPECT_EQ(racer.substr(0, racer.find('|')), "6 0  " + kCreated + " locked");
    EXPECT_EQ(claim(path, ""), "52 " + kMe + " " + kMe + " " + kCreated + kClaim + "52");
}

// The opens with their flags (and the mode O_CREAT takes), the stale file
// read, the write's stream flushed and closed before the descriptor; a failed
// flush or close is reported.
TEST_F(PidFile, CallsAndWriteFailures) {
    const std::string p = path, start = " 0 " + kMe + " 600 [open " + p + " 302 664; open " + p +
                                        " 2; open " + p + " 0; fstat; close " + p + "; fopen " + p +
                                        " rb; fclose; open /proc/0/cmdline 0; fopen " + p +
                                        " w; fflush";
    const std::string failed = " written pid file " + p + "  Reason: Input/output error";
    // clang-format off
    const std::tuple<const char *, int, std::string> rows[] = {
        {nullptr, 1, "0" + start + "; fclose; close " + p + "]"},
        {"fflush", 1, "6" + start + "; fclose ^1; close " + p + " ^1]" + kWrite + "flush" + failed},
        {"fclose", 2, "6" + start + "; fclose; close " + p + " ^1]" + kWrite + "close" + failed},
    };
    // clang-format on
    for (const auto &[failing, nth, expected] : rows) {
        prepare("0");
        EXPECT_EQ(claim(path, "p", tavtest::SyscallPlan{.fail = failing, .fail_nth = nth}),
                  expected);
    }
    prepare(std::nullopt);
    EXPECT_EQ(claim(path, "p", tavtest::SyscallPlan{}), "0 0 " + kMe + " " + kCreated + " [open " +
                                                            p + " 302 664; fopen " + p +
                                                            " w; fflush; fclose; close " + p + "]");
}

// Refusals by permission, seen as nobody: creation refused, the existing file
// refused, and a file created read-only refusing the write's own open.
TEST_F(PidFile, PermissionRefusals) {
    chmod(dir.c_str(), 0777);
    prepare("1");
    chmod(path.c_str(), 0644);
    mkdir((dir + "/closed").c_str(), 0755);
    EXPECT_EQ(tavtest::in_child([&] {
                  umask(0222);
                  return tavtest::drop_to_nobody()
                             ? claim(dir + "/closed/p", "p") + "\n" + claim(path, "p") + "\n" +
                                   claim(dir + "/new", "p")
                             : "";
              }),
              // clang-format off
              "39 0 absent" + kClaim + "39\n6 0 1 644" + kLine + "Failed to open pid file " + path + "  Reason: Permission denied" + kClaim + "6\n"
              "6 0  444" + kWrite + "open pid file " + dir + "/new  Reason: Permission denied|trace write_pid_file" + kSrc + " 6");
    // clang-format on
}

// Each allocation of a claim on a live holder's file failing in turn: the
// reader's stream and block, the path, the command line's block: "size live|reports".
TEST_F(PidFile, EveryAllocationFailure) {
    prepare(kMe);
    std::string seen, argv0;
    std::getline(std::ifstream("/proc/self/cmdline"), argv0, '\0');
    uint32_t holder = 0;
    auto claim_live = [&] {
        tavtest::clear_reports(), tav_util_claim_pid_file(path.c_str(), argv0.c_str(), &holder);
    };
    claim_live(); // libc's one-time set-up allocates outside the counted runs
    tavtest::for_each_allocation_failure(claim_live, [&](long, const tavtest::AllocRun &run) {
        seen += "\n" + to_string(run.sizes.back()) + " " + to_string(run.live_blocks) +
                tavtest::reported();
    });
    const std::string read = "|trace tav_util_read_named_file src/file/common.cpp ",
                      map = "|trace map_pid_to_exe" + kSrc + " 2";
    // clang-format off
    EXPECT_EQ(seen, "\n472 0" + read + "6" + kClaim + "6\n" + to_string(kMe.size() + 1) + " 0" + read + "2" + kClaim + "2\n" + to_string(kMe.size() + 15) + " 0|trace tav_util_vasprintf src/string/vasprintf.cpp 2" + map + map + kClaim + "2\n" + to_string(argv0.size() + 2) + " 0" + map + kClaim + "2");
    // clang-format on
}

} // namespace
