// Processes and the host: spawn and wait, the bounded wait, the search of
// /proc, signal dispositions, the status record, environment, group and host
// name. What changes what the process shares runs in a child process.
#include <csignal>
#include <grp.h>
#include <numeric>
#include <optional>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/utsname.h>

#include "internal/proc_stat.hpp"
#include "internal/process_ops.hpp"
#include "support.hpp"

namespace {

using std::to_string;
using Words = std::vector<const char *>;
char **v(const Words &words) { return const_cast<char **>(words.data()); }
char *kNoEnv[] = {nullptr};
int32_t pid_in(tav_proc_handle handle) { return *reinterpret_cast<const int32_t *>(handle); }

// The reports, a pid in a line as PID, source paths short: @p process_ops, @s
// spawn_linux, @t timespec_common, @v vasprintf, @y system/linux, @e
// env/linux, @g permissions_linux.
std::string reports() {
    std::string text = tavtest::reported();
    for (const auto &[path, at] : {std::pair{" src/process_ops.cpp", "@p"},
                                   {" src/process/spawn_linux.cpp", "@s"},
                                   {" src/time/timespec_common.cpp", "@t"},
                                   {" src/string/vasprintf.cpp", "@v"},
                                   {" src/system/linux.cpp", "@y"},
                                   {" src/env/linux.cpp", "@e"},
                                   {" src/permissions/permissions_linux.cpp", "@g"}}) {
        for (size_t i; (i = text.find(path)) != std::string::npos;) {
            text.replace(i, strlen(path), at);
        }
    }
    return std::regex_replace(text, std::regex("process [0-9]+"), "process PID");
}
std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Each row in a child, SIGCHLD ignored or not (0), by tav_spawn then tav_wait:
// "handle status code|reports" (n: null, h: held); then by tav_spawn_and_wait,
// the handle untouched (u) and a failed spawn traced again. No block but a held
// record stays, and the record, 4 bytes, is the first allocation.
TEST(Spawn, ExitCodesAndFailures) {
    using Row = std::tuple<const char *, const char *, int, long, int, std::string>;
    const Row rows[] = {
        {"/bin/sh", "exit 255", 0, 0, 0, "n 0 255"},
        {"/bin/sh", "kill -9 $$", 0, 0, 0, "n 0 -1"},
        {"sh", "exit 0", 0, 0, 0, "n 0 1"}, // no search of PATH
        {"/bin/sh", "true", EAGAIN, 0, 0, "n 6 77|trace tav_spawn@s 6"},
        {"/bin/sh", "true", 0, 1, 0, "n 2 77|trace tav_spawn@s 2"},
        {"/bin/sh", "true", 0, 0, SIGCHLD,
         "h 6 77|log tav_wait@s: Failed to wait on process PID  Reason: No child processes"
         "|trace tav_wait@s 6"},
    };
    for (const Row &row : rows) {
        for (const bool once : {false, true}) {
            const std::string seen = tavtest::in_child([&] {
                const auto &[program, script, fork_errno, fail_at, ignored, expected] = row;
                const Words argv = {program, "-c", script, nullptr};
                tav_util_ignore_signal(ignored);
                tavtest::HostInjection injected({.fork_errno = fork_errno});
                tavtest::clear_reports();
                const auto untouched = reinterpret_cast<tav_proc_handle>(8);
                tav_proc_handle handle = untouched;
                int32_t code = 77;
                tav_status st = TAV_OK;
                const tavtest::AllocRun run = tavtest::run_allocations(fail_at, [&] {
                    st = once ? tav_spawn_and_wait(v(argv), kNoEnv, &code)
                              : tav_spawn(v(argv), kNoEnv, &handle);
                    st = st == TAV_OK && !once ? tav_wait(&handle, &code) : st;
                });
                const bool held = handle != untouched && handle != nullptr;
                const char kept = held ? 'h' : handle ? 'u' : 'n';
                if (held) { // twice: the second finds null; then no handle at all
                    tav_free_proc_handle(&handle), tav_free_proc_handle(&handle);
                    tav_free_proc_handle(nullptr);
                }
                return to_string(run.live_blocks - held) + " " + to_string(run.sizes.at(0)) + " " +
                       kept + " " + to_string(st) + " " + to_string(code) + reports();
            });
            const std::string &expected = std::get<5>(row);
            const std::string again =
                "|trace tav_spawn_and_wait src/spawn.cpp " + seen.substr(6, 1);
            EXPECT_EQ(seen, once ? "0 4 u" + expected.substr(1) +
                                       (seen[6] != '0' && expected[0] == 'n' ? again : "")
                                 : "0 4 " + expected);
        }
    }
    tav_proc_handle none = nullptr;
    int32_t code = 77;
    tavtest::clear_reports();
    const int nulls = tav_wait(nullptr, &code) + tav_wait(&none, &code);
    EXPECT_EQ(to_string(nulls) + " " + to_string(code) + reports(),
              "6 77|trace tav_wait@s 3|trace tav_wait@s 3");
}

std::optional<tavtest::ClockInjection> stopped;
void stop_clock() { stopped.emplace(tavtest::ClockPlan{.fail_with = EINVAL}); }

// A child that runs, has ended (uncollected) or is none (this process), a kill
// failing with an errno, the clock stopping at the first poll or not: "status|
// reports signal", the signal that ended the child: 9 the library's kill, 15
// ours after the call, 0 when the call collected it.
TEST(AwaitChild, PollsKillsAndReports) {
    enum Target { kRunning, kEnded, kSelf };
    const std::tuple<Target, int32_t, int, bool, std::string> rows[] = {
        {kRunning, 0, 0, false, "36|trace tav_util_await_child_timeout@p 36 9"},
        {kEnded, 0, 0, false, "0 0"},
        {kSelf, 0, 0, false,
         "6|log tav_util_await_child_timeout@p: Failed to wait for child process PID to end  "
         "Reason: No child processes|trace tav_util_await_child_timeout@p 6"},
        {kRunning, 0, EPERM, false,
         "36|log tav_util_await_child_timeout@p: Failed to kill process PID  Reason: Operation "
         "not permitted|trace tav_util_await_child_timeout@p 36 15"},
        {kRunning, -1, 0, false,
         "7|log tav_util_abs_time_offset Bad value, val: -1 scale_to_sec: 1\n|trace "
         "tav_util_abs_time_offset@t 7|trace tav_util_future_timeout@t 7|log "
         "tav_util_future_timeout Overflow detected when trying to set phase timeout tmp "
         "hack|trace tav_util_await_child_timeout@p 7 15"},
        {kRunning, 5, 0, true,
         "6|trace tav_util_query_timeout_expired@t 6|trace tav_util_await_child_timeout@p 6 15"},
    };
    for (const auto &[target, seconds, kill_errno, stops, expected] : rows) {
        tav_proc_handle handle = nullptr;
        const char *program = target == kEnded ? "/bin/true" : "/bin/sleep";
        ASSERT_EQ(tav_spawn(v({program, "100", nullptr}), kNoEnv, &handle), TAV_OK);
        const int32_t child = pid_in(handle), pid = target == kSelf ? getpid() : child;
        // Our signal must reach the program: sent between fork and exec, under
        // valgrind it is lost.
        while (target != kEnded && slurp("/proc/" + to_string(child) + "/comm") != "sleep\n") {
            usleep(1000);
        }
        siginfo_t info{};
        if (target == kEnded) {
            waitid(P_PID, id_t(child), &info, WEXITED | WNOWAIT);
        }
        tavtest::clear_reports();
        std::optional<tavtest::HostInjection> injected(
            std::in_place, tavtest::HostFaults{.kill_errno = kill_errno,
                                               .before_waitpid = stops ? stop_clock : nullptr});
        std::string seen = to_string(tav_util_await_child_timeout(pid, seconds));
        injected.reset(), stopped.reset();
        int wstatus = 0;
        kill(child, SIGTERM);
        const int signum = waitpid(child, &wstatus, 0) == child ? WTERMSIG(wstatus) : 0;
        tav_free_proc_handle(&handle);
        EXPECT_EQ(seen + reports() + (target == kSelf ? "" : " " + to_string(signum)), expected);
    }
}

// A stand-in for /proc: directories named after processes that stay (1, and C,
// a child asleep under a first argument longer than the 299 bytes the search
// reads, with an environment of its own), after no process, not numeric, and
// a file named after a process. Rows: "status count counted pids|reports",
// counted: without an array. Each allocation failing gives one kind of "status
// count pids live|reports" (count - unwritten; pids u: untouched, n: null and
// the size asked, a: an array). A path the filter can't build drops its entry.
TEST(ProcessSearch, FirstArgumentsInAStandIn) {
    const std::string dir = "/tmp/tavproc-" + to_string(getpid()) + std::string(200, 'd');
    const std::string path = dir + "/" + std::string(120, 's') + "-sleeper", arg = "7919.271828";
    std::filesystem::create_directories(dir);
    std::filesystem::create_symlink("/bin/sleep", path);
    tav_proc_handle handle = nullptr;
    const Words argv = {path.c_str(), arg.c_str(), nullptr}, env = {"A=1", "B=2", nullptr};
    ASSERT_EQ(tav_spawn(v(argv), v(env), &handle), TAV_OK);
    const std::string child = to_string(pid_in(handle)), proc = "/proc/" + child + "/";
    while (slurp(proc + "cmdline") != path + '\0' + arg + '\0') {
        usleep(1000); // until execve is done
    }
    EXPECT_EQ(slurp(proc + "environ"), std::string("A=1\0B=2\0", 8));
    for (const char *name : {"1", "4194305", "self", "one/1", child.c_str()}) {
        std::filesystem::create_directories(dir + "/" + name);
    }
    std::ofstream(dir + "/" + to_string(getppid()));
    tavtest::HostFaults &faults = tavtest::host_faults();
    faults.scandir_in = dir.c_str();
    const std::string p = path.substr(5, 16), p299 = path.substr(0, 299), p300 = p299 + 's';
    const std::tuple<std::string, int32_t, std::string> rows[] = {
        {p299, 1, "0 1 1 C"}, {p300, 1, "0 0 0"}, {p, 1, "0 0 0"},
        {p, -7, "0 1 1 C"},   {arg, 0, "0 0 0"},  {"", 0, "0 2 2 1 C"}};
    for (const auto &[text, mode, expected] : rows) {
        tavtest::clear_reports();
        uint32_t *pids = nullptr;
        uint64_t count = 0, counted = 0;
        const int st = tav_util_pid_of(text.c_str(), mode, &pids, &count) +
                       tav_util_pid_of(text.c_str(), mode, nullptr, &counted);
        std::string seen = to_string(st) + " " + to_string(count) + " " + to_string(counted);
        for (uint64_t i = 0; i < count; ++i) {
            seen += " " + (to_string(pids[i]) == child ? "C" : to_string(pids[i]));
        }
        EXPECT_EQ(seen + reports(), expected);
        std::free(pids);
    }
    const std::set<std::string> kinds = {
        "0 1 a 1|trace tav_util_vasprintf@v 2|trace vet_possible_directory@p 2|log "
        "vet_possible_directory Failed to allocate path",
        "0 2 a 1|trace tav_util_vasprintf@v 2|trace vet_possible_directory@p 2|log "
        "vet_possible_directory Failed to allocate path",
        "6 - u 0|log tav_util_pid_of@p: Failed to open /proc  Reason: Cannot allocate memory"
        "|trace tav_util_pid_of@p 6",
        "2 - n 0 8|log tav_util_pid_of Failed to allocate memory|trace tav_util_pid_of@p 2",
        "2 - a 1|trace tav_util_vasprintf@v 2|trace tav_util_pid_of@p 2|log tav_util_pid_of "
        "Failed to allocate path"};
    uint32_t *const untouched = reinterpret_cast<uint32_t *>(8);
    uint32_t *pids = untouched;
    uint64_t count = 77;
    tav_status st = TAV_OK;
    std::set<std::string> seen;
    auto search = [&] { pids = untouched, count = 77, st = tav_util_pid_of("", 0, &pids, &count); };
    tavtest::clear_reports();
    tavtest::for_each_allocation_failure(search, [&](long nth, const tavtest::AllocRun &run) {
        const char held = pids == untouched ? 'u' : pids == nullptr ? 'n' : 'a';
        const std::string size = held == 'n' ? " " + to_string(run.sizes.at(size_t(nth - 1))) : "";
        seen.insert(to_string(st) + " " + (count != 77 ? to_string(count) : "-") + " " + held +
                    " " + to_string(run.live_blocks) + size + reports());
        std::free(held == 'a' ? pids : nullptr);
        tavtest::clear_reports();
    });
    EXPECT_EQ(seen, kinds);
    std::free(pids);
    const std::string one = dir + "/one", none = dir + "/self";
    faults.scandir_in = one.c_str(); // whose entry vanishes, or whose read fails
    for (const tavtest::SyscallPlan &plan : {tavtest::SyscallPlan{.fail = "open", .fail_nth = 2},
                                             tavtest::SyscallPlan{.reads = {-1}}}) {
        tavtest::SyscallInjection failing(plan);
        search();
        EXPECT_EQ(to_string(st) + " " + to_string(count) + reports(), "0 0");
        std::free(pids);
    }
    faults.scandir_in = none.c_str();
    search();
    faults = {};
    EXPECT_EQ(to_string(st) + " " + to_string(count) + (pids ? "" : " null ") +
                  to_string(tavtest::reports().at(0).severity) + reports(),
              "0 0 null 7|log tav_util_pid_of Nothing suitable in /proc");
    EXPECT_EQ(vet_possible_directory(nullptr), 0);
    kill(pid_in(handle), SIGKILL), waitpid(pid_in(handle), nullptr, 0);
    tav_free_proc_handle(&handle);
    std::filesystem::remove_all(dir);
}

void marked(int) {}

// Valgrind keeps the last real-time signal for itself: no disposition of ours
// can be set on it there, and its letter reads '-'.
bool last_signal_is_ours() {
    struct sigaction probe {
    }, before{};
    probe.sa_handler = marked;
    return sigaction(64, &probe, &before) == 0 && sigaction(64, &before, nullptr) == 0;
}

// Signals 1 to 31 and 64 get the test's handler (9 and 19 can't), then calls
// such as "i2 c r15" (ignore 2, the common ones, reset 15) run, sigaction
// failing for `failing`: "first status not TAV_OK, dispositions|reports", as
// letters: H the handler, I ignored, D default.
std::string signals_after(const std::string &calls, uint64_t failing) {
    struct sigaction handler {};
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
    std::string letters = to_string(first) + " ";
    for (int signum = 1; signum <= 64; signum = signum == 31 ? 64 : signum + 1) {
        struct sigaction now {};
        sigaction(signum, nullptr, &now);
        constexpr int kRestorer = 0x04000000; // added by libc to every disposition
        const bool bare = (now.sa_flags & ~kRestorer) == 0 && sigisemptyset(&now.sa_mask);
        letters += signum == 64 && !last_signal_is_ours() ? '-'
                   : now.sa_handler == SIG_IGN            ? "Ii"[!bare]
                   : now.sa_handler == SIG_DFL            ? "Dd"[!bare]
                                                          : 'H';
    }
    return letters + reports();
}

TEST(Signals, DispositionsAfterEachCall) {
    const std::string start = "HHHHHHHHDHHHHHHHHHDHHHHHHHHHHHHH";
    const std::tuple<std::string, uint64_t, std::string> rows[] = {
        //                                             1234567890123456789012345678901 and 64
        {"i-1 i0 i1 i9 i15 i19 i31 i32 i64 r14", 0, "0 IHHHHHHHDHHHHDHHHHDHHHHHHHHHHHIH"},
        {"i2", 1 << 2,
         "6 " + start +
             "|log tav_util_ignore_signal@p: Failed to set ignore signal Interrupt (2)  Reason: "
             "Invalid argument"},
        {"c r0 r32", 0,
         "7 IIIIIIIIDIIIIIHIIIDIIIIIIIIIIIIH|log tav_util_reset_signal Invalid or unsupported "
         "signal value 0|trace tav_util_reset_signal@p 7|log tav_util_reset_signal Invalid or "
         "unsupported signal value 32|trace tav_util_reset_signal@p 7"},
        {"c", 1 << 2 | 1 << 30,
         "6 IHIIIIIIDIIIIIHIIIDIIIIIIIIIIHIH|log tav_util_ignore_common_signals@p: Failed to set "
         "ignore signal Interrupt (2)  Reason: Invalid argument|log "
         "tav_util_ignore_common_signals@p: Failed to set ignore signal Power failure (30)  "
         "Reason: Invalid argument"},
        {"r9", 1 << 9,
         "6 " + start +
             "|log tav_util_reset_signal@p: Failed to reset signal Killed (9)  Reason: Invalid "
             "argument"},
    };
    for (const auto &[calls, failing, expected] : rows) {
        std::string wanted = expected;
        wanted[2 + 31] = last_signal_is_ours() ? wanted[2 + 31] : '-';
        EXPECT_EQ(tavtest::in_child([&, calls = calls, failing = failing] {
                      return signals_after(calls, failing);
                  }),
                  wanted);
    }
}

// "status record|reports", the record printed back as the kernel prints its
// line (a zero state as '-'), over a record that was dirty before.
std::string parsed(int32_t pid) {
    tav_proc_stat r;
    std::memset(&r, 0xAB, sizeof r);
    tavtest::clear_reports();
    const tav_status st = tav_util_proc_stat(&r, pid);
    using L = int64_t;
    char line[1024];
    std::snprintf(
        line, sizeof line,
        "%d %d (%s) %c %d %d %d %d %d %u %lu %lu %lu %lu %lu %lu %ld %ld %ld %ld %ld %ld %lu "
        "%lu %ld %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %d %d %u %u %lu",
        st, r.pid, r.comm, r.state ? r.state : '-', r.ppid, r.pgrp, r.session, r.tty_nr, r.tpgid,
        r.flags, r.minflt, r.cminflt, r.majflt, r.cmajflt, r.utime, r.stime, L(r.cutime),
        L(r.cstime), L(r.priority), L(r.nice), L(r.num_threads), L(r.itrealvalue), r.starttime,
        r.vsize, r.rss, r.rsslim, r.startcode, r.endcode, r.startstack, r.kstkesp, r.kstkeip,
        r.signal, r.blocked, r.sigignore, r.sigcatch, r.wchan, r.nswap, r.cnswap, r.exit_signal,
        r.processor, r.rt_priority, r.policy, r.delayacct_blkio_ticks);
    return line + reports();
}

std::string numbers(int from, int to = 42) {
    return from > to ? "" : " " + std::to_string(from) + numbers(from + 1, to);
}

// A stopped child, whose line holds still, in all 42 tokens: its name has
// blanks and parentheses, its nice value is negative. Then the id of a thread.
TEST(ProcStat, MatchesTheKernel) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_NAME, "a) b (c");
        setpriority(PRIO_PROCESS, 0, -5);
        raise(SIGSTOP);
        tavtest::child_exit(0);
    }
    waitpid(child, nullptr, WUNTRACED);
    std::string kernel;
    std::getline(std::ifstream("/proc/" + std::to_string(child) + "/stat"), kernel);
    const std::string mine = parsed(child);
    kill(child, SIGKILL), waitpid(child, nullptr, 0);
    EXPECT_EQ("0 " + kernel.substr(0, mine.size() - 1), mine + " ");
    int64_t other = 0;
    char target[64] = {};
    std::thread([&] {
        other = tav_util_tid(), readlink("/proc/thread-self", target, sizeof target - 1);
    }).join();
    EXPECT_EQ(std::to_string(tav_util_tid()) + " " + std::to_string(other),
              std::to_string(getpid()) + " " + (std::strrchr(target, '/') + 1));
}

// Lines read in place of /proc/self/stat, tokens 4 to 42 holding their own
// numbers (an empty text: the directory /, whose read fails), and none; a
// failure leaves a zeroed record. Then allocations failing in turn fail the
// open (the stream's), then the read (getline's), leaving nothing.
TEST(ProcStat, CraftedLinesAndFailures) {
    char file[] = "/tmp/tavstat.XXXXXX";
    close(mkstemp(file));
    const std::string all = numbers(4), c63 = "(a) b) c" + std::string(55, 'n');
    const std::string n = std::to_string(("7 (name) S" + numbers(4, 41)).size() + 2);
    const std::string zeros = std::regex_replace(all, std::regex("[0-9]+"), "0");
    const std::tuple<int, std::string, std::string> rows[] = {
        {0, "7 (name) S" + numbers(4, 41) + "\n",
         "6 7 (name) S" + numbers(4, 41) + " 0|log tav_util_proc_stat Parsing logic failed, j=" +
             n + ", len=" + n + "\n|trace tav_util_proc_stat@y 6"},
        {0, "7 (name) S  x" + numbers(6), "0 7 (name) S 0 0" + numbers(6)}, // no newline
        {0, "7 (" + c63 + "nn) S" + all, "0 7 (" + c63 + ") S" + all},
        {0, "7 () S" + all, "0 7 () S" + all},
        {0, "7 (name S" + all, "0 7 ((name) S" + all},
        {0, "7 name) S)" + all, "0 7 (name)) S" + all}, // not opened: the name ends at its blank
        {-1, "", "32 0 () -" + zeros + "|trace tav_util_proc_stat@y 32"},
        {0, "",
         "9 0 () -" + zeros +
             "|log tav_util_proc_stat@y: getline() failed  Reason: Is a directory|trace "
             "tav_util_proc_stat@y 9"},
    };
    const char *target = file;
    tavtest::SyscallInjection redirect({.on_fopen = [&](const char *path) {
        return std::strcmp(path, "/proc/self/stat") == 0 ? target : path;
    }});
    for (const auto &[pid, text, expected] : rows) {
        std::ofstream(target = text.empty() ? "/" : file) << text;
        EXPECT_EQ(parsed(pid), expected) << text;
    }
    unlink(file);
    target = "/proc/self/stat"; // no longer redirected
    tavtest::clear_reports();
    const tav_status null_record = tav_util_proc_stat(nullptr, 0);
    EXPECT_EQ(std::to_string(null_record) + reports(),
              "3|log tav_util_proc_stat ret_proc_stat is NULL|trace tav_util_proc_stat@y 3");
    std::string seen;
    tav_proc_stat r;
    auto call = [&] { tavtest::clear_reports(), tav_util_proc_stat(&r, 0); };
    call(); // libc's one-time set-up allocates outside the counted runs
    tavtest::for_each_allocation_failure(call, [&](long, const tavtest::AllocRun &run) {
        seen += (seen.empty() ? "" : "\n") + std::to_string(run.live_blocks) + reports();
    });
    EXPECT_EQ(seen.substr(0, seen.find('\n')) + seen.substr(seen.rfind('\n')),
              "0|trace tav_util_proc_stat@y 32\n0|log tav_util_proc_stat@y: getline() failed  "
              "Reason: Cannot allocate memory|trace tav_util_proc_stat@y 9");
}

std::string shown(char *text) { // a heap text, freed
    const std::string line = text == nullptr ? "null" : "'" + std::string(text) + "'";
    std::free(text);
    return line;
}
std::string shown(long status) { return std::to_string(status); }

// One call: "result size live|reports", with the size of its first allocation
// (- for none) and the blocks it left to the caller.
template <typename Call> std::string observe(long fail_at, Call call) {
    tavtest::clear_reports();
    decltype(call()) result{};
    const tavtest::AllocRun run = tavtest::run_allocations(fail_at, [&] { result = call(); });
    return "\n" + shown(result) + " " + (run.sizes.empty() ? "-" : std::to_string(run.sizes[0])) +
           " " + std::to_string(run.live_blocks) + reports();
}

// The calls of the identity test, in a child: getenv of null, unset, empty,
// 299 and 300 characters, an allocation failing, a copy kept; setenv and
// unsetenv ("status|reports V" with what V then holds), setenv's allocations
// failing (some it does without); ensure_egid (then the egid), the last call
// as nobody; the host name, this host's, then 63 and 64 characters long (no
// room for the terminator) and sysconf failing.
std::string identity_calls(const std::string &v299, const std::string &g32) {
    setenv("EMPTY", "", 1), setenv("V299", v299.c_str(), 1);
    setenv("V300", (v299 + "v").c_str(), 1), setenv("SHORT", "abc", 1);
    std::string seen;
    for (const char *name : {(const char *)nullptr, "UNSET", "EMPTY", "V299", "V300"}) {
        seen += observe(0, [&] { return tav_util_getenv(name); });
    }
    seen += observe(1, [] { return tav_util_getenv("SHORT"); });
    char *copy = tav_util_getenv("SHORT");
    setenv("SHORT", "xyz", 1);
    seen += " " + shown(copy);
    auto row = [&](tav_status status) {
        seen += "\n" + shown(status) + reports() + " " + shown(tav_util_getenv("V"));
        tavtest::clear_reports();
    };
    tavtest::clear_reports();
    row(tav_util_setenv(nullptr, "x")), row(tav_util_setenv("V", nullptr));
    row(tav_util_setenv("V=", "x")), row(tav_util_setenv("V", "one"));
    row(tav_util_setenv("V", "two")), row(tav_util_unsetenv(nullptr));
    row(tav_util_unsetenv("V=x")), row(tav_util_unsetenv("V"));
    std::set<std::string> failed;
    tavtest::for_each_allocation_failure(
        [&] { tavtest::clear_reports(), failed.insert(shown(tav_util_setenv("NEW", "x"))); },
        [&](long, const tavtest::AllocRun &) { failed.insert(reports()); });
    seen = std::accumulate(failed.begin(), failed.end(), seen + "\n");
    getgrnam("root"), getgrnam(g32.c_str()); // the lookups' one-time set-up
    auto egid = [&](long fail_at, const char *name) {
        seen += observe(fail_at, [&] { return ensure_egid(name); });
        seen += " " + shown(getegid());
    };
    egid(0, nullptr), egid(0, (g32 + "g").c_str()), egid(0, g32.c_str());
    for (long result : {-1, 8}) {
        tavtest::HostInjection sized(
            {.sysconf_name = _SC_GETGR_R_SIZE_MAX, .sysconf_result = result});
        egid(0, "root");
    }
    egid(1, "root"), egid(0, "nogroup");
    auto host = [] { return tav_util_get_hostname(); };
    seen += observe(0, host);
    const std::string h63(63, 'h');
    if (unshare(CLONE_NEWUTS) != 0 || sethostname(h63.data(), 63) != 0) {
        return "no host name of its own";
    }
    seen += observe(0, host) + observe(1, host);
    sethostname((h63 + "h").data(), 64);
    seen += observe(0, host);
    tavtest::host_faults() = {.sysconf_name = _SC_HOST_NAME_MAX, .sysconf_result = -1};
    seen += observe(0, host);
    return tavtest::drop_to_nobody() ? (egid(0, "root"), seen) : "not nobody";
}

TEST(Identity, EnvironmentGroupAndHostName) {
    const std::string v299(299, 'v'), g32(32, 'g'), h63(63, 'h');
    const std::string size = std::to_string(sysconf(_SC_GETGR_R_SIZE_MAX));
    utsname names{};
    uname(&names);
    const std::string rows[] = {
        "\nnull - 0\nnull - 0\n'' 1 1\n'" + v299 + "' 300 1\nnull - 0\nnull 4 0 'abc'",
        "\n3|trace tav_util_setenv@e 3 null\n3|trace tav_util_setenv@e 3 null",
        "\n6|perror tav_util_setenv@e 22 Failed to set environment variable",
        "|trace tav_util_setenv@e 6 null\n0 'one'\n0 'two'\n3|trace tav_util_unsetenv@e 3 'two'",
        "\n6|perror tav_util_unsetenv@e 22 Failed to unset environment variable",
        "|trace tav_util_unsetenv@e 6 'two'\n0 null\n",
        "0",
        "6",
        "|perror tav_util_setenv@e 12 Failed to set environment variable",
        "|trace tav_util_setenv@e 6",
        "\n3 - 0|trace ensure_egid@g 3 0\n7 - 0|trace ensure_egid@g 7 0",
        "\n6 " + size + " 0|log ensure_egid Failed to find group " + g32 +
            "|trace ensure_egid@g 6 0",
        "\n6 - 0|log ensure_egid@g: Failed to query group structure size  Reason: Invalid "
        "argument|trace ensure_egid@g 6 0",
        "\n6 8 0|log ensure_egid@g: Failed to query group root data  Reason: Numerical result out "
        "of range|trace ensure_egid@g 6 0", // no second try
        "\n2 " + size + " 0|log ensure_egid Failed to allocate " + size +
            " byte buffer|trace ensure_egid@g 2 0",
        "\n0 " + size + " 0 65534",
        "\n'" + std::string(names.nodename) + "' 64 1",
        "\n'" + h63 + "' 64 1\nnull 64 0\nnull 64 0\nnull - 0",
        "\n6 " + size +
            " 0|log ensure_egid@g: Failed to update effective gid for group root  "
            "Reason: Operation not permitted|trace ensure_egid@g 6 65534"};
    EXPECT_EQ(tavtest::in_child([&] { return identity_calls(v299, g32); }),
              std::accumulate(std::begin(rows), std::end(rows), std::string()));
}

} // namespace
