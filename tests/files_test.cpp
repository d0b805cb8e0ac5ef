// Files by descriptor and by name, durable sync and path helpers: real files
// in a fresh directory per test, the system calls recorded in order, their
// results scripted where real files cannot show a case.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "syscall_inject.hpp"
#include "tavutil.h"
#include "vsnprintf_inject.hpp"

namespace {

using Lines = std::vector<std::string>;
constexpr int32_t kUnset = 77;

std::string trace(const std::string &function, const char *file, int status) {
    return "trace " + function + " src/" + file + " " + std::to_string(status);
}
std::string reasoned(const std::string &function, const char *file, const std::string &text,
                     int error) {
    return "log " + function + " src/" + file + ": " + text + "  Reason: " + strerror(error);
}

class Files : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/tavfiles.XXXXXX";
        dir = mkdtemp(name);
        tavtest::clear_reports();
        lowest_free_fd = dup(0);
        close(lowest_free_fd);
    }
    // Every descriptor and stream an operation opened for itself is closed.
    void TearDown() override {
        std::filesystem::remove_all(dir);
        const int fd = dup(0);
        close(fd);
        EXPECT_EQ(fd, lowest_free_fd) << "a descriptor was left open";
    }
    std::string put(const std::string &name, const std::string &content) {
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
        return dir + "/" + name;
    }
    static std::string slurp(const std::string &path) {
        std::stringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    // Runs `op` once per allocation it makes, that one failing: no run leaves
    // a block behind. Returns how many of those runs failed.
    static long each_allocation_fails(const std::function<tav_status()> &op) {
        std::vector<tav_status> statuses;
        statuses.reserve(64);
        const long runs = tavtest::for_each_allocation_failure(
            [&] { statuses.push_back(op()); },
            [](long, const tavtest::AllocRun &run) { EXPECT_EQ(run.live_blocks, 0); });
        EXPECT_EQ(statuses.back(), TAV_OK);
        return runs - std::count(statuses.begin(), statuses.end() - 1, TAV_OK);
    }
    std::string dir;
    int lowest_free_fd = -1;
};

// The sisters differ: open passes a formatting failure up untraced and leaves
// -1 behind a failed open; fopen traces both again and writes nothing.
TEST_F(Files, OpenAndFopen) {
    const std::string path = put("f", "x");
    int32_t fd = kUnset, slot = kUnset;
    {
        tavtest::SyscallInjection calls({.open_modes = true});
        ASSERT_EQ(tav_util_open(&fd, &slot, O_RDONLY, 0755, "%s/%c", dir.c_str(), 'f'), TAV_OK);
        EXPECT_EQ(calls.calls(), Lines{"open " + path + " 0 755"}) << "mode goes on every call";
    }
    EXPECT_EQ(slot, 0);
    close(fd);
    EXPECT_EQ(tav_util_open(&fd, &slot, O_RDONLY, 0, "%s/none", dir.c_str()), TAV_ERR_SYSTEM);
    EXPECT_EQ(std::tie(fd, slot), std::tuple(-1, ENOENT));
    FILE *stream = nullptr;
    EXPECT_EQ(tav_util_fopen(&stream, &slot, "r", "%s/none", dir.c_str()), TAV_ERR_SYSTEM);
    EXPECT_EQ(stream, nullptr);
    ASSERT_EQ(tav_util_fopen(&stream, &slot, "r", "%s", path.c_str()), TAV_OK);
    fclose(stream);
    EXPECT_EQ(tav_util_open(nullptr, &slot, 0, 0, "x"), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_fopen(&stream, &slot, nullptr, "x"), TAV_ERR_NULL_ARG);
    const std::string vas = trace("tav_util_vasprintf", "string/vasprintf.cpp", 6);
    {
        tavtest::VsnprintfInjection fill({EILSEQ, -2, "%s!"});
        fd = kUnset;
        stream = reinterpret_cast<FILE *>(&fd);
        EXPECT_EQ(tav_util_open(&fd, &slot, 0, 0, "%s!", "x"), TAV_ERR_SYSTEM);
        EXPECT_EQ(tav_util_fopen(&stream, nullptr, "r", "%s!", "x"), TAV_ERR_SYSTEM);
    }
    EXPECT_EQ(std::tie(fd, slot), std::tuple(kUnset, EILSEQ));
    EXPECT_EQ(stream, reinterpret_cast<FILE *>(&fd));
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{trace("tav_util_open", "file/posix.cpp", 6),
                     trace("tav_util_fopen", "file/common.cpp", 6),
                     trace("tav_util_open", "file/posix.cpp", 3),
                     trace("tav_util_fopen", "file/common.cpp", 3), vas, vas,
                     trace("tav_util_fopen", "file/common.cpp", 6)}));
    // Out of memory: the path block, and for fopen also libc's stream.
    EXPECT_EQ(each_allocation_fails([&] {
                  const tav_status status = tav_util_open(&fd, nullptr, 0, 0, "%s", "/");
                  return status == TAV_OK ? (close(fd), status) : status;
              }),
              1);
    EXPECT_EQ(each_allocation_fails([&] {
                  const tav_status status = tav_util_fopen(&stream, nullptr, "r", "/");
                  return status == TAV_OK ? (fclose(stream), status) : status;
              }),
              2);
}

// Each row: scripted results, the transfer, what it returns, the calls made.
TEST_F(Files, WholeTransfersAndTheirBudget) {
    const int fd = open(put("sixty", std::string(60, 's')).c_str(), O_RDONLY);
    const int out = open(put("out", "").c_str(), O_WRONLY);
    char buf[100] = {};
    struct Row {
        std::vector<long> reads, writes;
        std::function<int32_t(int32_t *)> call;
        int32_t result, slot;
        size_t calls;
    };
    const auto read_n = [&](int64_t n) {
        return [&, n](int32_t *) {
            lseek(fd, 0, SEEK_SET);
            return tav_util_whole_read(fd, buf, n);
        };
    };
    const auto write_n = [&](const void *b, int64_t n) {
        return [=](int32_t *s) { return tav_util_whole_write(out, b, n, s); };
    };
    const std::vector<Row> rows = {
        {{}, {}, write_n(buf, 0), 0, kUnset, 0},
        {{}, {}, write_n(nullptr, 0), TAV_ERR_NULL_ARG, kUnset, 0},
        {{}, {}, write_n(buf, -1), TAV_ERR_OVERFLOW, kUnset, 0},
        {{}, {0, 0, 0, 0, 1, 0, 0, 0, 0}, write_n(buf, 10), 0, kUnset, 10},
        {{}, {3, 0, 0, 0, 0, 0}, write_n(buf, 10), -11, kUnset, 6},
        {{}, {-1}, write_n(buf, 10), TAV_ERR_SYSTEM, EIO, 1},
        {{}, {}, read_n(0), 0, kUnset, 1},
        {{}, {}, read_n(-1), -22, kUnset, 1},
        {{}, {}, [&](int32_t *) { return tav_util_whole_read(fd, nullptr, 1); }, -22, kUnset, 0},
        {{}, {}, read_n(100), -11, kUnset, 7}, // end of file: 60, then five zero-byte reads
        {{0, 0, 0, 0, 1, 0, 0, 0, 0}, {}, read_n(60), 60, kUnset, 11},
        {{-1}, {}, read_n(60), -1, kUnset, 2},
    };
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        int32_t slot = kUnset, result = 0;
        size_t calls = 0;
        {
            tavtest::SyscallInjection inject({.reads = rows[i].reads, .writes = rows[i].writes});
            result = rows[i].call(&slot);
            calls = inject.calls().size();
            EXPECT_EQ(errno, result == -1 ? EIO : errno) << "the -1 of read leaves its errno";
        }
        EXPECT_EQ(std::tie(result, slot, calls),
                  std::tie(rows[i].result, rows[i].slot, rows[i].calls));
    }
    EXPECT_EQ(std::string(buf, 60), std::string(60, 's'));
    EXPECT_EQ(lseek(out, 0, SEEK_CUR), 13) << "what was written stays written";
    close(fd);
    close(out);
    const int full = open("/dev/full", O_WRONLY);
    int32_t slot = kUnset;
    EXPECT_EQ(tav_util_whole_write(full, buf, 1, &slot), TAV_ERR_SYSTEM);
    EXPECT_EQ(slot, ENOSPC);
    close(full);
}

TEST_F(Files, ReadFile) {
    struct Row {
        std::string content;
        off_t at;
        long fail_alloc;
        tav_status status;
        int32_t slot;
        Lines reports;
    };
    const std::string fn = "tav_util_read_file", P = "file/posix.cpp";
    const Row rows[] = {
        {"", 0, 0, TAV_OK, kUnset, {}},
        {std::string("a\0b\n", 4), 0, 0, TAV_OK, kUnset, {}},
        {"abcd", 1, 0, TAV_ERR_SYSTEM, kUnset, {trace(fn, P.c_str(), 6)}}, // not at offset 0
        {"abcd", 0, 1, TAV_ERR_NOMEM, ENOMEM, {trace(fn, P.c_str(), 2)}},
    };
    for (const Row &row : rows) {
        tavtest::clear_reports();
        const std::string &content = row.content;
        const int fd = open(put("f", content).c_str(), O_RDONLY);
        lseek(fd, row.at, SEEK_SET);
        uint8_t *data = nullptr;
        uint64_t size = 0;
        int32_t slot = kUnset;
        tav_status status = TAV_OK;
        tavtest::AllocRun run;
        {
            tavtest::SyscallInjection calls;
            run = tavtest::run_allocations(
                row.fail_alloc, [&] { status = tav_util_read_file(fd, &data, &size, &slot); });
            if (content.empty()) {
                EXPECT_EQ(calls.calls(), Lines{"fstat"}) << "no read for an empty file";
            }
        }
        close(fd);
        EXPECT_EQ(std::tie(status, slot), std::tie(row.status, row.slot));
        EXPECT_EQ(size, content.size()) << "the size stays on every path";
        EXPECT_EQ(run.sizes, std::vector<size_t>{content.size() + 1}) << "exactly one block";
        EXPECT_EQ(tavtest::report_summary(), row.reports);
        if (status == TAV_OK) {
            EXPECT_EQ(std::string(reinterpret_cast<char *>(data), size + 1), content + '\0');
        } else {
            EXPECT_EQ(data, nullptr);
        }
        std::free(data);
    }
    int32_t slot = kUnset;
    uint8_t *data = nullptr;
    uint64_t size = 0;
    EXPECT_EQ(tav_util_read_file(-1, &data, &size, &slot), TAV_ERR_SYSTEM);
    EXPECT_EQ(slot, EBADF);
    EXPECT_EQ(tav_util_read_file(0, nullptr, &size, &slot), TAV_ERR_NULL_ARG);
}

// Newline bytes of the whole file, wherever the position stood; the position
// is back where it was after success and after a failed read or shrink.
TEST_F(Files, CountLines) {
    std::string big;
    for (int i = 0; big.size() < 2500; ++i) {
        big += std::string(static_cast<size_t>(i % 9), 'x') + (i % 4 ? "\n" : "\r");
    }
    struct Row {
        std::string content;
        tavtest::SyscallPlan plan;
        tav_status status;
        int32_t slot;
        uint64_t count;
    };
    const uint64_t all = static_cast<uint64_t>(std::count(big.begin(), big.end(), '\n'));
    const uint64_t first = static_cast<uint64_t>(std::count(big.begin(), big.begin() + 1024, '\n'));
    const Row rows[] = {
        {"", {}, TAV_OK, kUnset, 0},
        {"\na\r\nb", {}, TAV_OK, kUnset, 2},
        {big, {}, TAV_OK, kUnset, all},
        {big, {.reads = {-2, -1}}, TAV_ERR_SYSTEM, EIO, first},
        {big,
         {.reads = {-2, 0}},
         TAV_OK,
         kUnset,
         first}, // the file shrank: the count so far stands
        {big, {.fail = "lseek", .fail_nth = 1}, TAV_ERR_SYSTEM, EIO, kUnset},
        {big, {.fail = "fstat", .fail_nth = 1}, TAV_ERR_SYSTEM, EIO, kUnset},
        {big, {.fail = "lseek", .fail_nth = 2}, TAV_ERR_SYSTEM, EIO, kUnset},
        {big, {.fail = "lseek", .fail_nth = 3}, TAV_ERR_SYSTEM, EIO, all},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.content.size());
        tavtest::clear_reports();
        const int fd = open(put("f", row.content).c_str(), O_RDONLY);
        lseek(fd, 7, SEEK_SET);
        uint64_t count = kUnset;
        int32_t slot = kUnset;
        tav_status status = TAV_OK;
        tavtest::AllocRun run;
        {
            tavtest::SyscallInjection calls(row.plan);
            run = tavtest::run_allocations(
                0, [&] { status = tav_util_count_lines(fd, &count, &slot); });
            const auto &made = calls.calls();
            if (row.status == TAV_OK && row.content == big && row.plan.reads.empty()) {
                EXPECT_EQ(made, (Lines{"lseek 0 1", "fstat", "lseek 0 0", "read 1024", "read 1024",
                                       "read " + std::to_string(big.size() - 2048), "lseek 7 0"}));
            }
            if (row.plan.reads.size() == 2 || (row.plan.fail && row.plan.fail_nth == 3)) {
                EXPECT_EQ(made.back(), "lseek 7 0");
            }
        }
        const bool restored = !row.plan.fail || row.plan.fail_nth != 3;
        EXPECT_EQ(lseek(fd, 0, SEEK_CUR), restored ? 7 : static_cast<off_t>(big.size()));
        close(fd);
        EXPECT_EQ(std::tie(status, slot, count), std::tie(row.status, row.slot, row.count));
        EXPECT_EQ(run.allocations, 0);
        EXPECT_EQ(tavtest::report_summary().size(), row.status == TAV_OK ? 0u : 1u);
    }
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    uint64_t count = kUnset;
    int32_t slot = kUnset;
    EXPECT_EQ(tav_util_count_lines(pipe_ends[0], &count, &slot), TAV_ERR_SYSTEM);
    EXPECT_EQ(std::tie(count, slot), std::tuple(uint64_t{kUnset}, ESPIPE));
    close(pipe_ends[0]);
    close(pipe_ends[1]);
    EXPECT_EQ(tav_util_count_lines(-1, &count, &slot), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_count_lines(-1, nullptr, &slot), TAV_ERR_NULL_ARG);
}

TEST_F(Files, OperationsOnAPath) {
    const std::string f = put("f", "abcd"), sub = dir + "/d", none = dir + "/none";
    mkdir(sub.c_str(), 0700);
    ASSERT_EQ(symlink(none.c_str(), (dir + "/dangling").c_str()), 0);
    struct stat st;
    stat(sub.c_str(), &st);
    uint64_t size = kUnset;
    EXPECT_EQ(tav_util_get_file_size(f.c_str(), &size), TAV_OK);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(tav_util_get_file_size(sub.c_str(), &size), TAV_OK);
    EXPECT_EQ(size, static_cast<uint64_t>(st.st_size)) << "a directory's own size";
    size = kUnset;
    EXPECT_EQ(tav_util_get_file_size(none.c_str(), &size), TAV_ERR_SYSTEM);
    {
        tavtest::SyscallInjection calls({.fail = "fstat"});
        EXPECT_EQ(tav_util_get_file_size(f.c_str(), &size), TAV_ERR_SYSTEM);
        EXPECT_EQ(calls.calls(), (Lines{"open " + f + " 0", "fstat", "close " + f}));
    }
    EXPECT_EQ(size, uint64_t{kUnset});
    int32_t slot = kUnset, exists = kUnset;
    EXPECT_EQ(tav_util_truncate_file(f.c_str(), 2, &slot), TAV_OK);
    EXPECT_EQ(slurp(f), "ab");
    EXPECT_EQ(tav_util_truncate_file(f.c_str(), -1, &slot), TAV_ERR_SYSTEM);
    EXPECT_EQ(slot, EINVAL);
    for (const auto &[path, expected] : {std::pair{f, 1}, {sub, 1}, {dir + "/dangling", 0}}) {
        EXPECT_EQ(tav_util_query_file_exists(path.c_str(), &exists), TAV_OK);
        EXPECT_EQ(exists, expected) << path;
    }
    exists = kUnset;
    EXPECT_EQ(tav_util_query_file_exists((f + "/x").c_str(), &exists), TAV_ERR_SYSTEM);
    EXPECT_EQ(exists, kUnset) << "a path through a file is no answer of 0";
    EXPECT_EQ(tav_util_delete_file(sub.c_str(), &slot), TAV_ERR_SYSTEM);
    EXPECT_EQ(slot, EISDIR);
    EXPECT_EQ(tav_util_delete_file(f.c_str(), &slot), TAV_OK);
    EXPECT_EQ(access(f.c_str(), F_OK), -1);
    EXPECT_EQ(tav_util_get_file_size(f.c_str(), nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_truncate_file(nullptr, 0, &slot), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_delete_file(nullptr, &slot), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_query_file_exists(f.c_str(), nullptr), TAV_ERR_NULL_ARG);
    const char *P = "file/posix.cpp";
    EXPECT_EQ(
        tavtest::report_summary(),
        (Lines{trace("tav_util_get_file_size", P, 6), trace("tav_util_get_file_size", P, 6),
               trace("tav_util_truncate_file", P, 6), trace("tav_util_query_file_exists", P, 6),
               trace("tav_util_delete_file", P, 6), trace("tav_util_get_file_size", P, 3),
               trace("tav_util_truncate_file", P, 3), trace("tav_util_delete_file", P, 3),
               trace("tav_util_query_file_exists", P, 3)}));
}

// CI runs as root: a child that drops to nobody meets a denied search.
TEST_F(Files, PermissionDenied) {
    const std::string f = put("f", "x");
    const pid_t child = fork();
    if (child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) {
            tavtest::child_exit(100);
        }
        int32_t fd = kUnset, slot = 0, exists = kUnset;
        uint64_t size = 0;
        tavtest::clear_reports();
        const bool sync_failed = tav_util_sync_file(f.c_str()) == TAV_ERR_SYSTEM;
        tavtest::child_exit(
            (tav_util_open(&fd, &slot, O_RDONLY, 0, "%s", f.c_str()) != TAV_ERR_SYSTEM) |
            (slot != EACCES) << 1 |
            (tav_util_query_file_exists(f.c_str(), &exists) != TAV_ERR_SYSTEM) << 2 |
            (exists != kUnset) << 3 |
            (tav_util_get_file_size(f.c_str(), &size) != TAV_ERR_SYSTEM) << 4 | !sync_failed << 5 |
            (tavtest::report_summary()[0] != reasoned("tav_util_sync_file", "file/posix_fsync.cpp",
                                                      "Failed to open file " + f, EACCES))
                << 6);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "failed checks, as bits: " << WEXITSTATUS(status);
}

TEST_F(Files, PathHelpers) {
    const std::pair<const char *, const char *> components[] = {
        {"dir/file", "dir"}, {"a/b/c", "a/b"}, {"file", "file"},
        {"/x", ""},          {"/", ""},        {"//x", "/"},
        {"a/", "a"},         {"", ""},         {"./a//b/../c", "./a//b/.."}};
    for (const auto &[path, expected] : components) {
        char *out = nullptr;
        EXPECT_EQ(tav_util_get_directory_component(path, &out), TAV_OK);
        EXPECT_STREQ(out, expected);
        std::free(out);
    }
    const char *D = "string/directory_linux.cpp";
    const std::string fn = "tav_util_get_directory_component";
    for (const auto &[path, line] : {std::pair{"file", "Memory allocation for path file"},
                                     {"a/b", "Memory allocation error"}}) {
        tavtest::clear_reports();
        char placeholder = 0, *out = &placeholder;
        const char *text = path;
        tav_status status = TAV_OK;
        const auto run = tavtest::run_allocations(
            1, [&] { status = tav_util_get_directory_component(text, &out); });
        EXPECT_EQ(std::tie(status, run.injected), std::tuple(TAV_ERR_NOMEM, true));
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(tavtest::report_summary(),
                  (Lines{reasoned(fn, D, line, ENOMEM), trace(fn, D, 2)}));
    }
    mkdir((dir + "/d").c_str(), 0700);
    symlink((dir + "/d").c_str(), (dir + "/link").c_str());
    const std::string f = put("f", ""), none = dir + "/link/none";
    char *out = nullptr;
    EXPECT_EQ(tav_util_abs_path((dir + "/link/.././f").c_str(), &out), TAV_OK);
    EXPECT_EQ(out, std::filesystem::canonical(f).string());
    std::free(out);
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_abs_path(none.c_str(), &out), TAV_ERR_SYSTEM);
    EXPECT_EQ(out, nullptr);
    // Null pointers are refused, traced, and nothing is written.
    EXPECT_EQ(tav_util_abs_path(nullptr, &out), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_abs_path("/", nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_get_directory_component(nullptr, &out), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_get_directory_component("a", nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(
        tavtest::report_summary(),
        (Lines{reasoned("tav_util_abs_path", D,
                        "Cannot determine absolute file path from relative path " + none, ENOENT),
               trace("tav_util_abs_path", D, 6), trace("tav_util_abs_path", D, 3),
               trace("tav_util_abs_path", D, 3), trace(fn, D, 3), trace(fn, D, 3)}));
}

// The stream's buffer, then the file, then the directory; every failure of
// tav_util_sync is one trace entry and no line, and the stream stays open.
TEST_F(Files, SyncOfAStream) {
    const std::string f = put("f", "x");
    FILE *stream = fopen(f.c_str(), "a");
    fputs("y", stream);
    {
        tavtest::SyscallInjection calls;
        EXPECT_EQ(tav_util_sync(stream, dir.c_str()), TAV_OK);
        EXPECT_EQ(tav_util_sync(stream, nullptr), TAV_OK);
        EXPECT_EQ(tav_util_sync(stream, "/dev/null"), TAV_ERR_SYSTEM);
        EXPECT_EQ(calls.calls(),
                  (Lines{"fflush", "fsync " + f, "open " + dir + " 0", "fsync " + dir,
                         "close " + dir, "fflush", "fsync " + f, "fflush", "fsync " + f,
                         "open /dev/null 0", "fsync /dev/null", "close /dev/null"}));
    }
    EXPECT_EQ(slurp(f), "xy");
    EXPECT_EQ(tav_util_sync(stream, ""), TAV_ERR_SYSTEM);
    fclose(stream);
    char memory[8];
    FILE *no_descriptor = fmemopen(memory, sizeof memory, "w");
    FILE *full = fopen("/dev/full", "w");
    fputs("z", full);
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    FILE *pipe_stream = fdopen(pipe_ends[1], "w");
    for (FILE *failing : {no_descriptor, full, pipe_stream}) {
        EXPECT_EQ(tav_util_sync(failing, nullptr), TAV_ERR_SYSTEM);
        fclose(failing);
    }
    close(pipe_ends[0]);
    EXPECT_EQ(tav_util_sync(nullptr, nullptr), TAV_ERR_NULL_ARG);
    const std::string s = trace("tav_util_sync", "file/posix_fsync.cpp", 6);
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{s, s, s, s, s, trace("tav_util_sync", "file/posix_fsync.cpp", 3)}));
}

TEST_F(Files, SyncOfAPath) {
    const std::string f = put("f", "x"), fn = "tav_util_sync_file", S = "file/posix_fsync.cpp";
    const int held = open(f.c_str(), O_RDONLY);
    const std::string via_proc = "/proc/self/fd/" + std::to_string(held);
    struct Row {
        std::string path;
        tavtest::SyscallPlan plan;
        std::string line;
        int error;
    };
    const Row rows[] = {
        {f, {}, "", 0},
        {"/" + std::string(998, 'a'),
         {},
         "Failed to open file /" + std::string(998, 'a'),
         ENAMETOOLONG}, // 999 characters pass the limit
        {dir, {}, "Failed to open file " + dir, EISDIR},
        {f, {.fail = "open", .fail_nth = 2}, "Failed to open directory " + dir, EIO},
        {"/dev/null", {}, "Failed to sync file /dev/null", EINVAL},
        {via_proc, {}, "Failed to sync directory file /proc/self/fd", EINVAL},
    };
    for (const Row &row : rows) {
        tavtest::clear_reports();
        tavtest::SyscallInjection calls(row.plan);
        EXPECT_EQ(tav_util_sync_file(row.path.c_str()), row.error ? TAV_ERR_SYSTEM : TAV_OK);
        const Lines &made = calls.calls();
        const Lines failed = {reasoned(fn, S.c_str(), row.line, row.error),
                              trace(fn, S.c_str(), 6)};
        EXPECT_EQ(tavtest::report_summary(), row.error ? failed : Lines());
        if (!row.error) { // both open before the first flush, the file flushed first
            EXPECT_EQ(made, (Lines{"open " + f + " 2", "open " + dir + " 0", "fsync " + f,
                                   "fsync " + dir, "close " + dir, "close " + f}));
        }
    }
    close(held);
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_sync_file(nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_sync_file(("/" + std::string(999, 'a')).c_str()), TAV_ERR_BAD_ARG);
    for (const long nth : {0, 1}) { // the directory text is freed on success too
        const auto run = tavtest::run_allocations(nth, [&] { tav_util_sync_file(f.c_str()); });
        EXPECT_EQ(std::tie(run.injected, run.live_blocks), std::tuple(nth == 1, 0));
    }
    const char *D = "string/directory_linux.cpp";
    EXPECT_EQ(
        tavtest::report_summary(),
        (Lines{trace(fn, S.c_str(), 3), trace(fn, S.c_str(), 7),
               reasoned("tav_util_get_directory_component", D, "Memory allocation error", ENOMEM),
               trace("tav_util_get_directory_component", D, 2), trace(fn, S.c_str(), 2),
               "log " + fn + " Failed to get directory component"}));
}

TEST_F(Files, ReadNamedFile) {
    const std::string f = put("pid", "4242"), C = "file/common.cpp", P = "file/posix.cpp";
    const std::string fn = "tav_util_read_named_file";
    uint8_t *data = nullptr;
    uint64_t size = kUnset;
    const auto run = tavtest::run_allocations(
        0, [&] { EXPECT_EQ(tav_util_read_named_file(f.c_str(), &data, &size, nullptr), TAV_OK); });
    EXPECT_EQ(std::string(reinterpret_cast<char *>(data), 5), std::string("4242", 5));
    EXPECT_EQ(run.live_blocks, 1);
    EXPECT_EQ(std::count(run.sizes.begin(), run.sizes.end(), 5u), 1) << "one block of its own";
    std::free(data);
    struct stat st;
    stat(dir.c_str(), &st);
    struct Row {
        std::string path;
        std::function<void()> before_fopen;
        tav_status status;
        uint64_t size;
        Lines reports;
    };
    const auto cut = [&] { truncate(f.c_str(), 2); };
    const Row rows[] = {
        {"/proc/self/stat", nullptr, TAV_OK, 0, {}}, // size 0 though it has content
        {dir,
         nullptr,
         TAV_ERR_SYSTEM,
         static_cast<uint64_t>(st.st_size),
         {trace(fn, C.c_str(), 6)}},
        {dir + "/none",
         nullptr,
         TAV_ERR_SYSTEM,
         kUnset,
         {trace("tav_util_get_file_size", P.c_str(), 6), trace(fn, C.c_str(), 6)}},
        {f, [&] { unlink(f.c_str()); }, TAV_ERR_SYSTEM, 4, {trace(fn, C.c_str(), 6)}},
        // Shorter than its size by now: the block would hold no file bytes.
        {f, cut, TAV_ERR_SYSTEM, 4, {trace(fn, C.c_str(), 6)}},
    };
    for (const Row &row : rows) {
        tavtest::clear_reports();
        put("pid", "4242");
        data = reinterpret_cast<uint8_t *>(&size);
        size = kUnset;
        {
            tavtest::SyscallInjection calls({.before_fopen = row.before_fopen});
            EXPECT_EQ(tav_util_read_named_file(row.path.c_str(), &data, &size, nullptr),
                      row.status);
        }
        EXPECT_EQ(size, row.size) << row.path;
        EXPECT_EQ(tavtest::report_summary(), row.reports);
        if (row.status == TAV_OK) {
            EXPECT_EQ(data[0], 0);
            std::free(data);
        } else if (!row.before_fopen) {
            EXPECT_EQ(data, row.size == kUnset ? reinterpret_cast<uint8_t *>(&size) : nullptr);
        }
    }
    EXPECT_EQ(tav_util_read_named_file(f.c_str(), nullptr, &size, nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(each_allocation_fails([&] {
                  const tav_status status =
                      tav_util_read_named_file(f.c_str(), &data, &size, nullptr);
                  return status == TAV_OK ? (std::free(data), status) : status;
              }),
              2);
}

TEST_F(Files, WriteNamedFileCopyAndHex) {
    const std::string f = dir + "/w", C = "file/common.cpp", fn = "tav_util_write_named_file";
    {
        tavtest::SyscallInjection calls;
        EXPECT_EQ(tav_util_write_named_file(f.c_str(), 1, "data", 4, nullptr), TAV_OK);
        EXPECT_EQ(tav_util_write_named_file(f.c_str(), 0, "+", 1, nullptr), TAV_OK);
        const Lines durable = {"fflush",       "fsync " + f,   "open " + dir + " 0",
                               "fsync " + dir, "close " + dir, "fclose"};
        Lines expected = {"fopen " + f + " wb"};
        expected.insert(expected.end(), durable.begin(), durable.end());
        expected.push_back("fopen " + f + " ab");
        expected.insert(expected.end(), durable.begin(), durable.end());
        EXPECT_EQ(calls.calls(), expected);
    }
    EXPECT_EQ(slurp(f), "data+");
    EXPECT_EQ(tav_util_copy_file(f.c_str(), (dir + "/copy").c_str()), TAV_OK);
    EXPECT_EQ(tav_util_copy_file(f.c_str(), f.c_str()), TAV_OK);
    EXPECT_EQ(slurp(dir + "/copy") + slurp(f), "data+data+");
    const std::string big(1 << 20, 'b');
    struct Row {
        std::string path;
        const std::string *data;
        tavtest::SyscallPlan plan;
        Lines reports;
    };
    const std::string sync = trace("tav_util_sync", "file/posix_fsync.cpp", 6);
    const Row rows[] = {
        {f, nullptr, {}, {trace(fn, C.c_str(), 3)}},
        {dir, &f, {}, {trace(fn, C.c_str(), 6)}},
        {"/dev/full", &f, {}, {sync, trace(fn, C.c_str(), 6)}}, // the flush fails
        {"/dev/full", &big, {}, {trace(fn, C.c_str(), 6)}},     // the write itself fails
        {f, &f, {.fail = "fsync", .fail_nth = 2}, {sync, trace(fn, C.c_str(), 6)}},
        {dir + "/none/x", &f, {}, {trace(fn, C.c_str(), 6)}},
    };
    for (const Row &row : rows) {
        tavtest::clear_reports();
        tavtest::SyscallInjection calls(row.plan);
        EXPECT_NE(tav_util_write_named_file(row.path.c_str(), 1,
                                            row.data ? row.data->data() : nullptr,
                                            row.data ? row.data->size() : 0, nullptr),
                  TAV_OK);
        EXPECT_EQ(tavtest::report_summary(), row.reports) << row.path;
    }
    EXPECT_EQ(tav_util_write_named_file(f.c_str(), 1, "", 0, nullptr), TAV_OK);
    EXPECT_EQ(slurp(f), "") << "wb empties the file";
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_copy_file((dir + "/none").c_str(), f.c_str()), TAV_ERR_SYSTEM);
    EXPECT_EQ(tav_util_copy_file(nullptr, f.c_str()), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tavtest::report_summary(),
              (Lines{trace("tav_util_get_file_size", "file/posix.cpp", 6),
                     trace("tav_util_read_named_file", C.c_str(), 6),
                     trace("tav_util_copy_file", C.c_str(), 3)}));
    const std::string copy = dir + "/copy";
    // Read: stream, block; write: directory text, stream. A stdio buffer that
    // cannot be had leaves the stream unbuffered, and the copy succeeds.
    EXPECT_EQ(each_allocation_fails([&] { return tav_util_copy_file(copy.c_str(), f.c_str()); }),
              4);

    uint8_t bytes[256];
    for (int i = 0; i < 256; ++i) {
        bytes[i] = static_cast<uint8_t>(i);
    }
    char *hex = nullptr;
    tav_util_sprintf_bytes(bytes, 256, &hex);
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const pid_t child = fork();
    if (child == 0) { // stdout is the process's own, so it is changed in a child
        dup2(pipe_ends[1], 1);
        tav_util_printf_bytes(bytes, 256);
        tav_util_fprintf_bytes(stdout, bytes, 0);
        fflush(stdout);
        tavtest::child_exit(0);
    }
    close(pipe_ends[1]);
    char printed[600] = {};
    EXPECT_EQ(tav_util_whole_read(pipe_ends[0], printed, 512), 512);
    EXPECT_EQ(read(pipe_ends[0], printed + 512, 1), 0) << "no separator, no line end";
    close(pipe_ends[0]);
    waitpid(child, nullptr, 0);
    EXPECT_STREQ(printed, hex);
    std::free(hex);
    tavtest::clear_reports();
    EXPECT_EQ(tav_util_fprintf_bytes(nullptr, bytes, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_printf_bytes(nullptr, 1), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tavtest::report_summary(), (Lines{trace("tav_util_fprintf_bytes", C.c_str(), 3),
                                                trace("tav_util_printf_bytes", C.c_str(), 3)}));
}

} // namespace
