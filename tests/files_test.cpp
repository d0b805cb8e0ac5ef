// Files by descriptor and by name, durable sync and path helpers, on real files
// in a fresh directory. A row reads "status out-arguments-written [calls]
// reports", with the directory as "@" and repeated calls as "xN".
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "alloc_inject.hpp"
#include "host_inject.hpp"
#include "recorder.hpp"
#include "syscall_inject.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;
using Plan = tavtest::SyscallPlan;
#define OP(...) [&]() -> long { return __VA_ARGS__; }
constexpr int32_t kUnset = 77;
char mark;

std::string replaced(std::string s, const std::string &from, const std::string &to) {
    for (size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size())) {
        s.replace(at, from.size(), to);
    }
    return s;
}
std::string slurp(const std::string &path) {
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

struct Row {
    std::function<long()> op;
    Plan plan;
    long fail_at;
    std::string want;
};

class Files : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/tavfiles.XXXXXX";
        dir = std::filesystem::canonical(mkdtemp(name));
        free_fd = dup(0);
        close(free_fd);
    }
    void TearDown() override {
        for (const int held : fds) {
            close(held);
        }
        std::filesystem::remove_all(dir);
        const int lowest = dup(0);
        close(lowest);
        EXPECT_EQ(lowest, free_fd) << "a descriptor was left open";
    }
    std::string put(const std::string &name, const std::string &content) {
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
        return dir + "/" + name;
    }
    int opened(const std::string &content, off_t at = 0, int flags = O_RDONLY) {
        fds.push_back(open(put(std::to_string(fds.size()), content).c_str(), flags));
        lseek(fds.back(), at, SEEK_SET);
        return fds.back();
    }
    std::string run(const std::function<long()> &op, Plan plan = {}, long fail_at = 0) {
        fd = slot = exists = kUnset;
        size = count = kUnset;
        data = reinterpret_cast<uint8_t *>(&mark), text = &mark;
        stream = reinterpret_cast<FILE *>(&mark);
        tavtest::clear_reports();
        long status = 0;
        int error = 0;
        Lines calls;
        {
            tavtest::SyscallInjection inject(std::move(plan));
            last = tavtest::run_allocations(fail_at, [&] { status = op(), error = errno; });
            calls = inject.calls();
        }
        std::string out =
            std::to_string(status) + (status == -1 ? " errno=" + std::to_string(error) : "");
        const auto show = [&](const char *name, bool written, const std::string &value) {
            out += written ? std::string(" ") + name + "=" + value : "";
        };
        show("fd", fd != kUnset, fd < 0 ? std::to_string(fd) : "open");
        show("slot", slot != kUnset, std::to_string(slot));
        show("size", size != kUnset, std::to_string(size));
        show("count", count != kUnset, std::to_string(count));
        show("exists", exists != kUnset, std::to_string(exists));
        const bool owned[] = {data != reinterpret_cast<uint8_t *>(&mark) && data,
                              text != &mark && text,
                              stream != reinterpret_cast<FILE *>(&mark) && stream};
        std::string bytes =
            owned[0] ? std::string(reinterpret_cast<char *>(data), size + 1) : "null";
        show("data", data != reinterpret_cast<uint8_t *>(&mark),
             replaced(replaced(bytes, "\n", "\\n"), std::string(1, '\0'), "\\0"));
        show("text", text != &mark, owned[1] ? replaced(text, dir, "@") : "null");
        show("stream", stream != reinterpret_cast<FILE *>(&mark), owned[2] ? "open" : "null");
        EXPECT_EQ(last.live_blocks, owned[0] + owned[1] + owned[2]);
        EXPECT_EQ(owned[0] ? std::count(last.sizes.begin(), last.sizes.end(), size + 1) : 1, 1);
        if (fd >= 0 && fd != kUnset) {
            close(fd);
        }
        if (owned[0] || owned[1]) {
            std::free(owned[0] ? static_cast<void *>(data) : text);
        }
        if (owned[2]) {
            fclose(stream);
        }
        out += " [";
        for (size_t i = 0, n = 1; i < calls.size(); i += n) {
            for (n = 1; i + n < calls.size() && calls[i + n] == calls[i]; ++n) {
            }
            out += (i ? "; " : "") + calls[i] + (n > 1 ? " x" + std::to_string(n) : "");
        }
        out += "]";
        for (std::string line : tavtest::report_summary()) {
            for (const auto &[from, to] :
                 {std::pair<std::string, std::string>{"trace tav_util_", "T "},
                  {"log tav_util_", "L "},
                  {" src/file/posix.cpp", " P"},
                  {" src/file/common.cpp", " C"},
                  {" src/file/posix_fsync.cpp", " S"},
                  {" src/string/directory_linux.cpp", " D"},
                  {" src/string/vasprintf.cpp", " V"},
                  {"  Reason: ", " ~ "},
                  {dir, "@"}}) {
                line = replaced(line, from, to);
            }
            out += " " + line + ";";
        }
        return replaced(replaced(out, dir, "@"), "/proc/" + std::to_string(getpid()) + "/",
                        "/proc/self/");
    }
    void check(const std::vector<Row> &rows) {
        for (size_t i = 0; i < rows.size(); ++i) {
            EXPECT_EQ(run(rows[i].op, rows[i].plan, rows[i].fail_at), rows[i].want) << "row " << i;
        }
    }
    std::string dir;
    int free_fd = -1;
    std::vector<int> fds;
    int32_t fd, slot, exists;
    uint64_t size, count;
    uint8_t *data;
    char *text;
    FILE *stream;
    tavtest::AllocRun last;
};

TEST_F(Files, OpenAndFopen) {
    put("f", "x");
    const char *d = dir.c_str();
    // clang-format off
    check({
        {OP(tav_util_open(&fd, &slot, O_RDONLY, 0755, "%s/%c", d, 'f')), {.open_modes = true}, 0, "0 fd=open slot=0 [open @/f 0 755]"},
        {OP(tav_util_open(&fd, &slot, O_WRONLY | O_CREAT | O_EXCL, 0640, "%s/n", d)), {.open_modes = true}, 0, "0 fd=open slot=0 [open @/n 301 640]"},
        {OP(tav_util_open(&fd, &slot, O_RDONLY, 0, "%s/none", d)), {.open_modes = true}, 0, "6 fd=-1 slot=2 [open @/none 0 0] T open P 6;"},
        {OP(tav_util_open(nullptr, &slot, 0, 0, "x")), {}, 0, "3 [] T open P 3;"},
        {OP(tav_util_open(&fd, &slot, 0, 0, nullptr)), {}, 0, "3 [] T open P 3;"},
        {OP(tav_util_open(&fd, &slot, 0, 0, "/")), {}, 1, "2 [] T vasprintf V 2;"},
        {OP(tav_util_fopen(&stream, &slot, "r", "%s/f", d)), {}, 0, "0 slot=0 stream=open [fopen @/f r]"},
        {OP(tav_util_fopen(&stream, &slot, "r", "%s/none", d)), {}, 0, "6 slot=2 [fopen @/none r] T fopen C 6;"},
        {OP(tav_util_fopen(nullptr, &slot, "r", "x")), {}, 0, "3 [] T fopen C 3;"},
        {OP(tav_util_fopen(&stream, &slot, nullptr, "x")), {}, 0, "3 [] T fopen C 3;"},
        {OP(tav_util_fopen(&stream, &slot, "r", nullptr)), {}, 0, "3 [] T fopen C 3;"},
        {OP(tav_util_fopen(&stream, &slot, "r", "/")), {}, 1, "2 [] T vasprintf V 2; T fopen C 2;"},
        {OP(tav_util_fopen(&stream, &slot, "r", "/")), {}, 2, "6 slot=12 [fopen / r] T fopen C 6;"},
    });
    // clang-format on
}

TEST_F(Files, WholeTransfers) {
    char buf[100];
    const int in = opened(std::string(70, 's')), out = opened("", 0, O_WRONLY);
    const int full = open("/dev/full", O_WRONLY);
    fds.push_back(full);
    // clang-format off
    check({
        {OP(tav_util_whole_read(in, buf, 0)), {}, 0, "0 []"},
        {OP(tav_util_whole_read(in, buf, -1)), {}, 0, "-22 []"},
        {OP(tav_util_whole_read(in, nullptr, 1)), {}, 0, "-22 []"},
        {OP(tav_util_whole_read(in, buf, 10)), {.reads = {0, 0, 0, 0, 1, 0, 0, 0, 0}}, 0, "10 [read 10 x5; read 9 x5]"},
        {OP(tav_util_whole_read(in, buf, 100)), {}, 0, "-11 [read 100; read 40 x5]"},
        {OP(tav_util_whole_read(in, buf, 10)), {.reads = {-1}}, 0, "-1 errno=5 [read 10]"},
        {OP(tav_util_whole_write(out, buf, 0, &slot)), {}, 0, "0 []"},
        {OP(tav_util_whole_write(out, nullptr, 0, &slot)), {}, 0, "3 [] T whole_write P 3;"},
        {OP(tav_util_whole_write(out, buf, -1, &slot)), {}, 0, "33 [] T whole_write P 33;"},
        {OP(tav_util_whole_write(out, buf, 10, &slot)), {.writes = {0, 0, 0, 0, 1, 0, 0, 0, 0}}, 0, "0 [write 10 x5; write 9 x5]"},
        {OP(tav_util_whole_write(out, buf, 10, &slot)), {.writes = {3, 0, 0, 0, 0, 0}}, 0, "-11 [write 10; write 7 x5]"},
        {OP(tav_util_whole_write(out, buf, 10, &slot)), {.writes = {-1}}, 0, "6 slot=5 [write 10] T whole_write P 6;"},
        {OP(tav_util_whole_write(full, buf, 1, &slot)), {}, 0, "6 slot=28 [write 1] T whole_write P 6;"},
    });
    // clang-format on
    EXPECT_EQ(std::string(buf, 60), std::string(60, 's'));
    EXPECT_EQ(lseek(out, 0, SEEK_CUR), 13) << "what was written stays written";
}

TEST_F(Files, ReadFileAndCountLines) {
    const int empty = opened(""), nul = opened(std::string("a\0b\n", 4)), moved = opened("abcd", 1);
    const int ab = opened("abcd");
    std::string big;
    for (int i = 0; big.size() < 2500; ++i) {
        big += std::string(static_cast<size_t>(i % 9), 'x') + (i % 4 ? "\n" : "\r");
    }
    big.resize(2500);
    const auto lines = [&](const std::string &s) {
        return std::to_string(std::count(s.begin(), s.end(), '\n'));
    };
    const std::string all = lines(big), first = lines(big.substr(0, 2048)),
                      start = "lseek 0 1; fstat; lseek 0 0";
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    fds.insert(fds.end(), pipe_ends, pipe_ends + 2);
    // clang-format off
    check({
        {OP(tav_util_read_file(empty, &data, &size, &slot)), {}, 0, "0 size=0 data=\\0 [fstat]"},
        {OP(tav_util_read_file(nul, &data, &size, &slot)), {}, 0, "0 size=4 data=a\\0b\\n\\0 [fstat; read 4]"},
        {OP(tav_util_read_file(moved, &data, &size, &slot)), {}, 0, "6 size=4 data=null [fstat; read 4; read 1 x5] T read_file P 6;"},
        {OP(tav_util_read_file(ab, &data, &size, &slot)), {}, 1, "2 slot=12 size=4 data=null [fstat] T read_file P 2;"},
        {OP(tav_util_read_file(-1, &data, &size, &slot)), {}, 0, "6 slot=9 [fstat] T read_file P 6;"},
        {OP(tav_util_read_file(0, nullptr, &size, &slot)), {}, 0, "3 [] T read_file P 3;"},
        {OP(tav_util_read_file(0, &data, nullptr, &slot)), {}, 0, "3 [] T read_file P 3;"},
        {OP(tav_util_count_lines(pipe_ends[0], &count, &slot)), {}, 0, "6 slot=29 [lseek 0 1] T count_lines P 6;"},
        {OP(tav_util_count_lines(-1, &count, &slot)), {}, 0, "7 [] T count_lines P 7;"},
        {OP(tav_util_count_lines(-1, nullptr, &slot)), {}, 0, "3 [] T count_lines P 3;"},
    });
    const std::tuple<std::string, Plan, std::string> counted[] = {
        {"", {}, "0 count=0 [" + start + "; lseek 7 0] @7"},
        {"\na\r\nb", {}, "0 count=2 [" + start + "; read 5; lseek 7 0] @7"},
        {big, {}, "0 count=" + all + " [" + start + "; read 1024 x2; read 452; lseek 7 0] @7"},
        {big, {.reads = {-2, -2, -1}}, "6 slot=5 count=" + first + " [" + start + "; read 1024 x2; read 452; lseek 7 0] T count_lines P 6; @7"},
        {big, {.reads = {-2, -2, 0}}, "0 count=" + first + " [" + start + "; read 1024 x2; read 452; lseek 7 0] @7"},
        {big, {.fail = "lseek"}, "6 slot=5 [lseek 0 1] T count_lines P 6; @7"},
        {big, {.fail = "fstat"}, "6 slot=5 [lseek 0 1; fstat] T count_lines P 6; @7"},
        {big, {.fail = "lseek", .fail_nth = 2}, "6 slot=5 [" + start + "] T count_lines P 6; @7"},
        {big, {.fail = "lseek", .fail_nth = 3}, "6 slot=5 count=" + all + " [" + start + "; read 1024 x2; read 452; lseek 7 0] T count_lines P 6; @2500"},
    };
    // clang-format on
    for (const auto &[content, plan, want] : counted) {
        const int at = opened(content, 7);
        const std::string seen = run(OP(tav_util_count_lines(at, &count, &slot)), plan);
        EXPECT_EQ(seen + " @" + std::to_string(lseek(at, 0, SEEK_CUR)), want);
        EXPECT_EQ(last.allocations, 0);
    }
}

TEST_F(Files, OperationsOnAPath) {
    const std::string f = put("f", "abcd"), sub = dir + "/d";
    const char *F = f.c_str(), *D = sub.c_str();
    mkdir(D, 0700);
    symlink("none", (dir + "/dangling").c_str());
    struct stat st;
    stat(D, &st);
    const std::string sized = std::to_string(st.st_size);
    // clang-format off
    check({
        {OP(tav_util_get_file_size(F, &size)), {}, 0, "0 size=4 [open @/f 0; fstat; close @/f]"},
        {OP(tav_util_get_file_size(D, &size)), {}, 0, "0 size=" + sized + " [open @/d 0; fstat; close @/d]"},
        {OP(tav_util_get_file_size((f + "x").c_str(), &size)), {}, 0, "6 [open @/fx 0] T get_file_size P 6;"},
        {OP(tav_util_get_file_size(F, &size)), {.fail = "fstat"}, 0, "6 [open @/f 0; fstat; close @/f] T get_file_size P 6;"},
        {OP(tav_util_get_file_size(nullptr, &size)), {}, 0, "3 [] T get_file_size P 3;"},
        {OP(tav_util_get_file_size(F, nullptr)), {}, 0, "3 [] T get_file_size P 3;"},
        {OP(tav_util_truncate_file(F, 2, &slot)), {}, 0, "0 []"},
        {OP(tav_util_truncate_file(F, -1, &slot)), {}, 0, "6 slot=22 [] T truncate_file P 6;"},
        {OP(tav_util_truncate_file(nullptr, 0, &slot)), {}, 0, "3 [] T truncate_file P 3;"},
        {OP(tav_util_query_file_exists(F, &exists)), {}, 0, "0 exists=1 []"},
        {OP(tav_util_query_file_exists(D, &exists)), {}, 0, "0 exists=1 []"},
        {OP(tav_util_query_file_exists((dir + "/dangling").c_str(), &exists)), {}, 0, "0 exists=0 []"},
        {OP(tav_util_query_file_exists((f + "/x").c_str(), &exists)), {}, 0, "6 [] T query_file_exists P 6;"},
        {OP(tav_util_query_file_exists(nullptr, &exists)), {}, 0, "3 [] T query_file_exists P 3;"},
        {OP(tav_util_query_file_exists(F, nullptr)), {}, 0, "3 [] T query_file_exists P 3;"},
        {OP(tav_util_delete_file(D, &slot)), {}, 0, "6 slot=21 [] T delete_file P 6;"},
        {OP(tav_util_delete_file(nullptr, &slot)), {}, 0, "3 [] T delete_file P 3;"},
    });
    // clang-format on
    EXPECT_EQ(slurp(f), "ab");
    EXPECT_EQ(run(OP(tav_util_delete_file(F, &slot))), "0 []");
    EXPECT_EQ(access(F, F_OK), -1);
}

// As nobody, a file its mode denies; in the directory, a path without slash
// is its own directory component.
TEST_F(Files, PermissionDeniedAndBarePath) {
    const std::string f = put("f", "x");
    const char *F = f.c_str();
    const auto child = tavtest::in_child([&] {
        chdir(dir.c_str());
        Lines seen = {run(OP(tav_util_sync_file("f")))};
        if (setgid(65534) != 0 || setuid(65534) != 0) {
            return Lines{"no drop"};
        }
        seen.push_back(run(OP(tav_util_open(&fd, &slot, O_RDONLY, 0, "%s", F))));
        seen.push_back(run(OP(tav_util_query_file_exists(F, &exists))));
        seen.push_back(run(OP(tav_util_get_file_size(F, &size))));
        seen.push_back(run(OP(tav_util_sync_file(F))));
        return seen;
    });
    EXPECT_EQ(child, (Lines{"0 [open f 2; open f 0; fsync @/f x2; close @/f x2]",
                            "6 fd=-1 slot=13 [open @/f 0] T open P 6;",
                            "6 [] T query_file_exists P 6;", "6 [open @/f 0] T get_file_size P 6;",
                            "6 [open @/f 2] L sync_file S: Failed to open file @/f ~ Permission "
                            "denied; T sync_file S 6;"}));
}

TEST_F(Files, PathHelpers) {
    mkdir((dir + "/d").c_str(), 0700);
    symlink((dir + "/d").c_str(), (dir + "/link").c_str());
    put("f", "");
    for (const auto &[path, want] : {std::pair{"dir/file", "dir"},
                                     {"a/b/c", "a/b"},
                                     {"file", "file"},
                                     {"/x", ""},
                                     {"/", ""},
                                     {"//x", "/"},
                                     {"a/", "a"},
                                     {"", ""},
                                     {"./a//b/../c", "./a//b/.."}}) {
        EXPECT_EQ(run(OP(tav_util_get_directory_component(path, &text))),
                  "0 text=" + std::string(want) + " []");
    }
    const std::string dotted = dir + "/link/.././f", missing = dir + "/link/none";
    // clang-format off
    check({
        {OP(tav_util_get_directory_component("file", &text)), {}, 1, "2 text=null [] L get_directory_component D: Memory allocation for path file ~ Cannot allocate memory; T get_directory_component D 2;"},
        {OP(tav_util_get_directory_component("a/b", &text)), {}, 1, "2 text=null [] L get_directory_component D: Memory allocation error ~ Cannot allocate memory; T get_directory_component D 2;"},
        {OP(tav_util_get_directory_component(nullptr, &text)), {}, 0, "3 [] T get_directory_component D 3;"},
        {OP(tav_util_get_directory_component("a", nullptr)), {}, 0, "3 [] T get_directory_component D 3;"},
        {OP(tav_util_abs_path(dotted.c_str(), &text)), {}, 0, "0 text=@/f []"},
        {OP(tav_util_abs_path(missing.c_str(), &text)), {}, 0, "6 text=null [] L abs_path D: Cannot determine absolute file path from relative path @/link/none ~ No such file or directory; T abs_path D 6;"},
        {OP(tav_util_abs_path(nullptr, &text)), {}, 0, "3 [] T abs_path D 3;"},
        {OP(tav_util_abs_path("/", nullptr)), {}, 0, "3 [] T abs_path D 3;"},
    });
    // clang-format on
}

TEST_F(Files, Sync) {
    const std::string f = put("f", "x"), p999 = dir + std::string(998 - dir.size(), '/') + "f";
    FILE *appended = fopen(f.c_str(), "a"), *null = fopen("/dev/null", "w"),
         *full = fopen("/dev/full", "w");
    char memory[8];
    FILE *no_descriptor = fmemopen(memory, sizeof memory, "w");
    fputs("y", appended);
    fputs("z", full);
    const std::string flushed = "fflush; fsync @/f",
                      both = "open @/f 2; open @ 0; fsync @/f; fsync @; close @; close @/f]";
    // clang-format off
    check({
        {OP(tav_util_sync(appended, dir.c_str())), {}, 0, "0 [" + flushed + "; open @ 0; fsync @; close @]"},
        {OP(tav_util_sync(appended, nullptr)), {}, 0, "0 [" + flushed + "]"},
        {OP(tav_util_sync(appended, "/dev/null")), {}, 0, "6 [" + flushed + "; open /dev/null 0; fsync /dev/null; close /dev/null] T sync S 6;"},
        {OP(tav_util_sync(appended, "")), {}, 0, "6 [" + flushed + "; open  0] T sync S 6;"},
        {OP(tav_util_sync(full, nullptr)), {}, 0, "6 [fflush] T sync S 6;"},
        {OP(tav_util_sync(no_descriptor, nullptr)), {}, 0, "6 [fflush] T sync S 6;"},
        {OP(tav_util_sync(null, nullptr)), {}, 0, "6 [fflush; fsync /dev/null] T sync S 6;"},
        {OP(tav_util_sync(nullptr, nullptr)), {}, 0, "3 [] T sync S 3;"},
        {OP(tav_util_sync_file(f.c_str())), {}, 0, "0 [" + both},
        {OP(tav_util_sync_file(dir.c_str())), {}, 0, "6 [open @ 2] L sync_file S: Failed to open file @ ~ Is a directory; T sync_file S 6;"},
        {OP(tav_util_sync_file(f.c_str())), {.fail = "open", .fail_nth = 2}, 0, "6 [open @/f 2; open @ 0; close @/f] L sync_file S: Failed to open directory @ ~ Input/output error; T sync_file S 6;"},
        {OP(tav_util_sync_file("/dev/null")), {}, 0, "6 [open /dev/null 2; open /dev 0; fsync /dev/null; close /dev; close /dev/null] L sync_file S: Failed to sync file /dev/null ~ Invalid argument; T sync_file S 6;"},
        {OP(tav_util_sync_file(f.c_str())), {.fail = "fsync", .fail_nth = 2}, 0, "6 [" + both + " L sync_file S: Failed to sync directory file @ ~ Input/output error; T sync_file S 6;"},
        {OP(tav_util_sync_file(nullptr)), {}, 0, "3 [] T sync_file S 3;"},
        {OP(tav_util_sync_file((p999 + "f").c_str())), {}, 0, "7 [] T sync_file S 7;"},
        {OP(tav_util_sync_file(f.c_str())), {}, 1, "2 [] L get_directory_component D: Memory allocation error ~ Cannot allocate memory; T get_directory_component D 2; T sync_file S 2; L sync_file Failed to get directory component;"},
    });
    // clang-format on
    EXPECT_EQ(tav_util_sync_file(p999.c_str()), TAV_OK) << "999 characters pass";
    EXPECT_EQ(slurp(f), "xy");
    for (FILE *open_still : {appended, null, full, no_descriptor}) {
        fclose(open_still);
    }
}

TEST_F(Files, NamedReadWriteAndCopy) {
    const std::string f = put("pid", "4242"), w = dir + "/w", big(1 << 20, 'b');
    const char *F = f.c_str(), *W = w.c_str();
    struct stat st;
    stat(dir.c_str(), &st);
    const std::string sized = std::to_string(st.st_size),
                      size_of = "open @/pid 0; fstat; close @/pid; fopen @/pid rb";
    const std::string durable = "fflush; fsync @/w; open @ 0; fsync @; close @; fclose]";
    // clang-format off
    check({
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {}, 0, "0 size=4 data=4242\\0 [" + size_of + "; fclose]"},
        {OP(tav_util_read_named_file("/proc/self/stat", &data, &size, nullptr)), {}, 0, "0 size=0 data=\\0 [open /proc/self/stat 0; fstat; close /proc/self/stat; fopen /proc/self/stat rb; fclose]"},
        {OP(tav_util_read_named_file(dir.c_str(), &data, &size, nullptr)), {}, 0, "6 size=" + sized + " data=null [open @ 0; fstat; close @; fopen @ rb; fclose] T read_named_file C 6;"},
        {OP(tav_util_read_named_file((f + "x").c_str(), &data, &size, nullptr)), {}, 0, "6 [open @/pidx 0] T get_file_size P 6; T read_named_file C 6;"},
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {}, 1, "6 size=4 [" + size_of + "] T read_named_file C 6;"},
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {}, 2, "2 size=4 data=null [" + size_of + "; fclose] T read_named_file C 2;"},
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {.before_fopen = [&] { truncate(F, 2); }}, 0, "6 size=4 data=null [" + size_of + "; fclose] T read_named_file C 6;"},
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {.before_fopen = [&] { unlink(F); }}, 0, "6 size=2 [open @/pid 0; fstat; close @/pid; fopen @/pid rb] T read_named_file C 6;"},
        {OP(tav_util_read_named_file(nullptr, &data, &size, nullptr)), {}, 0, "3 [] T read_named_file C 3;"},
        {OP(tav_util_read_named_file(F, nullptr, &size, nullptr)), {}, 0, "3 [] T read_named_file C 3;"},
        {OP(tav_util_read_named_file(F, &data, nullptr, nullptr)), {}, 0, "3 [] T read_named_file C 3;"},
        {OP(tav_util_write_named_file(W, 1, "data", 4, nullptr)), {}, 0, "0 [fopen @/w wb; " + durable},
        {OP(tav_util_write_named_file(W, 0, "+", 1, nullptr)), {}, 0, "0 [fopen @/w ab; " + durable},
        {OP(tav_util_copy_file(W, F)), {}, 0, "0 [open @/w 0; fstat; close @/w; fopen @/w rb; fclose; fopen @/pid wb; fflush; fsync @/pid; open @ 0; fsync @; close @; fclose]"},
        {OP(tav_util_write_named_file(nullptr, 1, "", 0, nullptr)), {}, 0, "3 [] T write_named_file C 3;"},
        {OP(tav_util_write_named_file(W, 1, nullptr, 0, nullptr)), {}, 0, "3 [] T write_named_file C 3;"},
        {OP(tav_util_write_named_file(dir.c_str(), 1, "", 0, nullptr)), {}, 0, "6 [fopen @ wb] T write_named_file C 6;"},
        {OP(tav_util_write_named_file((w + "/x").c_str(), 1, "", 0, nullptr)), {}, 0, "6 [fopen @/w/x wb] T write_named_file C 6;"},
        {OP(tav_util_write_named_file("/dev/full", 1, "z", 1, nullptr)), {}, 0, "6 [fopen /dev/full wb; fflush; fclose] T sync S 6; T write_named_file C 6;"},
        {OP(tav_util_write_named_file("/dev/full", 1, big.data(), big.size(), nullptr)), {}, 0, "6 [fopen /dev/full wb; fclose] T write_named_file C 6;"},
        {OP(tav_util_write_named_file(W, 1, "", 0, nullptr)), {.fail = "fsync", .fail_nth = 2}, 0, "6 [fopen @/w wb; " + durable + " T sync S 6; T write_named_file C 6;"},
        {OP(tav_util_write_named_file(W, 1, "", 0, nullptr)), {}, 1, "2 [] L get_directory_component D: Memory allocation error ~ Cannot allocate memory; T get_directory_component D 2; T write_named_file C 2;"},
        {OP(tav_util_write_named_file(W, 1, "", 0, nullptr)), {}, 2, "6 [fopen @/w wb] T write_named_file C 6;"},
        {OP(tav_util_copy_file((f + "x").c_str(), W)), {}, 0, "6 [open @/pidx 0] T get_file_size P 6; T read_named_file C 6;"},
        {OP(tav_util_copy_file(nullptr, W)), {}, 0, "3 [] T copy_file C 3;"},
        {OP(tav_util_copy_file(W, nullptr)), {}, 0, "3 [] T copy_file C 3;"},
    });
    // clang-format on
    EXPECT_EQ(slurp(f) + "|" + slurp(w), "data+|");
    EXPECT_EQ(tav_util_copy_file(F, F), TAV_OK);
    std::string statuses;
    for (long nth = 1; nth <= 5; ++nth) { // read: stream, block; write: text, stream, buffer
        statuses += run(OP(tav_util_copy_file(F, W)), {}, nth).substr(0, 2);
    }
    EXPECT_EQ(statuses + slurp(w), "6 2 2 6 0 data+");
}

TEST_F(Files, BytesAsHex) {
    uint8_t bytes[256];
    std::string hex;
    for (int i = 0; i < 256; ++i) {
        bytes[i] = static_cast<uint8_t>(i);
        hex += "0123456789abcdef"[i / 16] + std::string(1, "0123456789abcdef"[i % 16]);
    }
    const std::string out = dir + "/out";
    EXPECT_EQ(tavtest::in_child([&] {
                  dup2(open(out.c_str(), O_WRONLY | O_CREAT, 0600), 1);
                  const long st =
                      tav_util_printf_bytes(bytes, 256) + tav_util_fprintf_bytes(stdout, bytes, 0);
                  fflush(stdout);
                  return Lines{std::to_string(st) + " " + slurp(out)};
              }),
              Lines{"0 " + hex});
    // clang-format off
    check({
        {OP(tav_util_fprintf_bytes(nullptr, bytes, 1)), {}, 0, "3 [] T fprintf_bytes C 3;"},
        {OP(tav_util_fprintf_bytes(stdout, nullptr, 1)), {}, 0, "3 [] T fprintf_bytes C 3;"},
        {OP(tav_util_printf_bytes(nullptr, 1)), {}, 0, "3 [] T printf_bytes C 3;"},
    });
    // clang-format on
}

} // namespace
