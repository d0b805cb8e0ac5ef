// Directories: the sisters' reports, scan order and snapshot, out-of-memory
// paths, and what an owner without privilege may do. Each test works in a
// fresh directory and must leave no descriptor open.
#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vector>

#include "alloc_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
const std::string kSrc = " src/directory/linux.cpp";
const std::string kEnd = "trace tav_util_dirscan" + kSrc + " 37";

void expect_reports(const Lines &expected) {
    EXPECT_EQ(tavtest::report_summary(), expected);
    tavtest::clear_reports();
}

std::string scan_line(const std::string &path, const char *reason) {
    return "log tav_util_dirscan_begin" + kSrc + ": Failed to scan directory " + path +
           "  Reason: " + reason;
}

// The names a scan delivers ("null" for a name not copied), {"null"} if none began.
Lines scan_all(const std::string &path) {
    tav_util_dirscan_handle *scan = tav_util_dirscan_begin(path.c_str());
    Lines names = scan ? Lines{} : Lines{"null"};
    while (scan && tav_util_dirscan(scan) == TAV_OK) {
        char *name = tav_dirscan_file_name(scan);
        names.emplace_back(name ? name : "null");
        std::free(name);
    }
    tav_util_dirscan_end(scan);
    return names;
}

class Directory : public ::testing::Test {
  protected:
    long descriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }
    void SetUp() override {
        char name[] = "/tmp/tavdir.XXXXXX";
        dir_ = mkdtemp(name);
        descriptors_ = descriptors();
        tavtest::clear_reports();
    }
    void TearDown() override {
        EXPECT_EQ(descriptors(), descriptors_);
        fs::remove_all(dir_);
    }
    std::string at(const char *name) const { return dir_ + "/" + name; }
    void touch(const char *name) const { close(creat(at(name).c_str(), 0600)); }
    std::string dir_;
    long descriptors_ = 0;
};

TEST_F(Directory, MkdirSistersDifferInTheirLine) {
    const std::string mk = "trace tav_util_mkdir" + kSrc,
                      ro = "trace tav_util_mkdir_read_only" + kSrc;
    EXPECT_EQ(tav_util_mkdir(nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_mkdir_read_only(nullptr), TAV_ERR_NULL_ARG);
    expect_reports({mk + " 3", ro + " 3"});
    EXPECT_EQ(tav_util_mkdir(at("d").c_str()), TAV_OK);
    EXPECT_EQ(tav_util_mkdir(at("d").c_str()), TAV_ERR_SYSTEM);
    EXPECT_EQ(tav_util_mkdir(at("no/d").c_str()), TAV_ERR_SYSTEM);
    expect_reports({mk + " 6", mk + " 6"});
    EXPECT_EQ(tav_util_mkdir_read_only(at("d").c_str()), TAV_ERR_SYSTEM);
    expect_reports({"log tav_util_mkdir_read_only" + kSrc + ": Failed to create directory " +
                        at("d") + "  Reason: File exists",
                    ro + " 6"});
}

// Case-insensitive order ("-" before "."), only the exact dot names skipped,
// a snapshot taken at the start, a copy of exactly the name's size, no
// current name outside an entry, an end traced each time.
TEST_F(Directory, ScanWalksASortedSnapshot) {
    for (const char *name : {"beta", "Alpha", "Gamma", ".x", "...", "-", "gone"}) {
        touch(name);
    }
    tav_util_dirscan_handle *scan = tav_util_dirscan_begin(dir_.c_str());
    EXPECT_EQ(tav_dirscan_file_name(scan), nullptr);
    touch("new");
    fs::remove(at("gone"));
    Lines names;
    while (tav_util_dirscan(scan) == TAV_OK) {
        char *name = nullptr;
        const auto run = tavtest::run_allocations(0, [&] { name = tav_dirscan_file_name(scan); });
        EXPECT_EQ(run.sizes, std::vector<size_t>{std::strlen(name) + 1});
        names.emplace_back(name);
        std::free(name);
    }
    EXPECT_EQ(names, (Lines{"-", "...", ".x", "Alpha", "beta", "Gamma", "gone"}));
    EXPECT_EQ(tav_dirscan_file_name(scan), nullptr);
    EXPECT_EQ(tav_util_dirscan(scan), TAV_ERR_NO_MORE);
    tav_util_dirscan_end(scan);
    expect_reports({kEnd, kEnd});
    // The null handles differ; only "." and ".." give the end at once, and a
    // removed directory gives no entry at all (scandir stores no array).
    EXPECT_EQ(tav_util_dirscan_begin(nullptr), nullptr);
    EXPECT_EQ(tav_dirscan_file_name(nullptr), nullptr);
    tav_util_dirscan_end(nullptr);
    EXPECT_EQ(tav_util_dirscan(nullptr), TAV_ERR_NULL_ARG);
    fs::create_directory(at("empty"));
    EXPECT_EQ(scan_all(at("empty")), Lines{});
    const int fd = open(at("empty").c_str(), O_RDONLY | O_DIRECTORY);
    fs::remove(at("empty"));
    EXPECT_EQ(scan_all("/proc/self/fd/" + std::to_string(fd)), Lines{});
    close(fd);
    EXPECT_EQ(scan_all(at("new")), Lines{"null"});
    expect_reports({"trace tav_util_dirscan" + kSrc + " 3", kEnd, kEnd,
                    scan_line(at("new"), "Not a directory")});
}

// Every allocation, the library's and scandir's, fails once; nothing leaks.
TEST_F(Directory, EachAllocationFailureIsReported) {
    touch("a");
    touch("b");
    bool began = false, copied[2] = {};
    const long runs = tavtest::for_each_allocation_failure(
        [&] { // allocates nothing of its own
            tav_util_dirscan_handle *scan = tav_util_dirscan_begin(dir_.c_str());
            began = scan != nullptr;
            for (bool &copy : copied) {
                char *name = began && tav_util_dirscan(scan) == TAV_OK ? tav_dirscan_file_name(scan)
                                                                       : nullptr;
                copy = name != nullptr;
                std::free(name);
            }
            tav_util_dirscan_end(scan);
        },
        [&](long nth, const tavtest::AllocRun &run) {
            EXPECT_EQ(run.live_blocks, 0);
            EXPECT_EQ(copied[0] + copied[1], began ? 1 : 0) << nth;
            expect_reports({nth == 1 ? "log tav_util_dirscan_begin Failed to allocate memory"
                            : !began ? scan_line(dir_, "Cannot allocate memory")
                                     : "log tav_dirscan_file_name Failed to allocate memory"});
        });
    EXPECT_GE(runs, 5);
}

TEST_F(Directory, QueryDirExistsNeverTraces) {
    touch("file");
    int32_t exists = 7;
    EXPECT_EQ(tav_util_query_dir_exists(nullptr, &exists), TAV_ERR_NULL_ARG);
    EXPECT_EQ(tav_util_query_dir_exists(dir_.c_str(), nullptr), TAV_ERR_NULL_ARG);
    EXPECT_EQ(exists, 7);
    const std::string line = "log tav_util_query_dir_exists" + kSrc + ": Error checking directory ";
    const struct {
        std::string path;
        long fail_at;
        int32_t exists;
        Lines reports;
    } rows[] = {
        {dir_, 0, 1, {}},
        {at("missing"), 0, 0, {}},
        {at("file"), 0, 0, {line + at("file") + " existence  Reason: Not a directory"}},
        {dir_, 1, 0, {line + dir_ + " existence  Reason: Cannot allocate memory"}},
    };
    for (const auto &row : rows) {
        tav_status status = TAV_ERR_BAD_ARG;
        const auto run = tavtest::run_allocations(
            row.fail_at, [&] { status = tav_util_query_dir_exists(row.path.c_str(), &exists); });
        EXPECT_EQ(status, TAV_OK);
        EXPECT_EQ(exists, row.exists) << row.path;
        EXPECT_EQ(run.live_blocks, 0);
        expect_reports(row.reports);
    }
}

// As nobody, where permissions hold: the modes under an empty creation mask;
// a read-only directory its owner lists and enters but cannot add to; a
// directory it may not read.
TEST_F(Directory, PermissionsHoldForAnOwnerWithoutPrivilege) {
    fs::create_directory(at("mine"));
    ASSERT_EQ(chown(at("mine").c_str(), 65534, 65534), 0);
    fs::create_directory(at("locked"));
    fs::permissions(at("locked"), fs::perms::owner_all);
    fs::permissions(dir_, fs::perms::all, fs::perm_options::add);
    auto *shared = static_cast<char *>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const std::string rw = at("mine/rw"), ro = at("mine/ro"), locked = at("locked");
    if (fork() == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) {
            tavtest::child_exit(1);
        }
        umask(0);
        struct stat a {
        }, b{};
        int32_t exists = 7;
        const int made = tav_util_mkdir(rw.c_str()) * 10 + tav_util_mkdir_read_only(ro.c_str());
        stat(rw.c_str(), &a);
        stat(ro.c_str(), &b);
        tav_util_query_dir_exists(locked.c_str(), &exists);
        size_t listed = scan_all(ro).size();
        listed += 10 * scan_all(locked).size();
        const int entered = chdir(ro.c_str()), created = creat((ro + "/f").c_str(), 0600);
        std::string out = std::to_string(errno);
        for (const std::string &report : tavtest::report_summary()) {
            out += "\n" + report;
        }
        snprintf(shared, 4096, "%d %o %o %d %zu %d %d %s", made, a.st_mode & 07777,
                 b.st_mode & 07777, exists, listed, entered, created, out.c_str());
        tavtest::child_exit(0);
    }
    int status = 1;
    wait(&status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(std::string(shared), "0 700 500 0 10 0 -1 13\nlog tav_util_query_dir_exists" + kSrc +
                                       ": Error checking directory " + locked +
                                       " existence  Reason: Permission denied\n" + kEnd + "\n" +
                                       scan_line(locked, "Permission denied"));
    munmap(shared, 4096);
}

} // namespace
