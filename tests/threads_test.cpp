// Independent records on many threads at once: every thread repeats the work
// of one reference run and must end with the same results.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "tavutil.h"

namespace {

void *make_int() { return calloc(1, sizeof(int)); }
void *clone_int(void *source) { return tav_util_memdup(source, sizeof(int)); }

// One round over every family with a record or a handle; `own` is a path no
// other thread writes, `shared` a directory every thread only scans.
std::string work(const std::string &own, const std::string &shared) {
    std::string seen;
    tav_util_strbuf *sb = tav_util_strbuf_new(0);
    for (int i = 0; i < 100; ++i) {
        tav_util_strbuf_append_f(sb, "%d,", i);
    }
    tav_util_strbuf_substitute(sb, ",", 0, "%s", "; ");
    seen += tav_util_strbuf_getstr(sb);
    tav_util_strbuf_free(sb);

    tav_util_prng_state prng;
    uint8_t bytes[4096];
    uint64_t hash = 0;
    tav_util_seed_prng(&prng, 42, 7);
    tav_util_prng_fill(&prng, bytes, sizeof bytes);
    tav_util_hash64(bytes, sizeof bytes, &hash);
    seen += "|" + std::to_string(hash);

    tav_util_sum sum;
    tav_util_sum_init(&sum, 4);
    for (int i = 1; i <= 50; ++i) {
        tav_util_sum_inc(&sum, i);
        if (i % 3 == 0) {
            tav_util_sum_next(&sum);
        }
    }
    seen += "|" + std::to_string(tav_util_sum_get(&sum)) + " " +
            std::to_string(tav_util_sum_get_total(&sum));
    tav_util_sum_free(&sum);

    tav_collection *c = tav_collection_new("ints", make_int, clone_int, free);
    for (int i = 0; i < 100; ++i) {
        tav_collection_element_add(c, &i);
    }
    seen += "|" + std::to_string(tav_collection_len(c)) + " " +
            std::to_string(*static_cast<int *>(tav_collection_element(c, 99)));
    tav_collection_free(c);

    tav_util_dirscan_handle *scan = tav_util_dirscan_begin(shared.c_str());
    while (tav_util_dirscan(scan) == TAV_OK) {
        char *name = tav_dirscan_file_name(scan);
        seen += std::string("|") + name;
        free(name);
    }
    tav_util_dirscan_end(scan);

    int32_t code = -1, number = 0, flag = 0;
    char *const argv[] = {const_cast<char *>("/bin/sh"), const_cast<char *>("-c"),
                          const_cast<char *>("exit 7"), nullptr};
    tav_status st = tav_spawn_and_wait(argv, nullptr, &code);
    const tav_util_option rows[] = {{'n', "number", tav_util_getopt_int, &number, 1},
                                    {'f', "flag", tav_util_getopt_flag, &flag, 0}};
    char *const options[] = {const_cast<char *>("prog"), const_cast<char *>("-f"),
                             const_cast<char *>("--number"), const_cast<char *>("41")};
    st = static_cast<tav_status>(st + tav_util_getopt(4, options, rows, 2));
    seen += "|" + std::to_string(st) + " " + std::to_string(code) + " " + std::to_string(number) +
            " " + std::to_string(flag);

    uint8_t *back = nullptr;
    uint64_t size = 0;
    st = static_cast<tav_status>(
        tav_util_write_named_file(own.c_str(), 1, bytes, sizeof bytes, nullptr) +
        tav_util_read_named_file(own.c_str(), &back, &size, nullptr));
    seen += "|" + std::to_string(st) + " " +
            std::to_string(size == sizeof bytes && memcmp(back, bytes, size) == 0);
    free(back);
    return seen;
}

TEST(Threads, IndependentRecordsAgreeWithOneThread) {
    char dir[] = "/tmp/tavutil_threadsXXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string shared = std::string(dir) + "/scan";
    mkdir(shared.c_str(), 0700);
    for (const char *name : {"b", "A", "c"}) {
        close(creat((shared + "/" + name).c_str(), 0600));
    }
    const std::string expected = work(std::string(dir) + "/main", shared);
    EXPECT_NE(expected.find("|A|b|c|0 7 41 1|0 1"), std::string::npos) << expected;
    std::string differing[4];
    std::thread threads[4];
    for (int t = 0; t < 4; ++t) {
        threads[t] = std::thread([&, t] {
            for (int round = 0; round < 25 && differing[t].empty(); ++round) {
                const std::string seen = work(std::string(dir) + "/" + std::to_string(t), shared);
                differing[t] = seen == expected ? "" : seen;
            }
        });
    }
    for (int t = 0; t < 4; ++t) {
        threads[t].join();
        EXPECT_EQ(differing[t], "") << "thread " << t;
    }
    std::filesystem::remove_all(dir);
}

} // namespace
