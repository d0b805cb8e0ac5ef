// Memory and text primitives: one name each for common chores. None of them
// reports: every failure shows only in the result.
#include <cstring>
#include <strings.h>
#include <type_traits>

#include "internal/frame.hpp"

static_assert(std::is_same_v<uint64_t, size_t>, "sizes cross the boundary as 64-bit values");

extern "C" {

void tav_util_free(void *pointer_address) {
    if (pointer_address == nullptr) {
        return;
    }
    auto *slot = static_cast<void **>(pointer_address);
    std::free(*slot);
    *slot = nullptr;
}

void *tav_util_memdup(const void *source, uint64_t size) {
    if (source == nullptr) {
        return nullptr;
    }
    void *copy = std::calloc(1, size);
    if (copy != nullptr && size > 0) {
        std::memcpy(copy, source, size);
    }
    return copy;
}

void *tav_util_memdup0(const void *source, uint64_t size) {
    // The largest size has no room for the terminator: size + 1 would wrap to
    // 0 and the copy would run far past the block, so it yields null instead.
    if (source == nullptr || size == UINT64_MAX) {
        return nullptr;
    }
    void *copy = std::calloc(1, size + 1);
    if (copy != nullptr && size > 0) {
        std::memcpy(copy, source, size);
    }
    return copy;
}

int32_t tav_util_snprintf(char *buffer, uint64_t size, const char *format, ...) {
    if (size > 0x7FFFFFFF) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int written = std::vsnprintf(buffer, size, format, args);
    va_end(args);
    // A negative result from vsnprintf passes through unchanged; a text that
    // did not fit with its terminator is a failure.
    return static_cast<int64_t>(size) > written ? written : -1;
}

uint64_t tav_util_strnlen(const char *text, uint64_t maximum) { return strnlen(text, maximum); }

char *tav_util_strndup(const char *text, uint64_t maximum) { return strndup(text, maximum); }

char *tav_util_strncpy(char *destination, const char *source, uint64_t count) {
    return std::strncpy(destination, source, count);
}

void *tav_util_memmem(const void *haystack, uint64_t haystack_length, const void *needle,
                      uint64_t needle_length) {
    return memmem(haystack, haystack_length, needle, needle_length);
}

int32_t tav_util_strcasecmp(const char *a, const char *b) { return strcasecmp(a, b); }

int64_t tav_util_getline(FILE *stream, char **line, uint64_t *capacity) {
    return getline(line, capacity, stream);
}

} // extern "C"
