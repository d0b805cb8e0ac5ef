#include "rows.hpp"

namespace {

// The rule read byte by byte: whole words from their last byte, the tail from
// its first; past the data, sixteen words of zero.
uint64_t reference_hash(const unsigned char *bytes, size_t size) {
    uint64_t h = 1;
    for (size_t i = 0, whole = size / 8 * 8; i < size + 128; i += 8) {
        uint64_t word = 0;
        for (size_t k = 0; k < 8 && i + k < size; ++k) {
            word = word << 8 | bytes[i < whole ? i + 7 - k : i + k];
        }
        h += word;
        h ^= h << 10, h ^= h >> 15, h ^= h << 4, h ^= h >> 13;
    }
    return h;
}
uint64_t hashed(const void *data, size_t length) {
    uint64_t result = 0;
    EXPECT_EQ(tav_util_hash64(data, length, &result), TAV_OK);
    return result;
}

// Every tail length at every alignment, each data ending a block, and long
// data, against the rule; then the refusals, the pointers tested first.
TEST(Hash, ValuesTailsAlignmentsAndRefusals) {
    tavtest::clear_reports();
    using Row = std::pair<const char *, uint64_t>;
    for (const auto &[text, value] :
         {Row{"abc", 0x5F39FB8F324F2E25u}, Row{"a", 0x86B8D0A29D36348Bu},
          Row{"abcdefgh", 0xB3D82310AC69EFB1u}, Row{"abcdefghi", 0x14C34D22EA476743u}}) {
        EXPECT_EQ(hashed(text, std::strlen(text)), value) << text;
    }
    Bytes pattern(100003);
    for (size_t i = 0; i < pattern.size(); ++i) {
        pattern[i] = static_cast<unsigned char>(i * 0x9E3779B1u >> 13);
    }
    for (size_t length = 1; length <= 41; length = length == 40 ? 99995 : length + 1) {
        for (size_t offset = 0; offset < 8; ++offset) {
            const Bytes placed(pattern.begin(), pattern.begin() + offset + length);
            EXPECT_EQ(hashed(placed.data() + offset, length),
                      reference_hash(placed.data() + offset, length))
                << length << " at " << offset;
        }
    }
    uint64_t result = 77;
    EXPECT_EQ(
        (std::tuple{tav_util_hash64(nullptr, 3, &result), tav_util_hash64("abc", 3, nullptr),
                    tav_util_hash64(nullptr, 0, nullptr), tav_util_hash64("abc", 0, &result),
                    result}),
        (std::tuple{TAV_ERR_BAD_ARG, TAV_ERR_BAD_ARG, TAV_ERR_BAD_ARG, TAV_ERR_BAD_ARG, 77ul}));
    const auto &r = tavtest::reports();
    EXPECT_TRUE(r.size() == 4 && r[0].line == r[2].line && r[2].line != r[3].line);
    const std::string entry = "trace tav_util_hash64 src/hash_ops.cpp 7";
    EXPECT_EQ(tavtest::said(), entry + "|" + entry + "|" + entry + "|" + entry);
}

} // namespace
