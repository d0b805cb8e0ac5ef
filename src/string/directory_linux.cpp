// Path helpers: the directory component of a path (the text ahead of its
// last slash, nothing normalised) and the canonical absolute path.
#include <climits>
#include <cstring>

#include "internal/frame.hpp"

extern "C" {

tav_status tav_util_get_directory_component(const char *path, char **dir_out) {
    // Callers inside the library always pass valid pointers; a caller that
    // does not is refused before anything is read or written.
    if (path == nullptr || dir_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    const char *last_slash = std::strrchr(path, '/');
    if (last_slash == nullptr) {
        // No slash: the path is its own directory component, not ".".
        *dir_out = ::strdup(path);
        if (*dir_out == nullptr) {
            tav::reasoned_line(errno, TAV_SITE, "Memory allocation for path %s", path);
            return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
        }
        return TAV_OK;
    }
    const auto length = static_cast<size_t>(last_slash - path);
    *dir_out = static_cast<char *>(std::malloc(length + 1));
    if (*dir_out == nullptr) {
        tav::reasoned_line(errno, TAV_SITE, "Memory allocation error");
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    std::memcpy(*dir_out, path, length);
    (*dir_out)[length] = '\0';
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
