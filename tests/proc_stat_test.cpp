// The process status record: real lines of this process and of a stopped
// child, cut up independently; crafted lines for the edges; the thread id.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "alloc_inject.hpp"
#include "internal/proc_stat.hpp"
#include "recorder.hpp"
#include "syscall_inject.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
const std::string kTrace = "trace tav_util_proc_stat src/system/linux.cpp ";

// The record as the kernel would print it: tokens 1 to 42 as text. Tokens 16
// to 21 are printed signed, so their unsigned fields are shown signed.
Lines record_tokens(const tav_proc_stat &r) {
    auto s = [](auto v) { return std::to_string(v); };
    auto sig = [](uint64_t v) { return std::to_string(static_cast<int64_t>(v)); };
    return {s(r.pid),
            r.comm,
            r.state ? std::string(1, r.state) : "",
            s(r.ppid),
            s(r.pgrp),
            s(r.session),
            s(r.tty_nr),
            s(r.tpgid),
            s(r.flags),
            s(r.minflt),
            s(r.cminflt),
            s(r.majflt),
            s(r.cmajflt),
            s(r.utime),
            s(r.stime),
            sig(r.cutime),
            sig(r.cstime),
            sig(r.priority),
            sig(r.nice),
            sig(r.num_threads),
            sig(r.itrealvalue),
            s(r.starttime),
            s(r.vsize),
            s(r.rss),
            s(r.rsslim),
            s(r.startcode),
            s(r.endcode),
            s(r.startstack),
            s(r.kstkesp),
            s(r.kstkeip),
            s(r.signal),
            s(r.blocked),
            s(r.sigignore),
            s(r.sigcatch),
            s(r.wchan),
            s(r.nswap),
            s(r.cnswap),
            s(r.exit_signal),
            s(r.processor),
            s(r.rt_priority),
            s(r.policy),
            s(r.delayacct_blkio_ticks)};
}

// Cuts a real stat line by another rule than the library's: the name is what
// lies between the first '(' and the last ')', the rest splits at blanks.
Lines kernel_tokens(const std::string &path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    const size_t open = line.find('(');
    const size_t close = line.rfind(')');
    Lines tokens{line.substr(0, open - 1), line.substr(open + 1, close - open - 1)};
    std::istringstream rest(line.substr(close + 2));
    for (std::string token; tokens.size() < 42 && rest >> token;) {
        tokens.push_back(token);
    }
    return tokens;
}

tav_proc_stat dirty_record() {
    tav_proc_stat r;
    std::memset(&r, 0xAB, sizeof r);
    return r;
}

TEST(ProcStat, SelfMatchesTheKernelsLineInItsSteadyFields) {
    tav_proc_stat r = dirty_record();
    ASSERT_EQ(tav_util_proc_stat(&r, 0), TAV_OK);
    const Lines kernel = kernel_tokens("/proc/self/stat");
    const Lines mine = record_tokens(r);
    // Counters and times move between two reads; these do not.
    for (int token : {1, 2, 3, 4, 5, 6, 7, 8, 18, 19, 20, 21, 22, 25, 26, 27, 28, 38, 40, 41}) {
        EXPECT_EQ(mine[token - 1], kernel[token - 1]) << "token " << token;
    }
    EXPECT_EQ(r.pid, getpid());
}

// A stopped child's line holds still: all 42 tokens must agree. Its name has
// blanks and parentheses, and its nice value is negative.
TEST(ProcStat, StoppedChildMatchesTheKernelsLineInEveryField) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_NAME, "a) b (c");
        setpriority(PRIO_PROCESS, 0, -5);
        raise(SIGSTOP);
        _exit(0);
    }
    int wstatus = 0;
    ASSERT_EQ(waitpid(child, &wstatus, WUNTRACED), child);
    ASSERT_TRUE(WIFSTOPPED(wstatus));
    tav_proc_stat r = dirty_record();
    const tav_status status = tav_util_proc_stat(&r, child);
    const Lines kernel = kernel_tokens("/proc/" + std::to_string(child) + "/stat");
    kill(child, SIGKILL);
    waitpid(child, &wstatus, 0);
    ASSERT_EQ(status, TAV_OK);
    EXPECT_EQ(record_tokens(r), kernel);
    EXPECT_STREQ(r.comm, "a) b (c");
    EXPECT_EQ(r.state, 'T');
    EXPECT_EQ(r.nice, UINT64_MAX - 4) << "-5 as its two's-complement pattern";

    // Reaped, the pid names nothing any more.
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_proc_stat(&r, child), TAV_ERR_OPEN);
    EXPECT_EQ(tavtest::report_summary(), Lines{kTrace + "32"});
}

// Crafted lines fed through the parser in place of /proc/self/stat. Tokens
// 4 to 42 of the base line carry their own numbers.
TEST(ProcStat, CraftedLines) {
    using Changes = std::vector<std::pair<int, std::string>>;
    // The numbered line's tokens as text, with some replaced.
    auto tokens = [](const Changes &changes, const char *name) {
        Lines t{"7", name, "S"};
        for (int token = 4; token <= 42; ++token) {
            t.push_back(std::to_string(token));
        }
        for (const auto &[token, text] : changes) {
            t[token - 1] = text;
        }
        return t;
    };
    auto fields = [&](const Changes &changes) { return tokens(changes, "name"); };
    auto line = [&](const Changes &changes) {
        std::string text;
        for (const std::string &token : tokens(changes, "(name)")) {
            text += (text.empty() ? "" : " ") + token;
        }
        return text;
    };
    const std::string base = line({});
    const std::string short_line = base.substr(0, base.rfind(' ')) + "\n";
    const std::string len = std::to_string(short_line.size() + 1);
    const std::string long_name(70, 'n');
    Lines shifted = fields({});
    shifted.insert(shifted.begin() + 3, "0");
    shifted.pop_back();
    struct Row {
        std::string line;
        tav_status status;
        Lines reports;
        Lines tokens;
    };
    const Row rows[] = {
        {base + "\n", TAV_OK, {}, fields({})},
        {base, TAV_OK, {}, fields({})},              // the last token ends at the terminator
        {base + " 43 44\n", TAV_OK, {}, fields({})}, // tokens behind the 42nd are ignored
        {short_line,
         TAV_ERR_SYSTEM,
         {"log tav_util_proc_stat Parsing logic failed, j=" + len + ", len=" + len + "\n",
          kTrace + "6"},
         fields({{42, "0"}})},
        {line({{4, " 4"}}), TAV_OK, {}, shifted}, // two blanks: an empty token
        {line({{4, "x"}}), TAV_OK, {}, fields({{4, "0"}})},
        {line({{3, "Rx"}}), TAV_OK, {}, fields({{3, "R"}})},
        {line({{19, "-1"}, {24, "-1"}}), TAV_OK, {}, fields({{19, "-1"}, {24, "-1"}})},
        // The name runs to the last ')': blanks and parentheses in it move nothing.
        {line({{2, "((a) b) c))"}}), TAV_OK, {}, fields({{2, "(a) b) c)"}})},
        {line({{2, "(" + long_name + ")"}}), TAV_OK, {}, fields({{2, long_name.substr(0, 63)}})},
        // Without both parentheses the name is a token like any other.
        {line({{2, "(name"}}), TAV_OK, {}, fields({{2, "(name"}})},
        {line({{2, "name"}}), TAV_OK, {}, fields({})},
    };
    const std::string file = testing::TempDir() + "crafted_stat";
    tavtest::SyscallPlan plan;
    plan.fopen_from = "/proc/self/stat";
    plan.fopen_to = file.c_str();
    tavtest::SyscallInjection redirect(plan);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.line);
        std::ofstream(file, std::ios::trunc) << row.line;
        tavtest::clear_reports();
        tav_proc_stat r = dirty_record();
        EXPECT_EQ(tav_util_proc_stat(&r, 0), row.status);
        EXPECT_EQ(tavtest::report_summary(), row.reports);
        EXPECT_EQ(record_tokens(r), row.tokens);
    }
    std::remove(file.c_str());
}

TEST(ProcStat, FailuresLeaveAZeroedRecord) {
    const Lines zero = record_tokens(tav_proc_stat{});
    tav_proc_stat r = dirty_record();
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_proc_stat(nullptr, 0), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_proc_stat(&r, -1), TAV_ERR_OPEN);
    EXPECT_EQ(record_tokens(r), zero);
    {
        // A directory opens as a stream, and its read fails.
        tavtest::SyscallPlan plan;
        plan.fopen_from = "/proc/self/stat";
        plan.fopen_to = "/";
        tavtest::SyscallInjection redirect(plan);
        r = dirty_record();
        EXPECT_EQ(tav_util_proc_stat(&r, 0), TAV_ERR_READ);
        EXPECT_EQ(record_tokens(r), zero);
    }
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{"log tav_util_proc_stat ret_proc_stat is NULL", kTrace + "3", kTrace + "32",
                     "log tav_util_proc_stat src/system/linux.cpp: getline() failed  Reason: Is a "
                     "directory",
                     kTrace + "9"}));
}

// The stream's allocations end in TAV_ERR_OPEN, or in none at all when its
// buffer falls back; the line's in TAV_ERR_READ. Nothing is left behind.
TEST(ProcStat, EveryAllocationFailure) {
    tav_status status = TAV_OK;
    std::vector<tav_status> seen;
    Lines last_reports;
    tavtest::for_each_allocation_failure(
        [&] {
            tavtest::clear_reports();
            tav_proc_stat r;
            status = tav_util_proc_stat(&r, 0);
        },
        [&](long nth, const tavtest::AllocRun &run) {
            SCOPED_TRACE(nth);
            EXPECT_EQ(run.live_blocks, 0);
            seen.push_back(status);
            last_reports = tavtest::report_summary();
        });
    ASSERT_GE(seen.size(), 2u);
    EXPECT_EQ(seen.front(), TAV_ERR_OPEN);
    EXPECT_EQ(seen.back(), TAV_ERR_READ);
    EXPECT_EQ(last_reports,
              (Lines{"log tav_util_proc_stat src/system/linux.cpp: getline() failed  Reason: "
                     "Cannot allocate memory",
                     kTrace + "9"}));
}

// The id the kernel gives each thread, as /proc/thread-self names it.
TEST(ProcStat, ThreadIdIsTheKernels) {
    auto kernels = [] {
        char target[64] = {};
        readlink("/proc/thread-self", target, sizeof target - 1);
        return std::atoll(std::strchr(target, '/') + 6);
    };
    EXPECT_EQ(tav_util_tid(), getpid());
    int64_t other = 0, expected = 0;
    std::thread([&] {
        other = tav_util_tid();
        expected = kernels();
    }).join();
    EXPECT_EQ(other, expected);
    EXPECT_NE(other, getpid());
}

} // namespace
