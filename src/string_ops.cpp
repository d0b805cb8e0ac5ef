// String operations: byte replacement, hex text both ways, split, join and
// appending to a counted text.
#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cstring>
#include <string_view>

#include "internal/frame.hpp"

namespace {

// ---- byte lanes ---------------------------------------------------------

// Sixteen bytes as one value, the width of a vector register on every 64-bit
// target (SSE2, NEON); compares give -1 in each lane where they hold.
typedef unsigned char ByteLanes __attribute__((vector_size(16)));

inline ByteLanes load_lanes(const unsigned char *bytes) {
    ByteLanes lanes;
    std::memcpy(&lanes, bytes, sizeof lanes);
    return lanes;
}

// ---- hex text -----------------------------------------------------------

constexpr char kHexDigits[] = "0123456789abcdef";

// The longest byte run whose hex text fits in one block.
constexpr uint64_t kLongestHexRun = (PTRDIFF_MAX - 1) / 2;

// The value of each byte as a hex digit, or -1.
constexpr std::array<int8_t, 256> kHexValue = [] {
    std::array<int8_t, 256> table{};
    for (int byte = 0; byte < 256; ++byte) {
        table[byte] = -1;
    }
    for (int digit = 0; digit < 10; ++digit) {
        table['0' + digit] = static_cast<int8_t>(digit);
    }
    for (int digit = 0; digit < 6; ++digit) {
        table['a' + digit] = static_cast<int8_t>(10 + digit);
        table['A' + digit] = static_cast<int8_t>(10 + digit);
    }
    return table;
}();

// Two lower-case digits per byte, as "%02x" writes them, then the terminator.
// Sixteen bytes make 32 digits at a step: a nibble n becomes '0' + n, and 39
// more ('a' - '0' - 10) from 10 on; the high and the low digits of the bytes
// are then interleaved. The bytes past the last whole step go one by one.
void encode_hex(const uint8_t *bytes, uint64_t length, char *text) {
    uint64_t i = 0;
    for (; i + sizeof(ByteLanes) <= length; i += sizeof(ByteLanes)) {
        const ByteLanes lanes = load_lanes(bytes + i);
        const ByteLanes high = lanes >> 4;
        const ByteLanes low = lanes & 0xF;
        const ByteLanes high_digits = high + '0' + (reinterpret_cast<ByteLanes>(high > 9) & 39);
        const ByteLanes low_digits = low + '0' + (reinterpret_cast<ByteLanes>(low > 9) & 39);
        const ByteLanes first = __builtin_shufflevector(high_digits, low_digits, 0, 16, 1, 17, 2,
                                                        18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
        const ByteLanes second = __builtin_shufflevector(
            high_digits, low_digits, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
        std::memcpy(text + 2 * i, &first, sizeof first);
        std::memcpy(text + 2 * i + sizeof first, &second, sizeof second);
    }
    for (; i < length; ++i) {
        text[2 * i] = kHexDigits[bytes[i] >> 4];
        text[2 * i + 1] = kHexDigits[bytes[i] & 0xF];
    }
    text[2 * length] = '\0';
}

// What "%2x" makes of the text at `place`, which is not blank: at most two
// characters are taken and one more is looked at, so sscanf on a copy of
// those three gives exactly what it gives on the whole text, without
// measuring the rest of it each time. A pair that does not parse leaves
// `previous` as it is.
unsigned scan_pair(const char *place, unsigned previous) {
    char copy[4] = {};
    for (int i = 0; i < 3 && place[i] != '\0'; ++i) {
        copy[i] = place[i];
    }
    unsigned value = previous;
    std::sscanf(copy, "%2x", &value);
    return value;
}

// The values of sixteen characters that are hex digits ('0' to '9', 'a' to
// 'f', 'A' to 'F'); `is_digit` gets -1 in each lane that holds one, else 0.
inline ByteLanes digit_values(ByteLanes characters, ByteLanes &is_digit) {
    const ByteLanes decimal = characters - '0';
    const ByteLanes letter = (characters | 0x20) - 'a';
    const auto is_decimal = reinterpret_cast<ByteLanes>(decimal < 10);
    const auto is_letter = reinterpret_cast<ByteLanes>(letter < 6);
    is_digit = is_decimal | is_letter;
    return (decimal & is_decimal) | ((letter + 10) & is_letter);
}

// Sixteen bytes from the 32 characters at `hex` if all are digits, as each
// pair reads alone; false, with nothing written, if any is not.
bool decode_digit_pairs(const char *hex, uint8_t *bytes) {
    const auto *characters = reinterpret_cast<const unsigned char *>(hex);
    ByteLanes first_digits, second_digits;
    const ByteLanes first = digit_values(load_lanes(characters), first_digits);
    const ByteLanes second =
        digit_values(load_lanes(characters + sizeof(ByteLanes)), second_digits);
    uint64_t all[2];
    const ByteLanes both = first_digits & second_digits;
    std::memcpy(all, &both, sizeof all);
    if ((all[0] & all[1]) != UINT64_MAX) {
        return false;
    }
    // Each pair as one 16-bit lane: the high digit in its low byte on a
    // little-endian target, in its high byte on a big-endian one.
    typedef uint16_t PairLanes __attribute__((vector_size(16)));
    const auto pack = [](ByteLanes digits) {
        const auto pairs = reinterpret_cast<PairLanes>(digits);
        if constexpr (std::endian::native == std::endian::little) {
            return reinterpret_cast<ByteLanes>((pairs & 0xF) << 4 | pairs >> 8);
        } else {
            return reinterpret_cast<ByteLanes>((pairs >> 8) << 4 | (pairs & 0xF));
        }
    };
    const ByteLanes low = pack(first), high = pack(second);
    // The byte of each pair is the low-order byte of its lane.
    const ByteLanes values = std::endian::native == std::endian::little
                                 ? __builtin_shufflevector(low, high, 0, 2, 4, 6, 8, 10, 12, 14, 16,
                                                           18, 20, 22, 24, 26, 28, 30)
                                 : __builtin_shufflevector(low, high, 1, 3, 5, 7, 9, 11, 13, 15, 17,
                                                           19, 21, 23, 25, 27, 29, 31);
    std::memcpy(bytes, &values, sizeof values);
    return true;
}

// Reads `count` bytes from the pairs of `hex`. Plain digit pairs are decoded
// directly; any other pair takes the "%2x" rule, blanks, signs and all.
void decode_hex(const char *hex, uint64_t length, uint8_t *bytes, uint64_t count) {
    // A pair at or behind the terminator sees no input and keeps the value;
    // when the length claims more than the text holds, the bytes behind the
    // terminator are never read.
    const uint64_t text_end = tav_util_strnlen(hex, length);
    // No pair before the first one: if it does not parse, byte 0 is 0.
    unsigned value = 0;
    // The end of the blank run last skipped, so that a long run is walked
    // once and not again for each pair that starts inside it.
    uint64_t blank_end = 0;
    uint64_t last_scanned = UINT64_MAX;
    // Pairs before `pair_by_pair` go one at a time: a step of sixteen that
    // met a character other than a digit is not tried again at each pair.
    uint64_t pair_by_pair = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t at = 2 * i;
        if (i >= pair_by_pair && count - i >= sizeof(ByteLanes) &&
            text_end - std::min(at, text_end) >= 2 * sizeof(ByteLanes)) {
            if (decode_digit_pairs(hex + at, bytes + i)) {
                value = bytes[i + sizeof(ByteLanes) - 1];
                i += sizeof(ByteLanes) - 1;
                continue;
            }
            pair_by_pair = i + sizeof(ByteLanes);
        }
        if (at < text_end) {
            const int high = kHexValue[static_cast<unsigned char>(hex[at])];
            const int low = kHexValue[static_cast<unsigned char>(hex[at + 1])];
            if (high >= 0 && low >= 0) {
                value = static_cast<unsigned>(high * 16 + low);
            } else {
                uint64_t from = at > blank_end ? at : blank_end;
                while (std::isspace(static_cast<unsigned char>(hex[from])) != 0) {
                    ++from;
                }
                blank_end = from;
                // Pairs inside one blank run all read the place behind it,
                // and reading it again would give what it gave before.
                if (from != last_scanned) {
                    value = scan_pair(hex + from, value);
                    last_scanned = from;
                }
            }
        }
        bytes[i] = static_cast<uint8_t>(value);
    }
}

// ---- split --------------------------------------------------------------

// An empty delimiter would match everywhere without advancing; it never
// matches instead, so the whole text is one token (none when empty).

// The first place of `rest` that does not start a whole delimiter, stepping
// over delimiters in whole steps; a rest shorter than the delimiter is text.
// Null when nothing but delimiters remains.
const char *skip_delimiters(std::string_view rest, std::string_view delimiter) {
    const size_t d = delimiter.size();
    size_t offset = 0;
    if (d > 0) {
        while (offset + d <= rest.size()) {
            if (std::memcmp(rest.data() + offset, delimiter.data(), d) != 0) {
                return rest.data() + offset;
            }
            offset += d;
        }
    }
    return offset < rest.size() ? rest.data() + offset : nullptr;
}

// Where the next delimiter starts in `rest`, or null.
const char *find_delimiter(std::string_view rest, std::string_view delimiter) {
    if (delimiter.empty()) {
        return nullptr;
    }
    return static_cast<const char *>(
        tav_util_memmem(rest.data(), rest.size(), delimiter.data(), delimiter.size()));
}

// Whether any lane holds -1, and the first that does: byte k of a half is
// lane k on a little-endian target, lane 7 - k on a big-endian one.
inline bool any_lane(ByteLanes hits) {
    uint64_t halves[2];
    std::memcpy(halves, &hits, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

inline size_t first_lane(ByteLanes hits) {
    uint64_t halves[2];
    std::memcpy(halves, &hits, sizeof halves);
    const bool first = halves[0] != 0;
    const uint64_t half = first ? halves[0] : halves[1];
    const int lane = std::endian::native == std::endian::little ? std::countr_zero(half) / 8
                                                                : std::countl_zero(half) / 8;
    return (first ? 0 : 8) + static_cast<size_t>(lane);
}

// The first place of [place, end) that holds `byte`, or null. Tokens are
// mostly short, so the search runs inline, 32 and then 16 bytes a step, each
// load inside the range; the last few bytes are looked at one by one.
const char *find_byte(const char *place, const char *end, char byte) {
    const auto d = static_cast<unsigned char>(byte);
    const auto hits_at = [d](const char *at) {
        return reinterpret_cast<ByteLanes>(
            load_lanes(reinterpret_cast<const unsigned char *>(at)) == d);
    };
    constexpr auto kStep = static_cast<ptrdiff_t>(sizeof(ByteLanes));
    for (; end - place >= 2 * kStep; place += 2 * kStep) {
        const ByteLanes first = hits_at(place), second = hits_at(place + kStep);
        if (any_lane(first | second)) {
            return any_lane(first) ? place + first_lane(first) : place + kStep + first_lane(second);
        }
    }
    if (end - place >= kStep) {
        const ByteLanes hits = hits_at(place);
        if (any_lane(hits)) {
            return place + first_lane(hits);
        }
        place += kStep;
    }
    for (; place != end; ++place) {
        if (*place == byte) {
            return place;
        }
    }
    return nullptr;
}

// With a one-byte delimiter a token is a maximal run of other bytes: the
// same walk, the delimiters stepped over one compare each and the next one
// found by find_byte.
template <typename Visit> bool for_each_run(std::string_view text, char delimiter, Visit visit) {
    const char *place = text.data();
    const char *const end = place + text.size();
    while (true) {
        while (place != end && *place == delimiter) {
            ++place;
        }
        if (place == end) {
            return true;
        }
        const char *next = find_byte(place, end, delimiter);
        const char *token_end = next != nullptr ? next : end;
        if (!visit(std::string_view(place, static_cast<size_t>(token_end - place)))) {
            return false;
        }
        if (next == nullptr) {
            return true;
        }
        place = next + 1;
    }
}

// The sum of the eight bytes of a word.
inline uint64_t sum_of_bytes(uint64_t word) {
    word = (word & 0x00FF00FF00FF00FF) + ((word >> 8) & 0x00FF00FF00FF00FF);
    return (word * 0x0001000100010001) >> 48;
}

// How many tokens a one-byte delimiter makes of `text`, which is how many
// places start a run of other bytes: its first byte unless that is the
// delimiter, and each byte after a delimiter that is not one itself. Counted
// sixteen places at a time, each load inside the text.
uint64_t count_runs(std::string_view text, char delimiter) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
    const size_t length = text.size();
    const auto d = static_cast<unsigned char>(delimiter);
    if (length == 0) {
        return 0;
    }
    uint64_t runs = bytes[0] != d ? 1 : 0;
    size_t i = 1;
    // A run starts where the byte before is a delimiter and the byte is not.
    const auto starts_at = [bytes, d](size_t at) {
        const auto delimiter_here = reinterpret_cast<ByteLanes>(load_lanes(bytes + at) == d);
        const auto delimiter_before = reinterpret_cast<ByteLanes>(load_lanes(bytes + at - 1) == d);
        return delimiter_before & ~delimiter_here;
    };
    constexpr size_t kStep = sizeof(ByteLanes);
    while (i + kStep <= length) {
        // Each lane counts at most 254 starts before the lanes are summed.
        ByteLanes starts = {};
        int round = 0;
        for (; round < 127 && i + 2 * kStep <= length; ++round, i += 2 * kStep) {
            starts -= starts_at(i);
            starts -= starts_at(i + kStep);
        }
        if (round < 127 && i + kStep <= length) {
            starts -= starts_at(i);
            i += kStep;
        }
        uint64_t halves[2];
        std::memcpy(halves, &starts, sizeof halves);
        runs += sum_of_bytes(halves[0]) + sum_of_bytes(halves[1]);
    }
    for (; i < length; ++i) {
        runs += bytes[i] != d && bytes[i - 1] == d ? 1 : 0;
    }
    return runs;
}

// Walks the tokens of `text` in order, handing each to `visit`, and stops
// early when `visit` returns false. Both passes of a split walk here, so the
// second meets exactly the tokens the first counted; with a one-byte
// delimiter the first pass is count_runs, which counts the same runs. The
// text is measured once by the caller and its rest carried along.
template <typename Visit>
bool for_each_token(std::string_view text, std::string_view delimiter, Visit visit) {
    if (delimiter.size() == 1) {
        return for_each_run(text, delimiter[0], visit);
    }
    std::string_view rest = text;
    while (true) {
        const char *token = skip_delimiters(rest, delimiter);
        if (token == nullptr) {
            return true;
        }
        rest.remove_prefix(static_cast<size_t>(token - rest.data()));
        const char *next = find_delimiter(rest, delimiter);
        const size_t token_length =
            next != nullptr ? static_cast<size_t>(next - token) : rest.size();
        if (!visit(std::string_view(token, token_length))) {
            return false;
        }
        if (next == nullptr) {
            return true;
        }
        rest.remove_prefix(token_length);
    }
}

// Frees the first `made` tokens, last first, then the array.
void release_tokens(char **tokens, uint64_t made) {
    while (made > 0) {
        std::free(tokens[--made]);
    }
    std::free(tokens);
}

// ---- join and append ----------------------------------------------------

// The one overflow test of join and append: `sum` + `addend` would not fit.
constexpr bool sum_overflows(uint64_t sum, uint64_t addend) { return ~addend < sum; }

} // namespace

extern "C" {

tav_status tav_util_str_replace(char *text, uint64_t maximum, char from, char to) {
    if (text == nullptr) {
        return TAV_OK;
    }
    // A `to` of zero cuts the text, yet the walk goes on to the next zero
    // byte that was there before.
    for (uint64_t i = 0; i < maximum && text[i] != '\0'; ++i) {
        if (text[i] == from) {
            text[i] = to;
        }
    }
    return TAV_OK;
}

tav_status tav_util_sprintf_bytes(const uint8_t *bytes, uint64_t length, char **out) {
    // No block holds more than PTRDIFF_MAX bytes; a longer run is refused as
    // a failed allocation instead of asking for a wrapped, too small size.
    *out = length <= kLongestHexRun ? static_cast<char *>(std::malloc(2 * length + 1)) : nullptr;
    if (*out == nullptr) {
        TAV_PLAIN_LINE("Allocation failed");
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    encode_hex(bytes, length, *out);
    return TAV_OK;
}

tav_status tav_util_sscanf_bytes(const char *hex, uint64_t length, uint8_t **out) {
    const uint64_t count = length / 2;
    *out = static_cast<uint8_t *>(std::malloc(count));
    if (*out == nullptr) {
        TAV_PLAIN_LINE("Allocation failed");
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    decode_hex(hex, length, *out, count);
    return TAV_OK;
}

tav_status tav_util_split(const char *text, const char *delimiter, char ***out,
                          uint64_t *count_out) {
    if (text == nullptr || delimiter == nullptr || out == nullptr || count_out == nullptr) {
        TAV_PLAIN_LINE("NULL argument detected: %p %p %p %p", static_cast<const void *>(text),
                       static_cast<const void *>(delimiter), static_cast<void *>(out),
                       static_cast<void *>(count_out));
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    const std::string_view whole(text);
    const std::string_view separator(delimiter);

    *count_out = 0;
    if (separator.size() == 1) {
        *count_out = count_runs(whole, separator[0]);
    } else {
        for_each_token(whole, separator, [count_out](std::string_view) {
            ++*count_out;
            return true;
        });
    }
    if (*count_out == 0) {
        *out = nullptr;
        return TAV_OK;
    }

    *out = static_cast<char **>(std::malloc(*count_out * sizeof(char *)));
    if (*out == nullptr) {
        TAV_PLAIN_LINE("Memory allocation failed");
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }

    char **tokens = *out;
    uint64_t made = 0;
    const bool complete = for_each_token(whole, separator, [tokens, &made](std::string_view token) {
        auto *copy = static_cast<char *>(std::malloc(token.size() + 1));
        if (copy == nullptr) {
            return false;
        }
        std::memcpy(copy, token.data(), token.size());
        copy[token.size()] = '\0';
        tokens[made++] = copy;
        return true;
    });
    if (!complete) {
        TAV_PLAIN_LINE("Failed to allocate memory");
        release_tokens(tokens, made);
        *out = nullptr;
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    return TAV_OK;
}

tav_status tav_util_join(const char *const *texts, uint64_t count, const char *separator,
                         char **out, uint64_t *size_out) {
    if (texts == nullptr || separator == nullptr || out == nullptr || size_out == nullptr ||
        count == 0) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }

    // The size goes to the caller as it grows, so after an overflow it
    // holds the sum so far.
    const uint64_t separator_length = std::strlen(separator);
    *size_out = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t text_length = std::strlen(texts[i]);
        if (sum_overflows(*size_out, text_length)) {
            return tav::traced(TAV_SITE, TAV_ERR_OVERFLOW);
        }
        *size_out += text_length;
        const uint64_t follower = i + 1 == count ? 1 : separator_length;
        if (sum_overflows(*size_out, follower)) {
            return tav::traced(TAV_SITE, TAV_ERR_OVERFLOW);
        }
        *size_out += follower;
    }

    *out = static_cast<char *>(std::calloc(*size_out, 1));
    if (*out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    // The terminator comes from the zero fill. The separator's length is
    // known, so it is copied as bytes rather than searched for its end.
    char *end = stpcpy(*out, texts[0]);
    for (uint64_t i = 1; i < count; ++i) {
        if (separator_length == 1) {
            *end++ = *separator;
        } else {
            std::memcpy(end, separator, separator_length);
            end += separator_length;
        }
        end = stpcpy(end, texts[i]);
    }
    return TAV_OK;
}

tav_status tav_util_append_string(char **text, uint64_t *length, const char *addition,
                                  uint64_t addition_length) {
    if (text == nullptr || length == nullptr || addition == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (addition_length == 0 || (*text != nullptr && *length == 0)) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }

    if (*text == nullptr) {
        // The text reads as far as the addition's first zero byte, yet its
        // length is the whole addition length. The first block keeps the
        // whole addition, so every byte that length claims exists and the
        // next append never copies from outside the block.
        *text = static_cast<char *>(tav_util_memdup0(addition, addition_length));
        if (*text == nullptr) {
            return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
        }
        *length = addition_length;
        return TAV_OK;
    }

    // A sum at the largest value leaves no room for the terminator: the size
    // would wrap to 0 and the copy would run past the block.
    if (sum_overflows(*length, addition_length) || sum_overflows(*length + addition_length, 1)) {
        return tav::traced(TAV_SITE, TAV_ERR_OVERFLOW);
    }
    const uint64_t joined_length = *length + addition_length;
    auto *joined = static_cast<char *>(std::malloc(joined_length + 1));
    if (joined == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    // Copied before the old text is freed: the addition may lie inside it.
    std::memcpy(joined, *text, *length);
    std::memcpy(joined + *length, addition, addition_length);
    joined[joined_length] = '\0';
    std::free(*text);
    *text = joined;
    *length = joined_length;
    return TAV_OK;
}

} // extern "C"
