/**
 * @file tavutil/sum.h
 * @brief The rotating sum: a sum over the last N periods and a total since
 * the start.
 */
#ifndef TAVUTIL_SUM_H
#define TAVUTIL_SUM_H

#include <stddef.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief A rotating sum, in the caller's storage.
 *
 * Only `slots` is allocated, by tav_util_sum_init(), and released by
 * tav_util_sum_free(). Both sums are kept up to date by adding and
 * subtracting at each change, never recomputed, so a read costs nothing and
 * rounding rests stay in them.
 */
typedef struct tav_util_sum {
    size_t N;          /**< Number of slots (periods). */
    size_t cursor;     /**< Index of the current slot. */
    double *slots;     /**< One value per period; null before init and after free. */
    double recent_sum; /**< Running sum of the slots. */
    double total;      /**< Running sum of everything added since init. */
} tav_util_sum;

/**
 * @brief Gives the record @p N zeroed slots, cursor 0 and both sums 0.
 *
 * A second init on a live record does not release its slots: free first.
 * Failures: an @p N of 0 gives the plain error line "N is zero" and
 * TAV_ERR_BAD_ARG, traced, the record untouched; a failed allocation the
 * plain error line "calloc() failed, N=%zu" and TAV_ERR_NOMEM, traced, with
 * `slots` null.
 * @param sum The record.
 * @param N   Number of periods, at least 1.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_sum_init(tav_util_sum *sum, size_t N);

/**
 * @brief Releases the slots; the other fields stay readable.
 * @param sum The record; null, or a second call, does nothing.
 */
void tav_util_sum_free(tav_util_sum *sum);

/**
 * @brief Replaces the current period's value, correcting both sums.
 * @param sum   An initialised record.
 * @param value The new value (may be negative).
 */
void tav_util_sum_set(tav_util_sum *sum, double value);

/**
 * @brief Adds to the current period and to both sums.
 * @param sum   An initialised record.
 * @param value The value added (may be negative).
 */
void tav_util_sum_inc(tav_util_sum *sum, double value);

/**
 * @brief The current period's value.
 * @param sum An initialised record.
 * @return The current slot.
 */
double tav_util_sum_partial(const tav_util_sum *sum);

/**
 * @brief The sum over the last N periods.
 * @param sum The record (readable after tav_util_sum_free() too).
 * @return The running sum of the slots.
 */
double tav_util_sum_get(const tav_util_sum *sum);

/**
 * @brief Closes the period: drops the oldest slot and makes it the current
 * one, at 0. The total is not touched.
 * @param sum An initialised record.
 * @return The sum with all N slots still in it, as before the rotation.
 */
double tav_util_sum_next(tav_util_sum *sum);

/**
 * @brief Everything added since init, with the corrections of
 * tav_util_sum_set().
 * @param sum The record (readable after tav_util_sum_free() too).
 * @return The total.
 */
double tav_util_sum_get_total(const tav_util_sum *sum);

#ifdef __cplusplus
}
#endif

#endif
