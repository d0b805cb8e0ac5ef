#include "support.hpp"

namespace {

// The values past the first four come from a separate reading of the rule.
TEST(Hash, ValuesAndRefusals) {
    tavtest::clear_reports();
    using Row = std::pair<std::string, uint64_t>;
    for (const auto &[text, value] :
         {Row{"abc", 0x5F39FB8F324F2E25u}, Row{"a", 0x86B8D0A29D36348Bu},
          Row{"abcdefgh", 0xB3D82310AC69EFB1u}, Row{"abcdefghi", 0x14C34D22EA476743u},
          Row{{"\0\0a", 3}, 0x86B8D0A29D36348Bu}, Row{{"a\0\0\0\0\0\0\0", 8}, 0x86B8D0A29D36348Bu},
          Row{std::string(16, '\0'), 0x7B68B2FA996F6413u},
          Row{"abcdefghijklmnopqrstuvw", 0x488FF71EAB0652CBu}}) {
        const Bytes exact(text.begin(), text.end());
        uint64_t result = 0;
        EXPECT_EQ(std::tuple(tav_util_hash64(exact.data(), text.size(), &result), result),
                  std::tuple(TAV_OK, value))
            << text;
    }
    uint64_t result = 77;
    EXPECT_EQ((std::tuple{tav_util_hash64(nullptr, 3, &result), tav_util_hash64("abc", 3, nullptr),
                          tav_util_hash64("abc", 0, &result), result}),
              (std::tuple{TAV_ERR_BAD_ARG, TAV_ERR_BAD_ARG, TAV_ERR_BAD_ARG, 77ul}));
    const std::string entry = "trace tav_util_hash64 src/hash_ops.cpp 7";
    EXPECT_EQ(tavtest::said(), entry + "|" + entry + "|" + entry);
}

} // namespace
