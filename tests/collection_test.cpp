// The collection: growth sequences, every allocation failure, refusals,
// lookups and the growth near the limits of its 32-bit fields. It never reports.
#include <gtest/gtest.h>

#include "alloc_inject.hpp"
#include "internal/collection.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

int made = 0, destroyed = 0;
void *counted(void *element) { return made += element != nullptr, element; }
void *make() { return counted(std::calloc(1, sizeof(int))); }
void *copy(void *source) { return counted(tav_util_memdup(source, sizeof(int))); }
void drop(void *element) { ++destroyed, std::free(element); }
void count_only(void *) { ++destroyed; }

TEST(Collection, Growth) {
    tavtest::clear_reports();
    // clang-format off
    for (const auto &[growth, n, slots] : {std::tuple(10, 40, "80 160 240 320 "), {1, 4, "8 16 24 32 "}, {0, 134, "8 24 64 168 424 1064 2664 "}}) {
        // clang-format on
        tav_collection *collection = tav_collection_new(nullptr, nullptr, nullptr, count_only);
        growth == 10 ? void() : tav_collection_set_growth(collection, growth);
        const auto run = tavtest::run_allocations(0, [&, n = n] { // the same pointer, n times
            for (int i = 0; i < n && tav_collection_element_attach(collection, &made); ++i) {
            }
        });
        destroyed = 0;
        tav_collection_free(collection);
        std::string sizes;
        std::for_each(run.sizes.begin(), run.sizes.end(),
                      [&](size_t bytes) { sizes += std::to_string(bytes) + " "; });
        EXPECT_EQ(std::tuple(sizes, destroyed), std::tuple(slots, n));
    }
    // 0: a full array of INT32_MAX slots cannot grow.
    // clang-format off
    const int32_t limits[][3] = {{715827882, 0, 1789569706}, {715827883, 0, 1789569708}, {858993458, 0, INT32_MAX - 1}, {858993459, 0, INT32_MAX},
                                 {INT32_MAX - 5, 10, INT32_MAX}, {INT32_MAX - 1, -3, INT32_MAX}, {INT32_MAX, 1, 0}, {INT32_MAX, 0, 0}};
    // clang-format on
    for (const auto &[count, growth, grown] : limits) {
        EXPECT_EQ(tav::collection_grown_capacity(count, growth), grown) << count << " " << growth;
    }
    EXPECT_TRUE(tavtest::reports().empty());
}

// Twelve adds (new, add, attach in turn) through each failing allocation: at
// most one call fails, the elements stay in place, nothing leaks, and each
// element made or attached is destroyed once.
TEST(Collection, EveryAllocationFailureLeavesTheRecordAsItWas) {
    int seed = 5, held = 0, attached = 0;
    void *elements[12];
    bool in_place = true;
    const auto scenario = [&] {
        made = destroyed = held = attached = 0, in_place = true;
        tav_collection *collection = tav_collection_new("bag", make, copy, drop);
        tav_collection_set_growth(collection, -1); // below 1: as 0
        for (int i = 0; collection != nullptr && i < 12; ++i) {
            void *own = i % 3 == 2 ? std::malloc(sizeof(int)) : nullptr;
            void *added =
                i % 3 == 0 ? tav_collection_element_new(collection)
                : i % 3 == 1
                    ? tav_collection_element(
                          collection, tav_collection_element_add(collection, &seed) ? held : -1)
                    : (own && tav_collection_element_attach(collection, own) ? own : nullptr);
            added ? void(elements[held++] = added) : std::free(own);
            attached += added && added == own;
            in_place = in_place && tav_collection_len(collection) == held;
        }
        for (int i = 0; i < held; ++i) {
            in_place = in_place && tav_collection_element(collection, i) == elements[i];
        }
        in_place = in_place && destroyed == made - (held - attached) && destroyed <= 1;
        tav_collection_free(collection);
    };
    const long runs = tavtest::for_each_allocation_failure(scenario, [&](long nth, auto &run) {
        EXPECT_TRUE(run.live_blocks == 0 && in_place && held >= (nth == 1 ? 0 : 11)) << nth;
        EXPECT_EQ(destroyed, made + attached) << nth;
    });
    // Record, name, each element, the array, 3 growths (strdup is not seen under a sanitizer).
    EXPECT_EQ(runs, tavtest::run_allocations(0, scenario).allocations);
    EXPECT_GE(runs, 1 + 12 + 4);
}

TEST(Collection, RefusalsAndLookups) {
    EXPECT_EQ(tav_collection_new("x", make, copy, nullptr), nullptr);
    tav_collection *collection = tav_collection_new(nullptr, nullptr, nullptr, count_only);
    int a = 0;
    EXPECT_FALSE(tav_collection_element(collection, 0) || tav_collection_element_new(collection) ||
                 tav_collection_len(nullptr) || tav_collection_element_add(collection, &a) ||
                 tav_collection_element_attach(collection, nullptr) ||
                 tav_collection_element_attach(nullptr, &a) || tav_collection_element(nullptr, 0) ||
                 tav_collection_element_add(nullptr, &a) || tav_collection_element_new(nullptr));
    tav_collection_free(tav_collection_new("no array", make, copy, drop));
    tav_collection_set_growth(collection, INT32_MAX); // a first array too large to have
    const auto run = tavtest::run_allocations(
        1, [&] { EXPECT_FALSE(tav_collection_element_attach(collection, &a)); });
    EXPECT_EQ(run.sizes, std::vector<size_t>{size_t{INT32_MAX} * sizeof(void *)});
    tav_collection_set_growth(collection, 1);
    tav_collection_set_growth(nullptr, 1);
    EXPECT_TRUE(tav_collection_element_attach(collection, &a) &&
                tav_collection_element_attach(collection, &made));
    EXPECT_EQ(std::tuple(tav_collection_len(collection), tav_collection_element(collection, 1),
                         tav_collection_element(collection, 2),
                         tav_collection_element(collection, -1)),
              std::tuple(2, &made, nullptr, nullptr));
    tav_collection_free(nullptr);
    tav_collection_free(collection);
}

} // namespace
