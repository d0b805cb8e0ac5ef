// The xorshift scrambler shared by the hash and the generator's seeding: four
// shift-and-xor steps that are invertible, so no two words scramble alike.
#pragma once

#include <cstdint>

namespace tav {

constexpr uint64_t scramble(uint64_t v) {
    v ^= v << 10;
    v ^= v >> 15;
    v ^= v << 4;
    v ^= v >> 13;
    return v;
}

} // namespace tav
