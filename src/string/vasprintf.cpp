// Formatted allocation: size the text, allocate exactly that, fill it.
#include "internal/frame.hpp"
#include "string/vasprintf_posix.hpp"

extern "C" {

tav_status tav_util_vasprintf(char **out, const char *format, va_list args, int32_t *errno_slot) {
    if (out == nullptr || format == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    *out = nullptr;

    int32_t size = 0;
    const tav_status sized = tav_util_printf_vsize(format, tav::ArgsCopy(args).get(), &size);
    if (sized != TAV_OK) {
        return tav::traced_again(TAV_SITE, sized);
    }

    // Widened with its sign: a wrapped size asks for an impossible block.
    *out = static_cast<char *>(std::malloc(static_cast<size_t>(static_cast<int64_t>(size))));
    if (*out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }

    const int filled =
        tav::fill_formatted(*out, static_cast<size_t>(size), format, tav::ArgsCopy(args).get());
    if (filled == -1) {
        tav::store_errno(errno_slot, errno);
        // The unfinished block stays in *out: it is the caller's now.
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    tav::store_errno(errno_slot, 0);
    return TAV_OK;
}

tav_status tav_util_asprintf(char **out, int32_t *errno_slot, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const tav_status status = tav_util_vasprintf(out, format, args, errno_slot);
    va_end(args);
    return status;
}

} // extern "C"
