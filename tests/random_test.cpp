#include "support.hpp"

namespace {

using Words = std::vector<uint64_t>;

tav_util_prng_state seeded(uint64_t seed, uint64_t addend = 0) {
    tav_util_prng_state state;
    std::memset(&state, 0xEE, sizeof state);
    EXPECT_EQ(tav_util_seed_prng(&state, seed, addend), TAV_OK);
    return state;
}
bool same(const tav_util_prng_state &a, const tav_util_prng_state &b) {
    return a.cursor == b.cursor && a.weyl == b.weyl && !std::memcmp(a.table, b.table, 512);
}
// `count` single steps from a copy of `state`, which `end` receives after them.
Words steps(tav_util_prng_state state, size_t count, tav_util_prng_state *end = nullptr) {
    Words words(count);
    for (auto &word : words)
        EXPECT_EQ(tav_util_prng(&state, &word), TAV_OK);
    *(end != nullptr ? end : &state) = state;
    return words;
}

TEST(Prng, WorkedValuesRefusalsAndFills) {
    tavtest::clear_reports();
    const uint64_t second = 0x68E100A50B479104, third = 0xD00B063876877E9D;
    tav_util_prng_state one = seeded(1), mixed = one, filled = one;
    uint64_t word = 0;
    Bytes bytes(16, 0xCC);
    EXPECT_EQ((std::tuple{one.cursor, one.weyl, one.table[0], one.table[63], steps(one, 3),
                          steps(seeded(0), 3), steps(seeded(1, 5), 3),
                          tav_util_mix_into_prng(&mixed, 7, &word), word, steps(mixed, 1),
                          tav_util_prng_fill(&filled, bytes.data(), 13), bytes}),
              (std::tuple{63, 0x29A816459E1CE041u, 0x0B50DCD3E48D0878u, 0x9443CF55D5E3B4BAu,
                          Words{0xB85497A9BA510638, second, third},
                          Words{0x6B9B02117A0BE24C, 0x9A98CE2956464C05, 0x3319636315447E19},
                          Words{0xD85F17C16A4BD32D, second, third}, TAV_OK, 0xB85497AA02510643u,
                          Words{second}, TAV_OK,
                          Bytes{0x38, 0x06, 0x51, 0xBA, 0xA9, 0x97, 0x54, 0xB8, 0x04, 0x91, 0x47,
                                0x0B, 0xA5, 0xCC, 0xCC, 0xCC}}));
    // The refusals, in this order, and their trace entries (the values make none).
    tav_util_prng_state state = seeded(1), before = state;
    word = 77;
    Bytes buffer(16, 0xCC);
    EXPECT_EQ(
        (std::tuple{
            tav_util_seed_prng(nullptr, 1, 2),
            tav_util_prng_unpacked(nullptr, &word, state.table, &word),
            tav_util_prng_unpacked(&state.cursor, nullptr, state.table, &word),
            tav_util_prng_unpacked(&state.cursor, &word, nullptr, &word),
            tav_util_prng_unpacked(&state.cursor, &word, state.table, nullptr),
            tav_util_prng(nullptr, &word), tav_util_prng_batch(nullptr, &word, 1),
            tav_util_prng_batch(&state, nullptr, 0), tav_util_prng_batch(&state, &word, 0),
            tav_util_mix_into_prng(nullptr, 7, &word), tav_util_mix_into_prng(&state, 7, nullptr),
            tav_util_prng_fill(nullptr, nullptr, 0), tav_util_prng_fill(&state, nullptr, 8),
            tav_util_prng_fill(nullptr, buffer.data(), 5), tav_util_prng_fill(&state, nullptr, 7)}),
        (std::tuple{3, 3, 3, 3, 3, 3, 3, 3, 0, 7, 7, 0, 3, 3, 3}));
    std::string traces;
    for (const std::string name :
         {"seed_prng", "prng_unpacked", "prng_unpacked", "prng_unpacked", "prng_unpacked",
          "prng_unpacked", "prng_batch", "prng_batch", "mix_into_prng", "mix_into_prng",
          "prng_batch", "prng_fill", "prng_batch", "prng_fill", "prng_fill"}) {
        traces += "|trace tav_util_" + name + " src/random_ops.cpp " + (name[0] == 'm' ? "7" : "3");
    }
    EXPECT_EQ("|" + tavtest::said(), traces);
    EXPECT_TRUE(word == 77 && same(state, before) && buffer == Bytes(16, 0xCC));
    // Fills (made by batches), from every index and at every alignment, are the
    // bytes and state of single steps; a cursor outside 0 to 63 is taken mod 64.
    const int64_t laps[] = {0, -1, 1, 1000, -(1 << 25), (1 << 25) - 1, -7, 3};
    for (size_t size = 1; size <= 80005; size = size == 81 ? 512 : size == 512 ? 80005 : size + 1)
        for (size_t offset = 0; offset < 8; ++offset) {
            steps(seeded(7, size), (8 * size + offset) % 64, &state);
            tav_util_prng_state single = state;
            (offset % 2 == 0 ? state : single).cursor = int32_t(state.cursor + 64 * laps[offset]);
            const Words words = steps(single, (size + 7) / 8, &single);
            Bytes buffer(size + 16, 0xCC), expected(size + 16, 0xCC);
            std::memcpy(expected.data() + offset, words.data(), size);
            EXPECT_TRUE(tav_util_prng_fill(&state, buffer.data() + offset, size) == TAV_OK &&
                        buffer == expected && same(state, single))
                << size << " at " << offset;
        }
}

} // namespace
