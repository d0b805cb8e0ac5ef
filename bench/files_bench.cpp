// Files: line counts, whole reads and hex printing, side by side with what a
// user would write by hand. The files live in /tmp, are cached by a first
// pass, and are deleted when each benchmark ends. Each pair checks first that
// both sides give the same result, and fails its row if they don't.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "pairs.hpp"
#include "tavutil.h"

namespace {

// A text file of `size` bytes in lines of 1 to 79 characters, deleted with
// the object.
class TempFile {
  public:
    explicit TempFile(size_t size) {
        char name[] = "/tmp/tavbench.XXXXXX";
        const int fd = mkstemp(name);
        path_ = name;
        std::string text;
        for (unsigned i = 0; text.size() < size; ++i) {
            text.append(1 + i * 37 % 79, static_cast<char>('a' + i % 26)).push_back('\n');
        }
        text.resize(size);
        tav_util_whole_write(fd, text.data(), static_cast<int64_t>(size), nullptr);
        close(fd);
    }
    ~TempFile() { unlink(path_.c_str()); }
    const char *path() const { return path_.c_str(); }

  private:
    std::string path_;
};

uint64_t count_by_hand(int fd) {
    char block[1024];
    uint64_t count = 0;
    lseek(fd, 0, SEEK_SET);
    for (ssize_t got; (got = read(fd, block, sizeof block)) > 0;) {
        for (const char *p = block, *end = block + got;
             (p = static_cast<const char *>(std::memchr(p, '\n', static_cast<size_t>(end - p))));
             ++p) {
            ++count;
        }
    }
    return count;
}

uint64_t count_by_tavutil(int fd) {
    uint64_t count = 0;
    tav_util_count_lines(fd, &count, nullptr);
    return count;
}

template <uint64_t (*Count)(int)> void count_lines(benchmark::State &state) {
    const TempFile file(static_cast<size_t>(state.range(0)));
    const int fd = open(file.path(), O_RDONLY);
    if (count_by_hand(fd) != count_by_tavutil(fd)) {
        state.SkipWithError("counts differ");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(Count(fd));
    }
    close(fd);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

uint8_t *read_by_hand(const char *path, uint64_t *size_out) {
    const int fd = open(path, O_RDONLY);
    struct stat st;
    fstat(fd, &st);
    auto *data = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(st.st_size) + 1));
    size_t total = 0;
    for (ssize_t got;
         total < static_cast<size_t>(st.st_size) &&
         (got = read(fd, data + total, static_cast<size_t>(st.st_size) - total)) > 0;) {
        total += static_cast<size_t>(got);
    }
    data[total] = 0;
    close(fd);
    *size_out = total;
    return data;
}

uint8_t *read_by_descriptor(const char *path, uint64_t *size_out) {
    const int fd = open(path, O_RDONLY);
    uint8_t *data = nullptr;
    tav_util_read_file(fd, &data, size_out, nullptr);
    close(fd);
    return data;
}

uint8_t *read_by_name(const char *path, uint64_t *size_out) {
    uint8_t *data = nullptr;
    tav_util_read_named_file(path, &data, size_out, nullptr);
    return data;
}

template <uint8_t *(*Read)(const char *, uint64_t *)> void read_whole(benchmark::State &state) {
    const TempFile file(static_cast<size_t>(state.range(0)));
    uint64_t size = 0, expected_size = 0;
    uint8_t *got = Read(file.path(), &size);
    uint8_t *expected = read_by_hand(file.path(), &expected_size);
    if (size != expected_size || std::memcmp(got, expected, size + 1) != 0) {
        state.SkipWithError("contents differ");
    }
    std::free(got);
    std::free(expected);
    for (auto _ : state) {
        uint8_t *data = Read(file.path(), &size);
        benchmark::DoNotOptimize(data);
        std::free(data);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

std::vector<uint8_t> hex_input(size_t n) {
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 131 + 7);
    }
    return bytes;
}

void BM_HexPrint_tav(benchmark::State &state) {
    const auto bytes = hex_input(static_cast<size_t>(state.range(0)));
    FILE *sink = std::fopen("/dev/null", "w");
    for (auto _ : state) {
        tav_util_fprintf_bytes(sink, bytes.data(), bytes.size());
    }
    std::fclose(sink);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// The same hex text, made beforehand and written with one fwrite.
void BM_HexPrint_peer(benchmark::State &state) {
    state.SetLabel("fwrite of the hex text made beforehand");
    const auto bytes = hex_input(static_cast<size_t>(state.range(0)));
    char *hex = nullptr;
    tav_util_sprintf_bytes(bytes.data(), bytes.size(), &hex);
    char *printed = nullptr;
    size_t printed_size = 0;
    FILE *memory = open_memstream(&printed, &printed_size);
    tav_util_fprintf_bytes(memory, bytes.data(), bytes.size());
    std::fclose(memory);
    if (printed_size != 2 * bytes.size() || std::memcmp(printed, hex, printed_size) != 0) {
        state.SkipWithError("hex texts differ");
    }
    std::free(printed);
    FILE *sink = std::fopen("/dev/null", "w");
    for (auto _ : state) {
        std::fwrite(hex, 1, 2 * bytes.size(), sink);
    }
    std::fclose(sink);
    std::free(hex);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_CountLines_tav(benchmark::State &state) { count_lines<count_by_tavutil>(state); }

void BM_CountLines_peer(benchmark::State &state) {
    state.SetLabel("read and memchr, by hand");
    count_lines<count_by_hand>(state);
}

void BM_ReadFile_tav(benchmark::State &state) { read_whole<read_by_descriptor>(state); }

void BM_ReadNamedFile_tav(benchmark::State &state) { read_whole<read_by_name>(state); }

// The peer of both whole reads: open, fstat, read, by hand.
void read_whole_peer(benchmark::State &state) {
    state.SetLabel("open, fstat and read, by hand");
    read_whole<read_by_hand>(state);
}

constexpr int64_t kKiB = 1024, kMiB = 1024 * 1024;

BENCHMARK(BM_CountLines_tav)->Arg(kMiB)->Arg(64 * kMiB);
BENCHMARK(BM_CountLines_peer)->Arg(kMiB)->Arg(64 * kMiB);
BENCHMARK(BM_ReadFile_tav)->Arg(4 * kKiB)->Arg(kMiB)->Arg(64 * kMiB);
BENCHMARK(read_whole_peer)->Name("BM_ReadFile_peer")->Arg(4 * kKiB)->Arg(kMiB)->Arg(64 * kMiB);
BENCHMARK(BM_ReadNamedFile_tav)->Arg(4 * kKiB)->Arg(kMiB)->Arg(64 * kMiB);
BENCHMARK(read_whole_peer)->Name("BM_ReadNamedFile_peer")->Arg(4 * kKiB)->Arg(kMiB)->Arg(64 * kMiB);
BENCHMARK(BM_HexPrint_tav)->Arg(64 * kKiB);
BENCHMARK(BM_HexPrint_peer)->Arg(64 * kKiB);

} // namespace
