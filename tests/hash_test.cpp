#include "rows.hpp"

namespace {

// The rule read byte by byte: whole words from their last byte, the tail from
// its first; past the data, sixteen words of zero.
uint64_t reference_hash(const Bytes &bytes) {
    uint64_t h = 1;
    for (size_t i = 0, whole = bytes.size() / 8 * 8; i < bytes.size() + 128; i += 8) {
        uint64_t word = 0;
        for (size_t k = 0; k < 8 && i + k < bytes.size(); ++k) {
            word = word << 8 | bytes[i < whole ? i + 7 - k : i + k];
        }
        h += word;
        h ^= h << 10, h ^= h >> 15, h ^= h << 4, h ^= h >> 13;
    }
    return h;
}

uint64_t hash_at(const Bytes &bytes, size_t offset) {
    Bytes placed(offset + bytes.size()); // malloc'd: offset 0 is word-aligned
    std::memcpy(placed.data() + offset, bytes.data(), bytes.size());
    uint64_t result = 0;
    EXPECT_EQ(tav_util_hash64(placed.data() + offset, bytes.size(), &result), TAV_OK);
    return result;
}

TEST(Hash, WorkedValuesEveryTailAtEveryAlignmentAndRefusals) {
    tavtest::clear_reports();
    using Row = std::pair<std::string, uint64_t>;
    for (const auto &[text, value] :
         {Row{"abc", 0x5F39FB8F324F2E25u}, Row{"abcdefgh", 0xB3D82310AC69EFB1u},
          Row{"abcdefghi", 0x14C34D22EA476743u}, Row{"a", 0x86B8D0A29D36348Bu},
          Row{{"\0\0\0\0\0\0a", 7}, 0x86B8D0A29D36348Bu},
          Row{{"a\0\0\0\0\0\0\0", 8}, 0x86B8D0A29D36348Bu}}) {
        EXPECT_EQ(hash_at(Bytes(text.begin(), text.end()), 0), value) << text;
    }
    Bytes pattern(100003);
    for (size_t i = 0; i < pattern.size(); ++i) {
        pattern[i] = static_cast<unsigned char>(i * 0x9E3779B1u >> 13);
    }
    for (size_t length = 1; length <= 41; ++length) {
        const Bytes data(pattern.begin(), length == 41 ? pattern.end() : pattern.begin() + length);
        for (size_t offset = 0; offset < 8; ++offset) {
            EXPECT_EQ(hash_at(data, offset), reference_hash(data)) << length << " at " << offset;
        }
    }
    EXPECT_EQ(tavtest::said(), "");
    uint64_t result = 77;
    using Call = std::tuple<const void *, size_t, uint64_t *>;
    for (const auto &[data, length, out] : {Call{nullptr, 3, &result}, Call{"abc", 3, nullptr},
                                            Call{nullptr, 0, nullptr}, Call{"abc", 0, &result}}) {
        EXPECT_EQ(tav_util_hash64(data, length, out), TAV_ERR_BAD_ARG);
    }
    const auto &r = tavtest::reports(); // the pointer test comes first
    EXPECT_EQ(std::tuple(result, r.at(0).line == r.at(2).line, r.at(2).line != r.at(3).line),
              std::tuple(77u, true, true));
    const std::string entry = "trace tav_util_hash64 src/hash_ops.cpp 7";
    EXPECT_EQ(tavtest::said(), entry + "|" + entry + "|" + entry + "|" + entry);
}

} // namespace
