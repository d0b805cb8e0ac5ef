// Descriptor file operations: open by a formatted path, whole-buffer
// transfers that tolerate a few zero-byte results in a row, whole-file reads,
// newline counts, and four operations on a path. None of them logs.
#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "internal/frame.hpp"

namespace {

// A transfer gives up at the fifth zero-byte result in a row; a result of at
// least one byte starts the count over.
constexpr int kRetryBudget = 5;
constexpr int32_t kBudgetSpent = -11;
constexpr int32_t kBadTransfer = -22;
// tav_util_count_lines reads in blocks of this size, on the stack.
constexpr size_t kLineBlock = 1024;

// The loop both transfers share. `move(offset, count)` is one write or read;
// the result is the bytes moved (all of len), kBudgetSpent, or the failed
// call's own negative result with errno untouched since.
template <typename Move> int64_t transfer_whole(int64_t len, Move move) {
    int64_t offset = 0;
    int64_t remainder = len;
    int budget = kRetryBudget;
    while (remainder != 0) {
        const ssize_t moved = move(offset, static_cast<size_t>(remainder));
        if (moved < 0) {
            return moved;
        }
        if (moved == 0) {
            if (--budget == 0) {
                return kBudgetSpent;
            }
            continue;
        }
        budget = kRetryBudget;
        offset += moved;
        remainder -= moved;
    }
    return offset;
}

// Sixteen byte lanes: the compiler turns a comparison of two of them into one
// vector compare, on every target GCC and Clang know.
typedef signed char Lanes __attribute__((vector_size(16)));

// The newline bytes among `n` bytes. A matching lane compares as -1, so
// subtracting the comparison counts per lane; a lane wraps only after 255
// matches, and a block of 1024 bytes gives each lane at most 64.
uint64_t newlines_in(const unsigned char *bytes, size_t n) {
    static_assert(kLineBlock / sizeof(Lanes) < 256);
    const Lanes newline = {'\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n',
                           '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n'};
    Lanes per_lane = {};
    size_t i = 0;
    for (; n - i >= sizeof(Lanes); i += sizeof(Lanes)) {
        Lanes chunk;
        std::memcpy(&chunk, bytes + i, sizeof chunk);
        per_lane -= (chunk == newline);
    }
    uint64_t count = 0;
    for (size_t lane = 0; lane < sizeof(Lanes); ++lane) {
        count += static_cast<unsigned char>(per_lane[lane]);
    }
    for (; i < n; ++i) {
        count += bytes[i] == '\n';
    }
    return count;
}

} // namespace

extern "C" {

tav_status tav_util_open(int32_t *fd_out, int32_t *errno_slot, int32_t flags, int32_t mode,
                         const char *format, ...) {
    if (fd_out == nullptr || format == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    tav::MallocPtr<char> path;
    va_list args;
    va_start(args, format);
    const tav_status formatted = tav::format_owned(path, errno_slot, format, args);
    va_end(args);
    if (formatted != TAV_OK) {
        return formatted;
    }
    *fd_out = ::open(path.get(), flags, static_cast<mode_t>(mode));
    if (*fd_out == -1) {
        tav::store_errno(errno_slot, errno);
        path.reset();
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

int32_t tav_util_whole_write(int32_t fd, const void *buf, int64_t len, int32_t *errno_slot) {
    if (buf == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (len < 0) {
        return tav::traced(TAV_SITE, TAV_ERR_OVERFLOW);
    }
    const auto *bytes = static_cast<const unsigned char *>(buf);
    const int64_t written = transfer_whole(
        len, [&](int64_t offset, size_t count) { return ::write(fd, bytes + offset, count); });
    if (written == kBudgetSpent) {
        // What was written stays written; the caller is not told how much.
        return kBudgetSpent;
    }
    if (written < 0) {
        // Every errno counts, an interrupted write too: there is no retry.
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    return 0;
}

int32_t tav_util_whole_read(int32_t fd, void *buf, int64_t len) {
    if (buf == nullptr || len < 0) {
        return kBadTransfer;
    }
    auto *bytes = static_cast<unsigned char *>(buf);
    // The low 32 bits of the count: meaningful for len below 2^31 only.
    return static_cast<int32_t>(transfer_whole(
        len, [&](int64_t offset, size_t count) { return ::read(fd, bytes + offset, count); }));
}

tav_status tav_util_read_file(int32_t fd, uint8_t **data_out, uint64_t *size_out,
                              int32_t *errno_slot) {
    if (data_out == nullptr || size_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    *size_out = static_cast<uint64_t>(st.st_size);
    *data_out = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(st.st_size) + 1));
    if (*data_out == nullptr) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_NOMEM);
    }
    // Every way the read falls short shows here: -1, -11, and a count cut to
    // 32 bits for a file of 2 GiB or more.
    if (static_cast<int64_t>(tav_util_whole_read(fd, *data_out, st.st_size)) != st.st_size) {
        std::free(*data_out);
        *data_out = nullptr;
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    (*data_out)[st.st_size] = 0;
    return TAV_OK;
}

tav_status tav_util_count_lines(int32_t fd, uint64_t *count_out, int32_t *errno_slot) {
    if (count_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (fd < 0) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    const off_t saved = ::lseek(fd, 0, SEEK_CUR);
    if (saved == -1) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (::lseek(fd, 0, SEEK_SET) == -1) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    unsigned char block[kLineBlock];
    off_t total = 0;
    *count_out = 0;
    while (total < st.st_size) {
        const auto share = static_cast<size_t>(std::min<off_t>(st.st_size - total, kLineBlock));
        const ssize_t got = ::read(fd, block, share);
        if (got == -1) {
            tav::store_errno(errno_slot, errno);
            ::lseek(fd, saved, SEEK_SET);
            return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
        }
        // End of file before the size fstat gave: the file shrank since.
        // Every byte it still holds has been counted, so the count stands
        // and the position is put back as on any other success.
        if (got == 0) {
            break;
        }
        total += got;
        *count_out += newlines_in(block, static_cast<size_t>(got));
    }
    if (::lseek(fd, saved, SEEK_SET) == -1) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

tav_status tav_util_get_file_size(const char *path, uint64_t *size_out) {
    if (path == nullptr || size_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    struct stat st;
    int stat_result = 0;
    {
        const tav::UniqueFd fd(::open(path, O_RDONLY));
        if (!fd) {
            return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
        }
        stat_result = ::fstat(fd.get(), &st);
    }
    if (stat_result != 0) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    *size_out = static_cast<uint64_t>(st.st_size);
    return TAV_OK;
}

tav_status tav_util_truncate_file(const char *path, int64_t length, int32_t *errno_slot) {
    if (path == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (::truncate(path, length) == -1) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

tav_status tav_util_delete_file(const char *path, int32_t *errno_slot) {
    if (path == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (::unlink(path) != 0) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

tav_status tav_util_query_file_exists(const char *path, int32_t *exists_out) {
    if (path == nullptr || exists_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    struct stat st;
    if (::stat(path, &st) == 0) {
        *exists_out = 1;
        return TAV_OK;
    }
    if (errno == ENOENT) {
        *exists_out = 0;
        return TAV_OK;
    }
    return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
}

} // extern "C"
