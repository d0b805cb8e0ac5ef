// Processes on real children: spawn and wait, the bounded wait, the search of
// /proc, and signal dispositions (changed only in child processes).
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <sys/wait.h>

#include "alloc_inject.hpp"
#include "clock_inject.hpp"
#include "host_inject.hpp"
#include "internal/process_ops.hpp"
#include "recorder.hpp"
#include "syscall_inject.hpp"

namespace {

using Words = std::vector<const char *>;
using std::to_string;
char **v(const Words &words) { return const_cast<char **>(words.data()); }
char *kNoEnv[] = {nullptr};
const std::string kSpawn = " src/process/spawn_linux.cpp", kOps = " src/process_ops.cpp";
int32_t pid_in(tav_proc_handle handle) { return *reinterpret_cast<const int32_t *>(handle); }
std::string reports() { // a pid in a line reads PID
    return std::regex_replace(tavtest::reported(), std::regex("process [0-9]+"), "process PID");
}
std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Each row by tav_spawn then tav_wait, and by tav_spawn_and_wait: "status code
// live size|reports"; the handle's record is the only allocation.
TEST(Spawn, ExitCodesAndFailures) {
    // clang-format off
    struct Row { Words argv; tavtest::HostFaults faults; long fail_at; std::string expected; };
    const Row rows[] = {
        {{"/bin/sh", "-c", "exit 0", nullptr}, {}, 0, "0 0 0 4"},
        {{"/bin/sh", "-c", "exit 255", nullptr}, {}, 0, "0 255 0 4"},
        {{"/bin/sh", "-c", "kill -9 $$", nullptr}, {}, 0, "0 -1 0 4"},
        {{"sh", "-c", "exit 0", nullptr}, {}, 0, "0 1 0 4"}, // no search of PATH
        {{"/bin/true", nullptr}, {.fork_errno = EAGAIN}, 0, "6 77 0 4|trace tav_spawn" + kSpawn + " 6"},
        {{"/bin/true", nullptr}, {}, 1, "2 77 0 4|trace tav_spawn" + kSpawn + " 2"},
    };
    // clang-format on
    for (const Row &row : rows) {
        for (const bool once : {false, true}) {
            tavtest::HostInjection faults(row.faults);
            tavtest::clear_reports();
            const auto untouched = reinterpret_cast<tav_proc_handle>(8);
            tav_proc_handle handle = untouched;
            int32_t code = 77;
            tav_status st = TAV_OK;
            const tavtest::AllocRun run = tavtest::run_allocations(row.fail_at, [&] {
                st = once ? tav_spawn_and_wait(v(row.argv), kNoEnv, &code)
                          : tav_spawn(v(row.argv), kNoEnv, &handle);
                st = st == TAV_OK && !once ? tav_wait(&handle, &code) : st;
            });
            const std::string again = "|trace tav_spawn_and_wait src/spawn.cpp " + to_string(st);
            EXPECT_EQ(to_string(st) + " " + to_string(code) + " " + to_string(run.live_blocks) +
                          " " + to_string(run.sizes.size() == 1 ? run.sizes[0] : 0) + reports(),
                      row.expected + (st != TAV_OK && once ? again : ""));
            EXPECT_EQ(handle, once ? untouched : nullptr);
        }
    }
    tav_proc_handle none = nullptr;
    int32_t code = 77;
    tavtest::clear_reports();
    EXPECT_EQ(tav_wait(nullptr, &code) + tav_wait(&none, &code) + code, 3 + 3 + 77);
    EXPECT_EQ(reports(), "|trace tav_wait" + kSpawn + " 3|trace tav_wait" + kSpawn + " 3");
    tav_free_proc_handle(nullptr);
}

// With SIGCHLD ignored the system collects the child itself: the failed wait
// keeps the handle, and tav_spawn_and_wait releases its own.
TEST(Spawn, WaitFailsWhenTheSystemCollects) {
    const std::string failed = "|log tav_wait" + kSpawn +
                               ": Failed to wait on process PID  Reason: No "
                               "child processes|trace tav_wait" +
                               kSpawn + " 6";
    EXPECT_EQ(tavtest::in_child([] {
                  tav_util_ignore_signal(SIGCHLD);
                  tav_proc_handle handle = nullptr;
                  int32_t code = 77;
                  tav_spawn(v({"/bin/true", nullptr}), kNoEnv, &handle);
                  const tav_proc_handle held = handle;
                  tavtest::clear_reports();
                  std::string seen = to_string(tav_wait(&handle, &code));
                  seen += reports() + " " + to_string(handle == held);
                  tav_free_proc_handle(&handle), tav_free_proc_handle(&handle);
                  tavtest::clear_reports();
                  tav_status st = TAV_OK;
                  const tavtest::AllocRun run = tavtest::run_allocations(0, [&] {
                      st = tav_spawn_and_wait(v({"/bin/true", nullptr}), kNoEnv, &code);
                  });
                  seen += to_string(st);
                  return seen + reports() + " " + to_string(code) + to_string(run.live_blocks) +
                         to_string(handle == nullptr);
              }),
              "6" + failed + " 16" + failed + " 7701");
}

// A child that runs, has ended (uncollected) or is no child (this process);
// then the signal that ended it: 9 the library's kill, 15 ours (left alone),
// 0 when the call collected it. A killed child then waits as -1.
TEST(AwaitChild, PollsKillsAndReports) {
    enum Target { kRunning, kEnded, kSelf };
    // clang-format off
    const std::string await = "tav_util_await_child_timeout" + kOps, future = "tav_util_future_timeout", ts = " src/time/timespec_common.cpp ";
    struct Row { Target target; int32_t seconds; tavtest::HostFaults faults; int clock_fails; /* 1: from the start, 2: from the first waitpid */ std::string expected; };
    const Row rows[] = {
        {kRunning, 0, {}, 0, "36|trace " + await + " 36 9"},
        {kRunning, 1, {}, 0, "36|trace " + await + " 36 9"},
        {kEnded, 0, {}, 0, "0 0"},
        {kSelf, 0, {}, 0, "6|log " + await + ": Failed to wait for child process PID to end  Reason: No child processes|trace " + await + " 6"},
        {kRunning, 0, {.kill_errno = EPERM}, 0, "36|log " + await + ": Failed to kill process PID  Reason: Operation not permitted|trace " + await + " 36 15"},
        {kRunning, -1, {}, 0, "7|log tav_util_abs_time_offset Bad value, val: -1 scale_to_sec: 1\n|trace tav_util_abs_time_offset" + ts + "7|trace " + future + ts + "7|log " + future + " Overflow detected when trying to set phase timeout tmp hack|trace " + await + " 7 15"},
        {kRunning, 5, {}, 1, "6|log " + future + " Failed to get current time.|trace " + future + ts + "6|trace " + await + " 6 15"},
        {kRunning, 5, {}, 2, "6|trace tav_util_query_timeout_expired" + ts + "6|trace " + await + " 6 15"},
    };
    // clang-format on
    for (const Row &row : rows) {
        tav_proc_handle handle = nullptr;
        int32_t pid = getpid();
        siginfo_t info{};
        if (row.target != kSelf) {
            const char *program = row.target == kEnded ? "/bin/true" : "/bin/sleep";
            ASSERT_EQ(tav_spawn(v({program, "100", nullptr}), kNoEnv, &handle), TAV_OK);
            pid = pid_in(handle);
        }
        // Our signal must reach the program: sent between fork and exec, under
        // valgrind it is lost.
        while (row.target == kRunning && slurp("/proc/" + to_string(pid) + "/comm") != "sleep\n") {
            usleep(1000);
        }
        if (row.target == kEnded) {
            waitid(P_PID, id_t(pid), &info, WEXITED | WNOWAIT);
        }
        tavtest::clear_reports();
        std::optional<tavtest::ClockInjection> clock;
        auto stop = [&] { clock.emplace(tavtest::ClockPlan{.fail_with = EINVAL}); };
        std::optional<tavtest::HostInjection> faults(std::in_place, row.faults);
        tavtest::host_faults().before_waitpid =
            row.clock_fails == 2 ? stop : std::function<void()>();
        if (row.clock_fails == 1) {
            stop();
        }
        const tav_status st = tav_util_await_child_timeout(pid, row.seconds);
        faults.reset(), clock.reset();
        std::string seen = to_string(st) + reports();
        if (row.target != kSelf) {
            int ended_by = 0, code = 77;
            if (waitid(P_PID, id_t(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0) {
                kill(pid, SIGTERM), waitid(P_PID, id_t(pid), &info, WEXITED | WNOWAIT);
                ended_by = info.si_status;
            }
            EXPECT_EQ(tav_wait(&handle, &code), ended_by != 0 ? TAV_OK : TAV_ERR_SYSTEM);
            EXPECT_EQ(code, ended_by != 0 ? -1 : 77);
            tav_free_proc_handle(&handle);
            seen += " " + to_string(ended_by);
        }
        EXPECT_EQ(seen, row.expected);
    }
}

// A child asleep under a first argument of this run, longer than the 299
// bytes that the search reads, with an environment of its own; then every
// process, in the order of the names as text.
TEST(ProcessSearch, FindsTheFirstArgumentByBothModes) {
    const std::string dir = "/tmp/tavproc-" + to_string(getpid()) + std::string(200, 'd');
    const std::string path = dir + "/" + std::string(120, 's') + "-sleeper", arg = "7919.271828";
    std::filesystem::create_directories(dir);
    std::filesystem::create_symlink("/bin/sleep", path);
    tav_proc_handle handle = nullptr;
    ASSERT_EQ(
        tav_spawn(v({path.c_str(), arg.c_str(), nullptr}), v({"A=1", "B=2", nullptr}), &handle),
        TAV_OK);
    const std::string proc = "/proc/" + to_string(pid_in(handle)) + "/";
    while (slurp(proc + "cmdline") != path + '\0' + arg + '\0') {
        usleep(1000); // until execve is done
    }
    EXPECT_EQ(slurp(proc + "environ"), std::string("A=1\0B=2\0", 8));
    const std::string p = path.substr(5, 16); // "tavproc-<pid>..."
    // clang-format off
    const std::tuple<std::string, int32_t, int> rows[] = {{path.substr(0, 299), 1, 1}, {path.substr(0, 300), 1, 0}, {path.substr(0, 299), 0, 1},
        {path, 2, 0}, {p, 1, 0}, {p, 0, 1}, {p, -7, 1}, {arg, 1, 0}, {arg, 0, 0}};
    // clang-format on
    for (const auto &[text, mode, found] : rows) {
        tavtest::clear_reports();
        uint32_t *pids = nullptr;
        uint64_t count = 0, counted = 0;
        const tav_status st = tav_util_pid_of(text.c_str(), mode, &pids, &count);
        EXPECT_EQ(to_string(st + tav_util_pid_of(text.c_str(), mode, nullptr, &counted)) +
                      reports(),
                  "0");
        EXPECT_EQ(std::count(pids, pids + count, uint32_t(pid_in(handle))), found) << text << mode;
        EXPECT_EQ(counted, count);
        std::free(pids);
    }
    kill(pid_in(handle), SIGKILL);
    int32_t code = 0;
    EXPECT_EQ(tav_wait(&handle, &code), TAV_OK);
    std::filesystem::remove_all(dir);
    uint32_t *pids = nullptr;
    uint64_t count = 0;
    ASSERT_EQ(tav_util_pid_of("", 0, &pids, &count), TAV_OK);
    std::vector<std::string> names;
    std::for_each(pids, pids + count, [&](uint32_t pid) { names.push_back(to_string(pid)); });
    std::free(pids);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(std::count(names.begin(), names.end(), to_string(getpid())), 1);
}

// A stand-in for /proc: directories named after processes that stay (1, this
// one), after no process, not numeric, and a file named after a process. An
// allocation failing gives one kind of "status count pids live|reports"
// (count - unwritten; pids u: untouched, n: null and the size asked, a: an
// array). A path the filter can't build drops its entry: 1 or this one.
TEST(ProcessSearch, ScanOfAStandInDirectory) {
    const std::string dir = "/tmp/tavscan-" + to_string(getpid()), me = to_string(getpid());
    for (const std::string name : {"/1", "/4194305", "/self", "/one/1"}) {
        std::filesystem::create_directories(dir + name);
    }
    std::filesystem::create_directories(dir + "/" + me);
    std::ofstream(dir + "/" + to_string(getppid()));
    const std::string vas = "|trace tav_util_vasprintf src/string/vasprintf.cpp 2",
                      of = "tav_util_pid_of" + kOps;
    // clang-format off
    const std::set<std::string> kinds = {
        "0 1 a 1" + vas + "|trace vet_possible_directory" + kOps + " 2|log vet_possible_directory Failed to allocate path",
        "0 2 a 1" + vas + "|trace vet_possible_directory" + kOps + " 2|log vet_possible_directory Failed to allocate path",
        "6 - u 0|log " + of + ": Failed to open /proc  Reason: Cannot allocate memory|trace " + of + " 6",
        "2 - n 0 8|log tav_util_pid_of Failed to allocate memory|trace " + of + " 2",
        "2 - a 1" + vas + "|trace " + of + " 2|log tav_util_pid_of Failed to allocate path"};
    // clang-format on
    uint32_t *const untouched = reinterpret_cast<uint32_t *>(8);
    uint32_t *pids = untouched;
    uint64_t count = 77;
    tav_status st = TAV_OK;
    std::set<std::string> seen;
    std::optional<tavtest::HostInjection> in(std::in_place,
                                             tavtest::HostFaults{.scandir_in = dir.c_str()});
    auto search = [&] { pids = untouched, count = 77, st = tav_util_pid_of("", 0, &pids, &count); };
    tavtest::clear_reports();
    tavtest::for_each_allocation_failure(search, [&](long nth, const tavtest::AllocRun &run) {
        const char held = pids == untouched ? 'u' : pids == nullptr ? 'n' : 'a';
        const std::string size = held == 'n' ? " " + to_string(run.sizes.at(size_t(nth - 1))) : "";
        seen.insert(to_string(st) + " " + (count != 77 ? to_string(count) : "-") + " " + held +
                    " " + to_string(run.live_blocks) + size + tavtest::reported());
        std::free(held == 'a' ? pids : nullptr);
        tavtest::clear_reports();
    });
    EXPECT_EQ(seen, kinds);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(to_string(pids[0]) + " " + to_string(pids[1]), "1 " + me);
    std::free(pids);
    const std::string one = dir + "/one", none = dir + "/self";
    in.emplace(tavtest::HostFaults{.scandir_in = one.c_str()});
    for (const tavtest::SyscallPlan &plan : {tavtest::SyscallPlan{.fail = "open", .fail_nth = 2},
                                             tavtest::SyscallPlan{.reads = {-1}}}) {
        tavtest::SyscallInjection failing(plan); // the entry vanishes, or its read fails
        search();
        EXPECT_EQ(to_string(st) + " " + to_string(count) + tavtest::reported(), "0 0");
        std::free(pids);
    }
    in.emplace(tavtest::HostFaults{.scandir_in = none.c_str()});
    search();
    EXPECT_EQ(to_string(st) + " " + to_string(count) + (pids ? "" : " null ") +
                  to_string(tavtest::reports().at(0).severity) + tavtest::reported(),
              "0 0 null 7|log tav_util_pid_of Nothing suitable in /proc");
    EXPECT_EQ(vet_possible_directory(nullptr), 0);
    std::filesystem::remove_all(dir);
}

void marked(int) {}

// Signals 1 to 31, then 64, as letters: H the test's handler, I ignored, D
// default; i or d when flags or mask ask for more than the handler.
// Valgrind keeps the last real-time signal for itself: no disposition of
// ours can be set on it there, and its column reads '-'.
bool last_signal_is_ours() {
    struct sigaction probe {
    }, before{};
    probe.sa_handler = marked;
    const bool ours = sigaction(64, &probe, &before) == 0;
    return ours && sigaction(64, &before, nullptr) == 0;
}

std::string dispositions() {
    std::string letters;
    for (int signum = 1; signum <= 64; signum = signum == 31 ? 64 : signum + 1) {
        struct sigaction now {};
        sigaction(signum, nullptr, &now);
        if (signum == 64 && !last_signal_is_ours()) {
            letters += '-';
            continue;
        }
        constexpr int kRestorer = 0x04000000; // added by libc to every disposition
        const bool bare = (now.sa_flags & ~kRestorer) == 0 && sigisemptyset(&now.sa_mask);
        letters += now.sa_handler == SIG_IGN   ? "Ii"[!bare]
                   : now.sa_handler == SIG_DFL ? "Dd"[!bare]
                                               : 'H';
    }
    return letters;
}

// Signals 1 to 31 and 64 start with a handler that asks for a full mask and
// flags (9 and 19 can't: they stay D), then calls such as "i2 c r15" (ignore
// 2, ignore the common ones, reset 15) run: "first status that is not TAV_OK,
// dispositions|reports".
std::string signals_after(const std::string &calls, uint64_t failing) {
    struct sigaction handler {};
    sigfillset(&handler.sa_mask);
    handler.sa_flags = SA_RESTART | SA_NODEFER;
    handler.sa_handler = marked;
    for (int signum = 1; signum <= 64; ++signum) {
        sigaction(signum, &handler, nullptr);
    }
    tavtest::clear_reports();
    tav_status first = TAV_OK;
    std::istringstream words(calls);
    tavtest::host_faults().sigaction_fails = failing;
    for (std::string call; words >> call;) {
        const int32_t n = std::atoi(call.c_str() + 1);
        const tav_status st = call[0] == 'c'   ? tav_util_ignore_common_signals()
                              : call[0] == 'i' ? tav_util_ignore_signal(n)
                                               : tav_util_reset_signal(n);
        first = first != TAV_OK ? first : st;
    }
    tavtest::host_faults().sigaction_fails = 0;
    return to_string(first) + " " + dispositions() + tavtest::reported();
}

// Each row in a child of its own.
TEST(Signals, DispositionsAfterEachCall) {
    // clang-format off
    const std::string ignore = "|log tav_util_ignore_signal" + kOps + ": Failed to set ignore signal ", common = "|log tav_util_ignore_common_signals" + kOps + ": Failed to set ignore signal ";
    const std::string reset = "|log tav_util_reset_signal Invalid or unsupported signal value ", bad = "|trace tav_util_reset_signal" + kOps + " 7";
    const std::string einval = "  Reason: Invalid argument", start = "HHHHHHHHDHHHHHHHHHDHHHHHHHHHHHHH";
    const std::tuple<std::string, uint64_t, std::string> rows[] = {
        //                                1234567890123456789012345678901 and 64
        {"i1 i31", 0, "0 IHHHHHHHDHHHHHHHHHDHHHHHHHHHHHIH"},
        {"i9 i15 i19 i0 i-1 i32 i64", 0, "0 " + start},
        {"i2", 1 << 2, "6 " + start + ignore + "Interrupt (2)" + einval},
        {"c", 0, "0 IIIIIIIIDIIIIIHIIIDIIIIIIIIIIIIH"},
        {"c", 1 << 2 | 1u << 31, "6 IHIIIIIIDIIIIIHIIIDIIIIIIIIIIIHH" + common + "Interrupt (2)" + einval + common + "Bad system call (31)" + einval},
        {"r1 r31 i15 r15", 0, "0 DHHHHHHHDHHHHHDHHHDHHHHHHHHHHHDH"},
        {"r0 r32", 0, "7 " + start + reset + "0" + bad + reset + "32" + bad},
        {"r9", 1 << 9, "6 " + start + "|log tav_util_reset_signal" + kOps + ": Failed to reset signal Killed (9)" + einval},
    };
    // clang-format on
    for (const auto &row : rows) {
        std::string expected = std::get<2>(row);
        expected[2 + 31] = last_signal_is_ours() ? expected[2 + 31] : '-';
        EXPECT_EQ(
            tavtest::in_child([&] { return signals_after(std::get<0>(row), std::get<1>(row)); }),
            expected);
    }
}

} // namespace
