// The collection: growth sequences, every allocation failure, refusals and
// lookups. It never reports.
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
// sizes, then the destroys.
std::string grown(int32_t growth, int n, long nth = 0) {
    tav_collection *collection = tav_collection_new(nullptr, nullptr, nullptr, count_only);
    growth == 10 ? void() : tav_collection_set_growth(collection, growth);
    const auto run = tavtest::run_allocations(nth, [&] {
        for (int i = 0; i < n && tav_collection_element_attach(collection, &made); ++i) {
        }
    });
    destroyed = 0;
    tav_collection_free(collection);
    std::string sizes;
    for (const size_t bytes : run.sizes) {
        sizes += std::to_string(bytes) + " ";
    }
    return sizes + std::to_string(destroyed);
}

TEST(Collection, Growth) {
    tavtest::clear_reports();
    EXPECT_EQ(grown(10, 40), "80 160 240 320 40");
    EXPECT_EQ(grown(1, 4), "8 16 24 32 4");
    EXPECT_EQ(grown(-1, 134), "8 24 64 168 424 1064 2664 134"); // below 1: as 0
    EXPECT_EQ(grown(INT32_MAX, 1, 1), std::to_string(size_t{INT32_MAX} * 8) + " 0"); // too large
    // Near the limits of the 32-bit fields; a full array of INT32_MAX slots cannot grow.
    const int32_t limits[][3] = {{715827883, 0, 1789569708},
                                 {858993458, 0, INT32_MAX - 1},
                                 {858993459, 0, INT32_MAX},
                                 {INT32_MAX - 5, 10, INT32_MAX},
                                 {INT32_MAX, 1, 0}};
    for (const auto &[count, growth, capacity] : limits) {
        EXPECT_EQ(tav::collection_grown_capacity(count, growth), capacity) << count;
    }
    EXPECT_EQ(tavtest::said(), "");
}

// Twelve adds (new, add, attach in turn) through each failing allocation: at
// most one call fails, the elements stay in place, nothing leaks, and each
// element made or attached is destroyed once.
TEST(Collection, EveryAllocationFailureLeavesTheRecordAsItWas) {
    int seed = 5, attached = 0, before = 0;
    std::vector<void *> added(12), held(12); // no allocation in the scenario
    const auto scenario = [&] {
        made = destroyed = attached = 0, added.clear(), held.clear();
        tav_collection *collection = tav_collection_new("bag", make, copy, drop);
        tav_collection_set_growth(collection, 0);
        for (int i = 0; collection != nullptr && i < 12; ++i) {
            void *own = i % 3 == 2 ? std::malloc(sizeof(int)) : nullptr;
            const int32_t last = tav_collection_len(collection);
            void *element =
                i % 3 == 0 ? tav_collection_element_new(collection)
                : i % 3 == 1
                    ? (tav_collection_element_add(collection, &seed)
                           ? tav_collection_element(collection, last)
                           : nullptr)
                    : (own && tav_collection_element_attach(collection, own) ? own : nullptr);
            element ? added.push_back(element) : std::free(own);
            attached += element != nullptr && element == own;
        }
        for (int32_t i = 0; i < tav_collection_len(collection); ++i) {
            held.push_back(tav_collection_element(collection, i));
        }
        before = destroyed;
        tav_collection_free(collection);
    };
    const long runs = tavtest::for_each_allocation_failure(scenario, [&](long nth, auto &run) {
        EXPECT_TRUE(run.live_blocks == 0 && held == added && added.size() >= (nth == 1 ? 0 : 11) &&
                    before <= 1 && before == made - (int(held.size()) - attached))
            << nth;
        EXPECT_EQ(destroyed, made + attached) << nth;
    });
    EXPECT_EQ(runs, tavtest::run_allocations(0, scenario).allocations); // strdup may go unseen
    EXPECT_GE(runs, 1 + 12 + 4);
}

TEST(Collection, RefusalsAndLookups) {
    int a = 0;
    tav_collection *collection = tav_collection_new(nullptr, nullptr, nullptr, count_only);
    EXPECT_FALSE(tav_collection_new("x", make, copy, nullptr) ||
                 tav_collection_element(collection, 0) || tav_collection_element_new(collection) ||
                 tav_collection_len(nullptr) || tav_collection_element_add(collection, &a) ||
                 tav_collection_element_attach(collection, nullptr) ||
                 tav_collection_element_attach(nullptr, &a) || tav_collection_element(nullptr, 0) ||
                 tav_collection_element_add(nullptr, &a) || tav_collection_element_new(nullptr));
    tav_collection_set_growth(nullptr, 1);
    tav_collection_free(nullptr);
    EXPECT_TRUE(tav_collection_element_attach(collection, &a) &&
                tav_collection_element_attach(collection, &made));
    EXPECT_EQ(std::tuple(tav_collection_len(collection), tav_collection_element(collection, 1),
                         tav_collection_element(collection, 2),
                         tav_collection_element(collection, -1)),
              std::tuple(2, &made, nullptr, nullptr));
    tav_collection_free(collection);
}

} // namespace
