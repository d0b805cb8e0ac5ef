// Multibyte to wide-character conversion.
#include "internal/frame.hpp"
