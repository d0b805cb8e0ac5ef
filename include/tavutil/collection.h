/* The collection: a growing array of owned elements of one kind. */
#ifndef TAVUTIL_COLLECTION_H
#define TAVUTIL_COLLECTION_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Reached through the operations below only. The collection owns what it
 * holds: every element goes through `destroy` when the collection is freed.
 * Elements are only added, never removed or replaced, and an element's index
 * never changes. No operation reports: failures show as false or null. */
typedef struct tav_collection tav_collection;

/* A new, empty collection with a growth step of 10, or null (also for a null
 * `destroy`). `name` is copied and may be null; `create` makes an element,
 * `clone` makes one from a caller's object, `destroy` releases one. A null
 * `create` or `clone` leaves tav_collection_element_new or
 * tav_collection_element_add failing. */
tav_collection *tav_collection_new(const char *name, void *(*create)(void),
                                   void *(*clone)(void *source), void (*destroy)(void *element));

/* Destroys every element, from the first on, and the collection; a null
 * collection is ignored. */
void tav_collection_free(tav_collection *collection);

/* The elements held; 0 for a null collection. */
int32_t tav_collection_len(const tav_collection *collection);

/* Slots added at each growth from the next allocation on; below 1 the array
 * grows to about 2.5 times its count. A null collection is ignored. */
void tav_collection_set_growth(tav_collection *collection, int32_t growth);

/* True when the collection now owns `element`; on false it stays the
 * caller's and the collection is as it was. */
bool tav_collection_element_attach(tav_collection *collection, void *element);

/* True when a clone of `source` was added; `source` stays the caller's. */
bool tav_collection_element_add(tav_collection *collection, void *source);

/* A new element made by `create` and added, or null. It stays the
 * collection's. */
void *tav_collection_element_new(tav_collection *collection);

/* The element at `index`, or null outside 0 to count - 1. It stays the
 * collection's. */
void *tav_collection_element(const tav_collection *collection, int32_t index);

#ifdef __cplusplus
}
#endif

#endif
