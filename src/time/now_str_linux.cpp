// The present local time as text.
#include <cstring>
#include <ctime>

#include "internal/frame.hpp"

namespace {

// ctime_r writes 24 characters, a newline and the terminator.
constexpr size_t kCtimeSize = 26;

} // namespace

extern "C" {

tav_status tav_util_now_str(char *buffer, size_t *size, int32_t *errno_slot) {
    if (buffer == nullptr || size == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (*size < kCtimeSize) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    const time_t now = time(nullptr);
    if (now == -1) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    // A reading the calendar cannot hold (a year past 9999, or past what a
    // struct tm counts) makes ctime_r fail: reported like a failed reading,
    // with `size` untouched, rather than measuring a text that is not there.
    if (ctime_r(&now, buffer) == nullptr) {
        return tav::traced_with_errno(errno_slot, TAV_SITE, TAV_ERR_SYSTEM);
    }
    *size = std::strlen(buffer);
    if (*size > 0 && buffer[*size - 1] == '\n') {
        buffer[*size - 1] = '\0';
        *size -= 1;
    }
    return TAV_OK;
}

} // extern "C"
