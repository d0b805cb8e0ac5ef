// The growing string buffer.
#include "internal/frame.hpp"
