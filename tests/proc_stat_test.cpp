// The status record against the kernel's own line and crafted ones, its
// failures, and the thread id against the kernel's.
#include <fstream>
#include <regex>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

#include "host_inject.hpp"
#include "internal/proc_stat.hpp"
#include "rows.hpp"
#include "syscall_inject.hpp"

namespace {

// "status record|reports", the record printed back as the kernel prints its
// line (a zero state as '-'), over a record that was dirty before; @ stands
// for the operation and its source path.
std::string reports() {
    const std::regex full("tav_util_proc_stat src/system/linux\\.cpp");
    return std::regex_replace(tavtest::reported(), full, "@");
}
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
             n + ", len=" + n + "\n|trace @ 6"},
        {0, "7 (name) S  x" + numbers(6), "0 7 (name) S 0 0" + numbers(6)}, // no newline
        {0, "7 (" + c63 + "nn) S" + all, "0 7 (" + c63 + ") S" + all},
        {0, "7 () S" + all, "0 7 () S" + all},
        {0, "7 (name S" + all, "0 7 ((name) S" + all},
        {0, "7 name) S)" + all, "0 7 (name)) S" + all}, // not opened: the name ends at its blank
        {-1, "", "32 0 () -" + zeros + "|trace @ 32"},
        {0, "", "9 0 () -" + zeros + "|log @: getline() failed  Reason: Is a directory|trace @ 9"},
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
              "3|log tav_util_proc_stat ret_proc_stat is NULL|trace @ 3");
    std::string seen;
    tav_proc_stat r;
    auto call = [&] { tavtest::clear_reports(), tav_util_proc_stat(&r, 0); };
    call(); // libc's one-time set-up allocates outside the counted runs
    tavtest::for_each_allocation_failure(call, [&](long, const tavtest::AllocRun &run) {
        seen += (seen.empty() ? "" : "\n") + std::to_string(run.live_blocks) + reports();
    });
    EXPECT_EQ(seen.substr(0, seen.find('\n')) + seen.substr(seen.rfind('\n')),
              "0|trace @ 32\n0|log @: getline() failed  Reason: Cannot allocate memory|trace @ 9");
}

} // namespace
