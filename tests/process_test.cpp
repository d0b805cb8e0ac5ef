// Processes and the host. What changes what the process shares runs in a child.
#include <csignal>
#include <grp.h>
#include <numeric>
#include <optional>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include "internal/proc_stat.hpp"
#include "internal/process_ops.hpp"
#include "support.hpp"

namespace {

using std::to_string;
using Words = std::vector<const char *>;
char **v(const Words &words) { return const_cast<char **>(words.data()); }
char *kNoEnv[] = {nullptr};

// The reports, a pid in a line as PID, each source path as '@' and a letter.
std::string reports() {
    std::string text =
        std::regex_replace(tavtest::reported(), std::regex("process [0-9]+"), "process PID");
    std::istringstream legend(
        "process_ops p process/spawn_linux s spawn w time/timespec_common t string/vasprintf v "
        "system/linux y env/linux e permissions/permissions_linux g");
    for (std::string path, letter; legend >> path >> letter;) {
        text = std::regex_replace(text, std::regex(" src/" + path + "\\.cpp"), "@" + letter);
    }
    return text;
}
std::string shown(char *text) { // a heap text, freed
    const std::string line = text == nullptr ? "null" : "'" + std::string(text) + "'";
    std::free(text);
    return line;
}
std::string shown(long status) { return to_string(status); }

// One call, its nth allocation failing (0: none): "result size live|reports",
// the size of its first allocation (- for none), the blocks it left behind.
template <typename Call> std::string observe(long fail_at, Call call) {
    tavtest::clear_reports();
    decltype(call()) result{};
    const tavtest::AllocRun run = tavtest::run_allocations(fail_at, [&] { result = call(); });
    return shown(result) + " " + (run.sizes.empty() ? "-" : to_string(run.sizes[0])) + " " +
           to_string(run.live_blocks) + reports();
}

// In a child, SIGCHLD ignored or not (0); then the handle (n: null, h: held,
// freed twice, u: untouched) and the exit code.
TEST(Spawn, ExitCodesAndFailures) {
    using Row = std::tuple<bool, const char *, const char *, int, long, int, std::string>;
    const std::string unwaited = "|log tav_wait@s: Failed to wait on process PID  Reason: No child "
                                 "processes|trace tav_wait@s 6";
    const Row rows[] = {
        {false, "/bin/sh", "exit 255", 0, 0, 0, "0 4 0 n 255"},
        {false, "/bin/sh", "kill -9 $$", 0, 0, 0, "0 4 0 n -1"},
        {false, "sh", "exit 0", 0, 0, 0, "0 4 0 n 1"}, // no search of PATH
        {false, "/bin/sh", "true", EAGAIN, 0, 0, "6 4 0|trace tav_spawn@s 6 n 77"},
        {false, "/bin/sh", "true", 0, 1, 0, "2 4 0|trace tav_spawn@s 2 n 77"},
        {false, "/bin/sh", "true", 0, 0, SIGCHLD, "6 4 1" + unwaited + " h 77"},
        {true, "/bin/sh", "exit 255", 0, 0, 0, "0 4 0 u 255"},
        {true, "/bin/sh", "true", EAGAIN, 0, 0,
         "6 4 0|trace tav_spawn@s 6|trace tav_spawn_and_wait@w 6 u 77"},
        {true, "/bin/sh", "true", 0, 0, SIGCHLD, "6 4 0" + unwaited + " u 77"},
    };
    for (const Row &row : rows) {
        const std::string seen = tavtest::in_child([&row] {
            const auto &[once, program, script, fork_errno, fail_at, ignored, _] = row;
            const Words argv = {program, "-c", script, nullptr};
            tav_util_ignore_signal(ignored);
            tavtest::HostInjection injected({.fork_errno = fork_errno});
            const auto untouched = reinterpret_cast<tav_proc_handle>(8);
            tav_proc_handle handle = untouched;
            int32_t code = 77;
            const std::string seen = observe(fail_at, [&, once = once] {
                const tav_status st = once ? tav_spawn_and_wait(v(argv), kNoEnv, &code)
                                           : tav_spawn(v(argv), kNoEnv, &handle);
                return st == TAV_OK && !once ? tav_wait(&handle, &code) : st;
            });
            const char kept = handle == untouched ? 'u' : handle ? 'h' : 'n';
            if (handle != untouched) {
                tav_free_proc_handle(&handle), tav_free_proc_handle(&handle);
                tav_free_proc_handle(nullptr);
            }
            return seen + " " + kept + " " + to_string(code);
        });
        EXPECT_EQ(seen, std::get<6>(row));
    }
    tav_proc_handle none = nullptr;
    int32_t code = 77;
    const std::string seen =
        observe(0, [&] { return long(tav_wait(nullptr, &code) + tav_wait(&none, &code)); });
    EXPECT_EQ(seen + " " + to_string(code), "6 - 0|trace tav_wait@s 3|trace tav_wait@s 3 77");
}

std::optional<tavtest::ClockInjection> stopped;
void stop_clock() { stopped.emplace(tavtest::ClockPlan{.fail_with = EINVAL}); }

// A child that waits, has ended (uncollected) or is none (this process); then
// the signal that ended it: 9 the library's kill, 15 ours after the call.
TEST(AwaitChild, PollsKillsAndReports) {
    enum Target { kRunning, kEnded, kSelf };
    const std::string at = "|trace tav_util_await_child_timeout@p ",
                      log = "|log tav_util_await_child_timeout@p: Failed to ";
    const std::tuple<Target, int32_t, int, bool, std::string> rows[] = {
        {kRunning, 0, 0, false, "36 - 0" + at + "36 9"},
        {kEnded, 0, 0, false, "0 - 0 0"},
        {kSelf, 0, 0, false,
         "6 - 0" + log + "wait for child process PID to end  Reason: No child processes" + at +
             "6 15"},
        {kRunning, 0, EPERM, false,
         "36 - 0" + log + "kill process PID  Reason: Operation not permitted" + at + "36 15"},
        {kRunning, -1, 0, false,
         "7 - 0|log tav_util_abs_time_offset Bad value, val: -1 scale_to_sec: 1\n|trace "
         "tav_util_abs_time_offset@t 7|trace tav_util_future_timeout@t 7|log "
         "tav_util_future_timeout Overflow detected when trying to set phase timeout tmp hack" +
             at + "7 15"},
        {kRunning, 5, 0, true, "6 - 0|trace tav_util_query_timeout_expired@t 6" + at + "6 15"},
    };
    for (const auto &[target, seconds, kill_errno, stops, expected] : rows) {
        const pid_t child = fork();
        if (child == 0) {
            while (target != kEnded) {
                pause();
            }
            tavtest::child_exit(0);
        }
        siginfo_t info{};
        if (target == kEnded) {
            waitid(P_PID, id_t(child), &info, WEXITED | WNOWAIT);
        }
        const tavtest::HostFaults faults{.kill_errno = kill_errno,
                                         .before_waitpid = stops ? stop_clock : nullptr};
        const int32_t pid = target == kSelf ? getpid() : child;
        const std::string seen = observe(0, [&, seconds = seconds] {
            tavtest::HostInjection injected(faults);
            return long(tav_util_await_child_timeout(pid, seconds));
        });
        stopped.reset();
        int wstatus = 0;
        kill(child, SIGTERM);
        const int signum = waitpid(child, &wstatus, 0) == child ? WTERMSIG(wstatus) : 0;
        EXPECT_EQ(seen + " " + to_string(signum), expected);
    }
}

// A stand-in for /proc: entries for 1, C (a child whose first argument is
// longer than the 299 bytes read), no process, not numeric, not a directory.
// "status count counted live pids|reports", counted without an array.
TEST(ProcessSearch, FirstArgumentsInAStandIn) {
    const std::string dir = "/tmp/tavproc-" + to_string(getpid()) + std::string(200, 'd');
    const std::string path = dir + "/" + std::string(120, 's') + "-sleeper", arg = "7919.271828";
    std::filesystem::create_directories(dir);
    std::filesystem::create_symlink("/bin/sleep", path);
    tav_proc_handle handle = nullptr;
    const Words argv = {path.c_str(), arg.c_str(), nullptr}, env = {"A=1", "B=2", nullptr};
    ASSERT_EQ(tav_spawn(v(argv), v(env), &handle), TAV_OK);
    const int32_t pid = *reinterpret_cast<const int32_t *>(handle);
    const std::string child = to_string(pid), proc = "/proc/" + child + "/";
    while (tavtest::slurp(proc + "cmdline") != path + '\0' + arg + '\0') {
        usleep(1000); // until execve is done
    }
    EXPECT_EQ(tavtest::slurp(proc + "environ"), std::string("A=1\0B=2\0", 8));
    for (const char *name : {"1", "4194305", "self", "one/1", child.c_str()}) {
        std::filesystem::create_directories(dir + "/" + name);
    }
    std::ofstream(dir + "/" + to_string(getppid()));
    uint32_t *const untouched = reinterpret_cast<uint32_t *>(8);
    bool injected = false;
    auto search = [&](const std::string &in, const std::string &text, int32_t mode,
                      long fail_at = 0) {
        tavtest::HostInjection faults({.scandir_in = in.c_str()});
        tavtest::clear_reports();
        uint32_t *pids = untouched;
        uint64_t count = 77, counted = 77;
        int st = 0;
        const tavtest::AllocRun run = tavtest::run_allocations(
            fail_at, [&] { st = tav_util_pid_of(text.c_str(), mode, &pids, &count); });
        st += tav_util_pid_of(text.c_str(), mode, nullptr, &counted);
        injected = run.injected;
        std::string seen = to_string(st) + " " + to_string(count) + " " + to_string(counted) + " " +
                           to_string(run.live_blocks);
        for (uint64_t i = 0; pids != nullptr && count != 77 && i < count; ++i) {
            seen += " " + (to_string(pids[i]) == child ? "C" : to_string(pids[i]));
        }
        seen += pids == untouched ? " u" : pids == nullptr ? " null" : "";
        seen += pids == nullptr && injected ? " " + to_string(run.sizes.at(fail_at - 1)) : "";
        std::free(pids == untouched ? nullptr : pids);
        return seen + reports();
    };
    // Last: nothing suitable (at level 7), an entry that vanishes, a failed read.
    using Row = std::tuple<std::string, std::string, int32_t, tavtest::SyscallPlan, std::string>;
    const std::string p = path.substr(5, 16), p299 = path.substr(0, 299), one = dir + "/one";
    const std::string nothing = "|log tav_util_pid_of Nothing suitable in /proc";
    const Row rows[] = {
        {dir, p299, 1, {}, "0 1 1 1 C"},
        {dir, p299 + 's', 1, {}, "0 0 0 1"},
        {dir, p, 1, {}, "0 0 0 1"},
        {dir, p, -7, {}, "0 1 1 1 C"},
        {dir, arg, 0, {}, "0 0 0 1"},
        {dir, "", 0, {}, "0 2 2 1 1 C"},
        {dir + "/self", "", 0, {}, "0 0 0 0 null" + nothing + nothing},
        {one, "", 0, {.fail = "open", .fail_nth = 2}, "0 0 1 1"},
        {one, "", 0, {.reads = {-1}}, "0 0 1 1"},
    };
    for (const auto &[in, text, mode, plan, expected] : rows) {
        tavtest::SyscallInjection failing(plan);
        EXPECT_EQ(search(in, text, mode), expected);
        EXPECT_EQ(tavtest::reports().empty() ? 7 : tavtest::reports()[0].severity, 7);
    }
    // The first search's allocations failing in turn (the last run fails none).
    const std::set<std::string> kinds = {
        "0 1 1 1 1",
        "0 0 1 0 null 16|trace tav_util_vasprintf@v 2|trace vet_possible_directory@p 2|log "
        "vet_possible_directory Failed to allocate path" +
            nothing,
        "6 77 1 0 u|log tav_util_pid_of@p: Failed to open /proc  Reason: Cannot allocate "
        "memory|trace tav_util_pid_of@p 6",
        "2 77 1 0 null 4|log tav_util_pid_of Failed to allocate memory|trace tav_util_pid_of@p 2",
        "2 77 1 1|trace tav_util_vasprintf@v 2|trace tav_util_pid_of@p 2|log tav_util_pid_of "
        "Failed to allocate path"};
    std::set<std::string> seen;
    for (long nth = 1; nth == 1 || injected; ++nth) {
        seen.insert(search(one, "", 0, nth));
    }
    EXPECT_EQ(seen, kinds);
    EXPECT_EQ(vet_possible_directory(nullptr), 0);
    kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
    tav_free_proc_handle(&handle);
    std::filesystem::remove_all(dir);
}

// With a handler on signals 1 to 31, calls "i2 c r15" (ignore 2, the common
// ones, reset 15), sigaction failing for the signals in `failing`: "sum of
// the statuses, dispositions|reports" (H handler, I ignored, D default).
std::string dispositions_after(const std::string &calls, uint64_t failing) {
    struct sigaction handler {};
    handler.sa_handler = [](int) {};
    for (int signum = 1; signum <= 31; ++signum) {
        sigaction(signum, &handler, nullptr);
    }
    tavtest::clear_reports();
    int sum = 0;
    std::istringstream words(calls);
    tavtest::host_faults().sigaction_fails = failing;
    for (std::string call; words >> call;) {
        const int32_t n = std::atoi(call.c_str() + 1);
        sum += call[0] == 'c'   ? tav_util_ignore_common_signals()
               : call[0] == 'i' ? tav_util_ignore_signal(n)
                                : tav_util_reset_signal(n);
    }
    tavtest::host_faults().sigaction_fails = 0;
    std::string letters = to_string(sum) + " ";
    for (int signum = 1; signum <= 31; ++signum) {
        struct sigaction now {};
        sigaction(signum, nullptr, &now);
        constexpr int kRestorer = 0x04000000; // added by libc to every disposition
        const bool bare = (now.sa_flags & ~kRestorer) == 0 && sigisemptyset(&now.sa_mask);
        letters += now.sa_handler == SIG_IGN   ? "Ii"[!bare]
                   : now.sa_handler == SIG_DFL ? "Dd"[!bare]
                                               : 'H';
    }
    return letters + reports();
}

TEST(Signals, DispositionsAfterEachCall) {
    const std::string invalid = "  Reason: Invalid argument";
    const std::string common =
        "|log tav_util_ignore_common_signals@p: Failed to set ignore signal ";
    const std::string reset = "|log tav_util_reset_signal Invalid or unsupported signal value ";
    const std::tuple<std::string, uint64_t, std::string> rows[] = {
        //                                       1234567890123456789012345678901
        {"i-1 i0 i1 i9 i15 i19 i31 i32 r14", 0, "0 IHHHHHHHDHHHHDHHHHDHHHHHHHHHHHI"},
        {"i2 r9", 1 << 2 | 1 << 9,
         "12 HHHHHHHHDHHHHHHHHHDHHHHHHHHHHHH|log tav_util_ignore_signal@p: Failed to set ignore "
         "signal Interrupt (2)" +
             invalid + "|log tav_util_reset_signal@p: Failed to reset signal Killed (9)" + invalid},
        {"c r0 r32", 1 << 2 | 1 << 30,
         "20 IHIIIIIIDIIIIIHIIIDIIIIIIIIIIHI" + common + "Interrupt (2)" + invalid + common +
             "Power failure (30)" + invalid + reset + "0|trace tav_util_reset_signal@p 7" + reset +
             "32|trace tav_util_reset_signal@p 7"},
    };
    for (const auto &[calls, failing, expected] : rows) {
        const std::string seen = tavtest::in_child(
            [calls = calls, failing = failing] { return dispositions_after(calls, failing); });
        EXPECT_EQ(seen, expected);
    }
}

// "status record|reports", the record written over a dirty one, printed as the
// kernel prints its line (a zero state as '-').
std::string parsed(int32_t pid) {
    tav_proc_stat r;
    std::memset(&r, 0xAB, sizeof r);
    tavtest::clear_reports();
    const tav_status st = tav_util_proc_stat(&r, pid);
    using L = int64_t;
    char line[1024];
    std::snprintf(line, sizeof line,
                  "%d %d (%s) %c %d %d %d %d %d %u %lu %lu %lu %lu %lu %lu %lu %lu %lu %ld %lu %lu "
                  "%lu %lu %ld %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %d %d %u %u %lu",
                  st, r.pid, r.comm, r.state ? r.state : '-', r.ppid, r.pgrp, r.session, r.tty_nr,
                  r.tpgid, r.flags, r.minflt, r.cminflt, r.majflt, r.cmajflt, r.utime, r.stime,
                  r.cutime, r.cstime, r.priority, L(r.nice), r.num_threads, r.itrealvalue,
                  r.starttime, r.vsize, r.rss, r.rsslim, r.startcode, r.endcode, r.startstack,
                  r.kstkesp, r.kstkeip, r.signal, r.blocked, r.sigignore, r.sigcatch, r.wchan,
                  r.nswap, r.cnswap, r.exit_signal, r.processor, r.rt_priority, r.policy,
                  r.delayacct_blkio_ticks);
    return line + reports();
}

std::string numbers(int from, int to = 42) {
    return from > to ? "" : " " + to_string(from) + numbers(from + 1, to);
}

// A stopped child named with blanks and parentheses, nice -5; then lines read
// in place of /proc/self/stat (an empty text: the directory /, unreadable).
TEST(ProcStat, LinesOfTheKernelAndCrafted) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_NAME, "a) b (c");
        setpriority(PRIO_PROCESS, 0, -5);
        raise(SIGSTOP);
        tavtest::child_exit(0);
    }
    waitpid(child, nullptr, WUNTRACED);
    std::string kernel;
    std::getline(std::ifstream("/proc/" + to_string(child) + "/stat"), kernel);
    const std::string mine = parsed(child);
    kill(child, SIGKILL), waitpid(child, nullptr, 0);
    EXPECT_EQ("0 " + kernel.substr(0, mine.size() - 1), mine + " ");
    char file[] = "/tmp/tavstat.XXXXXX";
    close(mkstemp(file));
    const std::string all = numbers(4), c63 = "(a) b) c" + std::string(55, 'n');
    const std::string n = to_string(("7 (name) S" + numbers(4, 41)).size() + 2);
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
    EXPECT_EQ(observe(0, [] { return long(tav_util_proc_stat(nullptr, 0)); }),
              "3 - 0|log tav_util_proc_stat ret_proc_stat is NULL|trace tav_util_proc_stat@y 3");
    std::string seen;
    tav_proc_stat r;
    auto call = [&] { tavtest::clear_reports(), tav_util_proc_stat(&r, 0); };
    call(); // libc's one-time set-up allocates outside the counted runs
    tavtest::for_each_allocation_failure(call, [&](long, const tavtest::AllocRun &run) {
        seen += (seen.empty() ? "" : "\n") + to_string(run.live_blocks) + reports();
    });
    EXPECT_EQ(seen.substr(0, seen.find('\n')) + seen.substr(seen.rfind('\n')),
              "0|trace tav_util_proc_stat@y 32\n0|log tav_util_proc_stat@y: getline() failed  "
              "Reason: Cannot allocate memory|trace tav_util_proc_stat@y 9");
    int64_t other = 0;
    char self[64] = {};
    std::thread([&] {
        other = tav_util_tid(), readlink("/proc/thread-self", self, sizeof self - 1);
    }).join();
    EXPECT_EQ(to_string(tav_util_tid()) + " " + to_string(other),
              to_string(getpid()) + " " + (std::strrchr(self, '/') + 1));
}

// In a child: setenv and unsetenv give "status|reports V" (what V then holds),
// ensure_egid adds the egid, the last call as nobody.
TEST(Identity, EnvironmentGroupAndHostName) {
    const std::string v299(299, 'v'), g32(32, 'g'), h63(63, 'h');
    const std::string size = to_string(sysconf(_SC_GETGR_R_SIZE_MAX));
    const std::string host = tavtest::slurp("/proc/sys/kernel/hostname");
    const std::string seen = tavtest::in_child([&] {
        setenv("EMPTY", "", 1), setenv("V299", v299.c_str(), 1);
        setenv("V300", (v299 + "v").c_str(), 1), setenv("SHORT", "abc", 1);
        std::string seen;
        for (const char *name : {(const char *)nullptr, "UNSET", "EMPTY", "V299", "V300"}) {
            seen += "\n" + observe(0, [&] { return tav_util_getenv(name); });
        }
        seen += "\n" + observe(1, [] { return tav_util_getenv("SHORT"); });
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
        auto egid = [&](long fail_at, const char *name, long size = 0) {
            tavtest::HostInjection sized(
                {.sysconf_name = size ? _SC_GETGR_R_SIZE_MAX : -1, .sysconf_result = size});
            seen += "\n" + observe(fail_at, [&] { return ensure_egid(name); });
            seen += " " + shown(getegid());
        };
        egid(0, nullptr), egid(0, (g32 + "g").c_str()), egid(0, g32.c_str());
        egid(0, "root", -1), egid(0, "root", 8);
        egid(1, "root"), egid(0, "nogroup");
        auto host = [&](long fail_at) {
            seen += "\n" + observe(fail_at, [] { return tav_util_get_hostname(); });
        };
        host(0);
        if (unshare(CLONE_NEWUTS) != 0 || sethostname(h63.data(), 63) != 0) {
            return std::string("no host name of its own");
        }
        host(0), host(1), sethostname((h63 + "h").data(), 64), host(0);
        tavtest::host_faults() = {.sysconf_name = _SC_HOST_NAME_MAX, .sysconf_result = -1};
        host(0);
        return tavtest::drop_to_nobody() ? (egid(0, "root"), seen) : "not nobody";
    });
    EXPECT_EQ(seen,
              "\nnull - 0\nnull - 0\n'' 1 1\n'" + v299 +
                  "' 300 1\nnull - 0\nnull 4 0 'abc'\n3|trace tav_util_setenv@e 3 null\n3|trace "
                  "tav_util_setenv@e 3 null\n6|perror tav_util_setenv@e 22 Failed to set "
                  "environment variable|trace tav_util_setenv@e 6 null\n0 'one'\n0 'two'\n3|trace "
                  "tav_util_unsetenv@e 3 'two'\n6|perror tav_util_unsetenv@e 22 Failed to unset "
                  "environment variable|trace tav_util_unsetenv@e 6 'two'\n0 null\n06|perror "
                  "tav_util_setenv@e 12 Failed to set environment variable|trace tav_util_setenv@e "
                  "6\n3 - 0|trace ensure_egid@g 3 0\n7 - 0|trace ensure_egid@g 7 0\n6 " +
                  size + " 0|log ensure_egid Failed to find group " + g32 +
                  "|trace ensure_egid@g 6 0\n6 - 0|log ensure_egid@g: Failed to query group "
                  "structure size  Reason: Invalid argument|trace ensure_egid@g 6 0\n6 8 0|log "
                  "ensure_egid@g: Failed to query group root data  Reason: Numerical result out of "
                  "range|trace ensure_egid@g 6 0\n2 " +
                  size + " 0|log ensure_egid Failed to allocate " + size +
                  " byte buffer|trace ensure_egid@g 2 0\n0 " + size + " 0 65534\n'" +
                  host.substr(0, host.size() - 1) + "' 64 1\n'" + h63 +
                  "' 64 1\nnull 64 0\nnull 64 0\nnull - 0\n6 " + size +
                  " 0|log ensure_egid@g: Failed to update effective gid for group root  Reason: "
                  "Operation not permitted|trace ensure_egid@g 6 65534");
}

} // namespace
