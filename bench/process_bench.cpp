// Processes, side by side with doing it by hand: spawn and wait of /bin/true
// beside posix_spawn and waitpid, and the search of /proc beside a plain scan
// that opens and reads each command line once. The library's fork and its
// second open of each command line are what the ratios show.
#include <benchmark/benchmark.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tavutil.h"

// Unexported: this program takes it from the static archive.
extern "C" tav_status tav_util_pid_of(const char *text, int32_t mode, uint32_t **pids,
                                      uint64_t *count);

namespace {

char true_path[] = "/bin/true";
char *true_argv[] = {true_path, nullptr};
char *no_env[] = {nullptr};

void BM_SpawnAndWait_tav(benchmark::State &state) {
    for (auto _ : state) {
        int32_t code = -2;
        if (tav_spawn_and_wait(true_argv, no_env, &code) != TAV_OK || code != 0) {
            state.SkipWithError("spawn failed");
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SpawnAndWait_tav)->UseRealTime();

void BM_SpawnAndWait_peer(benchmark::State &state) {
    for (auto _ : state) {
        pid_t pid = 0;
        int status = -1;
        if (posix_spawn(&pid, true_path, nullptr, nullptr, true_argv, no_env) != 0 ||
            waitpid(pid, &status, 0) != pid || status != 0) {
            state.SkipWithError("spawn failed");
        }
    }
    state.SetItemsProcessed(state.iterations());
    state.SetLabel("posix_spawn + waitpid");
}
BENCHMARK(BM_SpawnAndWait_peer)->UseRealTime();

// A first argument no process has: every command line is read and compared.
const char kAbsent[] = "/no/such/program";

void BM_PidOf_tav(benchmark::State &state) {
    for (auto _ : state) {
        uint32_t *pids = nullptr;
        uint64_t count = 0;
        if (tav_util_pid_of(kAbsent, 1, &pids, &count) != TAV_OK) {
            state.SkipWithError("search failed");
        }
        std::free(pids);
        benchmark::DoNotOptimize(count);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PidOf_tav);

// readdir order, one open and one read of each numeric directory's cmdline.
uint64_t plain_scan(const char *text) {
    uint64_t matches = 0;
    DIR *proc = opendir("/proc");
    if (proc == nullptr) {
        return 0;
    }
    while (const dirent *entry = readdir(proc)) {
        if (entry->d_type != DT_DIR ||
            !std::isdigit(static_cast<unsigned char>(entry->d_name[0]))) {
            continue;
        }
        char path[6 + sizeof entry->d_name + 8];
        std::snprintf(path, sizeof path, "/proc/%s/cmdline", entry->d_name);
        const int fd = open(path, O_RDONLY);
        if (fd == -1) {
            continue;
        }
        char first[300];
        const ssize_t got = read(fd, first, sizeof first - 1);
        close(fd);
        if (got >= 0) {
            first[got] = '\0';
            matches += std::strcmp(first, text) == 0 ? 1 : 0;
        }
    }
    closedir(proc);
    return matches;
}

void BM_PidOf_peer(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(plain_scan(kAbsent));
    }
    state.SetItemsProcessed(state.iterations());
    state.SetLabel("readdir, one open of each cmdline");
}
BENCHMARK(BM_PidOf_peer);

} // namespace
