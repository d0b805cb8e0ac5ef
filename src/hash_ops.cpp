// The 64-bit hash.
#include "internal/frame.hpp"
