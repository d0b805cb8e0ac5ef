#include "support.hpp"

namespace {

// At every alignment. Leading zero bytes vanish in a tail word, and a whole
// word of "a" and seven zero bytes reads as the tail "a": those hash alike.
// The values past the first four come from a separate reading of the rule.
TEST(Hash, ValuesAtEveryAlignmentAndRefusals) {
    tavtest::clear_reports();
    using Row = std::pair<std::string, uint64_t>;
    for (const auto &[text, value] :
         {Row{"abc", 0x5F39FB8F324F2E25u}, Row{"a", 0x86B8D0A29D36348Bu},
          Row{"abcdefgh", 0xB3D82310AC69EFB1u}, Row{"abcdefghi", 0x14C34D22EA476743u},
          Row{{"\0\0a", 3}, 0x86B8D0A29D36348Bu}, Row{{"a\0\0\0\0\0\0\0", 8}, 0x86B8D0A29D36348Bu},
          Row{std::string(16, '\0'), 0x7B68B2FA996F6413u}, Row{"abcdefghij", 0x50F1F4D988B9CE70u},
          Row{"abcdefghijklmnopqrstuvw", 0x488FF71EAB0652CBu}}) {
        for (size_t offset = 0; offset < 8; ++offset) {
            Bytes placed(offset); // malloc'd: offset 0 is word-aligned
            placed.insert(placed.end(), text.begin(), text.end());
            uint64_t result = 0;
            EXPECT_EQ(
                std::tuple(tav_util_hash64(placed.data() + offset, text.size(), &result), result),
                std::tuple(TAV_OK, value))
                << text << " at " << offset;
        }
    }
    uint64_t result = 77;
    EXPECT_EQ((std::tuple{tav_util_hash64(nullptr, 3, &result), tav_util_hash64("abc", 3, nullptr),
                          tav_util_hash64("abc", 0, &result), result}),
              (std::tuple{TAV_ERR_BAD_ARG, TAV_ERR_BAD_ARG, TAV_ERR_BAD_ARG, 77ul}));
    const std::string entry = "trace tav_util_hash64 src/hash_ops.cpp 7";
    EXPECT_EQ(tavtest::said(), entry + "|" + entry + "|" + entry);
}

} // namespace
