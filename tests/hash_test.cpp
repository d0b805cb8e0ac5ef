#include "rows.hpp"

namespace {

uint64_t hash_of(const Bytes &bytes, size_t offset = 0) {
    Bytes placed(offset + bytes.size()); // malloc'd: offset 0 is word-aligned
    std::memcpy(placed.data() + offset, bytes.data(), bytes.size());
    uint64_t result = 0;
    EXPECT_EQ(tav_util_hash64(placed.data() + offset, bytes.size(), &result), TAV_OK);
    return result;
}

// Words folded byte by byte, the whole ones from their last byte, the tail
// from its first, with no word loads.
uint64_t reference_hash(const Bytes &bytes) {
    uint64_t h = 1;
    const auto absorb = [&h](uint64_t word) {
        h += word;
        h ^= h << 10, h ^= h >> 15, h ^= h << 4, h ^= h >> 13;
    };
    const size_t whole = bytes.size() / 8 * 8;
    for (size_t i = 0; i < bytes.size(); i += 8) {
        uint64_t word = 0;
        for (size_t k = 0; k < 8 && i + k < bytes.size(); ++k) {
            word = word << 8 | bytes[i < whole ? i + 7 - k : i + k];
        }
        absorb(word);
    }
    for (int pass = 0; pass < 16; ++pass) {
        absorb(0);
    }
    return h;
}

TEST(Hash, WorkedValuesAliasesAndEveryTailAtEveryAlignment) {
    tavtest::clear_reports();
    const auto text = [](const char *s) { return Bytes(s, s + std::strlen(s)); };
    EXPECT_EQ(hash_of(text("abc")), 0x5F39FB8F324F2E25u);
    EXPECT_EQ(hash_of(text("abcdefgh")), 0xB3D82310AC69EFB1u);
    EXPECT_EQ(hash_of(text("abcdefghi")), 0x14C34D22EA476743u);
    for (const Bytes &alike : {Bytes{'a'}, Bytes{0, 'a'}, Bytes{0, 0, 'a'},
                               Bytes{0, 0, 0, 0, 0, 0, 'a'}, Bytes{'a', 0, 0, 0, 0, 0, 0, 0}}) {
        EXPECT_EQ(hash_of(alike), 0x86B8D0A29D36348Bu) << alike.size();
    }
    EXPECT_NE(hash_of(Bytes(8, 0)), hash_of(Bytes(16, 0)));
    Bytes pattern(100003);
    for (size_t i = 0; i < pattern.size(); ++i) {
        pattern[i] = static_cast<unsigned char>(i * 0x9E3779B1u >> 13);
    }
    for (size_t length = 1; length <= 41; ++length) {
        const Bytes data(pattern.begin(),
                         pattern.begin() + (length == 41 ? 100003L : long(length)));
        for (size_t offset = 0; offset < 8; ++offset) {
            EXPECT_EQ(hash_of(data, offset), reference_hash(data)) << length << " at " << offset;
        }
    }
    EXPECT_EQ(tavtest::said(), "");
    uint64_t result = 77;
    EXPECT_EQ(tav_util_hash64(nullptr, 3, &result), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_hash64("abc", 3, nullptr), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_hash64(nullptr, 0, nullptr), TAV_ERR_BAD_ARG);
    EXPECT_EQ(tav_util_hash64("abc", 0, &result), TAV_ERR_BAD_ARG);
    const auto &r = tavtest::reports(); // the pointer test comes first
    EXPECT_EQ(std::tuple(result, r.at(0).line == r.at(2).line, r.at(2).line != r.at(3).line),
              std::tuple(77u, true, true));
    const std::string entry = "trace tav_util_hash64 src/hash_ops.cpp 7";
    EXPECT_EQ(tavtest::said(), entry + "|" + entry + "|" + entry + "|" + entry);
}

} // namespace
