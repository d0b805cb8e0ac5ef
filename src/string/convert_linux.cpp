// Multibyte to wide-character conversion under the process's current locale.
#include <cwchar>

#include "internal/frame.hpp"

static_assert(sizeof(wchar_t) == 4, "wide characters are 4-byte elements");

extern "C" {

tav_status tav_util_char_to_wchar(const char *text, uint64_t /*unused*/, wchar_t **out,
                                  uint64_t *length_out) {
    if (text == nullptr || out == nullptr || length_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }

    // One state serves both passes: a counting pass that succeeds ends in
    // the initial state.
    std::mbstate_t state{};
    const char *source = text;
    *length_out = std::mbsrtowcs(nullptr, &source, 0, &state);
    if (*length_out == static_cast<uint64_t>(-1)) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    const uint64_t count = *length_out;

    *out = static_cast<wchar_t *>(std::calloc(count + 1, sizeof(wchar_t)));
    if (*out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }

    // On the failures below the block stays in *out: it is the caller's.
    source = text;
    *length_out = std::mbsrtowcs(*out, &source, count + 1, &state);
    if (*length_out == static_cast<uint64_t>(-1)) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    if (source != nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_TOO_SMALL);
    }
    return TAV_OK;
}

} // extern "C"
