// Base64 and bit strings: the byte-level hot loops of the library.
//
// Every loop here has a whole-word fast path and a byte-wise tail that reads
// as the rule it implements; both give identical bytes. The tables are built
// at compile time from the alphabet and the bit rules, so nothing is chosen
// or initialised at run time.
#include <array>
#include <bit>
#include <cstring>

#include "internal/frame.hpp"

namespace {

// ---- whole-word access ----------------------------------------------------

// Bit strings and Base64 groups are big-endian: the first byte holds the most
// significant bits. memcpy keeps the loads free of alignment and aliasing
// assumptions and compiles to a single move.
inline uint64_t load_big_endian_64(const uint8_t *source) {
    uint64_t word;
    std::memcpy(&word, source, sizeof word);
    if constexpr (std::endian::native == std::endian::little) {
        word = __builtin_bswap64(word);
    }
    return word;
}

inline void store_big_endian_64(uint8_t *destination, uint64_t word) {
    if constexpr (std::endian::native == std::endian::little) {
        word = __builtin_bswap64(word);
    }
    std::memcpy(destination, &word, sizeof word);
}

// ---- Base64 tables ----------------------------------------------------------

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kSkip = 0xFF;

// One entry per byte value: the character's value, or kSkip for everything
// outside the alphabet ("=", blanks, line ends, zero bytes, bytes >= 0x80).
constexpr std::array<uint8_t, 256> kDecodeValues = [] {
    std::array<uint8_t, 256> table{};
    table.fill(kSkip);
    for (uint8_t value = 0; value < 64; ++value) {
        table[static_cast<uint8_t>(kAlphabet[value])] = value;
    }
    return table;
}();

static_assert(kDecodeValues['+'] == 62 && kDecodeValues['/'] == 63 && kDecodeValues['A'] == 0 &&
              kDecodeValues['z'] == 51 && kDecodeValues['='] == kSkip &&
              kDecodeValues[0] == kSkip && kDecodeValues[0x80] == kSkip);

// The fast decode path: per position in a group of four, the value already
// shifted to its place in the 24-bit group, and a skipped character as a
// bit above those 24, so one OR of four lookups both assembles the group and
// tells whether all four characters were usable.
constexpr uint32_t kSkippedBit = 1u << 24;

constexpr std::array<std::array<uint32_t, 256>, 4> kPlacedValues = [] {
    std::array<std::array<uint32_t, 256>, 4> tables{};
    for (int position = 0; position < 4; ++position) {
        for (int byte = 0; byte < 256; ++byte) {
            const uint8_t value = kDecodeValues[byte];
            tables[position][byte] =
                value == kSkip ? kSkippedBit : uint32_t{value} << (18 - 6 * position);
        }
    }
    return tables;
}();

// The fast encode path: two characters for each 12-bit half of a group.
constexpr std::array<std::array<char, 2>, 4096> kCharacterPairs = [] {
    std::array<std::array<char, 2>, 4096> table{};
    for (int bits = 0; bits < 4096; ++bits) {
        table[bits] = {kAlphabet[bits >> 6], kAlphabet[bits & 0x3F]};
    }
    return table;
}();

// The same pairs as 16-bit values whose bytes lie in memory as the two
// characters do, so that four of them make one 8-byte store.
constexpr std::array<uint16_t, 4096> kPairValues = [] {
    std::array<uint16_t, 4096> table{};
    for (int bits = 0; bits < 4096; ++bits) {
        table[bits] = std::bit_cast<uint16_t>(kCharacterPairs[bits]);
    }
    return table;
}();

// Eight characters for the two groups in bits 63 to 16 of `word`, stored at
// once.
inline char *encode_two_groups(uint64_t word, char *out) {
    const uint64_t pairs[4] = {kPairValues[word >> 52], kPairValues[(word >> 40) & 0xFFF],
                               kPairValues[(word >> 28) & 0xFFF],
                               kPairValues[(word >> 16) & 0xFFF]};
    const uint64_t characters = std::endian::native == std::endian::little
                                    ? pairs[0] | pairs[1] << 16 | pairs[2] << 32 | pairs[3] << 48
                                    : pairs[0] << 48 | pairs[1] << 32 | pairs[2] << 16 | pairs[3];
    std::memcpy(out, &characters, sizeof characters);
    return out + 8;
}

// Sixteen characters for the four groups of 12 bytes at once. The groups
// are gathered into the four 32-bit lanes of one vector with whole-word
// loads; each lane is cut into its four 6-bit values, one per byte in the
// order the characters are written, and each value becomes its character by
// arithmetic: 'A' + v, 6 more from 26 on ('a' - 26 - 'A'), 75 fewer from 52
// on ('0' - 52), 15 fewer at 62 ('+') and 3 more at 63 ('/').
typedef uint32_t GroupLanes __attribute__((vector_size(16)));
typedef uint64_t HalfLanes __attribute__((vector_size(16)));
typedef uint8_t CharacterLanes __attribute__((vector_size(16)));
typedef int8_t ValueLanes __attribute__((vector_size(16)));

inline char *encode_four_groups(const uint8_t *in, char *out) {
    // Two groups from each 8-byte load, the first in the first lane.
    const auto two_groups = [](uint64_t word) {
        const uint64_t first = word >> 40, second = word >> 16 & 0xFFFFFF;
        return std::endian::native == std::endian::little ? first | second << 32
                                                          : first << 32 | second;
    };
    const HalfLanes halves = {two_groups(load_big_endian_64(in)),
                              two_groups(load_big_endian_64(in + 6))};
    const auto groups = reinterpret_cast<GroupLanes>(halves);
    GroupLanes values;
    if constexpr (std::endian::native == std::endian::little) {
        values = groups >> 18 | (groups >> 4 & 0x3F00) | (groups << 10 & 0x3F0000) |
                 (groups << 24 & 0x3F000000);
    } else {
        values = (groups << 6 & 0x3F000000) | (groups << 4 & 0x3F0000) | (groups << 2 & 0x3F00) |
                 (groups & 0x3F);
    }
    // Sums in unsigned lanes, which wrap; the values (0 to 63) compared as
    // signed ones, which need no correction on any target.
    const auto v = reinterpret_cast<CharacterLanes>(values);
    const auto from = [signed_values = reinterpret_cast<ValueLanes>(values)](int8_t value) {
        return reinterpret_cast<CharacterLanes>(signed_values >= value);
    };
    const CharacterLanes characters =
        v + 'A' + (from(26) & 6) - (from(52) & 75) - (from(62) & 15) + (from(63) & 3);
    std::memcpy(out, &characters, sizeof characters);
    return out + sizeof characters;
}

// Four characters for the 24 bits of a full group.
inline char *encode_group(uint32_t group, char *out) {
    std::memcpy(out, kCharacterPairs[group >> 12].data(), 2);
    std::memcpy(out + 2, kCharacterPairs[group & 0xFFF].data(), 2);
    return out + 4;
}

// The 24 bits of four characters, with kSkippedBit set if any was unusable.
inline uint32_t placed_group(const uint8_t *in) {
    return kPlacedValues[0][in[0]] | kPlacedValues[1][in[1]] | kPlacedValues[2][in[2]] |
           kPlacedValues[3][in[3]];
}

// The four groups of the 16 characters at `in`, as two words of two groups
// each in the form the bulk decode stores (bits 63 to 16), if all 16 are in
// the alphabet; false if any is not. Each character's value comes from its
// range: 'A' to 'Z' less 'A', 'a' to 'z' less 'a' plus 26, '0' to '9' less
// '0' plus 52, '+' 62, '/' 63. Then 16-bit lanes join the values in pairs
// and 32-bit lanes the pairs in groups.
typedef uint16_t PairLanes __attribute__((vector_size(16)));

inline bool four_groups_of_values(const uint8_t *in, uint64_t pairs_of_groups[2]) {
    CharacterLanes c;
    std::memcpy(&c, in, sizeof c);
    const CharacterLanes upper = c - 'A', lower = c - 'a', digit = c - '0';
    const auto is_upper = reinterpret_cast<CharacterLanes>(upper < 26);
    const auto is_lower = reinterpret_cast<CharacterLanes>(lower < 26);
    const auto is_digit = reinterpret_cast<CharacterLanes>(digit < 10);
    const auto is_plus = reinterpret_cast<CharacterLanes>(c == '+');
    const auto is_slash = reinterpret_cast<CharacterLanes>(c == '/');
    const CharacterLanes usable = is_upper | is_lower | is_digit | is_plus | is_slash;
    uint64_t all[2];
    std::memcpy(all, &usable, sizeof all);
    if ((all[0] & all[1]) != UINT64_MAX) {
        return false;
    }
    const CharacterLanes values = (upper & is_upper) | ((lower + 26) & is_lower) |
                                  ((digit + 52) & is_digit) | (62 & is_plus) | (63 & is_slash);
    const auto pairs = reinterpret_cast<PairLanes>(values);
    const auto groups = reinterpret_cast<GroupLanes>(std::endian::native == std::endian::little
                                                         ? (pairs << 6 & 0xFC0) | pairs >> 8
                                                         : (pairs >> 8 << 6) | (pairs & 0x3F));
    const auto joined = reinterpret_cast<HalfLanes>(std::endian::native == std::endian::little
                                                        ? (groups << 12 & 0xFFF000) | groups >> 16
                                                        : (groups >> 16 << 12) | (groups & 0xFFF));
    // Each half holds two groups, the first in the first lane.
    for (int half = 0; half < 2; ++half) {
        const uint64_t word = joined[half];
        const uint64_t first =
            std::endian::native == std::endian::little ? word & 0xFFFFFF : word >> 32;
        const uint64_t second =
            std::endian::native == std::endian::little ? word >> 32 : word & 0xFFFFFF;
        pairs_of_groups[half] = first << 40 | second << 16;
    }
    return true;
}

// Three bytes for the 24 bits of a group, always all three.
inline uint8_t *write_group_bytes(uint32_t group, uint8_t *out) {
    out[0] = static_cast<uint8_t>(group >> 16);
    out[1] = static_cast<uint8_t>(group >> 8);
    out[2] = static_cast<uint8_t>(group);
    return out + 3;
}

// ---- shared allocation --------------------------------------------------------

// malloc is asked for the figure the caller is told in size out, as it is.
// When that figure is not the true size of the output (a product that
// wrapped past 64 bits, or a negative factor), no block of that size can
// hold the output: a block malloc still hands back is released and the
// caller sees the same failure as a refused allocation, so no write can run
// past the block.
uint8_t *allocate_output(uint64_t figure, bool figure_is_true_size) {
    void *block = std::malloc(figure);
    if (!figure_is_true_size) {
        std::free(block);
        return nullptr;
    }
    return static_cast<uint8_t *>(block);
}

// ---- Base64 walks ---------------------------------------------------------------

char *encode_full_groups(const uint8_t *in, uint64_t length, uint64_t full, char *out) {
    uint64_t i = 0;
    // Whole-word loads read past the groups they use, so the loops are
    // bounded by the whole input, not just the groups. 24 bytes a step: half
    // in the vector lanes, half through the pair table, so that both kinds
    // of arithmetic unit work at once; the last load reads bytes 18 to 25.
    // Then two groups per step from one 8-byte load.
    for (; i + 26 <= length; i += 24) {
        out = encode_four_groups(in + i, out);
        out = encode_two_groups(load_big_endian_64(in + i + 12), out);
        out = encode_two_groups(load_big_endian_64(in + i + 18), out);
    }
    for (; i + 8 <= length; i += 6) {
        out = encode_two_groups(load_big_endian_64(in + i), out);
    }
    for (; i < full; i += 3) {
        out = encode_group(uint32_t{in[i]} << 16 | uint32_t{in[i + 1]} << 8 | in[i + 2], out);
    }
    return out;
}

// The rest bytes, zero-filled to a group: two characters made as for a full
// group, the third made only with a rest of 2, then padding.
void encode_rest(const uint8_t *rest_bytes, uint64_t rest, char *out) {
    const uint8_t a = rest_bytes[0];
    const uint8_t b = rest == 2 ? rest_bytes[1] : 0;
    out[0] = kAlphabet[a >> 2];
    out[1] = kAlphabet[((a << 4) & 0x30) | (b >> 4)];
    out[2] = rest == 2 ? kAlphabet[(b << 2) & 0x3C] : '=';
    out[3] = '=';
}

// Walks the text group by group, four usable characters to a group, every
// group written whole; returns the output position after the correction for
// a short last group.
uint8_t *decode_groups(const uint8_t *in, const uint8_t *end, uint8_t *out) {
    int last_count = 0;
    while (in != end) {
        // Bulk paths: eight usable characters make two groups, stored with
        // one 8-byte write. With 12 or more characters left the block has
        // room for 8 bytes here (it holds 3 bytes for every started 4
        // characters); the 2 bytes past the groups are overwritten by the
        // next group, or lie past the output. First 32 characters a step,
        // half in vector lanes and half through the tables, so that both
        // kinds of arithmetic unit work at once; nothing is stored unless all
        // 32 are usable, and with 36 or more characters left there is room
        // for the 24 bytes and the 2 past them. Then eight a step.
        while (end - in >= 36) {
            uint64_t vector_pairs[2];
            const bool vector_usable = four_groups_of_values(in, vector_pairs);
            const uint32_t fifth = placed_group(in + 16);
            const uint32_t sixth = placed_group(in + 20);
            const uint32_t seventh = placed_group(in + 24);
            const uint32_t eighth = placed_group(in + 28);
            if (!vector_usable || ((fifth | sixth | seventh | eighth) & kSkippedBit) != 0) {
                break;
            }
            store_big_endian_64(out, vector_pairs[0]);
            store_big_endian_64(out + 6, vector_pairs[1]);
            store_big_endian_64(out + 12, uint64_t{fifth} << 40 | uint64_t{sixth} << 16);
            store_big_endian_64(out + 18, uint64_t{seventh} << 40 | uint64_t{eighth} << 16);
            out += 24;
            in += 32;
            last_count = 4;
        }
        while (end - in >= 12) {
            const uint32_t first = placed_group(in);
            const uint32_t second = placed_group(in + 4);
            if (((first | second) & kSkippedBit) != 0) {
                break;
            }
            store_big_endian_64(out, uint64_t{first} << 40 | uint64_t{second} << 16);
            out += 6;
            in += 8;
            last_count = 4;
        }
        // Fast path: the next four characters are all usable.
        if (end - in >= 4) {
            const uint32_t group = placed_group(in);
            if ((group & kSkippedBit) == 0) {
                out = write_group_bytes(group, out);
                in += 4;
                last_count = 4;
                continue;
            }
        }
        // The exact rule: take characters, skipping the unusable ones, until
        // the group holds four or the text ends.
        uint32_t group = 0;
        int count = 0;
        while (count < 4 && in != end) {
            const uint8_t value = kDecodeValues[*in++];
            if (value != kSkip) {
                group |= uint32_t{value} << (18 - 6 * count);
                ++count;
            }
        }
        if (count == 0) {
            break; // only skipped characters were left
        }
        out = write_group_bytes(group, out);
        last_count = count;
    }
    // A group of 3 characters carries 2 bytes and one of 2 carries 1; a group
    // of 1 keeps its three bytes. An empty group only ever follows a full one.
    if (last_count == 3) {
        out -= 1;
    } else if (last_count == 2) {
        out -= 2;
    }
    return out;
}

// ---- bit string helpers ---------------------------------------------------------

// Bytes 0 .. n - 1 from s[i] and s[i + 1] shifted by r (1 to 7) bits; the
// last byte takes zero bits from behind. s lies at or behind bytes, and every
// source byte is read before the write that could overwrite it.
void shift_bits_towards_start(uint8_t *bytes, const uint8_t *s, uint64_t n, unsigned r) {
    uint64_t i = 0;
    // Eight bytes per step, from nine source bytes.
    for (; i + 9 <= n; i += 8) {
        const uint64_t word = load_big_endian_64(s + i) << r | s[i + 8] >> (8 - r);
        store_big_endian_64(bytes + i, word);
    }
    const unsigned m = 0xFFu >> r; // the low 8 - r bits
    for (; i + 1 < n; ++i) {
        bytes[i] = static_cast<uint8_t>((s[i] & m) << r | (s[i + 1] & ~m & 0xFF) >> (8 - r));
    }
    bytes[n - 1] = static_cast<uint8_t>((s[n - 1] & m) << r);
}

// Eight bytes of 0 or 1 for each byte value, most significant bit first.
constexpr std::array<std::array<uint8_t, 8>, 256> kSpreadBits = [] {
    std::array<std::array<uint8_t, 8>, 256> table{};
    for (int byte = 0; byte < 256; ++byte) {
        for (int bit = 0; bit < 8; ++bit) {
            table[byte][bit] = static_cast<uint8_t>((byte >> (7 - bit)) & 1);
        }
    }
    return table;
}();

} // namespace

extern "C" {

// ---- Base64 ---------------------------------------------------------------------

uint64_t tav_util_to_base64_size(uint64_t length) {
    return length % 3 != 0 ? 4 * (length / 3 + 1) : 4 * (length / 3);
}

tav_status tav_util_base64_encode(const uint8_t *bytes, uint64_t length, char **out,
                                  uint64_t *size_out) {
    const uint64_t rest = length % 3;
    const uint64_t full = length - rest;
    *size_out = full + full / 3 + (rest != 0 ? 4 : 0);

    // Beyond this length the encoded size wraps past 64 bits. No byte run in
    // an address space is that long, but the block must never be too small.
    constexpr uint64_t kLongestEncodable = UINT64_MAX / 4 * 3;
    *out = reinterpret_cast<char *>(allocate_output(*size_out, length <= kLongestEncodable));
    if (*out == nullptr) {
        return TAV_ERR_NOMEM;
    }

    char *const rest_out = encode_full_groups(bytes, length, full, *out);
    if (rest != 0) {
        encode_rest(bytes + full, rest, rest_out);
    }
    return TAV_OK;
}

tav_status tav_util_base64_decode(const char *text, uint64_t length, uint8_t **out,
                                  uint64_t *size_out) {
    *size_out = length / 4 * 3;

    // The block holds one group of 3 bytes for every started 4 characters,
    // not just for every whole 4: a last group past (length / 4) * 3, as in
    // "YQ" with no padding, is still written whole before the output position
    // is corrected. Usable characters can fill no more groups than that, so
    // no input writes outside the block. The figure cannot wrap.
    const uint64_t started_groups = length / 4 + (length % 4 != 0 ? 1 : 0);
    *out = allocate_output(started_groups * 3, true);
    if (*out == nullptr) {
        return TAV_ERR_NOMEM;
    }

    const auto *in = reinterpret_cast<const uint8_t *>(text);
    const uint8_t *const end_of_output = decode_groups(in, in + length, *out);
    *size_out = static_cast<uint64_t>(end_of_output - *out);
    return TAV_OK;
}

// ---- bit strings ----------------------------------------------------------------

tav_status tav_util_shift_bitstring_left(uint8_t *bytes, uint64_t *length, uint64_t shift) {
    if (bytes == nullptr || length == nullptr) {
        TAV_PLAIN_LINE("NULL argument detected: %p %p", static_cast<void *>(bytes),
                       static_cast<void *>(length));
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    const unsigned r = static_cast<unsigned>(shift & 7);
    // A whole-byte part past the string, or at its end with bits to move,
    // would run outside the array: it is held at the length, so every bit
    // shifts out. The string becomes empty (TAV_OK) and, as with any shift
    // that moves bits, the array is cleared at its former size; with no bits
    // to move it is left alone.
    const uint64_t w = shift >> 3 < *length ? shift >> 3 : *length;
    const uint64_t n = *length - w;
    *length = n;

    if (r == 0) {
        std::memmove(bytes, bytes + w, n);
        return TAV_OK;
    }
    if (n > 0) {
        shift_bits_towards_start(bytes, bytes + w, n, r);
    }
    std::memset(bytes + n, 0, w);
    return TAV_OK;
}

tav_status tav_util_map_bitstring_to_bytes(const uint8_t *bytes, uint64_t length, uint8_t **out,
                                           uint64_t *size_out) {
    if (bytes == nullptr || out == nullptr || size_out == nullptr) {
        TAV_PLAIN_LINE("NULL parameter detected: %p %p %p", static_cast<const void *>(bytes),
                       static_cast<void *>(out), static_cast<void *>(size_out));
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    *size_out = length * 8;
    *out = allocate_output(*size_out, length <= UINT64_MAX / 8);
    if (*out == nullptr) {
        TAV_PLAIN_LINE("Memory allocation failed");
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }

    for (uint64_t i = 0; i < length; ++i) {
        std::memcpy(*out + 8 * i, kSpreadBits[bytes[i]].data(), 8);
    }
    return TAV_OK;
}

tav_status tav_util_expand_byte_array(const uint8_t *bytes, uint64_t length, int32_t factor,
                                      uint8_t **out, uint64_t *size_out) {
    if (bytes == nullptr || out == nullptr || size_out == nullptr) {
        TAV_PLAIN_LINE("NULL parameter detected: %p %p %p", static_cast<const void *>(bytes),
                       static_cast<void *>(out), static_cast<void *>(size_out));
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    // Widened with its sign: a negative factor asks for a huge size.
    *size_out = static_cast<uint64_t>(int64_t{factor}) * length;
    const bool product_fits =
        factor >= 0 && (factor == 0 || length <= UINT64_MAX / static_cast<uint64_t>(factor));
    *out = allocate_output(*size_out, product_fits);
    if (*out == nullptr) {
        TAV_PLAIN_LINE("Memory allocation failed");
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }

    const auto repeats = static_cast<uint64_t>(factor);
    for (uint64_t i = 0; i < length && repeats > 0; ++i) {
        std::memset(*out + i * repeats, bytes[i], repeats);
    }
    return TAV_OK;
}

} // extern "C"
