// Base64 and bit strings.
#include "internal/frame.hpp"
