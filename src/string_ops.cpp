// String operations.
#include "internal/frame.hpp"
