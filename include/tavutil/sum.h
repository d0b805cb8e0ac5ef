/* The rotating sum: a sum over the last N periods and a total since the start. */
#ifndef TAVUTIL_SUM_H
#define TAVUTIL_SUM_H

#include <stddef.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A record in the caller's storage; only `slots` is allocated, by
 * tav_util_sum_init, and released by tav_util_sum_free. Both sums are kept up
 * to date by adding and subtracting at each change, never recomputed, so a
 * read costs nothing and rounding rests stay in them. */
typedef struct tav_util_sum {
    size_t N;          /* number of slots (periods) */
    size_t cursor;     /* index of the current slot */
    double *slots;     /* one value per period; null before init and after free */
    double recent_sum; /* running sum of the slots */
    double total;      /* running sum of everything added since init */
} tav_util_sum;

/* `N` zeroed slots, cursor 0, both sums 0. A second init on a live record
 * does not release its slots: free first. */
tav_status tav_util_sum_init(tav_util_sum *sum, size_t N);

/* Releases the slots; the other fields stay readable. Null or twice is fine. */
void tav_util_sum_free(tav_util_sum *sum);

/* Replaces the current period's value. */
void tav_util_sum_set(tav_util_sum *sum, double value);

/* Adds to the current period. */
void tav_util_sum_inc(tav_util_sum *sum, double value);

/* The current period's value. */
double tav_util_sum_partial(const tav_util_sum *sum);

/* The sum over the last N periods. */
double tav_util_sum_get(const tav_util_sum *sum);

/* Closes the period: returns the sum with all N slots still in it, then
 * drops the oldest slot and makes it the current one, at 0. */
double tav_util_sum_next(tav_util_sum *sum);

/* Everything added since init, with the corrections of tav_util_sum_set. */
double tav_util_sum_get_total(const tav_util_sum *sum);

#ifdef __cplusplus
}
#endif

#endif
