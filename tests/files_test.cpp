// Files by descriptor and by name, durable sync, paths and directories, on real
// files in a fresh directory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "alloc_inject.hpp"
#include "host_inject.hpp"
#include "recorder.hpp"
#include "syscall_inject.hpp"
#include "tavutil.h"

namespace {

using Plan = tavtest::SyscallPlan;
#define OP(...) [&]() -> long { return __VA_ARGS__; }
constexpr int32_t kUnset = 77;
char mark;
template <typename T> T *marked() { return reinterpret_cast<T *>(&mark); }
// clang-format off
const std::pair<std::string, std::string> kShort[] = {{"trace tav_util_", "T "}, {"log tav_util_", "L "}, {" src/file/posix.cpp", " P"},
    {" src/file/common.cpp", " C"}, {" src/file/posix_fsync.cpp", " S"}, {" src/string/directory_linux.cpp", " D"}, {" src/string/vasprintf.cpp", " V"},
    {" src/directory/linux.cpp", " X"}, {" src/process/pid_file_linux.cpp", " F"}, {"  Reason: ", " ~ "}, {"\n", "\\n"}, {std::string(1, '\0'), "\\0"}};
// clang-format on

std::string replaced(std::string s, const std::string &from, const std::string &to) {
    for (size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size())) {
        s.replace(at, from.size(), to);
    }
    return s;
}
std::string slurp(const std::string &path) {
    return std::string(std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {});
}

using Row = std::tuple<std::function<long()>, Plan, long, std::string>;

class Files : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/tavfiles.XXXXXX";
        dir = std::filesystem::canonical(mkdtemp(name));
        close(free_fd = dup(0));
    }
    void TearDown() override {
        std::for_each(fds.begin(), fds.end(), close);
        std::filesystem::remove_all(dir);
        const int lowest = dup(0);
        EXPECT_EQ(close(lowest) + lowest, free_fd) << "a descriptor was left open";
    }
    std::string put(const std::string &name, const std::string &content = "", mode_t mode = 0644) {
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
        return chmod((dir + "/" + name).c_str(), mode), dir + "/" + name;
    }
    int opened(const std::string &content, off_t at = 0, int flags = O_RDONLY) {
        fds.push_back(open(put(std::to_string(fds.size()), content).c_str(), flags));
        return lseek(fds.back(), at, SEEK_SET) * 0 + fds.back();
    }
    // Names delivered (-9: no scan began); a copy asked for before the first
    // and after the last entry, and one advance past the end, add 100.
    long scan(const std::string &path, const std::function<void()> &between = {}) {
        tav_util_dirscan_handle *handle = tav_util_dirscan_begin(path.c_str());
        long n = !handle ? -9 : tav_dirscan_file_name(handle) ? 100 : 0;
        for (between ? between() : void(); handle && !tav_util_dirscan(handle);) {
            char *name = tav_dirscan_file_name(handle);
            std::strcat(std::strcat(names, name ? name : "?"), " ");
            n += name != nullptr;
            std::free(name);
        }
        n += handle && (tav_dirscan_file_name(handle) || tav_util_dirscan(handle) != 37) ? 100 : 0;
        tav_util_dirscan_end(handle);
        return n;
    }
    // "status out-arguments-written [calls] reports;", the directory as "@",
    // repeated calls as "xN", the watched file as "file=BYTES MODE" (" locked"
    // when a fresh descriptor can't lock it); no block is left but the results.
    std::string run(const std::function<long()> &op, Plan plan = {}, long fail_at = 0) {
        fd = slot = exists = pid = kUnset, size = count = kUnset, names[0] = '\0';
        data = marked<uint8_t>(), text = marked<char>(), stream = marked<FILE>();
        tavtest::clear_reports();
        long status = 0;
        std::string out, error, calls;
        std::optional<tavtest::SyscallInjection> inject(std::move(plan));
        last = tavtest::run_allocations(fail_at,
                                        [&] { status = op(), error = std::to_string(errno); });
        for (size_t i = 0, n = 1; i < inject->calls().size(); i += n) {
            const std::string &call = inject->calls()[i];
            for (n = 1; i + n < inject->calls().size() && inject->calls()[i + n] == call;) {
                ++n;
            }
            calls += (i ? "; " : "") + call + (n > 1 ? " x" + std::to_string(n) : "");
        }
        inject.reset();
        // clang-format off
        for (const auto &[name, value] : {std::pair{" slot=", int64_t{slot}}, {" size=", size}, {" count=", count}, {" exists=", exists}, {" pid=", pid}, {" fd=", fd}}) {
            out += value == kUnset ? "" : name + (name[1] == 'f' && value >= 0 ? "open" : std::to_string(value));
        }
        const bool owned[] = {data != marked<uint8_t>() && data, text != marked<char>() && text, stream != marked<FILE>() && stream};
        // clang-format on
        out += data == marked<uint8_t>()
                   ? ""
                   : " data=" + (owned[0] ? std::string(reinterpret_cast<char *>(data), size + 1)
                                          : "null");
        out += text == marked<char>() ? "" : " text=" + std::string(owned[1] ? text : "null");
        out += stream == marked<FILE>() ? "" : owned[2] ? " stream=open" : " stream=null";
        EXPECT_LE(last.live_blocks, owned[0] + owned[1] + owned[2]); // realpath may bypass malloc
        EXPECT_EQ(owned[0] ? std::count(last.sizes.begin(), last.sizes.end(), size + 1) : 1, 1);
        std::free(owned[0] ? static_cast<void *>(data) : owned[1] ? text : nullptr);
        (void)(owned[2] && fclose(stream)), (void)(fd >= 0 && fd != kUnset && close(fd));
        struct stat st = {};
        if (!watched.empty() && stat(watched.c_str(), &st) == 0) {
            const int lock = open(watched.c_str(), O_RDONLY);
            out += " file=" + slurp(watched) + " " +
                   (std::ostringstream() << std::oct << (st.st_mode & 07777)).str() +
                   (flock(lock, LOCK_EX | LOCK_NB) ? " locked" : "");
            close(lock);
        }
        out = std::to_string(status) + (status == -1 ? " errno=" + error : "") + out +
              (show_calls ? " [" + calls + "]" : "");
        for (const std::string &line : tavtest::report_summary()) {
            out += " " + line + ";";
        }
        for (const auto &[from, to] : kShort) {
            out = replaced(out, from, to);
        }
        return replaced(replaced(out, dir, "@"), "/proc/" + std::to_string(getpid()) + "/",
                        "/proc/self/");
    }
    // Each allocation of `op` failing in turn, until a run needs no more: the
    // outcomes, each once.
    std::string sweep(const std::function<long()> &op) {
        std::string outcomes;
        for (long nth = 1; nth == 1 || last.injected; ++nth) {
            const std::string seen = run(op, {}, nth) + "\n";
            outcomes += last.injected && !outcomes.ends_with(seen) ? seen : "";
        }
        return outcomes;
    }
    void check(const std::vector<Row> &rows) {
        for (const auto &[op, plan, fail_at, want] : rows) {
            EXPECT_EQ(run(op, plan, fail_at), want) << &want - &std::get<3>(rows[0]);
        }
    }
    std::string dir, watched;
    bool show_calls = true;
    std::vector<int> fds;
    int32_t free_fd, fd, slot, exists;
    uint32_t pid;
    uint64_t size, count;
    uint8_t *data;
    char *text, names[512];
    FILE *stream;
    tavtest::AllocRun last;
};

TEST_F(Files, DescriptorsAndPaths) {
    char buf[100];
    std::string big;
    for (int i = 0; big.size() < 2500; ++i) {
        big += std::string(static_cast<size_t>(i % 9), 'x') + (i % 4 ? "\n" : "\r");
    }
    big.resize(2500);
    int c[6], pipe_ends[2];
    for (int &at : c) {
        at = opened(&at == c ? "\na\r\nb" : big, 7);
    }
    ASSERT_EQ(pipe(pipe_ends), 0);
    const int full = open("/dev/full", O_WRONLY);
    fds.insert(fds.end(), {full, pipe_ends[0], pipe_ends[1]});
    // clang-format off
    const int in = opened(std::string(70, 's')), out = opened("", 0, O_WRONLY);
    const int nul = opened(std::string("a\0b\n", 4)), moved = opened("abcd", 1), ab = opened("abcd");
    const auto lines = [&](size_t n) { return std::to_string(std::count(big.begin(), big.begin() + n, '\n')); };
    const std::string start = "[lseek 0 1; fstat; lseek 0 0", reads = "; read 1024 x2; read 452; lseek 7 0]";
    const std::string f = put("f", "abcd"), sub = dir + "/d", dangling = dir + "/dangling", through = f + "/x";
    const char *F = f.c_str(), *D = sub.c_str(), *d = dir.c_str();
    struct stat st = {};
    mkdir(D, 0700), symlink("none", dangling.c_str()), stat(D, &st);
    check({
        {OP(tav_util_open(&fd, &slot, O_WRONLY | O_CREAT | O_EXCL, 0640, "%s/%c", d, 'n')), {}, 0, "0 slot=0 fd=open [open @/n 301 640]"},
        {OP(tav_util_open(&fd, &slot, O_RDONLY, 0, "%s/none", d)), {}, 0, "6 slot=2 fd=-1 [open @/none 0] T open P 6;"},
        {OP(tav_util_open(nullptr, &slot, 0, 0, "x") + tav_util_open(&fd, &slot, 0, 0, nullptr)), {}, 0, "6 [] T open P 3; T open P 3;"},
        {OP(tav_util_open(&fd, &slot, 0, 0, "/")), {}, 1, "2 [] T vasprintf V 2;"},
        {OP(tav_util_whole_read(in, buf, 0) + tav_util_whole_write(out, buf, 0, &slot)), {}, 0, "0 []"},
        {OP(tav_util_whole_read(in, buf, -1) + tav_util_whole_read(in, nullptr, 1)), {}, 0, "-44 []"},
        {OP(tav_util_whole_read(in, buf, 10)), {.reads = {0, 0, 0, 0, 1, 0, 0, 0, 0}}, 0, "10 [read 10 x5; read 9 x5]"},
        {OP(tav_util_whole_read(in, buf, 100)), {}, 0, "-11 [read 100; read 40 x5]"},
        {OP(tav_util_whole_read(in, buf, 10)), {.reads = {-1}}, 0, "-1 errno=5 [read 10]"},
        {OP(tav_util_whole_write(out, nullptr, 0, &slot) + tav_util_whole_write(out, buf, -1, &slot)), {}, 0, "36 [] T whole_write P 3; T whole_write P 33;"},
        {OP(tav_util_whole_write(out, buf, 10, &slot)), {.writes = {3, 0, 0, 0, 0, 0}}, 0, "-11 [write 10; write 7 x5]"},
        {OP(tav_util_whole_write(full, buf, 1, &slot)), {}, 0, "6 slot=28 [write 1] T whole_write P 6;"},
        {OP(tav_util_read_file(nul, &data, &size, &slot)), {}, 0, "0 size=4 data=a\\0b\\n\\0 [fstat; read 4]"},
        {OP(tav_util_read_file(moved, &data, &size, &slot)), {}, 0, "6 size=4 data=null [fstat; read 4; read 1 x5] T read_file P 6;"},
        {OP(tav_util_read_file(ab, &data, &size, &slot)), {}, 1, "2 slot=12 size=4 data=null [fstat] T read_file P 2;"},
        {OP(tav_util_read_file(-1, &data, &size, &slot)), {}, 0, "6 slot=9 [fstat] T read_file P 6;"},
        {OP(tav_util_read_file(0, nullptr, &size, &slot) + tav_util_read_file(0, &data, nullptr, &slot)), {}, 0, "6 [] T read_file P 3; T read_file P 3;"},
        {OP(tav_util_count_lines(c[0], &count, &slot)), {}, 0, "0 count=2 " + start + "; read 5; lseek 7 0]"},
        {OP(tav_util_count_lines(c[1], &count, &slot)), {}, 0, "0 count=" + lines(2500) + " " + start + reads},
        {OP(tav_util_count_lines(c[2], &count, &slot)), {.reads = {-2, -2, -1}}, 0, "6 slot=5 count=" + lines(2048) + " " + start + reads + " T count_lines P 6;"},
        {OP(tav_util_count_lines(c[3], &count, &slot)), {.reads = {-2, -2, 0}}, 0, "0 count=" + lines(2048) + " " + start + reads},
        {OP(tav_util_count_lines(c[4], &count, &slot)), {.fail = "fstat"}, 0, "6 slot=5 [lseek 0 1; fstat] T count_lines P 6;"},
        {OP(tav_util_count_lines(c[4], &count, &slot)), {.fail = "lseek", .fail_nth = 2}, 0, "6 slot=5 " + start + "] T count_lines P 6;"},
        {OP(tav_util_count_lines(c[5], &count, &slot)), {.fail = "lseek", .fail_nth = 3}, 0, "6 slot=5 count=" + lines(2500) + " " + start + reads + " T count_lines P 6;"},
        {OP(tav_util_count_lines(pipe_ends[0], &count, &slot)), {}, 0, "6 slot=29 [lseek 0 1] T count_lines P 6;"},
        {OP(tav_util_count_lines(-1, &count, &slot) + tav_util_count_lines(-1, nullptr, &slot)), {}, 0, "10 [] T count_lines P 7; T count_lines P 3;"},
        {OP(tav_util_get_file_size(D, &size)), {}, 0, "0 size=" + std::to_string(st.st_size) + " [open @/d 0; fstat; close @/d]"},
        {OP(tav_util_get_file_size(through.c_str(), &size)), {}, 0, "6 [open @/f/x 0] T get_file_size P 6;"},
        {OP(tav_util_get_file_size(F, &size)), {.fail = "fstat"}, 0, "6 [open @/f 0; fstat; close @/f] T get_file_size P 6;"},
        {OP(tav_util_truncate_file(F, 2, &slot) + tav_util_query_file_exists(F, &exists)), {}, 0, "0 exists=1 []"},
        {OP(tav_util_truncate_file(F, -1, &slot)), {}, 0, "6 slot=22 [] T truncate_file P 6;"},
        {OP(tav_util_query_file_exists(dangling.c_str(), &exists)), {}, 0, "0 exists=0 []"},
        {OP(tav_util_query_file_exists(through.c_str(), &exists)), {}, 0, "6 [] T query_file_exists P 6;"},
        {OP(tav_util_delete_file(D, &slot)), {}, 0, "6 slot=21 [] T delete_file P 6;"},
        {OP(tav_util_delete_file(F, &slot)), {}, 0, "0 []"},
        {OP(tav_util_get_file_size(nullptr, &size) + tav_util_get_file_size(F, nullptr) + tav_util_truncate_file(nullptr, 0, &slot) + tav_util_query_file_exists(nullptr, &exists) + tav_util_query_file_exists(F, nullptr) + tav_util_delete_file(nullptr, &slot)), {}, 0,
         "18 [] T get_file_size P 3; T get_file_size P 3; T truncate_file P 3; T query_file_exists P 3; T query_file_exists P 3; T delete_file P 3;"},
    });
    // clang-format on
    std::string positions = std::string(buf, 60) + std::to_string(lseek(out, 0, SEEK_CUR));
    for (const int at : c) {
        positions += " " + std::to_string(lseek(at, 0, SEEK_CUR));
    }
    EXPECT_EQ(positions + " " + std::to_string(access(F, F_OK)),
              std::string(60, 's') + "3 7 7 7 7 7 2500 -1");
}

TEST_F(Files, NamedFilesAndSync) {
    char memory[8];
    // clang-format off
    const std::string f = put("pid", "4242"), w = dir + "/w", big(1 << 20, 'b'), pad(998 - dir.size(), '/'), g = put("f", "x");
    const std::string p999 = dir + pad + "f", p1000 = p999 + "f", fx = f + "x", size_of = "open @/pid 0; fstat; close @/pid; fopen @/pid rb";
    const std::string durable = "fflush; fsync @/w; open @ 0; fsync @; close @; fclose]", failed = "fflush; fsync @/w; open @ 0; fsync @; close @ ^1; fclose ^1]";
    const char *F = f.c_str(), *W = w.c_str(), *d = dir.c_str();
    struct stat st = {};
    FILE *appended = fopen(g.c_str(), "a"), *null = fopen("/dev/null", "w"), *full = fopen("/dev/full", "w"), *no_descriptor = fmemopen(memory, 8, "w");
    stat(d, &st), fputs("y", appended), fputs("z", full);
    check({
        {OP(tav_util_fopen(&stream, &slot, "r", "%s/%s", d, "pid")), {}, 0, "0 slot=0 stream=open [fopen @/pid r]"},
        {OP(tav_util_fopen(&stream, &slot, "r", "%s/none", d)), {}, 0, "6 slot=2 [fopen @/none r] T fopen C 6;"},
        {OP(tav_util_fopen(nullptr, &slot, "r", "x") + tav_util_fopen(&stream, &slot, nullptr, "x") + tav_util_fopen(&stream, &slot, "r", nullptr)), {}, 0, "9 [] T fopen C 3; T fopen C 3; T fopen C 3;"},
        {OP(tav_util_fopen(&stream, &slot, "r", "/")), {}, 1, "2 [] T vasprintf V 2; T fopen C 2;"},
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {}, 0, "0 size=4 data=4242\\0 [" + size_of + "; fclose]"},
        {OP(tav_util_read_named_file("/proc/self/stat", &data, &size, nullptr)), {}, 0, "0 size=0 data=\\0 [open /proc/self/stat 0; fstat; close /proc/self/stat; fopen /proc/self/stat rb; fclose]"},
        {OP(tav_util_read_named_file(d, &data, &size, nullptr)), {}, 0, "6 size=" + std::to_string(st.st_size) + " data=null [open @ 0; fstat; close @; fopen @ rb; fclose] T read_named_file C 6;"},
        {OP(tav_util_read_named_file(fx.c_str(), &data, &size, nullptr)), {}, 0, "6 [open @/pidx 0] T get_file_size P 6; T read_named_file C 6;"},
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {}, 1, "6 size=4 [" + size_of + "] T read_named_file C 6;"},
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {}, 2, "2 size=4 data=null [" + size_of + "; fclose] T read_named_file C 2;"},
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {.on_fopen = [&](const char *p) { return truncate(F, 2), p; }}, 0, "6 size=4 data=null [" + size_of + "; fclose] T read_named_file C 6;"},
        {OP(tav_util_read_named_file(F, &data, &size, nullptr)), {.on_fopen = [&](const char *p) { return unlink(F), p; }}, 0, "6 size=2 [" + size_of + "] T read_named_file C 6;"},
        {OP(tav_util_read_named_file(nullptr, &data, &size, nullptr) + tav_util_read_named_file(F, nullptr, &size, nullptr) + tav_util_read_named_file(F, &data, nullptr, nullptr)), {}, 0, "9 [] T read_named_file C 3; T read_named_file C 3; T read_named_file C 3;"},
        {OP(tav_util_write_named_file(W, 1, "data", 4, nullptr)), {}, 0, "0 [fopen @/w wb; " + durable},
        {OP(tav_util_write_named_file(W, 0, "+", 1, nullptr)), {}, 0, "0 [fopen @/w ab; " + durable},
        {OP(tav_util_copy_file(W, F)), {}, 0, "0 [open @/w 0; fstat; close @/w; fopen @/w rb; fclose; fopen @/pid wb; fflush; fsync @/pid; open @ 0; fsync @; close @; fclose]"},
        {OP(tav_util_write_named_file(nullptr, 1, "", 0, nullptr) + tav_util_write_named_file(W, 1, nullptr, 0, nullptr)), {}, 0, "6 [] T write_named_file C 3; T write_named_file C 3;"},
        {OP(tav_util_write_named_file(d, 1, "", 0, nullptr)), {}, 0, "6 [fopen @ wb] T write_named_file C 6;"},
        {OP(tav_util_write_named_file("/dev/full", 1, "z", 1, nullptr)), {}, 0, "6 [fopen /dev/full wb; fflush; fclose ^1] T sync S 6; T write_named_file C 6;"},
        {OP(tav_util_write_named_file("/dev/full", 1, big.data(), big.size(), nullptr)), {}, 0, "6 [fopen /dev/full wb; fclose] T write_named_file C 6;"},
        {OP(tav_util_write_named_file(W, 1, "", 0, nullptr)), {.fail = "fsync", .fail_nth = 2}, 0, "6 [fopen @/w wb; " + failed + " T sync S 6; T write_named_file C 6;"},
        {OP(tav_util_write_named_file(W, 1, "", 0, nullptr)), {}, 1, "2 [] L get_directory_component D: Memory allocation error ~ Cannot allocate memory; T get_directory_component D 2; T write_named_file C 2;"},
        {OP(tav_util_write_named_file(W, 1, "", 0, nullptr)), {}, 2, "6 [fopen @/w wb] T write_named_file C 6;"},
        {OP(tav_util_copy_file(fx.c_str(), W)), {}, 0, "6 [open @/pidx 0] T get_file_size P 6; T read_named_file C 6;"},
        {OP(tav_util_copy_file(nullptr, W) + tav_util_copy_file(W, nullptr)), {}, 0, "6 [] T copy_file C 3; T copy_file C 3;"},
        {OP(tav_util_fprintf_bytes(nullptr, data, 1) + tav_util_fprintf_bytes(stdout, nullptr, 1) + tav_util_printf_bytes(nullptr, 1)), {}, 0, "9 [] T fprintf_bytes C 3; T fprintf_bytes C 3; T printf_bytes C 3;"},
        {OP(tav_util_sync(appended, d)), {}, 0, "0 [fflush; fsync @/f; open @ 0; fsync @; close @]"},
        {OP(tav_util_sync(appended, nullptr)), {}, 0, "0 [fflush; fsync @/f]"},
        {OP(tav_util_sync(appended, "/dev/null")), {}, 0, "6 [fflush; fsync @/f; open /dev/null 0; fsync /dev/null; close /dev/null ^1] T sync S 6;"},
        {OP(tav_util_sync(appended, "")), {}, 0, "6 [fflush; fsync @/f; open  0] T sync S 6;"},
        {OP(tav_util_sync(full, nullptr) + tav_util_sync(no_descriptor, nullptr)), {}, 0, "12 [fflush; fflush ^1] T sync S 6; T sync S 6;"},
        {OP(tav_util_sync(null, nullptr)), {}, 0, "6 [fflush; fsync /dev/null] T sync S 6;"},
        {OP(tav_util_sync_file(p999.c_str())), {}, 0, "0 [open @" + pad + "f 2; open @" + pad.substr(1) + " 0; fsync @/f; fsync @; close @; close @/f]"},
        {OP(tav_util_sync_file(d)), {}, 0, "6 [open @ 2] L sync_file S: Failed to open file @ ~ Is a directory; T sync_file S 6;"},
        {OP(tav_util_sync_file(g.c_str())), {.fail = "open", .fail_nth = 2}, 0, "6 [open @/f 2; open @ 0; close @/f ^1] L sync_file S: Failed to open directory @ ~ Input/output error; T sync_file S 6;"},
        {OP(tav_util_sync_file("/dev/null")), {}, 0, "6 [open /dev/null 2; open /dev 0; fsync /dev/null; close /dev ^1; close /dev/null ^1] L sync_file S: Failed to sync file /dev/null ~ Invalid argument; T sync_file S 6;"},
        {OP(tav_util_sync_file(g.c_str())), {.fail = "fsync", .fail_nth = 2}, 0, "6 [open @/f 2; open @ 0; fsync @/f; fsync @; close @ ^1; close @/f ^1] L sync_file S: Failed to sync directory file @ ~ Input/output error; T sync_file S 6;"},
        {OP(tav_util_sync_file(nullptr) + tav_util_sync_file(p1000.c_str()) + tav_util_sync(nullptr, d)), {}, 0, "13 [] T sync_file S 3; T sync_file S 7; T sync S 3;"},
        {OP(tav_util_sync_file(F)), {}, 1, "2 [] L get_directory_component D: Memory allocation error ~ Cannot allocate memory; T get_directory_component D 2; T sync_file S 2; L sync_file Failed to get directory component;"},
    });
    // clang-format on
    for (FILE *still_open : {appended, null, full, no_descriptor}) {
        fclose(still_open);
    }
    const std::string written = slurp(f) + "|" + slurp(w) + slurp(g);
    std::string statuses; // read: stream, block; write: text, stream, buffer
    for (long nth = 1; nth <= 5; ++nth) {
        statuses += run(OP(tav_util_copy_file(F, W)), {}, nth).substr(0, 2);
    }
    EXPECT_EQ(written + statuses + slurp(w), "data+|xy6 2 2 6 0 data+");
    EXPECT_EQ(std::to_string(tav_util_copy_file(F, F)) + slurp(f), "0data+");
}

TEST_F(Files, PathsAndDirectories) {
    // clang-format off
    const std::string dotted = dir + "/link/.././f", missing = dir + "/link/none", d = dir + "/d", f = put("f"), empty = d + "/e", sorted = dir + "/s", ro = dir + "/ro", rw = dir + "/rw";
    const std::string gone = sorted + "/gone", added = sorted + "/new", end = "T dirscan X 37; T dirscan X 37;";
    mkdir(d.c_str(), 0700), mkdir(empty.c_str(), 0700), mkdir(sorted.c_str(), 0700), symlink(d.c_str(), (dir + "/link").c_str());
    for (const char *name : {"beta", "Alpha", "Gamma", ".x", "...", "-", "gone"}) {
        put(std::string("s/") + name);
    }
    const int removed = open(empty.c_str(), O_RDONLY | O_DIRECTORY);
    fds.push_back(removed), rmdir(empty.c_str());
    for (const auto &[component_of, want] : {std::pair{"a/b/c", "a/b"}, {"file", "file"}, {"/x", ""}, {"//x", "/"}, {"a/", "a"}, {"", ""}}) {
        const char *path = component_of;
        EXPECT_EQ(run(OP(tav_util_get_directory_component(path, &text))), "0 text=" + std::string(want) + " []");
    }
    check({
        {OP(tav_util_get_directory_component("file", &text)), {}, 1, "2 text=null [] L get_directory_component D: Memory allocation for path file ~ Cannot allocate memory; T get_directory_component D 2;"},
        {OP(tav_util_get_directory_component("a/b", &text)), {}, 1, "2 text=null [] L get_directory_component D: Memory allocation error ~ Cannot allocate memory; T get_directory_component D 2;"},
        {OP(tav_util_abs_path(dotted.c_str(), &text)), {}, 0, "0 text=@/f []"},
        {OP(tav_util_abs_path(missing.c_str(), &text)), {}, 0, "6 text=null [] L abs_path D: Cannot determine absolute file path from relative path @/link/none ~ No such file or directory; T abs_path D 6;"},
        {OP(tav_util_get_directory_component(nullptr, &text) + tav_util_get_directory_component("a", nullptr) + tav_util_abs_path(nullptr, &text) + tav_util_abs_path("/", nullptr)), {}, 0, "12 [] T get_directory_component D 3; T get_directory_component D 3; T abs_path D 3; T abs_path D 3;"},
        {OP(tav_util_mkdir(nullptr) + tav_util_mkdir_read_only(nullptr)), {}, 0, "6 [] T mkdir X 3; T mkdir_read_only X 3;"},
        {OP(tav_util_mkdir(d.c_str())), {}, 0, "6 [] T mkdir X 6;"},
        {OP(tav_util_mkdir(rw.c_str()) + tav_util_mkdir_read_only(ro.c_str()) * 10 + tav_util_query_dir_exists(ro.c_str(), &exists)), {}, 0, "0 exists=1 []"},
        {OP(tav_util_mkdir_read_only(d.c_str())), {}, 0, "6 [] L mkdir_read_only X: Failed to create directory @/d ~ File exists; T mkdir_read_only X 6;"},
        {OP(tav_util_query_dir_exists(missing.c_str(), &exists)), {}, 0, "0 exists=0 []"},
        {OP(tav_util_query_dir_exists(f.c_str(), &exists)), {}, 0, "0 exists=0 [] L query_dir_exists X: Error checking directory @/f existence ~ Not a directory;"},
        {OP(tav_util_query_dir_exists(d.c_str(), &exists)), {}, 1, "0 exists=0 [] L query_dir_exists X: Error checking directory @/d existence ~ Cannot allocate memory;"},
        {OP(tav_util_query_dir_exists(nullptr, &exists) + tav_util_query_dir_exists(d.c_str(), nullptr)), {}, 0, "6 []"},
        {OP(scan(d)), {}, 0, "0 [] " + end},
        {OP(scan("/proc/self/fd/" + std::to_string(removed))), {}, 0, "0 [] " + end},
        {OP(scan(f)), {}, 0, "-9 [] L dirscan_begin X: Failed to scan directory @/f ~ Not a directory;"},
        {OP(long{tav_util_dirscan_begin(nullptr) != nullptr} + (tav_dirscan_file_name(nullptr) != nullptr) + tav_util_dirscan(nullptr)), {}, 0, "3 [] T dirscan X 3;"},
        {OP(scan(sorted, [&] { rename(gone.c_str(), added.c_str()); })), {}, 0, "7 [] " + end},
    });
    EXPECT_STREQ(names, "- ... .x Alpha beta Gamma gone ");
    EXPECT_EQ(run(OP(scan(sorted))) + names, "7 [] " + end + "- ... .x Alpha beta Gamma new ");
    EXPECT_EQ(std::vector<size_t>(last.sizes.end() - 7, last.sizes.end()), (std::vector<size_t>{2, 4, 3, 6, 5, 6, 4}));
    // clang-format on
    tav_util_dirscan_end(nullptr);
    EXPECT_EQ(sweep(OP(scan(sorted))),
              "-9 [] L dirscan_begin Failed to allocate memory;\n-9 [] L dirscan_begin "
              "X: Failed to scan directory @/s ~ Cannot allocate memory;\n"
              "6 [] log tav_dirscan_file_name Failed to allocate memory; " +
                  end + "\n");
}

TEST_F(Files, OutputCwdAndNobody) {
    std::string hex, out = put("out"), mine = dir + "/mine", locked = dir + "/locked",
                     lf = locked + "/f";
    uint8_t bytes[256];
    for (int i = 0; i < 256; ++i) {
        hex += "0123456789abcdef"[i / 16] + std::string(1, "0123456789abcdef"[i % 16]);
        bytes[i] = static_cast<uint8_t>(i);
    }
    put("bare"), mkdir(mine.c_str(), 0700), mkdir(locked.c_str(), 0700), put("locked/f");
    chown(mine.c_str(), 65534, 65534), chmod(dir.c_str(), 0777);
    const char *L = lf.c_str(), *d = dir.c_str();
    const std::string rw = mine + "/rw", ro = mine + "/ro";
    const std::string child = tavtest::in_child([&] {
        dup2(open(out.c_str(), O_WRONLY), 1);
        const long printed = tav_util_printf_bytes(bytes, 256) +
                             tav_util_fprintf_bytes(stdout, bytes, 0) + fflush(stdout);
        std::string seen = std::to_string(printed) + slurp(out) + "\n" +
                           (chdir(d), run(OP(tav_util_sync_file("bare"))));
        if (umask(0), !tavtest::drop_to_nobody()) {
            return std::string();
        }
        struct stat a = {}, b = {};
        seen += "\n" + run(OP(tav_util_mkdir(rw.c_str()) + tav_util_mkdir_read_only(ro.c_str())));
        seen += "\n" + run(OP(scan(ro)));
        stat(rw.c_str(), &a), stat(ro.c_str(), &b);
        const int created = creat((ro + "/f").c_str(), 0600);
        seen += "\n" + std::to_string(a.st_mode & 07777) + " " + std::to_string(b.st_mode & 07777) +
                " " + std::to_string(created) + " " + std::to_string(errno);
        for (const auto &op : std::vector<std::function<long()>>{
                 OP(tav_util_open(&fd, &slot, O_RDONLY, 0, "%s", L)),
                 OP(tav_util_query_file_exists(L, &exists)), OP(tav_util_get_file_size(L, &size)),
                 OP(tav_util_sync_file(L)), OP(tav_util_query_dir_exists(locked.c_str(), &exists)),
                 OP(scan(locked))}) {
            seen += "\n" + run(op);
        }
        return seen;
    });
    // clang-format off
    EXPECT_EQ(child, "0" + hex + "\n0 [open bare 2; open bare 0; fsync @/bare x2; close @/bare x2]\n0 []\n0 [] T dirscan X 37; T dirscan X 37;\n448 320 -1 13\n"
                     "6 slot=13 fd=-1 [open @/locked/f 0] T open P 6;\n6 [] T query_file_exists P 6;\n6 [open @/locked/f 0] T get_file_size P 6;\n"
                     "6 [open @/locked/f 2] L sync_file S: Failed to open file @/locked/f ~ Permission denied; T sync_file S 6;\n"
                     "0 exists=0 [] L query_dir_exists X: Error checking directory @/locked existence ~ Permission denied;\n"
                     "-9 [] L dirscan_begin X: Failed to scan directory @/locked ~ Permission denied;");
    // clang-format on
}

// The pid file claim, with this process as the live holder: "file=" shows the
// bytes, the mode, and whether a fresh descriptor can't lock it ("locked").
TEST_F(Files, PidFileClaims) {
    const pid_t ended = fork();
    if (ended == 0) {
        tavtest::child_exit(0);
    }
    waitpid(ended, nullptr, 0);
    std::string argv0, racer;
    std::getline(std::ifstream("/proc/self/cmdline"), argv0, '\0');
    const mode_t mask = umask(0);
    umask(mask);
    // The file as the row wants it (absent, or these bytes with mode 0600), then a claim.
    auto claim = [&](std::optional<std::string> content, const std::string &program, Plan plan = {},
                     const std::string &at = "app.pid") {
        unlink((dir + "/app.pid").c_str()),
            (void)(content && !put("app.pid", *content, 0600).empty());
        return watched = dir + "/" + at,
               run(OP(tav_util_claim_pid_file(watched.c_str(), program.c_str(), &pid)),
                   std::move(plan));
    };
    // clang-format off
    const std::string m = std::to_string(getpid()), p101(101, 'm'), created = m + " " + (std::ostringstream() << std::oct << (0664 & ~mask)).str(), fresh = "0 file=" + created;
    const std::string held = "52 pid=" + m + " file=" + m + " 600 T claim_pid_file F 52;", stale = "0 file=" + m + " 600", claim_failed = " T claim_pid_file F 6;";
    const std::string refused = " L claim_pid_file F: Failed to lock PID file @/app.pid ~ Resource temporarily unavailable;" + claim_failed;
    const std::string reread = " 600 [open @/app.pid 302 664; open @/app.pid 2; open @/app.pid 0; fstat; close @/app.pid; fopen @/app.pid rb; fclose; open /proc/0/cmdline 0; fopen @/app.pid w; fflush; fclose";
    const std::string failed = " written pid file @/app.pid ~ Input/output error;";
    const std::tuple<std::optional<std::string>, std::string, std::string> rows[] = {
        {{}, "p", fresh}, {{}, p101, fresh}, // the name is not measured on this path
        {"", p101, stale}, {std::to_string(ended), "p", stale}, {m, argv0.substr(0, 4), held}, {m, "", held},
        {m, argv0 + "x", stale}, {m, std::string(100, 'm'), stale}, {m, p101, "7 file=" + m + " 600 T claim_pid_file F 7;"},
        {m + "\n", argv0, stale}, // the line end is part of the path
        {"self", "", "6 file=self 600" + claim_failed}, {"self", "nomatch", stale}, // a live entry, but no number
        {"self/cmdline", "p", "6 file=self/cmdline 600 trace map_pid_to_exe F 6;" + claim_failed},
    };
    show_calls = false;
    for (const auto &[content, program, want] : rows) {
        EXPECT_EQ(claim(content, program), want) << content.value_or("-") << program;
    }
    watched.clear();
    EXPECT_EQ(run(OP(tav_util_claim_pid_file(nullptr, "p", &pid) + tav_util_claim_pid_file("p", nullptr, &pid) + tav_util_claim_pid_file("p", "p", nullptr))), "9 T claim_pid_file F 3; T claim_pid_file F 3; T claim_pid_file F 3;");
    EXPECT_EQ(claim({}, "p", {}, "none/p"), "6 L claim_pid_file F: Cannot access pid file @/none/p ~ No such file or directory;" + claim_failed);
    int other = -1; // another lock, taken just before the claim's, on either path
    for (const auto &[content, want] : {std::pair{std::optional<std::string>("1"), "6 file=1 600 locked" + refused}, {std::nullopt, "6 file= " + created.substr(m.size() + 1) + " locked" + refused}}) {
        tavtest::HostInjection racing({.before_flock = [&] { flock(other = open(watched.c_str(), O_RDONLY), LOCK_EX); }});
        EXPECT_EQ(claim(content, "p"), want);
        close(other);
    }
    // The creator holds the lock until its pid is written: a claim in that moment fails.
    auto race = [&](const char *p) {
        const std::string seen = tavtest::in_child([&] {
            tavtest::clear_reports();
            tav_util_claim_pid_file(p, "x", &pid);
            return tavtest::reported();
        });
        return racer.replace(0, racer.size(), seen), p;
    };
    racer.reserve(1000); // assigned during a counted run
    EXPECT_EQ(claim({}, "p", {.on_fopen = race}), fresh);
    EXPECT_EQ(racer, "|log tav_util_claim_pid_file src/process/pid_file_linux.cpp: Failed to lock PID file " + dir + "/app.pid  Reason: Resource temporarily unavailable|trace tav_util_claim_pid_file src/process/pid_file_linux.cpp 6");
    show_calls = true;
    EXPECT_EQ(claim({}, "p"), fresh + " [open @/app.pid 302 664; fopen @/app.pid w; fflush; fclose; close @/app.pid]");
    EXPECT_EQ(claim("0", "p"), "0 file=" + m + reread + "; close @/app.pid]");
    EXPECT_EQ(claim("0", "p", {.fail = "fflush"}), "6 file=" + m + reread + " ^1; close @/app.pid ^1] log write_pid_file F: Failed to flush" + failed);
    EXPECT_EQ(claim("0", "p", {.fail = "fclose", .fail_nth = 2}), "6 file=" + m + reread + "; close @/app.pid ^1] log write_pid_file F: Failed to close" + failed);
    // As nobody: creation refused, the existing file refused, and a file created read-only refusing the write's own open.
    chmod(dir.c_str(), 0777), mkdir((dir + "/closed").c_str(), 0755), show_calls = false;
    watched = put("app.pid", "1");
    EXPECT_EQ(tavtest::in_child([&] {
        umask(0222);
        if (!tavtest::drop_to_nobody()) {
            return std::string();
        }
        std::string seen = run(OP(tav_util_claim_pid_file(watched.c_str(), "p", &pid))) + "\n";
        seen += claim({}, "p", {}, "closed/p") + "\n";
        return seen + claim({}, "p", {}, "new");
    }), "6 file=1 644 L claim_pid_file F: Failed to open pid file @/app.pid ~ Permission denied;" + claim_failed + "\n39 T claim_pid_file F 39;\n6 file= 444 log write_pid_file F: Failed to open pid file @/new ~ Permission denied; trace write_pid_file F 6;");
    // Each allocation of a claim on a live holder's file failing in turn: the reader's stream and block, the path, the command line's block.
    const std::string live = dir + "/app.pid";
    claim({m}, argv0), watched.clear(); // libc's one-time set-up allocates outside the counted runs
    EXPECT_EQ(sweep(OP(tav_util_claim_pid_file(live.c_str(), argv0.c_str(), &pid))),
              "6 T read_named_file C 6; T claim_pid_file F 6;\n2 T read_named_file C 2; T claim_pid_file F 2;\n"
              "2 T vasprintf V 2; trace map_pid_to_exe F 2; trace map_pid_to_exe F 2; T claim_pid_file F 2;\n2 trace map_pid_to_exe F 2; T claim_pid_file F 2;\n");
    const std::vector<size_t> sizes(last.sizes.end() - 3, last.sizes.end()); // content, path, command line
    EXPECT_EQ(sizes, (std::vector<size_t>{m.size() + 1, m.size() + 15, argv0.size() + 2}));
    // clang-format on
}

} // namespace
