// A whole scan of a directory of 10 000 names (mixed case, no two equal
// without regard to case), side by side with scandir and the same comparison
// written by hand. Both sides read every name into a fresh block and free it,
// as a caller of the scan does; the names are checked equal and in the same
// order before anything is timed (a difference fails the row). The directory
// stays in the page cache. Each name counts as one item.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <string>
#include <strings.h>
#include <unistd.h>
#include <vector>

#include "pairs.hpp"
#include "tavutil.h"

namespace {

constexpr int kNames = 10000;

int compare_by_hand(const struct dirent **a, const struct dirent **b) {
    return strcasecmp((*a)->d_name, (*b)->d_name);
}

// The directory, made once per run of the program and removed at exit.
char bench_path[] = "/tmp/tavdirbench.XXXXXX";

void remove_bench_directory() { std::filesystem::remove_all(bench_path); }

const char *bench_directory() {
    static const bool made = [] {
        mkdtemp(bench_path);
        std::mt19937 engine(7);
        for (int i = 0; i < kNames; ++i) {
            char file[64];
            int length = std::snprintf(file, sizeof file, "%s/f%d_", bench_path, i);
            for (int j = 0; j < 8; ++j) {
                file[length++] = static_cast<char>((engine() % 2 ? 'a' : 'A') + engine() % 26);
            }
            file[length] = '\0';
            close(creat(file, 0600));
        }
        return std::atexit(remove_bench_directory) == 0;
    }();
    benchmark::DoNotOptimize(made);
    return bench_path;
}

std::vector<std::string> names_by_library(const char *path) {
    std::vector<std::string> names;
    tav_util_dirscan_handle *scan = tav_util_dirscan_begin(path);
    while (tav_util_dirscan(scan) == TAV_OK) {
        char *name = tav_dirscan_file_name(scan);
        names.emplace_back(name);
        std::free(name);
    }
    tav_util_dirscan_end(scan);
    return names;
}

std::vector<std::string> names_by_hand(const char *path) {
    std::vector<std::string> names;
    struct dirent **entries = nullptr;
    const int count = scandir(path, &entries, nullptr, compare_by_hand);
    for (int i = 0; i < count; ++i) {
        if (std::strcmp(entries[i]->d_name, ".") != 0 &&
            std::strcmp(entries[i]->d_name, "..") != 0) {
            names.emplace_back(entries[i]->d_name);
        }
        std::free(entries[i]);
    }
    std::free(entries);
    return names;
}

bool checked(benchmark::State &state) {
    const char *path = bench_directory();
    const auto library = names_by_library(path);
    if (library.size() != kNames || library != names_by_hand(path)) {
        state.SkipWithError("the scan and scandir by hand disagree");
        return false;
    }
    return true;
}

void BM_DirScan_tav(benchmark::State &state) {
    if (!checked(state)) {
        return;
    }
    const char *path = bench_directory();
    for (auto _ : state) {
        tav_util_dirscan_handle *scan = tav_util_dirscan_begin(path);
        while (tav_util_dirscan(scan) == TAV_OK) {
            char *name = tav_dirscan_file_name(scan);
            benchmark::DoNotOptimize(name);
            std::free(name);
        }
        tav_util_dirscan_end(scan);
    }
    state.SetItemsProcessed(state.iterations() * kNames);
}

void BM_DirScan_peer(benchmark::State &state) {
    state.SetLabel("scandir with strcasecmp, strdup of each name");
    if (!checked(state)) {
        return;
    }
    const char *path = bench_directory();
    for (auto _ : state) {
        struct dirent **entries = nullptr;
        const int count = scandir(path, &entries, nullptr, compare_by_hand);
        for (int i = 0; i < count; ++i) {
            const char *d_name = entries[i]->d_name;
            if (std::strcmp(d_name, ".") != 0 && std::strcmp(d_name, "..") != 0) {
                char *name = strdup(d_name);
                benchmark::DoNotOptimize(name);
                std::free(name);
            }
            std::free(entries[i]);
        }
        std::free(entries);
    }
    state.SetItemsProcessed(state.iterations() * kNames);
}

} // namespace

BENCHMARK(BM_DirScan_tav)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DirScan_peer)->Unit(benchmark::kMillisecond);
