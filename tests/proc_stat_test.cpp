// The status record: real lines of this process and of a stopped child, cut
// up independently; crafted lines for the edges; the thread id.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

#include "alloc_inject.hpp"
#include "internal/proc_stat.hpp"
#include "recorder.hpp"
#include "syscall_inject.hpp"

namespace {

using Lines = std::vector<std::string>;
const std::string kTrace = "trace tav_util_proc_stat src/system/linux.cpp ";

// The record as the kernel prints it, tokens 1 to 42 (16 to 21 signed).
Lines record_tokens(const tav_proc_stat &r) {
    auto s = [](auto v) { return std::to_string(v); };
    auto i = [](uint64_t v) { return std::to_string(static_cast<int64_t>(v)); };
    // clang-format off
    return {s(r.pid), r.comm, r.state ? std::string(1, r.state) : "", s(r.ppid), s(r.pgrp),
        s(r.session), s(r.tty_nr), s(r.tpgid), s(r.flags), s(r.minflt), s(r.cminflt), s(r.majflt),
        s(r.cmajflt), s(r.utime), s(r.stime), i(r.cutime), i(r.cstime), i(r.priority), i(r.nice),
        i(r.num_threads), i(r.itrealvalue), s(r.starttime), s(r.vsize), s(r.rss), s(r.rsslim),
        s(r.startcode), s(r.endcode), s(r.startstack), s(r.kstkesp), s(r.kstkeip), s(r.signal),
        s(r.blocked), s(r.sigignore), s(r.sigcatch), s(r.wchan), s(r.nswap), s(r.cnswap),
        s(r.exit_signal), s(r.processor), s(r.rt_priority), s(r.policy), s(r.delayacct_blkio_ticks)};
    // clang-format on
}

// The status, the tokens of a record that was dirty before, the reports.
Lines parsed(int32_t pid) {
    tav_proc_stat r;
    std::memset(&r, 0xAB, sizeof r);
    tavtest::clear_reports();
    Lines seen{std::to_string(tav_util_proc_stat(&r, pid))};
    for (const Lines &more : {record_tokens(r), tavtest::report_summary()}) {
        seen.insert(seen.end(), more.begin(), more.end());
    }
    return seen;
}

// A real line cut by another rule: the name lies between the first '(' and
// the last ')', the rest splits at blanks.
Lines kernel_tokens(const std::string &path) {
    std::string line;
    std::getline(std::ifstream(path), line);
    const size_t open = line.find('('), close = line.rfind(')');
    Lines tokens{"0", line.substr(0, open - 1), line.substr(open + 1, close - open - 1)};
    std::istringstream rest(line.substr(close + 2));
    for (std::string token; tokens.size() < 43 && rest >> token;) {
        tokens.push_back(token);
    }
    return tokens;
}

// This process in its steady tokens; a stopped child, whose line holds still,
// in all 42: its name has blanks and parentheses, its nice value is negative.
TEST(ProcStat, MatchesTheKernel) {
    const Lines self = parsed(0), kernel = kernel_tokens("/proc/self/stat");
    for (int token : {1, 2, 3, 4, 5, 6, 7, 8, 18, 19, 20, 21, 22, 25, 26, 27, 28, 38, 40, 41}) {
        EXPECT_EQ(self[token], kernel[token]) << "token " << token;
    }
    EXPECT_EQ(self[1], std::to_string(getpid()));
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_NAME, "a) b (c");
        setpriority(PRIO_PROCESS, 0, -5);
        raise(SIGSTOP);
        tavtest::child_exit(0);
    }
    waitpid(child, nullptr, WUNTRACED);
    const Lines mine = parsed(child),
                its = kernel_tokens("/proc/" + std::to_string(child) + "/stat");
    kill(child, SIGKILL), waitpid(child, nullptr, 0);
    EXPECT_EQ(mine, its);
    EXPECT_EQ(mine[2] + mine[3] + mine[19], "a) b (cT-5");
    EXPECT_EQ(parsed(child).back(), kTrace + "32") << "reaped, it names nothing";
}

// Crafted lines in place of /proc/self/stat; tokens 4 to 42 carry their own
// numbers. Each row gives the changed tokens of the line and of the record.
TEST(ProcStat, CraftedLines) {
    using Changes = std::vector<std::pair<int, std::string>>;
    auto tokens = [](const Changes &changes, const char *status, const char *name) {
        Lines t{status, "7", name, "S"};
        for (int token = 4; token <= 42; ++token) {
            t.push_back(std::to_string(token));
        }
        for (const auto &[token, text] : changes) {
            t[token] = text;
        }
        return t;
    };
    auto line = [&](const Changes &changes, const std::string &end = "\n") {
        const Lines t = tokens(changes, "", "(name)");
        std::string text = t[1];
        std::for_each(t.begin() + 2, t.end(), [&](const std::string &s) { text += " " + s; });
        return text + end;
    };
    auto record = [&](const Changes &changes) { return tokens(changes, "0", "name"); };
    const std::string cut = line({}).substr(0, line({}).rfind(' ')) + "\n",
                      n = std::to_string(cut.size() + 1), n70(70, 'n');
    Lines shifted = record({{4, "0"}});
    shifted.insert(shifted.begin() + 5, "4");
    shifted.pop_back();
    Lines short_line = record({{0, "6"}, {42, "0"}});
    short_line.insert(short_line.end(),
                      {"log tav_util_proc_stat Parsing logic failed, j=" + n + ", len=" + n + "\n",
                       kTrace + "6"});
    // clang-format off
    const std::pair<std::string, Lines> rows[] = {
        {line({}), record({})},
        {line({}, ""), record({})},          // the last token ends at the terminator
        {line({}, " 43 44\n"), record({})},  // tokens behind the 42nd are ignored
        {cut, short_line},                   // 41 tokens: those reached are kept
        {line({{4, " 4"}}), shifted},        // two blanks: an empty token
        {line({{4, "x"}}), record({{4, "0"}})},
        {line({{3, "Rx"}}), record({{3, "R"}})},
        {line({{19, "-1"}, {24, "-1"}}), record({{19, "-1"}, {24, "-1"}})},
        // The name runs to the last ')': blanks and parentheses in it move nothing.
        {line({{2, "((a) b) c))"}}), record({{2, "(a) b) c)"}})},
        {line({{2, "(" + n70 + ")"}}), record({{2, n70.substr(0, 63)}})},
        {line({{2, "()"}}), record({{2, ""}})},
        {line({{2, "(name"}}), record({{2, "(name"}})}, // without both, a token like any other
        {line({{2, "name"}}), record({})},
        {line({{2, "name)"}, {3, "S)"}}), record({{2, "name)"}})}, // not opened: ends at its blank
    };
    // clang-format on
    const std::string file = testing::TempDir() + "crafted_stat";
    tavtest::SyscallInjection redirect({.fopen_from = "/proc/self/stat", .fopen_to = file.c_str()});
    for (const auto &[text, expected] : rows) {
        std::ofstream(file) << text;
        EXPECT_EQ(parsed(0), expected) << text;
    }
}

// Open and read failures leave a zeroed record; allocations failing in turn
// fail the open (the stream's), then the read (getline's), leaving nothing.
TEST(ProcStat, Failures) {
    Lines zero = record_tokens(tav_proc_stat{});
    zero.insert(zero.begin(), "32");
    zero.push_back(kTrace + "32");
    EXPECT_EQ(parsed(-1), zero);
    {
        // A directory opens as a stream, and its read fails.
        tavtest::SyscallInjection redirect({.fopen_from = "/proc/self/stat", .fopen_to = "/"});
        zero[0] = "9";
        zero.back() =
            "log tav_util_proc_stat src/system/linux.cpp: getline() failed  Reason: Is a directory";
        zero.push_back(kTrace + "9");
        EXPECT_EQ(parsed(0), zero);
    }
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_proc_stat(nullptr, 0), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"log tav_util_proc_stat ret_proc_stat is NULL", kTrace + "3"}));
    Lines seen;
    tav_proc_stat r;
    auto call = [&] { tavtest::clear_reports(), tav_util_proc_stat(&r, 0); };
    call(); // libc's one-time set-up allocates outside the counted runs
    tavtest::for_each_allocation_failure(call, [&](long, const tavtest::AllocRun &run) {
        EXPECT_EQ(run.live_blocks, 0);
        seen.push_back(tavtest::report_summary().empty() ? "" : tavtest::report_summary()[0]);
    });
    EXPECT_EQ(seen.front(), kTrace + "32");
    EXPECT_EQ(seen.back(), "log tav_util_proc_stat src/system/linux.cpp: getline() failed  Reason: "
                           "Cannot allocate memory");
}

TEST(ProcStat, ThreadIdIsTheKernels) {
    auto kernels = [] { // "<pid>/task/<tid>"
        char target[64] = {};
        readlink("/proc/thread-self", target, sizeof target - 1);
        return std::atoll(std::strrchr(target, '/') + 1);
    };
    EXPECT_EQ(tav_util_tid(), getpid());
    int64_t other = 0, expected = 0;
    std::thread([&] { other = tav_util_tid(), expected = kernels(); }).join();
    EXPECT_EQ(other, expected);
    EXPECT_NE(other, getpid());
}

} // namespace
