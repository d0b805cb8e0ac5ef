// The 64-bit hash: every whole word is added into an accumulator and
// scrambled; a short tail is packed into one more word; sixteen bare passes
// spread the last word's bits over the whole result.
#include <bit>
#include <cstring>

#include "internal/frame.hpp"
#include "internal/scramble.hpp"

namespace {

constexpr int kFinalPasses = 16;

// A whole word, byte 0 the lowest-order byte, from any address: memcpy is a
// single unaligned load on the targets we build for.
inline uint64_t load_little_endian(const unsigned char *bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) {
        word = __builtin_bswap64(word);
    }
    return word;
}

// The 1 to 7 tail bytes, packed the other way round: the first is the
// highest-order byte and the last of the data the lowest.
inline uint64_t load_tail_big_endian(const unsigned char *bytes, size_t count) {
    uint64_t word = 0;
    for (size_t i = 0; i < count; ++i) {
        word = (word << 8) | bytes[i];
    }
    return word;
}

} // namespace

extern "C" {

tav_status tav_util_hash64(const void *data, size_t length, uint64_t *result) {
    if (data == nullptr || result == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    if (length == 0) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }

    const auto *bytes = static_cast<const unsigned char *>(data);
    const size_t whole_words = length / 8;
    uint64_t h = 1;
    for (size_t i = 0; i < whole_words; ++i) {
        h = tav::scramble(h + load_little_endian(bytes + 8 * i));
    }
    const size_t tail = length % 8;
    if (tail != 0) {
        h = tav::scramble(h + load_tail_big_endian(bytes + 8 * whole_words, tail));
    }
    for (int pass = 0; pass < kFinalPasses; ++pass) {
        h = tav::scramble(h);
    }
    *result = h;
    return TAV_OK;
}

} // extern "C"
