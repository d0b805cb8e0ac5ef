// Integer helpers.
#include "internal/frame.hpp"
