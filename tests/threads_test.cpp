// Each thread's rounds over every family with records or handles agree with one.
#include "support.hpp"

namespace {

void *clone_int(void *source) { return tav_util_memdup(source, sizeof(int)); }

// `own` is a file no other thread writes, `shared` a directory all only scan.
std::string work(const std::string &own, const std::string &shared) {
    tav_util_strbuf *sb = tav_util_strbuf_new(0);
    tav_util_sum sum;
    tav_collection *c = tav_collection_new("ints", nullptr, clone_int, free);
    std::ostringstream seen; // each status in call order, then the values
    seen << tav_util_sum_init(&sum, 4);
    for (int i = 0; i < 10; ++i) {
        tav_util_strbuf_append_f(sb, "%d,", i);
        tav_util_sum_inc(&sum, tav_collection_element_add(c, &i) ? i : -1);
    }
    tav_util_prng_state prng;
    uint8_t bytes[4096], *back = nullptr;
    uint64_t hash = 0, size = 0;
    int32_t code = -1, number = 0;
    tav_proc_handle child = nullptr;
    char *const argv[] = {const_cast<char *>("/bin/false"), const_cast<char *>("--number"),
                          const_cast<char *>("41"), nullptr};
    const tav_util_option rows[] = {{'n', "number", tav_util_getopt_int, &number, 1}};
    seen << tav_util_seed_prng(&prng, 42, 7) << tav_util_prng_fill(&prng, bytes, 4096)
         << tav_util_hash64(bytes, 4096, &hash) << tav_spawn(argv, nullptr, &child)
         << tav_wait(&child, &code) << tav_util_getopt(3, argv, rows, 1)
         << tav_util_write_named_file(own.c_str(), 1, bytes, 4096, nullptr)
         << tav_util_read_named_file(own.c_str(), &back, &size, nullptr) << " "
         << tav_util_strbuf_substitute(sb, ",", 0, "%s", "; ") << " " << tav_util_strbuf_getstr(sb)
         << "|" << hash << " " << tav_util_sum_next(&sum) << " "
         << *static_cast<int *>(tav_collection_element(c, 9)) << " " << code << " " << number << " "
         << (size == 4096 && memcmp(back, bytes, size) == 0);
    tav_util_strbuf_free(sb);
    tav_util_sum_free(&sum);
    tav_collection_free(c);
    free(back);
    tav_util_dirscan_handle *scan = tav_util_dirscan_begin(shared.c_str());
    for (char *name; tav_util_dirscan(scan) == TAV_OK; free(name)) {
        seen << "|" << (name = tav_dirscan_file_name(scan));
    }
    tav_util_dirscan_end(scan);
    return seen.str();
}

TEST(Threads, IndependentRecordsAgreeWithOneThread) {
    char dir[] = "/tmp/tavutil_threadsXXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string shared = std::string(dir) + "/scan";
    std::filesystem::create_directory(shared);
    for (const char *name : {"b", "A", "c"}) {
        close(creat((shared + "/" + name).c_str(), 0600));
    }
    const std::string expected = work(dir + std::string("/main"), shared);
    EXPECT_EQ(expected,
              "000000000 10 0; 1; 2; 3; 4; 5; 6; 7; 8; 9; |3143966959136928911 45 9 1 41 1|A|b|c");
    std::vector<std::string> differing(4);
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 25; ++round) {
                const std::string seen = work(dir + std::string("/") + char('0' + t), shared);
                differing[t] += seen == expected ? "" : seen;
            }
        });
    }
    threads.clear(); // each joins
    EXPECT_EQ(differing, std::vector<std::string>(4));
    std::filesystem::remove_all(dir);
}

} // namespace
