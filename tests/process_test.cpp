// Processes on real children: spawn and wait, the bounded wait, the search of
// /proc, and signal dispositions (changed only in child processes).
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
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
using Words = std::vector<const char *>; // ends with a null

char **v(const Words &words) { return const_cast<char **>(words.data()); }
const Words kNoEnv = {nullptr};
const std::string kSpawn = "process/spawn_linux", kOps = "process_ops";
const std::string kTimespec = "time/timespec_common";

std::string trace(const std::string &fn, const std::string &path, int status) {
    return "trace " + fn + " src/" + path + ".cpp " + std::to_string(status);
}
// A reasoned line (with the source path) or, for an empty path, a plain one.
std::string logged(const std::string &fn, const std::string &path, const std::string &text) {
    return "log " + fn + " " + (path.empty() ? "" : "src/" + path + ".cpp: ") + text;
}
std::string joined(const Lines &lines) {
    std::string text;
    for (const std::string &line : lines) {
        text += line + "\n";
    }
    return text;
}
std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
int32_t pid_in(tav_proc_handle handle) { return *reinterpret_cast<const int32_t *>(handle); }

// Runs `body` in a child process and hands back the text it made: what the
// body changes of the process (signals above all) stays in the child.
std::string in_child(const std::function<std::string()> &body) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        const std::string text = body();
        tavtest::child_exit(write(ends[1], text.data(), text.size()) == ssize_t(text.size()) ? 0
                                                                                             : 1);
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

// Each row runs by tav_spawn then tav_wait, and by tav_spawn_and_wait; the
// handle's record is the only allocation, and none is left.
TEST(Spawn, ExitCodesAndFailures) {
    struct Row {
        Words argv;
        tavtest::ProcessFaults faults;
        long fail_at;
        tav_status status;
        int32_t code;
    };
    // clang-format off
    const Row rows[] = {
        {{"/bin/sh", "-c", "exit 0", nullptr}, {}, 0, TAV_OK, 0},
        {{"/bin/sh", "-c", "exit 255", nullptr}, {}, 0, TAV_OK, 255},
        {{"/bin/sh", "-c", "kill -9 $$", nullptr}, {}, 0, TAV_OK, -1},
        {{"sh", "-c", "exit 0", nullptr}, {}, 0, TAV_OK, 1}, // no PATH search: not executed
        {{"/bin/true", nullptr}, {.fork_errno = EAGAIN}, 0, TAV_ERR_SYSTEM, 77},
        {{"/bin/true", nullptr}, {}, 1, TAV_ERR_NOMEM, 77},
    };
    // clang-format on
    const auto untouched = reinterpret_cast<tav_proc_handle>(8);
    for (const Row &row : rows) {
        tavtest::ProcessFaultInjection faults(row.faults);
        for (const bool at_once : {false, true}) {
            SCOPED_TRACE(std::string(row.argv[row.argv.size() - 2]) + (at_once ? " at once" : ""));
            tavtest::clear_reports();
            tav_proc_handle handle = untouched;
            int32_t code = 77;
            tav_status status = TAV_OK;
            const tavtest::AllocRun run = tavtest::run_allocations(row.fail_at, [&] {
                status = at_once ? tav_spawn_and_wait(v(row.argv), v(kNoEnv), &code)
                                 : tav_spawn(v(row.argv), v(kNoEnv), &handle);
                if (!at_once && status == TAV_OK) {
                    status = tav_wait(&handle, &code);
                }
            });
            EXPECT_EQ(status, row.status);
            EXPECT_EQ(code, row.code);
            EXPECT_EQ(handle, at_once ? untouched : nullptr);
            EXPECT_EQ(run.live_blocks, 0);
            EXPECT_EQ(run.sizes, std::vector<size_t>{4});
            Lines reports;
            if (status != TAV_OK) {
                reports.push_back(trace("tav_spawn", kSpawn, status));
            }
            if (status != TAV_OK && at_once) {
                reports.push_back(trace("tav_spawn_and_wait", "spawn", status));
            }
            EXPECT_EQ(tavtest::report_summary(), reports);
        }
    }
    tav_proc_handle none = nullptr;
    int32_t code = 77;
    tavtest::clear_reports();
    EXPECT_EQ(tav_wait(nullptr, &code), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_wait(&none, &code), TAV_ERR_NULL_ARG);
    EXPECT_EQ(code, 77);
    EXPECT_EQ(tavtest::report_summary(), Lines(2, trace("tav_wait", kSpawn, 3)));
    tav_free_proc_handle(nullptr);
}

// With SIGCHLD ignored the system collects the child itself: the wait fails,
// the code is not written and the handle is still released.
TEST(Spawn, WaitFailsWhenTheSystemCollects) {
    const std::string seen = in_child([] {
        tav_util_ignore_signal(SIGCHLD);
        tavtest::clear_reports();
        int32_t code = 77;
        tav_status status = TAV_OK;
        const tavtest::AllocRun run = tavtest::run_allocations(0, [&] {
            status = tav_spawn_and_wait(v({"/bin/true", nullptr}), v(kNoEnv), &code);
        });
        return std::to_string(status) + " " + std::to_string(code) + " " +
               std::to_string(run.live_blocks) + "\n" + joined(tavtest::report_summary());
    });
    const std::string line = logged("tav_wait", kSpawn, "Failed to wait on process ");
    EXPECT_TRUE(
        std::regex_match(seen, std::regex("6 77 0\n" + line + "[0-9]+  Reason: No child " +
                                          "processes\n" + trace("tav_wait", kSpawn, 6) + "\n")))
        << seen;
}

std::optional<tavtest::ClockInjection> stopped_clock;

// Each row waits on a child that runs, has ended (uncollected) or is no child
// (this process), and tells by which signal the child ended afterwards: 9
// the library's kill, 15 ours (it was left alone), 0 when the call collected
// it. A killed child is then collected with exit code -1.
TEST(AwaitChild, PollsKillsAndReports) {
    enum Target { kRunning, kEnded, kSelf };
    struct Row {
        Target target;
        int32_t seconds;
        tavtest::ProcessFaults faults;
        int clock_fails; // every clock read fails with this from the start
        tav_status status;
        Lines reports; // "PID" stands for the pid
        int ended_by;
    };
    const std::string await = "tav_util_await_child_timeout";
    const std::string future = "tav_util_future_timeout";
    const Lines timed_out = {trace(await, kOps, 36)};
    // clang-format off
    const Row rows[] = {
        {kRunning, 0, {}, 0, TAV_ERR_TIMEOUT, timed_out, 9},
        {kRunning, 1, {}, 0, TAV_ERR_TIMEOUT, timed_out, 9},
        {kEnded, 0, {}, 0, TAV_OK, {}, 0},
        {kSelf, 0, {}, 0, TAV_ERR_SYSTEM, {logged(await, kOps, "Failed to wait for child process PID to end  Reason: No child processes"), trace(await, kOps, 6)}, 0},
        {kRunning, 0, {.kill_errno = EPERM}, 0, TAV_ERR_TIMEOUT, {logged(await, kOps, "Failed to kill process PID  Reason: Operation not permitted"), timed_out[0]}, 15},
        {kRunning, -1, {}, 0, TAV_ERR_BAD_ARG, {logged("tav_util_abs_time_offset", "", "Bad value, val: -1 scale_to_sec: 1\n"), trace("tav_util_abs_time_offset", kTimespec, 7), trace(future, kTimespec, 7), logged(future, "", "Overflow detected when trying to set phase timeout tmp hack"), trace(await, kOps, 7)}, 15},
        {kRunning, 5, {}, EINVAL, TAV_ERR_SYSTEM, {logged(future, "", "Failed to get current time."), trace(future, kTimespec, 6), trace(await, kOps, 6)}, 15},
        {kRunning, 5, {.before_waitpid = [] { stopped_clock.emplace(tavtest::ClockPlan{.fail_with = EINVAL}); }}, 0, TAV_ERR_SYSTEM, {trace("tav_util_query_timeout_expired", kTimespec, 6), trace(await, kOps, 6)}, 15},
    };
    // clang-format on
    for (const Row &row : rows) {
        SCOPED_TRACE(joined(row.reports));
        tav_proc_handle handle = nullptr;
        int32_t pid = getpid();
        siginfo_t info{};
        if (row.target != kSelf) {
            const Words argv = {row.target == kEnded ? "/bin/true" : "/bin/sleep", "100", nullptr};
            ASSERT_EQ(tav_spawn(v(argv), v(kNoEnv), &handle), TAV_OK);
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
        const std::string summary = joined(tavtest::report_summary());
        EXPECT_EQ(std::regex_replace(summary, std::regex(" " + std::to_string(pid) + " "), " PID "),
                  joined(row.reports));
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
        int32_t code = 77;
        EXPECT_EQ(tav_wait(&handle, &code), ended_by != 0 ? TAV_OK : TAV_ERR_SYSTEM);
        EXPECT_EQ(code, ended_by != 0 ? -1 : 77);
        tav_free_proc_handle(&handle);
    }
}

// A child that sleeps under a first argument of this run, longer than the
// 299 bytes that the search reads, with an environment of its own.
TEST(ProcessSearch, FindsTheFirstArgumentByBothModes) {
    const std::string dir = "/tmp/tavproc-" + std::to_string(getpid()) + std::string(200, 'd');
    const std::string path = dir + "/" + std::string(120, 's') + "-sleeper";
    mkdir(dir.c_str(), 0700);
    symlink("/bin/sleep", path.c_str());
    tav_proc_handle handle = nullptr;
    ASSERT_EQ(
        tav_spawn(v({path.c_str(), "7919.271828", nullptr}), v({"A=1", "B=two", nullptr}), &handle),
        TAV_OK);
    const std::string proc = "/proc/" + std::to_string(pid_in(handle)) + "/";
    while (slurp(proc + "cmdline") != path + '\0' + "7919.271828" + '\0') {
        usleep(1000); // until execve is done
    }
    EXPECT_EQ(slurp(proc + "environ"), std::string("A=1\0B=two\0", 10));
    const std::string fragment = path.substr(5, 16); // "tavproc-<pid>..."
    const struct {
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
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text + " mode " + std::to_string(row.mode));
        tavtest::clear_reports();
        uint32_t *pids = nullptr;
        uint64_t count = 0;
        uint64_t counted = 0;
        ASSERT_EQ(tav_util_pid_of(row.text.c_str(), row.mode, &pids, &count), TAV_OK);
        EXPECT_EQ(std::count(pids, pids + count, uint32_t(pid_in(handle))), row.found ? 1 : 0);
        EXPECT_EQ(tav_util_pid_of(row.text.c_str(), row.mode, nullptr, &counted), TAV_OK);
        EXPECT_EQ(counted, count);
        EXPECT_EQ(tavtest::report_summary(), Lines{});
        std::free(pids);
    }
    kill(pid_in(handle), SIGKILL);
    int32_t code = 0;
    EXPECT_EQ(tav_wait(&handle, &code), TAV_OK);
    std::filesystem::remove_all(dir);
}

// The scan of a stand-in for /proc: directories named after processes that
// stay (1 and this one), after no process, and not numeric ("self", empty),
// and a file named after a process. Every allocation fails once, each with
// its own reports; then all succeed, keeping 1 and this process, in order.
TEST(ProcessSearch, ScanOfAStandInDirectory) {
    const std::string dir = "/tmp/tavscan-" + std::to_string(getpid()), empty = dir + "/self";
    for (const std::string &name : {std::string("/1"), "/" + std::to_string(getpid()),
                                    std::string("/4194305"), std::string("/self")}) {
        std::filesystem::create_directories(dir + name);
    }
    std::ofstream(dir + "/" + std::to_string(getppid()));
    tavtest::ProcessFaultInjection faults({.scandir_in = dir.c_str()});
    const std::string vas = trace("tav_util_vasprintf", "string/vasprintf", 2);
    const std::string vet = "vet_possible_directory", pid_of = "tav_util_pid_of";
    const struct {
        Lines reports;
        tav_status status;
        bool array; // left to the caller
    } kinds[] = {
        {{vas, trace(vet, kOps, 2), logged(vet, "", "Failed to allocate path")}, TAV_OK, true},
        {{logged(pid_of, kOps, "Failed to open /proc  Reason: Cannot allocate memory"),
          trace(pid_of, kOps, 6)},
         TAV_ERR_SYSTEM,
         false},
        {{logged(pid_of, "", "Failed to allocate memory"), trace(pid_of, kOps, 2)},
         TAV_ERR_NOMEM,
         false},
        {{vas, trace(pid_of, kOps, 2), logged(pid_of, "", "Failed to allocate path")},
         TAV_ERR_NOMEM,
         true},
    };
    uint32_t *const untouched = reinterpret_cast<uint32_t *>(8);
    uint32_t *pids = untouched;
    uint64_t count = 77;
    tav_status status = TAV_OK;
    std::set<long> seen;
    tavtest::clear_reports();
    tavtest::for_each_allocation_failure(
        [&] {
            pids = untouched;
            count = 77;
            status = tav_util_pid_of("", 0, &pids, &count);
        },
        [&](long nth, const tavtest::AllocRun &run) {
            const auto kind = std::find_if(std::begin(kinds), std::end(kinds), [](const auto &k) {
                return k.reports == tavtest::report_summary();
            });
            ASSERT_NE(kind, std::end(kinds)) << joined(tavtest::report_summary());
            tavtest::clear_reports();
            seen.insert(kind - kinds);
            EXPECT_EQ(status, kind->status);
            EXPECT_EQ(run.live_blocks, kind->array ? 1 : 0);
            EXPECT_EQ(count != 77, kind->status == TAV_OK);
            if (kind->array) {
                std::free(pids);
            } else {
                EXPECT_EQ(pids, kind->status == TAV_ERR_SYSTEM ? untouched : nullptr);
            }
            if (kind - kinds == 2) { // room for the two entries that the filter keeps
                EXPECT_EQ(run.sizes.at(size_t(nth - 1)), 2 * sizeof(uint32_t));
            }
        });
    EXPECT_EQ(seen.size(), 4u);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(Lines({std::to_string(pids[0]), std::to_string(pids[1])}),
              Lines({"1", std::to_string(getpid())}));
    std::free(pids);
    tavtest::ProcessFaultInjection none({.scandir_in = empty.c_str()});
    pids = untouched;
    EXPECT_EQ(tav_util_pid_of("", 0, &pids, &count), TAV_OK);
    EXPECT_EQ(pids, nullptr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(tavtest::reports().at(0).severity, 7);
    EXPECT_EQ(tavtest::report_summary(), Lines{logged(pid_of, "", "Nothing suitable in /proc")});
    EXPECT_EQ(vet_possible_directory(nullptr), 0);
    std::filesystem::remove_all(dir);
}

// The real /proc: every process, in the order of the names as text.
TEST(ProcessSearch, OrderOfNamesAsText) {
    uint32_t *pids = nullptr;
    uint64_t count = 0;
    ASSERT_EQ(tav_util_pid_of("", 0, &pids, &count), TAV_OK);
    std::vector<std::string> names;
    std::transform(pids, pids + count, std::back_inserter(names),
                   [](uint32_t pid) { return std::to_string(pid); });
    std::free(pids);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(std::count(names.begin(), names.end(), std::to_string(getpid())), 1);
}

void marked(int) {}

// Signals 1 to 31, then 64, as letters: H the test's handler, I ignored, D
// default; i or d when flags or mask ask for more than the handler.
std::string dispositions() {
    std::string letters;
    for (int signum = 1; signum <= 64; signum = signum == 31 ? 64 : signum + 1) {
        struct sigaction now {};
        sigaction(signum, nullptr, &now);
        constexpr int kRestorer = 0x04000000; // added by libc to every disposition
        const bool bare = (now.sa_flags & ~kRestorer) == 0 && sigisemptyset(&now.sa_mask);
        letters += now.sa_handler == SIG_IGN   ? (bare ? 'I' : 'i')
                   : now.sa_handler == SIG_DFL ? (bare ? 'D' : 'd')
                                               : 'H';
    }
    return letters;
}

// Runs calls such as "i2 c r15" (ignore 2, ignore the common ones, reset 15)
// and gives the first status that is not TAV_OK.
tav_status run_calls(const std::string &calls) {
    tav_status first = TAV_OK;
    std::istringstream words(calls);
    for (std::string call; words >> call;) {
        const int32_t signum = std::atoi(call.c_str() + 1);
        const tav_status status = call[0] == 'c'   ? tav_util_ignore_common_signals()
                                  : call[0] == 'i' ? tav_util_ignore_signal(signum)
                                                   : tav_util_reset_signal(signum);
        first = first != TAV_OK ? first : status;
    }
    return first;
}

// In a child each: signals 1 to 31 and 64 start with a handler that asks for
// a full mask and flags (9 and 19 can't: they stay D), then the calls run.
TEST(Signals, DispositionsAfterEachCall) {
    const std::string ignore = "tav_util_ignore_signal", common = "tav_util_ignore_common_signals";
    const std::string reset = "tav_util_reset_signal", einval = "  Reason: Invalid argument";
    const std::string start = "HHHHHHHHDHHHHHHHHHDHHHHHHHHHHHHH";
    const struct {
        const char *calls;
        uint64_t failing; // signals whose sigaction fails
        tav_status status;
        std::string after;
        Lines reports;
    } rows[] = {
        // clang-format off
        // 1234567890123456789012345678901 and 64
        {"i1 i31", 0, TAV_OK, "IHHHHHHHDHHHHHHHHHDHHHHHHHHHHHIH", {}},
        {"i9 i15 i19 i0 i-1 i32 i64", 0, TAV_OK, start, {}},
        {"i2", 1 << 2, TAV_ERR_SYSTEM, start, {logged(ignore, kOps, "Failed to set ignore signal Interrupt (2)" + einval)}},
        {"c", 0, TAV_OK, "IIIIIIIIDIIIIIHIIIDIIIIIIIIIIIIH", {}},
        {"c", 1 << 2 | 1u << 31, TAV_ERR_SYSTEM, "IHIIIIIIDIIIIIHIIIDIIIIIIIIIIIHH",
         {logged(common, kOps, "Failed to set ignore signal Interrupt (2)" + einval),
          logged(common, kOps, "Failed to set ignore signal Bad system call (31)" + einval)}},
        {"r1 r31 i15 r15", 0, TAV_OK, "DHHHHHHHDHHHHHDHHHDHHHHHHHHHHHDH", {}},
        {"r0 r32", 0, TAV_ERR_BAD_ARG, start,
         {logged(reset, "", "Invalid or unsupported signal value 0"), trace(reset, kOps, 7),
          logged(reset, "", "Invalid or unsupported signal value 32"), trace(reset, kOps, 7)}},
        {"r9", 0, TAV_ERR_SYSTEM, start, {logged(reset, kOps, "Failed to reset signal Killed (9)" + einval)}},
        // clang-format on
    };
    for (const auto &row : rows) {
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
                status = run_calls(row.calls);
            }
            return std::to_string(status) + " " + dispositions() + "\n" +
                   joined(tavtest::report_summary());
        });
        EXPECT_EQ(seen, std::to_string(row.status) + " " + row.after + "\n" + joined(row.reports))
            << row.calls;
    }
}

} // namespace
