// Path helpers: the directory component of a path (the text ahead of its
// last slash, nothing normalised) and the canonical absolute path.
#include <cstring>

#include "internal/frame.hpp"

namespace {

// The first `length` characters of `path` and a terminator, in a malloc block.
char *copy_prefix(const char *path, size_t length) {
    auto *copy = static_cast<char *>(std::malloc(length + 1));
    if (copy != nullptr) {
        std::memcpy(copy, path, length);
        copy[length] = '\0';
    }
    return copy;
}

} // namespace

extern "C" {

tav_status tav_util_get_directory_component(const char *path, char **dir_out) {
    // Callers inside the library always pass valid pointers; a caller that
    // does not is refused before anything is read or written.
    if (path == nullptr || dir_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    const char *last_slash = std::strrchr(path, '/');
    if (last_slash == nullptr) {
        // No slash: the path is its own directory component, not ".". A
        // copy as strdup makes it, through malloc like the other branch.
        *dir_out = copy_prefix(path, std::strlen(path));
        if (*dir_out == nullptr) {
            tav::reasoned_line(errno, TAV_SITE, "Memory allocation for path %s", path);
            return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
        }
        return TAV_OK;
    }
    *dir_out = copy_prefix(path, static_cast<size_t>(last_slash - path));
    if (*dir_out == nullptr) {
        tav::reasoned_line(errno, TAV_SITE, "Memory allocation error");
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    return TAV_OK;
}

tav_status tav_util_abs_path(const char *path, char **abs_out) {
    // As above: null pointers are refused, and nothing is written.
    if (path == nullptr || abs_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    *abs_out = ::realpath(path, nullptr);
    if (*abs_out == nullptr) {
        tav::reasoned_line(errno, TAV_SITE,
                           "Cannot determine absolute file path from relative path %s", path);
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

} // extern "C"
