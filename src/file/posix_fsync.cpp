// Durable sync: a file's data and the directory entry that names it reach
// stable storage by two flushes, the file's first.
#include <cstring>
#include <fcntl.h>

#include "internal/frame.hpp"

namespace {

// tav_util_sync_file refuses paths this long or longer.
constexpr size_t kPathLimit = 1000;

// What tav_util_sync_file holds during a call. Members go in reverse order,
// which is the order a failure releases them in too: the directory's
// descriptor, then the file's, then the directory text.
struct SyncHolds {
    tav::MallocPtr<char> dir_text;
    tav::UniqueFd file;
    tav::UniqueFd dir;

    // A failure releases all of it before it traces.
    void release() {
        dir.reset();
        file.reset();
        dir_text.reset();
    }
};

} // namespace

extern "C" {

tav_status tav_util_sync(FILE *stream, const char *dir_path) {
    if (stream == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (std::fflush(stream) != 0) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    const int fd = ::fileno(stream);
    if (fd == -1) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (::fsync(fd) != 0) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (dir_path == nullptr) {
        return TAV_OK;
    }
    // From here on the data are on stable storage: a failure speaks of the
    // directory only. The stream stays open on every path: it is the caller's.
    const tav::UniqueFd dir(::open(dir_path, O_RDONLY));
    if (dir.get() < 0) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (::fsync(dir.get()) != 0) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

tav_status tav_util_sync_file(const char *path) {
    if (path == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (::strnlen(path, kPathLimit) == kPathLimit) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    SyncHolds holds;
    char *dir_text = nullptr;
    const tav_status found = tav_util_get_directory_component(path, &dir_text);
    holds.dir_text.reset(dir_text);
    if (found != TAV_OK) {
        tav::traced_again(TAV_SITE, found);
        TAV_PLAIN_LINE("Failed to get directory component");
        return found;
    }
    // Both descriptors are open before the first flush.
    holds.file.reset(::open(path, O_RDWR));
    if (holds.file.get() < 0) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to open file %s", path);
        holds.release();
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    holds.dir.reset(::open(dir_text, O_RDONLY));
    if (holds.dir.get() < 0) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to open directory %s", dir_text);
        holds.release();
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (::fsync(holds.file.get()) != 0) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to sync file %s", path);
        holds.release();
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (::fsync(holds.dir.get()) != 0) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to sync directory file %s", dir_text);
        holds.release();
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

} // extern "C"
