// The size pass of formatted allocation, and the fill pass it pairs with.
#include "string/vasprintf_posix.hpp"
#include "internal/frame.hpp"

namespace tav {

int fill_formatted(char *block, size_t size, const char *format, va_list args) {
    return std::vsnprintf(block, size, format, args);
}

} // namespace tav

extern "C" tav_status tav_util_printf_vsize(const char *format, va_list args, int32_t *size_out) {
    if (format == nullptr || size_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    tav::ArgsCopy copy(args);
    *size_out = std::vsnprintf(nullptr, 0, format, copy.get());
    if (*size_out < 0) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    // The terminator is counted in 32 bits: a text of 2147483647 characters
    // wraps to a negative size, computed unsigned so the wrap is defined.
    *size_out = static_cast<int32_t>(static_cast<uint32_t>(*size_out) + 1U);
    return TAV_OK;
}
