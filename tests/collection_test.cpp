#include "internal/collection.hpp"
#include "support.hpp"

namespace {

int made = 0, destroyed = 0;
void *counted(void *element) { return made += element != nullptr, element; }
void *make() { return counted(std::calloc(1, sizeof(int))); }
void *copy(void *source) { return counted(tav_util_memdup(source, sizeof(int))); }
void drop(void *element) { ++destroyed, std::free(element); }
void count_only(void *) { ++destroyed; }

// The same pointer attached n times (the nth allocation failing): the array's
// sizes, the length and the destroys.
TEST(Collection, GrowthAndRefusals) {
    tavtest::clear_reports();
    using Row = std::tuple<int32_t, int, long, std::string>;
    for (const auto &[growth, n, nth, expected] :
         {Row{10, 40, 0, "80 160 240 320 40 40"}, Row{1, 4, 0, "8 16 24 32 4 4"},
          Row{-1, 134, 0, "8 24 64 168 424 1064 2664 134 134"},                    // below 1: as 0
          Row{INT32_MAX, 1, 1, std::to_string(size_t{INT32_MAX} * 8) + " 0 0"}}) { // too large
        tav_collection *c = tav_collection_new(nullptr, nullptr, nullptr, count_only);
        growth == 10 ? void() : tav_collection_set_growth(c, growth);
        const auto run = tavtest::run_allocations(nth, [&, n = n] {
            for (int i = 0; i < n && tav_collection_element_attach(c, &made); ++i) {
            }
        });
        const int32_t len = tav_collection_len(c); // the refusals below leave it
        EXPECT_TRUE(!tav_collection_element_new(c) && !tav_collection_element_add(c, &made) &&
                    !tav_collection_element_attach(c, nullptr) && !tav_collection_element(c, len) &&
                    !tav_collection_element(c, -1) &&
                    tav_collection_element(c, len - 1) == (len ? &made : nullptr));
        std::string all;
        for (const size_t bytes : run.sizes) {
            all += std::to_string(bytes) + " ";
        }
        destroyed = 0;
        tav_collection_free(c);
        EXPECT_EQ(all + std::to_string(len) + " " + std::to_string(destroyed), expected);
    }
    int a = 0;
    EXPECT_FALSE(tav_collection_new("x", make, copy, nullptr) || tav_collection_len(nullptr) ||
                 tav_collection_element_attach(nullptr, &a) || tav_collection_element(nullptr, 0) ||
                 tav_collection_element_add(nullptr, &a) || tav_collection_element_new(nullptr));
    tav_collection_set_growth(nullptr, 1);
    tav_collection_free(nullptr);
    // Near the limits of the 32-bit fields; a full array of INT32_MAX slots cannot grow.
    EXPECT_EQ(std::tuple(tav::collection_grown_capacity(715827883, 0),
                         tav::collection_grown_capacity(858993459, 0),
                         tav::collection_grown_capacity(INT32_MAX - 5, 10),
                         tav::collection_grown_capacity(INT32_MAX, 1)),
              std::tuple(1789569708, INT32_MAX, INT32_MAX, 0));
    EXPECT_EQ(tavtest::said(), "");
}

// At most one call fails; a failed element is destroyed at once, the rest by the free.
TEST(Collection, EveryAllocationFailureLeavesTheRecordAsItWas) {
    int seed = 5, held = 0, before = 0;
    bool in_place = true;
    const auto scenario = [&] {
        made = destroyed = held = 0, in_place = true;
        tav_collection *c = tav_collection_new("bag", make, copy, drop);
        tav_collection_set_growth(c, 0);
        for (int i = 0; c != nullptr && i < 12; ++i) {
            const int32_t len = tav_collection_len(c);
            void *element = i % 2                                  ? tav_collection_element_new(c)
                            : tav_collection_element_add(c, &seed) ? tav_collection_element(c, len)
                                                                   : nullptr;
            held += element != nullptr;
            in_place &= tav_collection_len(c) == held && tav_collection_element(c, len) == element;
        }
        before = destroyed;
        tav_collection_free(c);
    };
    const long runs = tavtest::for_each_allocation_failure(scenario, [&](long nth, auto &run) {
        EXPECT_TRUE(run.live_blocks == 0 && in_place && held >= (nth == 1 ? 0 : 11) &&
                    before == made - held && destroyed == made)
            << nth;
    });
    EXPECT_EQ(runs, tavtest::run_allocations(0, scenario).allocations); // strdup may go unseen
    EXPECT_GE(runs, 1 + 12 + 4);
}

} // namespace
