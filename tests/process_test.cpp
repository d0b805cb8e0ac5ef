// Processes: spawn and wait, the bounded wait, the search of /proc and
// signal dispositions, on real children.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vector>

#include "alloc_inject.hpp"
#include "clock_inject.hpp"
#include "internal/process_ops.hpp"
#include "process_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
const std::string kSpawn = "src/process/spawn_linux.cpp";
const std::string kOps = "src/process_ops.cpp";

std::string joined(const Lines &lines) {
    std::string text;
    for (const std::string &line : lines) {
        text += line + "\n";
    }
    return text;
}

// Runs `body` in a child process and hands back the text it made: what the
// body changes of the process (signals above all) stays in the child.
std::string in_child(const std::function<std::string()> &body) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        const std::string text = body();
        _exit(write(ends[1], text.data(), text.size()) == ssize_t(text.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::string text;
    char chunk[512];
    for (ssize_t got; (got = read(ends[0], chunk, sizeof chunk)) > 0;) {
        text.append(chunk, size_t(got));
    }
    close(ends[0]);
    waitpid(pid, nullptr, 0);
    return text;
}

std::vector<char *> words(std::initializer_list<const char *> list) {
    std::vector<char *> out;
    for (const char *word : list) {
        out.push_back(const_cast<char *>(word));
    }
    out.push_back(nullptr);
    return out;
}

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

int32_t pid_in(tav_proc_handle handle) { return *reinterpret_cast<const int32_t *>(handle); }

std::vector<char *> no_env = words({});

TEST(Spawn, ExitCodesAndFailuresBothWays) {
    struct Row {
        std::vector<char *> argv;
        tavtest::ProcessFaults faults;
        long fail_at;
        tav_status status;
        int32_t code;
        std::string trace; // of tav_spawn, if it fails
    };
    const std::string spawn_trace = "trace tav_spawn " + kSpawn + " ";
    const Row rows[] = {
        {words({"/bin/sh", "-c", "exit 0"}), {}, 0, TAV_OK, 0, ""},
        {words({"/bin/sh", "-c", "exit 255"}), {}, 0, TAV_OK, 255, ""},
        {words({"/bin/sh", "-c", "kill -9 $$"}), {}, 0, TAV_OK, -1, ""},
        // No search of PATH: a bare name is not found and the child exits with 1.
        {words({"sh", "-c", "exit 0"}), {}, 0, TAV_OK, 1, ""},
        {words({"/bin/sh", "-c", "exit 0"}),
         {.fork_errno = EAGAIN},
         0,
         TAV_ERR_SYSTEM,
         77,
         spawn_trace + "6"},
        {words({"/bin/sh", "-c", "exit 0"}), {}, 1, TAV_ERR_NOMEM, 77, spawn_trace + "2"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.argv[row.argv.size() - 2]);
        tavtest::ProcessFaultInjection faults(row.faults);
        for (const bool at_once : {false, true}) {
            tavtest::clear_reports();
            tav_proc_handle handle = reinterpret_cast<tav_proc_handle>(1);
            int32_t code = 77;
            tav_status status = TAV_OK;
            const tavtest::AllocRun run = tavtest::run_allocations(row.fail_at, [&] {
                if (at_once) {
                    status = tav_spawn_and_wait(row.argv.data(), no_env.data(), &code);
                } else if ((status = tav_spawn(row.argv.data(), no_env.data(), &handle)) == 0) {
                    status = tav_wait(&handle, &code);
                }
            });
            EXPECT_EQ(status, row.status);
            EXPECT_EQ(code, row.code);
            EXPECT_EQ(run.live_blocks, 0);
            EXPECT_EQ(run.sizes, std::vector<size_t>{4});
            Lines reports;
            if (!row.trace.empty()) {
                reports = {row.trace};
                if (at_once) {
                    reports.push_back("trace tav_spawn_and_wait src/spawn.cpp " +
                                      std::to_string(row.status));
                }
            }
            EXPECT_EQ(tavtest::report_summary(), reports);
            if (!at_once) {
                EXPECT_EQ(handle, nullptr);
            }
        }
    }
}

TEST(Spawn, WaitRefusesAMissingHandle) {
    tavtest::clear_reports();
    tav_proc_handle empty = nullptr;
    int32_t code = 77;
    EXPECT_EQ(tav_wait(nullptr, &code), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_wait(&empty, &code), TAV_ERR_NULL_ARG);
    EXPECT_EQ(code, 77);
    const std::string trace = "trace tav_wait " + kSpawn + " 3";
    EXPECT_EQ(tavtest::report_summary(), (Lines{trace, trace}));
    tav_free_proc_handle(nullptr);
    tav_free_proc_handle(&empty);
}

// With SIGCHLD ignored the system collects the child itself: the wait fails,
// and the handle is still released.
TEST(Spawn, WaitFailsWhenTheSystemCollects) {
    const std::string seen = in_child([] {
        tav_util_ignore_signal(SIGCHLD);
        tavtest::clear_reports();
        int32_t code = 77;
        tav_status status = TAV_OK;
        const tavtest::AllocRun run = tavtest::run_allocations(0, [&] {
            status = tav_spawn_and_wait(words({"/bin/true"}).data(), no_env.data(), &code);
        });
        return std::to_string(status) + " " + std::to_string(code) + " " +
               std::to_string(run.live_blocks) + "\n" + joined(tavtest::report_summary());
    });
    EXPECT_TRUE(std::regex_match(
        seen, std::regex("6 77 0\nlog tav_wait " + kSpawn +
                         ": Failed to wait on process [0-9]+  Reason: No child processes\n"
                         "trace tav_wait " +
                         kSpawn + " 6\n")))
        << seen;
}

// ---- bounded wait --------------------------------------------------------

std::optional<tavtest::ClockInjection> stopped_clock;

// Each row waits on a child that is running, has ended (uncollected), or is
// no child at all (this process), and tells by which signal the child ended
// after the call: 9 the library's kill, 15 ours (it was left alone), 0 when
// the call collected it.
TEST(AwaitChild, PollsKillsAndReports) {
    enum Target { kRunning, kEnded, kSelf };
    struct Row {
        const char *name;
        Target target;
        int32_t seconds;
        tavtest::ProcessFaults faults;
        int clock_fails; // every clock read fails with this from the start
        tav_status status;
        Lines reports; // "PID" stands for the pid
        int ended_by;
    };
    const std::string await = "tav_util_await_child_timeout";
    const std::string line = "log " + await + " " + kOps + ": ";
    const std::string timespec = "src/time/timespec_common.cpp ";
    // clang-format off
    const Row rows[] = {
        {"deadline now", kRunning, 0, {}, 0, TAV_ERR_TIMEOUT, {"trace " + await + " " + kOps + " 36"}, 9},
        {"one second", kRunning, 1, {}, 0, TAV_ERR_TIMEOUT, {"trace " + await + " " + kOps + " 36"}, 9},
        {"ended before", kEnded, 0, {}, 0, TAV_OK, {}, 0},
        {"no child", kSelf, 0, {}, 0, TAV_ERR_SYSTEM,
         {line + "Failed to wait for child process PID to end  Reason: No child processes",
          "trace " + await + " " + kOps + " 6"}, 0},
        {"kill fails", kRunning, 0, {.kill_errno = EPERM}, 0, TAV_ERR_TIMEOUT,
         {line + "Failed to kill process PID  Reason: Operation not permitted",
          "trace " + await + " " + kOps + " 36"}, 15},
        {"negative seconds", kRunning, -1, {}, 0, TAV_ERR_BAD_ARG,
         {"log tav_util_abs_time_offset Bad value, val: -1 scale_to_sec: 1\n",
          "trace tav_util_abs_time_offset " + timespec + "7",
          "trace tav_util_future_timeout " + timespec + "7",
          "log tav_util_future_timeout Overflow detected when trying to set phase timeout tmp hack",
          "trace " + await + " " + kOps + " 7"}, 15},
        {"no clock for the deadline", kRunning, 5, {}, EINVAL, TAV_ERR_SYSTEM,
         {"log tav_util_future_timeout Failed to get current time.",
          "trace tav_util_future_timeout " + timespec + "6", "trace " + await + " " + kOps + " 6"}, 15},
        {"no clock at the poll", kRunning, 5,
         {.before_waitpid = [] { stopped_clock.emplace(tavtest::ClockPlan{.fail_with = EINVAL}); }},
         0, TAV_ERR_SYSTEM,
         {"trace tav_util_query_timeout_expired " + timespec + "6", "trace " + await + " " + kOps + " 6"}, 15},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        tav_proc_handle handle = nullptr;
        auto argv = row.target == kEnded ? words({"/bin/true"}) : words({"/bin/sleep", "100"});
        int32_t pid = getpid();
        siginfo_t info{};
        if (row.target != kSelf) {
            ASSERT_EQ(tav_spawn(argv.data(), no_env.data(), &handle), TAV_OK);
            pid = pid_in(handle);
        }
        if (row.target == kEnded) {
            waitid(P_PID, id_t(pid), &info, WEXITED | WNOWAIT);
        }
        tavtest::clear_reports();
        tav_status status = TAV_OK;
        {
            tavtest::ProcessFaultInjection faults(row.faults);
            std::optional<tavtest::ClockInjection> clock;
            if (row.clock_fails != 0) {
                clock.emplace(tavtest::ClockPlan{.fail_with = row.clock_fails});
            }
            status = tav_util_await_child_timeout(pid, row.seconds);
            stopped_clock.reset();
        }
        EXPECT_EQ(status, row.status);
        Lines reports = row.reports;
        for (std::string &text : reports) {
            if (const size_t at = text.find("PID"); at != std::string::npos) {
                text.replace(at, 3, std::to_string(pid));
            }
        }
        EXPECT_EQ(tavtest::report_summary(), reports);
        if (row.target == kSelf) {
            continue;
        }
        int ended_by = 0;
        if (waitid(P_PID, id_t(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0) {
            kill(pid, SIGTERM);
            waitid(P_PID, id_t(pid), &info, WEXITED | WNOWAIT);
            ended_by = info.si_status;
        }
        EXPECT_EQ(ended_by, row.ended_by);
        // A killed child is collected afterwards with exit code -1.
        int32_t code = 77;
        EXPECT_EQ(tav_wait(&handle, &code), ended_by != 0 ? TAV_OK : TAV_ERR_SYSTEM);
        EXPECT_EQ(code, ended_by != 0 ? -1 : 77);
        tav_free_proc_handle(&handle);
    }
}

// ---- process search ------------------------------------------------------

// A child that sleeps under a first argument of this run, longer than the
// 299 bytes that the search reads; it has started once its command line is
// its own.
class Sleeper {
  public:
    Sleeper() {
        mkdir(dir_.c_str(), 0700);
        symlink("/bin/sleep", path_.c_str());
        auto argv = words({path_.c_str(), "7919.271828"});
        auto env = words({"A=1", "B=two"});
        EXPECT_EQ(tav_spawn(argv.data(), env.data(), &handle_), TAV_OK);
        while (slurp(proc("cmdline")) != path_ + '\0' + "7919.271828" + '\0') {
            usleep(1000);
        }
    }
    ~Sleeper() {
        kill(pid(), SIGKILL);
        int32_t code = 0;
        tav_wait(&handle_, &code);
        unlink(path_.c_str());
        rmdir(dir_.c_str());
    }
    int32_t pid() const { return pid_in(handle_); }
    std::string proc(const std::string &name) const {
        return "/proc/" + std::to_string(pid()) + "/" + name;
    }
    const std::string dir_ = "/tmp/tavproc-" + std::to_string(getpid()) + std::string(200, 'd');
    const std::string path_ = dir_ + "/" + std::string(120, 's') + "-sleeper";
    tav_proc_handle handle_ = nullptr;
};

TEST(ProcessSearch, FindsTheFirstArgumentByBothModes) {
    const Sleeper sleeper;
    // The child's environment is exactly the one given.
    EXPECT_EQ(slurp(sleeper.proc("environ")), std::string("A=1\0B=two\0", 10));
    const std::string &path = sleeper.path_;
    const std::string fragment = path.substr(5, 16); // "tavproc-<pid>..."
    struct Row {
        std::string text;
        int32_t mode;
        bool found;
    } rows[] = {
        {path.substr(0, 299), 1, true}, {path.substr(0, 300), 1, false},
        {path.substr(0, 299), 0, true}, {path, 2, false},
        {fragment, 1, false},           {fragment, 0, true},
        {fragment, -7, true},           {"7919.271828", 1, false},
        {"7919.271828", 0, false},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text + " mode " + std::to_string(row.mode));
        tavtest::clear_reports();
        uint32_t *pids = nullptr;
        uint64_t count = 0;
        uint64_t counted = 0;
        ASSERT_EQ(tav_util_pid_of(row.text.c_str(), row.mode, &pids, &count), TAV_OK);
        EXPECT_EQ(std::find(pids, pids + count, uint32_t(sleeper.pid())) != pids + count,
                  row.found);
        EXPECT_EQ(tav_util_pid_of(row.text.c_str(), row.mode, nullptr, &counted), TAV_OK);
        EXPECT_EQ(counted, count);
        EXPECT_EQ(tavtest::report_summary(), Lines{});
        std::free(pids);
    }
}

// A directory for the scan to read instead of /proc, removed at the end. By
// default: directories named after processes that stay (1 and this one), one
// that is no process and one not numeric, and a file named after a process.
struct ScanDir {
    explicit ScanDir(std::vector<std::string> dirs = {"1", std::to_string(getpid()), "4194305",
                                                      "self"},
                     std::vector<std::string> files = {std::to_string(getppid())})
        : dirs(std::move(dirs)), files(std::move(files)) {
        mkdir(path.c_str(), 0700);
        for (const std::string &name : this->dirs) {
            mkdir((path + "/" + name).c_str(), 0700);
        }
        for (const std::string &name : this->files) {
            close(open((path + "/" + name).c_str(), O_CREAT | O_WRONLY, 0600));
        }
    }
    ~ScanDir() {
        for (const auto *names : {&dirs, &files}) {
            for (const std::string &name : *names) {
                remove((path + "/" + name).c_str());
            }
        }
        rmdir(path.c_str());
    }
    std::vector<std::string> dirs, files;
    const std::string path = "/tmp/tavscan-" + std::to_string(getpid()) + "-" +
                             std::to_string(reinterpret_cast<uintptr_t>(this));
};

// Every allocation of a search fails once, each leaving its own reports.
TEST(ProcessSearch, EachAllocationFailureLeavesItsReports) {
    const ScanDir dir;
    tavtest::ProcessFaultInjection faults({.scandir_in = dir.path.c_str()});
    uint32_t *const untouched = reinterpret_cast<uint32_t *>(8);
    uint32_t *pids = untouched;
    uint64_t count = 77;
    tav_status status = TAV_OK;
    const std::string vas = "trace tav_util_vasprintf src/string/vasprintf.cpp 2";
    std::set<std::string> seen;
    tavtest::for_each_allocation_failure(
        [&] {
            pids = untouched;
            count = 77;
            status = tav_util_pid_of("", 0, &pids, &count);
        },
        [&](long nth, const tavtest::AllocRun &run) {
            const Lines reports = tavtest::report_summary();
            tavtest::clear_reports();
            const std::string kind = status == TAV_OK           ? "filter path"
                                     : status == TAV_ERR_SYSTEM ? "scandir"
                                     : reports.size() == 2      ? "array"
                                                                : "loop path";
            seen.insert(kind);
            SCOPED_TRACE(kind);
            const std::map<std::string, Lines> expected = {
                {"filter path",
                 {vas, "trace vet_possible_directory " + kOps + " 2",
                  "log vet_possible_directory Failed to allocate path"}},
                {"scandir",
                 {"log tav_util_pid_of " + kOps +
                      ": Failed to open /proc  Reason: Cannot allocate memory",
                  "trace tav_util_pid_of " + kOps + " 6"}},
                {"array",
                 {"log tav_util_pid_of Failed to allocate memory",
                  "trace tav_util_pid_of " + kOps + " 2"}},
                {"loop path",
                 {vas, "trace tav_util_pid_of " + kOps + " 2",
                  "log tav_util_pid_of Failed to allocate path"}},
            };
            EXPECT_EQ(reports, expected.at(kind));
            if (kind == "array") { // room for the two entries the filter kept
                EXPECT_EQ(run.sizes.at(size_t(nth - 1)), 2 * sizeof(uint32_t));
            }
            // The array is the caller's whenever it was made; nothing else stays.
            const bool array = kind == "filter path" || kind == "loop path";
            EXPECT_EQ(run.live_blocks, array ? 1 : 0);
            EXPECT_EQ(pids, kind == "scandir" ? untouched : array ? pids : nullptr);
            EXPECT_EQ(count, kind == "filter path" ? count : 77);
            if (array) {
                std::free(pids);
            }
        });
    std::free(pids); // the last run, which no failure reached
    EXPECT_EQ(seen.size(), 4u) << ::testing::PrintToString(seen);
}

// The filter keeps numeric directories whose command line opens, and the
// scan keeps the order of names as text; an empty scan is no failure.
TEST(ProcessSearch, FilterAndOrderOfTheScan) {
    uint32_t *pids = nullptr;
    uint64_t count = 0;
    {
        const ScanDir dir;
        tavtest::ProcessFaultInjection faults({.scandir_in = dir.path.c_str()});
        EXPECT_EQ(tav_util_pid_of("", 0, &pids, &count), TAV_OK);
        ASSERT_EQ(count, 2u);
        EXPECT_EQ(pids[0], 1u);
        EXPECT_EQ(pids[1], uint32_t(getpid()));
        std::free(pids);
    }
    {
        const ScanDir empty({}, {});
        tavtest::ProcessFaultInjection faults({.scandir_in = empty.path.c_str()});
        tavtest::clear_reports();
        pids = reinterpret_cast<uint32_t *>(8);
        EXPECT_EQ(tav_util_pid_of("", 0, &pids, &count), TAV_OK);
        EXPECT_EQ(pids, nullptr);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(tavtest::reports().at(0).severity, 7);
        EXPECT_EQ(tavtest::report_summary(),
                  Lines{"log tav_util_pid_of Nothing suitable in /proc"});
    }
    EXPECT_EQ(vet_possible_directory(nullptr), 0);
    // Every process, in the order of the names as text; this one among them.
    ASSERT_EQ(tav_util_pid_of("", 0, &pids, &count), TAV_OK);
    std::vector<std::string> found;
    for (uint64_t i = 0; i < count; ++i) {
        found.push_back(std::to_string(pids[i]));
    }
    std::free(pids);
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
    EXPECT_NE(std::find(found.begin(), found.end(), std::to_string(getpid())), found.end());
}

// ---- signal dispositions -------------------------------------------------

void marked(int) {}
// The flag libc adds to every disposition it sets for the kernel.
constexpr int kRestorer = 0x04000000;

// What each of the signals 1 to 31 and 64 does, as one letter: H a handler,
// I ignored, D default; i and d when flags or mask ask for more than that.
std::string dispositions() {
    std::string letters;
    for (int signum = 1; signum <= 64; signum = signum == 31 ? 64 : signum + 1) {
        struct sigaction now {};
        sigaction(signum, nullptr, &now);
        const bool bare = (now.sa_flags & ~kRestorer) == 0 && sigisemptyset(&now.sa_mask);
        letters += now.sa_handler == SIG_IGN   ? (bare ? 'I' : 'i')
                   : now.sa_handler == SIG_DFL ? (bare ? 'D' : 'd')
                                               : 'H';
    }
    return letters;
}

// Signals 1 to 31 and 64 start with a handler that asks for a full mask and
// flags (9 and 19 keep their default); `changes` gives the letters after.
std::string expected(std::initializer_list<std::pair<int, char>> changes) {
    std::string letters = "HHHHHHHHDHHHHHHHHHDHHHHHHHHHHHHH";
    for (const auto &[signum, letter] : changes) {
        letters[signum == 64 ? 31 : signum - 1] = letter;
    }
    return letters;
}

TEST(Signals, DispositionsAfterEachCall) {
    struct Row {
        const char *name;
        std::function<tav_status()> call;
        uint64_t failing; // signals whose sigaction fails
        tav_status status;
        Lines reports;
        std::string after;
    };
    const std::string ignore_line = "log tav_util_ignore_signal " + kOps + ": ";
    const std::string common_line = "log tav_util_ignore_common_signals " + kOps + ": ";
    const std::string reset = "tav_util_reset_signal";
    std::string all_ignored(32, 'I');
    all_ignored[8] = all_ignored[18] = 'D';
    all_ignored[14] = all_ignored[31] = 'H';
    // clang-format off
    const Row rows[] = {
        {"ignore 1", [] { return tav_util_ignore_signal(1); }, 0, TAV_OK, {}, expected({{1, 'I'}})},
        {"ignore 31", [] { return tav_util_ignore_signal(31); }, 0, TAV_OK, {}, expected({{31, 'I'}})},
        {"ignore passes over", [] {
             for (const int signum : {9, 15, 19, 0, -1, 32, 64}) {
                 if (tav_util_ignore_signal(signum) != TAV_OK) { return TAV_ERR_SYSTEM; }
             }
             return TAV_OK; }, 0, TAV_OK, {}, expected({})},
        {"ignore fails", [] { return tav_util_ignore_signal(2); }, 1 << 2, TAV_ERR_SYSTEM,
         {ignore_line + "Failed to set ignore signal Interrupt (2)  Reason: Invalid argument"},
         expected({})},
        {"ignore common", [] { return tav_util_ignore_common_signals(); }, 0, TAV_OK, {},
         all_ignored},
        {"ignore common, two fail", [] { return tav_util_ignore_common_signals(); },
         1 << 2 | 1u << 31, TAV_ERR_SYSTEM,
         {common_line + "Failed to set ignore signal Interrupt (2)  Reason: Invalid argument",
          common_line + "Failed to set ignore signal Bad system call (31)  Reason: Invalid argument"},
         [&] { std::string s = all_ignored; s[1] = s[30] = 'H'; return s; }()},
        {"reset 1", [] { return tav_util_reset_signal(1); }, 0, TAV_OK, {}, expected({{1, 'D'}})},
        {"reset 31", [] { return tav_util_reset_signal(31); }, 0, TAV_OK, {}, expected({{31, 'D'}})},
        {"reset 0", [] { return tav_util_reset_signal(0); }, 0, TAV_ERR_BAD_ARG,
         {"log " + reset + " Invalid or unsupported signal value 0", "trace " + reset + " " + kOps + " 7"},
         expected({})},
        {"reset 32", [] { return tav_util_reset_signal(32); }, 0, TAV_ERR_BAD_ARG,
         {"log " + reset + " Invalid or unsupported signal value 32", "trace " + reset + " " + kOps + " 7"},
         expected({})},
        {"reset 9", [] { return tav_util_reset_signal(9); }, 0, TAV_ERR_SYSTEM,
         {"log " + reset + " " + kOps + ": Failed to reset signal Killed (9)  Reason: Invalid argument"},
         expected({})},
        {"ignore then reset 15", [] {
             const tav_status first = tav_util_ignore_signal(15);
             return first != TAV_OK ? first : tav_util_reset_signal(15); }, 0, TAV_OK, {},
         expected({{15, 'D'}})},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        const std::string seen = in_child([&] {
            struct sigaction handler {};
            sigfillset(&handler.sa_mask);
            handler.sa_flags = SA_RESTART | SA_NODEFER;
            handler.sa_handler = marked;
            for (int signum = 1; signum <= 64; ++signum) {
                sigaction(signum, &handler, nullptr);
            }
            tavtest::clear_reports();
            tav_status status = TAV_OK;
            {
                tavtest::ProcessFaultInjection faults({.sigaction_fails = row.failing});
                status = row.call();
            }
            return std::to_string(status) + " " + dispositions() + "\n" +
                   joined(tavtest::report_summary());
        });
        EXPECT_EQ(seen, std::to_string(row.status) + " " + row.after + "\n" + joined(row.reports));
    }
}

} // namespace
