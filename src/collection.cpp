// The collection: a growing array of owned elements and the three callbacks
// that make and destroy them. Unlike the rest of the library it reports
// nothing: every failure is a plain false or null.
#include <cstring>

#include "internal/collection.hpp"
#include "internal/frame.hpp"

struct tav_collection {
    void *(*create)(void);
    void *(*clone)(void *);
    void (*destroy)(void *);
    char *name; // kept for the record's lifetime; nothing reads it
    int32_t growth;
    void **elements;
    int32_t capacity;
    int32_t count;
};

namespace {

constexpr int32_t kDefaultGrowth = 10;

// The slots the first allocation asks for.
int32_t first_capacity(int32_t growth) { return growth >= 1 ? growth : 1; }

// A made element that could not be attached goes back through `destroy`.
bool attach_or_destroy(tav_collection *collection, void *element) {
    if (!tav_collection_element_attach(collection, element)) {
        collection->destroy(element);
        return false;
    }
    return true;
}

} // namespace

namespace tav {

// Steps are worked out in 64 bits, so neither 3 * count nor count + step can
// overflow. Counts and capacities are 32-bit signed fields, so a capacity the
// field cannot hold is cut to INT32_MAX: the array still gets at least one
// more slot. Only a full array of INT32_MAX slots cannot grow; that is a
// refusal (0), and the attach fails with the record unchanged.
int32_t collection_grown_capacity(int32_t count, int32_t growth) {
    if (count >= INT32_MAX) {
        return 0;
    }
    const int64_t step = growth >= 1 ? growth : (3 * int64_t{count}) / 2 + 1;
    const int64_t grown = int64_t{count} + step;
    return grown > INT32_MAX ? INT32_MAX : static_cast<int32_t>(grown);
}

} // namespace tav

extern "C" {

tav_collection *tav_collection_new(const char *name, void *(*create)(void), void *(*clone)(void *),
                                   void (*destroy)(void *)) {
    if (destroy == nullptr) {
        return nullptr;
    }
    auto *collection = static_cast<tav_collection *>(std::calloc(1, sizeof(tav_collection)));
    if (collection == nullptr) {
        return nullptr;
    }
    if (name != nullptr) {
        // A name that cannot be copied is no failure: the collection goes on
        // without one.
        collection->name = strdup(name);
    }
    collection->growth = kDefaultGrowth;
    collection->create = create;
    collection->clone = clone;
    collection->destroy = destroy;
    return collection;
}

void tav_collection_free(tav_collection *collection) {
    if (collection == nullptr) {
        return;
    }
    if (collection->elements != nullptr) {
        for (int32_t i = 0; i < collection->count; ++i) {
            collection->destroy(collection->elements[i]);
        }
        std::free(collection->elements);
    }
    std::free(collection->name);
    std::free(collection);
}

int32_t tav_collection_len(const tav_collection *collection) {
    return collection == nullptr ? 0 : collection->count;
}

void tav_collection_set_growth(tav_collection *collection, int32_t growth) {
    if (collection != nullptr) {
        collection->growth = growth;
    }
}

bool tav_collection_element_attach(tav_collection *collection, void *element) {
    if (collection == nullptr || element == nullptr) {
        return false;
    }
    if (collection->elements == nullptr) {
        const int32_t capacity = first_capacity(collection->growth);
        auto *slots =
            static_cast<void **>(std::calloc(static_cast<size_t>(capacity), sizeof(void *)));
        if (slots == nullptr) {
            return false;
        }
        collection->elements = slots;
        collection->capacity = capacity;
    } else if (collection->count >= collection->capacity) {
        const int32_t capacity =
            tav::collection_grown_capacity(collection->count, collection->growth);
        if (capacity == 0) {
            return false;
        }
        auto *slots = static_cast<void **>(
            std::realloc(collection->elements, static_cast<size_t>(capacity) * sizeof(void *)));
        if (slots == nullptr) {
            return false;
        }
        std::memset(slots + collection->count, 0,
                    static_cast<size_t>(capacity - collection->count) * sizeof(void *));
        collection->elements = slots;
        collection->capacity = capacity;
    }
    collection->elements[collection->count] = element;
    ++collection->count;
    return true;
}

bool tav_collection_element_add(tav_collection *collection, void *source) {
    if (collection == nullptr || source == nullptr || collection->clone == nullptr) {
        return false;
    }
    void *clone = collection->clone(source);
    return clone != nullptr && attach_or_destroy(collection, clone);
}

void *tav_collection_element_new(tav_collection *collection) {
    if (collection == nullptr || collection->create == nullptr) {
        return nullptr;
    }
    void *element = collection->create();
    return element != nullptr && attach_or_destroy(collection, element) ? element : nullptr;
}

void *tav_collection_element(const tav_collection *collection, int32_t index) {
    if (index < 0 || collection == nullptr || index >= collection->count) {
        return nullptr;
    }
    return collection->elements[index];
}

} // extern "C"
