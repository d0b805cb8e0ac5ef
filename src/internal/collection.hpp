// The collection's growth rule, reachable from the tests: the array's sizes
// near the limits of its 32-bit fields cannot be reached by filling one.
#pragma once

#include <cstdint>

namespace tav {

// The capacity a full array of `count` slots grows to with step `growth`
// (below 1: the proportional step), or 0 when it cannot grow.
int32_t collection_grown_capacity(int32_t count, int32_t growth);

} // namespace tav
