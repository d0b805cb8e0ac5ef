// The collection: its growth sequences, every allocation failure (nothing
// leaks, the record stays as it was and usable), refusals and the growth near
// the limits of its 32-bit fields.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "alloc_inject.hpp"
#include "internal/collection.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

int made = 0, destroyed = 0;
// Counts the elements it could make.
void *counted(void *element) { return made += element != nullptr, element; }
void *make() { return counted(std::calloc(1, sizeof(int))); }
void *copy(void *source) { return counted(tav_util_memdup(source, sizeof(int))); }
void drop(void *element) { ++destroyed, std::free(element); }
void count_only(void *) { ++destroyed; }

// The slots each allocation of the array asks for while `n` elements (one
// pointer, held n times) are attached; free destroys each of them.
std::vector<size_t> capacities(int32_t growth, int n) {
    tav_collection *collection = tav_collection_new(nullptr, nullptr, nullptr, count_only);
    if (growth != 10) {
        tav_collection_set_growth(collection, growth);
    }
    const auto run = tavtest::run_allocations(0, [&] {
        for (int i = 0; i < n; ++i) {
            tav_collection_element_attach(collection, &made);
        }
    });
    destroyed = 0;
    tav_collection_free(collection);
    EXPECT_EQ(destroyed, n);
    std::vector<size_t> slots;
    for (size_t bytes : run.sizes) {
        slots.push_back(bytes / sizeof(void *));
    }
    return slots;
}

TEST(Collection, GrowthSequences) {
    tavtest::clear_reports();
    EXPECT_EQ(capacities(10, 40), (std::vector<size_t>{10, 20, 30, 40}));
    EXPECT_EQ(capacities(1, 4), (std::vector<size_t>{1, 2, 3, 4}));
    EXPECT_EQ(capacities(0, 133), (std::vector<size_t>{1, 3, 8, 21, 53, 133}));
    EXPECT_EQ(capacities(-7, 134), (std::vector<size_t>{1, 3, 8, 21, 53, 133, 333}));
    EXPECT_TRUE(tavtest::reports().empty()) << "the family reports nothing";
}

// Twelve calls of the three adding operations through each failing
// allocation: one call at most fails, leaving the elements in place, the
// next call succeeds, and every element made or attached is destroyed once.
TEST(Collection, EveryAllocationFailureLeavesTheRecordAsItWas) {
    int seed = 5, held_count = 0, attached = 0;
    void *held[12];
    bool in_place = true;
    const auto scenario = [&] {
        made = destroyed = held_count = attached = 0;
        in_place = true;
        tav_collection *collection = tav_collection_new("bag", make, copy, drop);
        tav_collection_set_growth(collection, 0);
        for (int i = 0; collection != nullptr && i < 12; ++i) {
            void *own = i % 3 == 2 ? std::malloc(sizeof(int)) : nullptr;
            void *added = i % 3 == 0   ? tav_collection_element_new(collection)
                          : i % 3 == 1 ? (tav_collection_element_add(collection, &seed)
                                              ? tav_collection_element(collection, held_count)
                                              : nullptr)
                          : own && tav_collection_element_attach(collection, own) ? own
                                                                                  : nullptr;
            if (added == nullptr) {
                std::free(own); // a failed attach leaves it the caller's
            } else {
                held[held_count++] = added;
                attached += added == own;
            }
            in_place = in_place && tav_collection_len(collection) == held_count;
        }
        for (int i = 0; i < held_count; ++i) {
            in_place = in_place && tav_collection_element(collection, i) == held[i];
        }
        // Only an element made for a failed call has been destroyed so far.
        const int made_but_not_held = made - (held_count - attached);
        in_place = in_place && destroyed == made_but_not_held && made_but_not_held <= 1;
        tav_collection_free(collection);
    };
    const long runs = tavtest::for_each_allocation_failure(scenario, [&](long nth, auto &run) {
        EXPECT_EQ(run.live_blocks, 0) << nth;
        EXPECT_TRUE(in_place) << nth;
        EXPECT_GE(held_count, nth == 1 ? 0 : 11) << nth;
        EXPECT_EQ(destroyed, made + attached) << nth;
    });
    EXPECT_EQ(runs, 2 + 12 + 4); // record, name, one per element, array and its 3 growths
}

TEST(Collection, RefusalsAndLookups) {
    EXPECT_EQ(tav_collection_new("x", make, copy, nullptr), nullptr);
    tav_collection *collection = tav_collection_new(nullptr, nullptr, nullptr, count_only);
    int a = 0, b = 0;
    EXPECT_EQ(tav_collection_element(collection, 0), nullptr) << "no array yet";
    EXPECT_EQ(tav_collection_element_new(collection), nullptr);
    EXPECT_FALSE(tav_collection_element_add(collection, &a));
    EXPECT_FALSE(tav_collection_element_attach(collection, nullptr));
    EXPECT_FALSE(tav_collection_element_attach(nullptr, &a));
    EXPECT_TRUE(tav_collection_element_attach(collection, &a));
    EXPECT_TRUE(tav_collection_element_attach(collection, &b));
    EXPECT_EQ(tav_collection_len(collection), 2);
    EXPECT_EQ(tav_collection_element(collection, 1), &b);
    EXPECT_EQ(tav_collection_element(collection, 2), nullptr);
    EXPECT_EQ(tav_collection_element(collection, -1), nullptr);
    EXPECT_EQ(tav_collection_len(nullptr), 0);
    EXPECT_EQ(tav_collection_element(nullptr, 0), nullptr);
    tav_collection_set_growth(nullptr, 1);
    tav_collection_free(nullptr);
    tav_collection_free(collection);

    // A first array too large to have: refused, and the record still works.
    collection = tav_collection_new(nullptr, nullptr, nullptr, count_only);
    tav_collection_set_growth(collection, INT32_MAX);
    const auto run = tavtest::run_allocations(
        1, [&] { EXPECT_FALSE(tav_collection_element_attach(collection, &a)); });
    EXPECT_EQ(run.sizes, std::vector<size_t>{size_t{INT32_MAX} * sizeof(void *)});
    tav_collection_set_growth(collection, 1);
    EXPECT_TRUE(tav_collection_element_attach(collection, &a));
    EXPECT_EQ(tav_collection_len(collection), 1);
    tav_collection_free(collection);
}

// Worked out in 64 bits and cut to the field's limit; a full array of
// INT32_MAX slots cannot grow (0: the attach is refused).
TEST(Collection, GrowthNearTheLimitsOfItsFields) {
    const int32_t rows[][3] = {
        {3, 0, 8},
        {20, 10, 30},
        {715827882, 0, 1789569706},
        {715827883, 0, 1789569708}, // 3 * count no longer fits 32 bits
        {858993458, 0, INT32_MAX - 1},
        {858993459, 0, INT32_MAX},
        {INT32_MAX - 5, 10, INT32_MAX},
        {INT32_MAX - 1, -3, INT32_MAX},
        {INT32_MAX, 1, 0},
        {INT32_MAX, 0, 0},
    };
    for (const auto &[count, growth, grown] : rows) {
        EXPECT_EQ(tav::collection_grown_capacity(count, growth), grown) << count << " " << growth;
    }
}

} // namespace
