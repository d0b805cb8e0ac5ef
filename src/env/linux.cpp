// Environment variables and the host name: what a process shares with all of
// its code, read by copy and changed in place.
#include <cstring>

#include "internal/frame.hpp"

namespace {

constexpr uint64_t kLongestValue = 299;

} // namespace

extern "C" {

char *tav_util_getenv(const char *name) {
    if (name == nullptr) {
        return nullptr;
    }
    const char *value = std::getenv(name);
    if (value == nullptr) {
        return nullptr;
    }
    // A longer value is refused whole, never cut.
    const uint64_t length = tav_util_strnlen(value, kLongestValue + 1);
    if (length > kLongestValue) {
        return nullptr;
    }
    // A copy: a later change of the variable leaves it as it was.
    auto *copy = static_cast<char *>(std::malloc(length + 1));
    if (copy == nullptr) {
        return nullptr;
    }
    std::memcpy(copy, value, length);
    copy[length] = '\0';
    return copy;
}

tav_status tav_util_setenv(const char *name, const char *value) {
    // A null value is refused like a null name, the environment left as it
    // was: setenv would read it as text and crash the process.
    if (name == nullptr || value == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (setenv(name, value, 1) != 0) {
        tav::perror_line(errno, TAV_SITE, "Failed to set environment variable");
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

tav_status tav_util_unsetenv(const char *name) {
    if (name == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (unsetenv(name) != 0) {
        tav::perror_line(errno, TAV_SITE, "Failed to unset environment variable");
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

char *tav_util_get_hostname(void) {
    const long size = sysconf(_SC_HOST_NAME_MAX);
    if (size == -1) {
        return nullptr;
    }
    // Exactly the limit, no byte for a terminator behind a name that long:
    // gethostname refuses such a name and the result is null.
    tav::MallocPtr<char> name(static_cast<char *>(std::malloc(static_cast<size_t>(size))));
    if (!name || gethostname(name.get(), static_cast<size_t>(size)) != 0) {
        return nullptr;
    }
    return name.release();
}

} // extern "C"
