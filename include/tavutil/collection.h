/**
 * @file tavutil/collection.h
 * @brief The collection: a growing array of owned elements of one kind.
 *
 * No operation here reports: failures show as false or null only, with no
 * line and no trace.
 */
#ifndef TAVUTIL_COLLECTION_H
#define TAVUTIL_COLLECTION_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief A collection of owned elements, reached through the operations
 * below only.
 *
 * The collection owns what it holds: every element goes through `destroy`
 * when the collection is freed. Elements are only added, never removed or
 * replaced, and an element's index never changes.
 */
typedef struct tav_collection tav_collection;

/**
 * @brief Makes an empty collection with a growth step of 10.
 * @param name    Copied into the collection; may be null (a copy that cannot
 *                be made leaves it nameless, no failure).
 * @param create  Makes an element; null leaves tav_collection_element_new()
 *                failing.
 * @param clone   Makes an element from a caller's object; null leaves
 *                tav_collection_element_add() failing.
 * @param destroy Releases one element; must not be null.
 * @return The collection, to release with tav_collection_free(); null for a
 *         null @p destroy or when memory runs out.
 */
tav_collection *tav_collection_new(const char *name, void *(*create)(void),
                                   void *(*clone)(void *source), void (*destroy)(void *element));

/**
 * @brief Destroys every element, from the first on, then the collection.
 * @param collection The collection; null is ignored.
 */
void tav_collection_free(tav_collection *collection);

/**
 * @brief The number of elements held.
 * @param collection The collection; null gives 0.
 * @return The count.
 */
int32_t tav_collection_len(const tav_collection *collection);

/**
 * @brief Sets the slots added at each growth, from the next allocation on.
 * @param collection The collection; null is ignored.
 * @param growth     Slots per growth; below 1 the array grows to about 2.5
 *                   times its count.
 */
void tav_collection_set_growth(tav_collection *collection, int32_t growth);

/**
 * @brief Hands an element to the collection, growing its array as needed.
 * @param collection The collection.
 * @param element    The element; null fails.
 * @return True when the collection now owns @p element. On false (null
 *         argument, memory exhausted, array at its largest) it stays the
 *         caller's and the collection is as it was.
 */
bool tav_collection_element_attach(tav_collection *collection, void *element);

/**
 * @brief Adds a clone of a caller's object, made by the `clone` callback.
 * @param collection The collection.
 * @param source     The object cloned; stays the caller's.
 * @return True when the clone was added; false for a null argument or
 *         callback, a null clone, or a failed attach (the clone then goes
 *         through `destroy`).
 */
bool tav_collection_element_add(tav_collection *collection, void *source);

/**
 * @brief Makes a new element with the `create` callback and adds it.
 * @param collection The collection.
 * @return The element, which stays the collection's; null for a null argument
 *         or callback, a null element, or a failed attach (the element then
 *         goes through `destroy`).
 */
void *tav_collection_element_new(tav_collection *collection);

/**
 * @brief The element at an index.
 * @param collection The collection; null gives null.
 * @param index      From 0 to count - 1; any other value gives null.
 * @return The element, which stays the collection's, or null.
 */
void *tav_collection_element(const tav_collection *collection, int32_t index);

#ifdef __cplusplus
}
#endif

#endif
