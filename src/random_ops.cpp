// The seeded pseudo-random generator.
#include "internal/frame.hpp"
