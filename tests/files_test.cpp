// Files by descriptor and by name, durable sync, paths, directories and the
// pid file claim, on real files in a fresh directory.
#include <optional>
#include <sys/file.h>

#include "support.hpp"

namespace {

using Plan = tavtest::SyscallPlan;
#define OP(...) [&]() -> long { return __VA_ARGS__; }
constexpr int32_t kUnset = 77;
constexpr long kEach = -1; // each allocation failing in turn, each outcome once
uint8_t mark;              // where pointer out-arguments start: untouched, they show nothing
// The sources of the reports, by letter.
const char *const kSources =
    "P=src/file/posix.cpp C=src/file/common.cpp S=src/file/posix_fsync.cpp "
    "V=src/string/vasprintf.cpp D=src/string/directory_linux.cpp "
    "X=src/directory/linux.cpp F=src/process/pid_file_linux.cpp";
const std::string kNoComponent = " L get_directory_component D: Memory allocation error ~ Cannot "
                                 "allocate memory; T get_directory_component D 2;";

std::string replaced(std::string s, const std::string &from, const std::string &to) {
    for (size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size())) {
        s.replace(at, from.size(), to);
    }
    return s;
}
std::string shortened(std::string s, const std::string &dir) {
    s = replaced(replaced(s, "trace tav_util_", "T "), "log tav_util_", "L ");
    std::istringstream legend(kSources);
    for (std::string word; legend >> word;) {
        s = replaced(s, " " + word.substr(2), " " + word.substr(0, 1));
    }
    s = replaced(replaced(s, "  Reason: ", " ~ "), "\n", "\\n");
    return replaced(replaced(s, std::string(1, '\0'), "\\0"), dir, "@");
}
// Each operation named refusing a null pointer, in turn.
std::string nulls(const char *source, const std::string &names) {
    std::istringstream words(names);
    std::string all;
    for (std::string word; words >> word;) {
        all += " T " + word + " " + source + " 3;";
    }
    return all;
}
std::string octal(unsigned mode) { return (std::ostringstream() << std::oct << mode).str(); }
Plan fails(const char *call, int nth = 1) { return {.fail = call, .fail_nth = nth}; }

struct Row {
    std::function<long()> op;
    std::string want;
    Plan plan = {};
    long fail_at = 0;
};

class Files : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/tavfiles.XXXXXX";
        dir = std::filesystem::canonical(mkdtemp(name));
        close(free_fd = dup(0));
        names.reserve(512); // appended to during counted runs
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
    // 0 with the names in `names` (-9: no scan); a name before the first or
    // after the last entry, or a last advance that is not 37, adds 100.
    long scan(
        const std::string &path, const std::function<void()> &between = [] {}) {
        tav_util_dirscan_handle *handle = tav_util_dirscan_begin(path.c_str());
        long n = !handle ? -9 : tav_dirscan_file_name(handle) ? 100 : 0;
        for (between(); handle && !tav_util_dirscan(handle);) {
            char *name = tav_dirscan_file_name(handle);
            names += " " + std::string(name ? name : "?");
            std::free(name);
        }
        n += handle && (tav_dirscan_file_name(handle) || tav_util_dirscan(handle) != 37) ? 100 : 0;
        return tav_util_dirscan_end(handle), n;
    }
    // "status[ errno=E] out-arguments [calls] reports;", repeated calls as
    // "xN"; no block is left but the results.
    std::string run(const std::function<long()> &op, Plan plan = {}, long fail_at = 0) {
        fd = slot = exists = kUnset, pid = kUnset, size = count = kUnset, names.clear();
        data = &mark, text = reinterpret_cast<char *>(&mark), stream = nullptr;
        tavtest::clear_reports();
        long status = 0;
        std::string error, calls;
        std::vector<std::string> made;
        {
            tavtest::SyscallInjection inject(std::move(plan));
            last = tavtest::run_allocations(fail_at,
                                            [&] { status = op(), error = std::to_string(errno); });
            made = inject.calls();
        }
        for (auto at = made.begin(), next = at; at != made.end(); at = next) {
            next = std::find_if(at, made.end(), [&](const std::string &c) { return c != *at; });
            calls += (calls.empty() ? "" : "; ") + *at +
                     (next - at > 1 ? " x" + std::to_string(next - at) : "");
        }
        const auto shown = [](const char *name, int64_t value) {
            return value == kUnset ? "" : name + std::to_string(value);
        };
        std::string out = std::to_string(status) + (status == -1 ? " errno=" + error : "") +
                          shown(" slot=", slot) + shown(" size=", int64_t(size)) +
                          shown(" count=", count) + shown(" exists=", exists) + shown(" pid=", pid);
        const char *opened = fd == kUnset ? "" : fd < 0 ? " fd=-1" : " fd=open";
        out += opened + std::string(stream ? " stream=open" : "") +
               (names.empty() ? "" : " names=" + names.substr(1));
        const bool has_data = data != &mark, has_text = text != reinterpret_cast<char *>(&mark);
        const auto *bytes = reinterpret_cast<char *>(data);
        if (has_data) {
            out += " data=" + (bytes ? std::string(bytes, size + 1) : "null");
        }
        if (has_text) {
            out += " text=" + std::string(text ? text : "null");
        }
        void *block = has_data ? static_cast<void *>(data) : has_text ? text : nullptr;
        // At most the results are left; realpath's block may not come from our malloc.
        EXPECT_LE(last.live_blocks, (block != nullptr) + (stream != nullptr));
        EXPECT_EQ(
            bytes && has_data ? std::count(last.sizes.begin(), last.sizes.end(), size + 1) : 1, 1);
        std::free(block);
        (void)(fd >= 0 && fd != kUnset && close(fd)), (void)(stream && fclose(stream));
        out += show_calls ? " [" + calls + "]" : "";
        for (const std::string &line : tavtest::report_summary()) {
            out += " " + line + ";";
        }
        return shortened(out, dir);
    }
    void check(const std::vector<Row> &rows) {
        for (const Row &r : rows) {
            std::string seen = r.fail_at == kEach ? "" : run(r.op, r.plan, r.fail_at);
            for (long nth = 1; r.fail_at == kEach && (nth == 1 || last.injected); ++nth) {
                const std::string one = run(r.op, {}, nth) + "\n";
                seen += last.injected && !seen.ends_with(one) ? one : "";
            }
            EXPECT_EQ(seen, r.want) << &r - rows.data();
        }
    }
    std::string dir, names;
    bool show_calls = true;
    std::vector<int> fds;
    int32_t free_fd, fd, slot, exists;
    uint32_t pid;
    uint64_t size, count;
    uint8_t *data;
    char *text;
    FILE *stream;
    tavtest::AllocRun last;
};

TEST_F(Files, Descriptors) {
    char buf[100];
    std::string big, tail = "; read 1024 x2; read 452; lseek 7 0]", failed = " T count_lines P 6;";
    for (int i = 0; i < 2500; ++i) {
        big += i % 7 == 0 ? '\n' : i % 11 ? 'x' : '\r';
    }
    const auto counted = [&](size_t n, const std::string &rest) {
        return " count=" + std::to_string(std::count(big.begin(), big.begin() + n, '\n')) +
               " [lseek 0 1; fstat; lseek 0 0" + rest;
    };
    const auto lines = [&](int at) { return tav_util_count_lines(at, &count, &slot); };
    const auto read = [&](int at) { return tav_util_read_file(at, &data, &size, &slot); };
    fds.push_back(open("/dev/full", O_WRONLY));
    const int c = opened(big, 7), c2 = opened(big, 7), in = opened(big.substr(0, 70)),
              out = opened("", 0, O_WRONLY), nul = opened(std::string("a\0b\n", 4)),
              moved = opened("abcd", 1), full = fds[0];
    const std::string f = put("f", "abcd"), sub = dir + "/d";
    const char *F = f.c_str(), *D = sub.c_str(), *d = dir.c_str();
    struct stat st = {};
    mkdir(D, 0700), stat(D, &st);
    check({
        {OP(tav_util_open(&fd, &slot, O_WRONLY | O_CREAT | O_EXCL, 0640, "%s/%c", d, 'n')),
         "0 slot=0 fd=open [open @/n 301 640]"},
        {OP(tav_util_open(&fd, &slot, 0, 0, "/")), "2 [] T vasprintf V 2;\n", Plan(), kEach},
        // A byte moved starts the count of empty reads over.
        {OP(tav_util_whole_read(in, buf, 100)), "-11 [read 100 x5; read 99 x5; read 30 x5]",
         Plan{.reads = {0, 0, 0, 0, 1, 0, 0, 0, 0}}},
        {OP(tav_util_whole_read(in, buf, 10)), "-1 errno=5 [read 10]", Plan{.reads = {-1}}},
        {OP(tav_util_whole_write(out, buf, 10, &slot)), "-11 [write 10; write 7 x5]",
         Plan{.writes = {3, 0, 0, 0, 0, 0}}},
        {OP(tav_util_whole_write(full, buf, 1, &slot)), "6 slot=28 [write 1] T whole_write P 6;"},
        {OP(read(nul)), "0 size=4 data=a\\0b\\n\\0 [fstat; read 4]"},
        {OP(read(moved)), "6 size=4 data=null [fstat; read 4; read 1 x5] T read_file P 6;"},
        {OP(read(nul)), "2 slot=12 size=4 data=null [fstat] T read_file P 2;\n", Plan(), kEach},
        {OP(read(-1)), "6 slot=9 [fstat] T read_file P 6;"},
        {OP(lines(c)), "0" + counted(2500, tail)},
        {OP(lines(c)), "6 slot=5" + counted(2048, tail) + failed, Plan{.reads = {-2, -2, -1}}},
        {OP(lines(c)), "0" + counted(2048, tail), Plan{.reads = {-2, -2, 0}}},
        {OP(lines(c)), "6 slot=29 [lseek 0 1]" + failed, Plan{.fail = "lseek", .error = 29}},
        {OP(lines(c)), "6 slot=5 [lseek 0 1; fstat]" + failed, fails("fstat")},
        {OP(lines(c)), "6 slot=5 [lseek 0 1; fstat; lseek 0 0]" + failed, fails("lseek", 2)},
        {OP(lines(c2)), "6 slot=5" + counted(2500, tail) + failed, fails("lseek", 3)},
        {OP(tav_util_get_file_size(D, &size)),
         "0 size=" + std::to_string(st.st_size) + " [open @/d 0; fstat; close @/d]"},
        {OP(tav_util_get_file_size(F, &size)),
         "6 [open @/f 0; fstat; close @/f] T get_file_size P 6;", fails("fstat")},
        {OP(tav_util_delete_file(D, &slot)), "6 slot=21 [] T delete_file P 6;"},
        {OP(tav_util_truncate_file(F, 2, &slot) + tav_util_truncate_file(F, -1, &slot) +
            tav_util_query_file_exists(F, &exists)),
         "6 slot=22 exists=1 [] T truncate_file P 6;"},
        {OP(tav_util_delete_file(F, &slot) + tav_util_query_file_exists(F, &exists)),
         "0 exists=0 []"},
        // The zero-length and refused transfers, and a null argument of each.
        {OP(tav_util_whole_read(in, buf, 0) + tav_util_whole_write(out, buf, 0, &slot) +
            tav_util_whole_read(in, buf, -1) + tav_util_whole_read(in, nullptr, 1) +
            tav_util_open(nullptr, &slot, 0, 0, "x") +
            tav_util_open(&exists, &slot, 0, 0, nullptr) +
            tav_util_whole_write(0, nullptr, 0, &slot) +
            tav_util_read_file(0, nullptr, &size, &slot) +
            tav_util_read_file(0, &data, nullptr, &slot) + tav_util_count_lines(0, nullptr, &slot) +
            tav_util_get_file_size(nullptr, &size) + tav_util_get_file_size(F, nullptr) +
            tav_util_truncate_file(nullptr, 0, &slot) +
            tav_util_query_file_exists(nullptr, &exists) + tav_util_query_file_exists(F, nullptr) +
            tav_util_delete_file(nullptr, &slot) + tav_util_whole_write(0, buf, -1, &slot) +
            lines(-1)),
         "32 []" +
             nulls("P", "open open whole_write read_file read_file count_lines get_file_size "
                        "get_file_size truncate_file query_file_exists query_file_exists "
                        "delete_file") +
             " T whole_write P 33; T count_lines P 7;"},
    });
    EXPECT_EQ(std::string(buf, 70) + std::to_string(lseek(out, 0, SEEK_CUR)),
              big.substr(0, 70) + "3");
}

TEST_F(Files, NamedFilesAndSync) {
    char memory[8];
    const std::string f = put("pid", "4242"), w = dir + "/w", big(1 << 20, 'b'), g = put("f", "x"),
                      c = dir + "/c";
    const std::string pad(998 - dir.size(), '/'), p999 = dir + pad + "f", fx = f + "x";
    const auto sized = [](const std::string &name) {
        return "open @/" + name + " 0; fstat; close @/" + name + "; fopen @/" + name + " rb";
    };
    const auto durable = [](const std::string &name) {
        return "fflush; fsync @/" + name + "; open @ 0; fsync @; close @; fclose";
    };
    const char *F = f.c_str(), *W = w.c_str(), *d = dir.c_str(), *G = g.c_str(), *C = c.c_str();
    struct stat st = {};
    FILE *appended = fopen(G, "a"), *null = fopen("/dev/null", "w"),
         *no_descriptor = fmemopen(memory, 8, "w");
    stat(d, &st), fputs("y", appended);
    const Plan shrinking = {.on_fopen = [&](const char *p) { return truncate(F, 2), p; }};
    const std::string failed_sync = " T sync_file S 6;", not_synced = " L sync_file S: Failed to ";
    const auto read = [&](const char *path) {
        return tav_util_read_named_file(path, &data, &size, nullptr);
    };
    const auto opened = [&](auto... path) { return tav_util_fopen(&stream, &slot, "r", path...); };
    check({
        {OP(opened("%s/%s", d, "pid")), "0 slot=0 stream=open [fopen @/pid r]"},
        {OP(opened("%s/none", d)), "6 slot=2 [fopen @/none r] T fopen C 6;"},
        {OP(opened("%s", "/")),
         "2 [] T vasprintf V 2; T fopen C 2;\n6 slot=12 [fopen / r] T fopen C 6;\n", Plan(), kEach},
        {OP(read(F)), "0 size=4 data=4242\\0 [" + sized("pid") + "; fclose]"},
        {OP(read(d)),
         "6 size=" + std::to_string(st.st_size) +
             " data=null [open @ 0; fstat; close @; fopen @ rb; fclose] T read_named_file C 6;"},
        {OP(read(F)), "6 size=4 data=null [" + sized("pid") + "; fclose] T read_named_file C 6;",
         shrinking},
        {OP(tav_util_write_named_file(W, 1, "data", 4, nullptr) +
            tav_util_write_named_file(W, 0, "+", 1, nullptr)),
         "0 [fopen @/w wb; " + durable("w") + "; fopen @/w ab; " + durable("w") + "]",
         Plan{.fwrites = {1}}}, // a short write goes on from where it stopped
        {OP(tav_util_write_named_file(d, 1, "", 0, nullptr)),
         "6 [fopen @ wb] T write_named_file C 6;"},
        {OP(tav_util_write_named_file(C, 1, "z", 1, nullptr)),
         "6 [fopen @/c wb; fclose] T write_named_file C 6;", Plan{.fwrites = {0}}},
        {OP(tav_util_write_named_file("/dev/full", 1, "z", 1, nullptr)),
         "6 [fopen /dev/full wb; fflush; fclose ^1] T sync S 6; T write_named_file C 6;"},
        {OP(tav_util_write_named_file("/dev/full", 1, big.data(), big.size(), nullptr)),
         "6 [fopen /dev/full wb; fclose] T write_named_file C 6;"},
        {OP(tav_util_copy_file(fx.c_str(), W)),
         "6 [open @/pidx 0] T get_file_size P 6; T read_named_file C 6;"},
        // The read's stream and block, the write's directory text and stream.
        {OP(tav_util_copy_file(F, C)),
         "6 [" + sized("pid") + "] T read_named_file C 6;\n2 [" + sized("pid") +
             "; fclose] T read_named_file C 2;\n2 [" + sized("pid") + "; fclose]" + kNoComponent +
             " T write_named_file C 2;\n6 [" + sized("pid") +
             "; fclose; fopen @/c wb] T write_named_file C 6;\n0 [" + sized("pid") +
             "; fclose; fopen @/c wb; " + durable("c") + "]\n",
         Plan(), kEach},
        {OP(tav_util_sync(appended, nullptr)), "0 [fflush; fsync @/f]"},
        {OP(tav_util_sync(appended, "/dev/null") + tav_util_sync(appended, "")),
         "12 [fflush; fsync @/f; open /dev/null 0; fsync /dev/null; close /dev/null ^1; fflush "
         "^1; fsync @/f ^1; open  0 ^1] T sync S 6; T sync S 6;"},
        {OP(tav_util_sync(no_descriptor, nullptr) + tav_util_sync(null, nullptr)),
         "12 [fflush; fflush ^1; fsync /dev/null ^1] T sync S 6; T sync S 6;"},
        {OP(tav_util_sync_file(p999.c_str())), "0 [open @" + pad + "f 2; open @" + pad.substr(1) +
                                                   " 0; fsync @/f; fsync @; close @; close @/f]"},
        {OP(tav_util_sync_file(G)),
         "6 [open @/f 2; open @ 0; close @/f ^1]" + not_synced +
             "open directory @ ~ Input/output error;" + failed_sync,
         fails("open", 2)},
        {OP(tav_util_sync_file(G)),
         "6 [open @/f 2; open @ 0; fsync @/f; close @ ^1; close @/f ^1]" + not_synced +
             "sync file @/f ~ Input/output error;" + failed_sync,
         fails("fsync")},
        {OP(tav_util_sync_file(G)),
         "6 [open @/f 2; open @ 0; fsync @/f; fsync @; close @ ^1; close @/f ^1]" + not_synced +
             "sync directory file @ ~ Input/output error;" + failed_sync,
         fails("fsync", 2)},
        {OP(tav_util_sync_file(F)),
         "2 []" + kNoComponent +
             " T sync_file S 2; L sync_file Failed to get directory component;\n",
         Plan(), kEach},
        {OP(tav_util_fopen(nullptr, &slot, "r", "x") +
            tav_util_fopen(&stream, &slot, nullptr, "x") +
            tav_util_fopen(&stream, &slot, "r", nullptr) +
            tav_util_read_named_file(nullptr, &data, &size, nullptr) +
            tav_util_read_named_file(F, nullptr, &size, nullptr) +
            tav_util_read_named_file(F, &data, nullptr, nullptr) +
            tav_util_write_named_file(nullptr, 1, "", 0, nullptr) +
            tav_util_write_named_file(W, 1, nullptr, 0, nullptr) + tav_util_copy_file(nullptr, W) +
            tav_util_copy_file(W, nullptr) + tav_util_fprintf_bytes(nullptr, data, 1) +
            tav_util_fprintf_bytes(stdout, nullptr, 1) + tav_util_printf_bytes(nullptr, 1) +
            tav_util_sync(nullptr, d) + tav_util_sync_file(nullptr) +
            tav_util_sync_file((p999 + "f").c_str())),
         "52 []" +
             nulls("C", "fopen fopen fopen read_named_file read_named_file read_named_file "
                        "write_named_file write_named_file copy_file copy_file fprintf_bytes "
                        "fprintf_bytes printf_bytes") +
             nulls("S", "sync sync_file") + " T sync_file S 7;"},
    });
    for (FILE *still_open : {appended, null, no_descriptor}) {
        fclose(still_open);
    }
    EXPECT_EQ(tavtest::slurp(c) + "|" + tavtest::slurp(w) + tavtest::slurp(g), "42|data+xy");
}

TEST_F(Files, PathsAndDirectories) {
    const std::string dotted = dir + "/link/.././f", missing = dir + "/link/none", d = dir + "/d",
                      f = put("f"), sorted = dir + "/s", gone = sorted + "/gone",
                      end = "T dirscan X 37; T dirscan X 37;";
    const auto renamed = [&] { rename(gone.c_str(), (sorted + "/new").c_str()); };
    mkdir(d.c_str(), 0700), mkdir(sorted.c_str(), 0700),
        symlink(d.c_str(), (dir + "/link").c_str()), put("d/x");
    for (const char *name : {"beta", "Alpha", "Gamma", ".x", "...", "-", "gone"}) {
        put(std::string("s/") + name);
    }
    const auto component = [&](const char *path) {
        return tav_util_get_directory_component(path, &text);
    };
    check({
        {OP(component("a/b/c")), "0 text=a/b []"},
        {OP(component("file")), "0 text=file []"},
        {OP(component("/x")), "0 text= []"},
        {OP(component("//x")), "0 text=/ []"},
        {OP(component("a/")), "0 text=a []"},
        {OP(component("file")),
         "2 text=null [] L get_directory_component D: Memory allocation for path file ~ Cannot "
         "allocate memory; T get_directory_component D 2;",
         Plan(), 1},
        {OP(tav_util_abs_path(dotted.c_str(), &text)), "0 text=@/f []"},
        {OP(tav_util_abs_path(missing.c_str(), &text)),
         "6 text=null [] L abs_path D: Cannot determine absolute file path from relative path "
         "@/link/none ~ No such file or directory; T abs_path D 6;"},
        {OP(tav_util_mkdir(d.c_str()) + tav_util_query_dir_exists(d.c_str(), &exists)),
         "6 exists=1 [] T mkdir X 6;"},
        {OP(tav_util_mkdir_read_only(d.c_str())),
         "6 [] L mkdir_read_only X: Failed to create directory @/d ~ File exists; T "
         "mkdir_read_only X 6;"},
        {OP(tav_util_query_dir_exists(missing.c_str(), &exists)), "0 exists=0 []"},
        {OP(tav_util_query_dir_exists(d.c_str(), &exists)),
         "0 exists=0 [] L query_dir_exists X: Error checking directory @/d existence ~ Cannot "
         "allocate memory;",
         Plan(), 1},
        {OP(scan(d)),
         "-9 [] L dirscan_begin Failed to allocate memory;\n-9 [] L dirscan_begin X: Failed to "
         "scan directory @/d ~ Cannot allocate memory;\n0 names=? [] log tav_dirscan_file_name "
         "Failed to allocate memory; " +
             end + "\n",
         Plan(), kEach},
        {OP(component(nullptr) + tav_util_get_directory_component("a", nullptr) +
            tav_util_abs_path(nullptr, &text) + tav_util_abs_path("/", nullptr) +
            tav_util_mkdir(nullptr) + tav_util_mkdir_read_only(nullptr) +
            tav_util_query_dir_exists(nullptr, &exists) +
            tav_util_query_dir_exists(d.c_str(), nullptr) +
            long{tav_util_dirscan_begin(nullptr) != nullptr} +
            (tav_dirscan_file_name(nullptr) != nullptr) + tav_util_dirscan(nullptr)),
         "27 []" + nulls("D", "get_directory_component get_directory_component abs_path abs_path") +
             nulls("X", "mkdir mkdir_read_only dirscan")},
        // A snapshot in case-blind order: a rename during the scan does not show.
        {OP(scan(sorted, renamed)), "0 names=- ... .x Alpha beta Gamma gone [] " + end},
    });
    tav_util_dirscan_end(nullptr);
    EXPECT_EQ(std::vector<size_t>(last.sizes.end() - 7, last.sizes.end()),
              (std::vector<size_t>{2, 4, 3, 6, 5, 6, 5}));
}

TEST_F(Files, OutputCwdAndNobody) {
    const std::string out = put("out"), mine = dir + "/mine", locked = dir + "/locked",
                      lf = put("locked/f"), rw = mine + "/rw", ro = mine + "/ro";
    const uint8_t bytes[] = {0x00, 0x0f, 0xa0, 0xff};
    put("bare"), mkdir(mine.c_str(), 0700), mkdir(locked.c_str(), 0700);
    chown(mine.c_str(), 65534, 65534), chmod(dir.c_str(), 0777);
    const char *L = lf.c_str(), *d = dir.c_str();
    EXPECT_EQ(tavtest::in_child([&] {
                  dup2(open(out.c_str(), O_WRONLY), 1);
                  const long printed = tav_util_printf_bytes(bytes, 4) +
                                       tav_util_fprintf_bytes(stdout, bytes, 0) + fflush(stdout);
                  std::string seen = std::to_string(printed) + tavtest::slurp(out) + "\n" +
                                     (chdir(d), run(OP(tav_util_sync_file("bare"))));
                  if (umask(0), !tavtest::drop_to_nobody()) {
                      return std::string();
                  }
                  struct stat a = {}, b = {};
                  seen += "\n" + run(OP(tav_util_mkdir(rw.c_str()) +
                                        tav_util_mkdir_read_only(ro.c_str()) + scan(ro)));
                  stat(rw.c_str(), &a), stat(ro.c_str(), &b);
                  seen += "\n" + octal(a.st_mode & 07777) + " " + octal(b.st_mode & 07777) + "\n";
                  return seen +
                         run(OP(tav_util_open(&fd, &slot, O_RDONLY, 0, "%s", L) +
                                tav_util_query_file_exists(L, &exists) * 10 +
                                tav_util_get_file_size(L, &size) * 100 +
                                tav_util_sync_file(L) * 1000 +
                                tav_util_query_dir_exists(locked.c_str(), &exists) + scan(locked)));
              }),
              "0000fa0ff\n0 [open bare 2; open bare 0; fsync @/bare x2; close @/bare x2]\n0 [] T "
              "dirscan X 37; T dirscan X 37;\n700 500\n6657 slot=13 exists=0 fd=-1 [open "
              "@/locked/f 0; open @/locked/f 0 ^2; open @/locked/f 2 ^3] T open P 6; T "
              "query_file_exists P 6; T "
              "get_file_size P 6; L sync_file S: Failed to open file @/locked/f ~ Permission "
              "denied; T sync_file S 6; L query_dir_exists X: Error checking directory @/locked "
              "existence ~ Permission denied; L dirscan_begin X: Failed to scan directory "
              "@/locked ~ Permission denied;");
}

// The claim, with this process as the live holder. Each row: the file
// before (null: absent), the program, then the claim's status and reports
// ([calls] with a plan) and "file=" the bytes, the mode, and " locked" when a
// fresh descriptor can't lock it. A row wanting " locked" has another
// descriptor take the lock just before the claim's own.
TEST_F(Files, PidFileClaims) {
    const pid_t ended = fork();
    if (ended == 0) {
        tavtest::child_exit(0);
    }
    waitpid(ended, nullptr, 0);
    std::string argv0, racer, m = std::to_string(getpid()), p101(101, 'm'), app = dir + "/app.pid",
                              gone = std::to_string(ended);
    std::getline(std::ifstream("/proc/self/cmdline"), argv0, '\0');
    const mode_t mask = umask(0);
    umask(mask);
    struct Claim {
        const char *content;
        std::string program, want;
        std::optional<Plan> plan = {};
        std::string name = "app.pid";
    };
    const auto claim = [&](const Claim &row) {
        const std::string at = dir + "/" + row.name;
        unlink(app.c_str()), racer.clear(), show_calls = row.plan.has_value();
        (void)(row.content && !put("app.pid", row.content, 0600).empty());
        int other = -1;
        tavtest::HostInjection faults({.before_flock = [&] {
            (void)(row.want.ends_with("locked") &&
                   flock(other = open(at.c_str(), O_RDONLY), LOCK_EX));
        }});
        std::string seen = run(OP(tav_util_claim_pid_file(at.c_str(), row.program.c_str(), &pid)),
                               row.plan.value_or(Plan()));
        struct stat st = {};
        const int lock = open(at.c_str(), O_RDONLY);
        if (stat(at.c_str(), &st) == 0) {
            seen += " file=" + tavtest::slurp(at) + " " + octal(st.st_mode & 07777) +
                    (flock(lock, LOCK_EX | LOCK_NB) ? " locked" : "");
        }
        return close(lock), close(other), shortened(seen + racer, dir);
    };
    // The creator holds the lock until its pid is written: a claim in that moment fails.
    const Plan race = {.on_fopen = [&](const char *p) {
        racer.replace(0, racer.size(), tavtest::in_child([&] {
                          tavtest::clear_reports();
                          tav_util_claim_pid_file(p, "x", &pid);
                          return tavtest::reported();
                      }));
        return p;
    }};
    racer.reserve(1000); // assigned during a counted run
    const std::string mode = octal(0664 & ~mask), fail = " T claim_pid_file F 6;",
                      rewritten = " file=" + m + " 600", stale = "0" + rewritten,
                      reread = "[open @/app.pid 302 664; open @/app.pid 2; open @/app.pid 0; "
                               "fstat; close @/app.pid; fopen @/app.pid rb; fclose; open /proc/" +
                               gone + "/cmdline 0; fopen @/app.pid w; fflush; fclose",
                      failed = " written pid file @/app.pid ~ Input/output error;" + rewritten,
                      busy = "L claim_pid_file F: Failed to lock PID file @/app.pid ~ Resource "
                             "temporarily unavailable";
    const Claim rows[] = {
        {nullptr, "p",
         "0 [open @/app.pid 302 664; fopen @/app.pid w; fflush x2; fclose; close @/app.pid] file=" +
             m + " " + mode + "|" + busy + "|T claim_pid_file F 6",
         race},            // the first flush is the test's, before it forks the racer
        {"", p101, stale}, // an empty file is stale before the name is measured
        {gone.c_str(), "p", "0 " + reread + "; close @/app.pid]" + rewritten, Plan()},
        {gone.c_str(), "p",
         "6 " + reread + " ^1; close @/app.pid ^1] log write_pid_file F: Failed to flush" + failed,
         fails("fflush")},
        {gone.c_str(), "p",
         "6 " + reread + "; close @/app.pid ^1] log write_pid_file F: Failed to close" + failed,
         fails("fclose", 2)},
        {m.c_str(), argv0.substr(0, 4), "52 pid=" + m + " T claim_pid_file F 52;" + rewritten},
        {m.c_str(), argv0 + "x", stale},
        {m.c_str(), std::string(100, 'm'), stale},
        {m.c_str(), p101, "7 T claim_pid_file F 7;" + rewritten},
        {"self", "", "6" + fail + " file=self 600"}, // a live entry, but no number
        {"self/cmdline", "p", "6 trace map_pid_to_exe F 6;" + fail + " file=self/cmdline 600"},
        {nullptr, "p", "6 " + busy + ";" + fail + " file= " + mode + " locked"},
    };
    for (const Claim &row : rows) {
        EXPECT_EQ(claim(row), row.want) << row.program;
    }
    EXPECT_EQ(run(OP(tav_util_claim_pid_file(nullptr, "p", &pid) +
                     tav_util_claim_pid_file("p", nullptr, &pid) +
                     tav_util_claim_pid_file("p", "p", nullptr))),
              "9" + nulls("F", "claim_pid_file claim_pid_file claim_pid_file"));
    // As nobody, at other paths: the existing file refused, creation refused,
    // a file created read-only refusing the write's own open; no directory.
    chmod(dir.c_str(), 0777), mkdir((dir + "/closed").c_str(), 0755), put("root.pid", "1");
    EXPECT_EQ(tavtest::in_child([&] {
                  std::string seen = (umask(0222), tavtest::drop_to_nobody()) ? "" : "as root";
                  for (const char *name : {"root.pid", "closed/p", "new", "none/p"}) {
                      seen += claim({nullptr, "p", "", {}, name}) + "\n";
                  }
                  return seen;
              }),
              "6 L claim_pid_file F: Failed to open pid file @/root.pid ~ Permission denied;" +
                  fail +
                  " file=1 644\n39 T claim_pid_file F 39;\n6 log write_pid_file F: Failed to open "
                  "pid file @/new ~ Permission denied; trace write_pid_file F 6; file= 444\n6 L "
                  "claim_pid_file F: Cannot access pid file @/none/p ~ No such file or directory;" +
                  fail + "\n");
    // Each allocation failing in turn: the reader's stream and block, the
    // path, the command line's block.
    claim({m.c_str(), argv0, ""}); // libc's one-time set-up allocates outside the counted runs
    check({{OP(tav_util_claim_pid_file(app.c_str(), argv0.c_str(), &pid)),
            "6 T read_named_file C 6; T claim_pid_file F 6;\n2 T read_named_file C 2; T "
            "claim_pid_file F 2;\n2 T vasprintf V 2; trace map_pid_to_exe F 2; trace "
            "map_pid_to_exe F 2; T claim_pid_file F 2;\n2 trace map_pid_to_exe F 2; T "
            "claim_pid_file F 2;\n",
            Plan(), kEach}});
    EXPECT_EQ(std::vector<size_t>(last.sizes.end() - 3, last.sizes.end()),
              (std::vector<size_t>{m.size() + 1, m.size() + 15, argv0.size() + 2}));
}

} // namespace
