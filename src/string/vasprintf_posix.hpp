// Internal: the fill pass of formatted allocation.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace tav {

// Formats into `block` of `size` bytes: a plain pass-through to vsnprintf.
int fill_formatted(char *block, size_t size, const char *format, va_list args);

} // namespace tav
