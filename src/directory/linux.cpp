// Directories: creation, scans over a sorted snapshot of the names, and an
// existence query. The sisters differ on purpose in what they report.
#include <cstring>
#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include "internal/frame.hpp"

struct tav_util_dirscan_handle {
    struct dirent **names; // as scandir allocated them; null if it stored none
    int32_t count;         // entries in names, "." and ".." included
    int32_t position;      // the current entry; -1 before the first advance
};

namespace {

constexpr mode_t kPrivateMode = 0700;
constexpr mode_t kReadOnlyMode = 0500;

int compare_names_ignoring_case(const struct dirent **a, const struct dirent **b) {
    return strcasecmp((*a)->d_name, (*b)->d_name);
}

bool is_dot_or_dot_dot(const char *name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

} // namespace

extern "C" {

tav_status tav_util_mkdir(const char *path) {
    if (path == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (mkdir(path, kPrivateMode) != 0) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

tav_status tav_util_mkdir_read_only(const char *path) {
    if (path == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (mkdir(path, kReadOnlyMode) != 0) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to create directory %s", path);
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

tav_util_dirscan_handle *tav_util_dirscan_begin(const char *path) {
    if (path == nullptr) {
        return nullptr;
    }
    tav::MallocPtr<tav_util_dirscan_handle> scan(
        static_cast<tav_util_dirscan_handle *>(std::malloc(sizeof(tav_util_dirscan_handle))));
    if (!scan) {
        TAV_PLAIN_LINE("Failed to allocate memory");
        return nullptr;
    }
    tav_util_dirscan_handle *record = scan.get();
    record->names = nullptr;
    record->count = scandir(path, &record->names, nullptr, compare_names_ignoring_case);
    if (record->count == -1) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to scan directory %s", path);
        return nullptr;
    }
    record->position = -1;
    return scan.release();
}

tav_status tav_util_dirscan(tav_util_dirscan_handle *scan) {
    if (scan == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    // An exhausted scan stays at count, so that calls past the end, however
    // many, never carry the position beyond what its field can hold.
    if (scan->position < scan->count) {
        ++scan->position;
    }
    while (scan->position < scan->count) {
        if (!is_dot_or_dot_dot(scan->names[scan->position]->d_name)) {
            return TAV_OK;
        }
        ++scan->position;
    }
    return tav::traced(TAV_SITE, TAV_ERR_NO_MORE);
}

char *tav_dirscan_file_name(const tav_util_dirscan_handle *scan) {
    // Without a current entry (before the first advance, or once the scan is
    // exhausted) there is no name to copy: the answer is the null of the
    // null-scan path, without a report, and nothing outside the array is read.
    if (scan == nullptr || scan->position < 0 || scan->position >= scan->count) {
        return nullptr;
    }
    const char *name = scan->names[scan->position]->d_name;
    const size_t length = std::strlen(name);
    auto *copy = static_cast<char *>(std::malloc(length + 1));
    if (copy == nullptr) {
        TAV_PLAIN_LINE("Failed to allocate memory");
        return nullptr;
    }
    std::memcpy(copy, name, length);
    copy[length] = '\0';
    return copy;
}

void tav_util_dirscan_end(tav_util_dirscan_handle *scan) {
    if (scan == nullptr) {
        return;
    }
    if (scan->names != nullptr) {
        for (int32_t i = 0; i < scan->count; ++i) {
            std::free(scan->names[i]);
        }
        std::free(scan->names);
    }
    std::free(scan);
}

tav_status tav_util_query_dir_exists(const char *path, int32_t *exists_out) {
    // A null out-argument is refused like a null path, before anything is
    // opened and without a report: this query never traces.
    if (path == nullptr || exists_out == nullptr) {
        return TAV_ERR_NULL_ARG;
    }
    const tav::UniqueDir stream(opendir(path)); // closed on return, its result ignored
    if (stream) {
        *exists_out = 1;
        return TAV_OK;
    }
    if (errno != ENOENT) {
        tav::reasoned_line(errno, TAV_SITE, "Error checking directory %s existence", path);
    }
    *exists_out = 0;
    return TAV_OK;
}

} // extern "C"
