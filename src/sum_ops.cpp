// The rotating sum: one slot per period and two running sums. The sums
// change only by the additions and subtractions below, in this order, and
// are never recomputed from the slots, so callers get exactly the values
// (rounding rests included) of that sequence.
#include "internal/frame.hpp"

namespace {

// The current slot of a live record. The operations ask for a record that has
// been through init; for a null record, freed slots or a cursor outside them
// (fields set by hand) there is no slot, and the operation does nothing
// rather than touch memory outside the array.
double *current_slot(const tav_util_sum *sum) {
    if (sum == nullptr || sum->slots == nullptr || sum->cursor >= sum->N) {
        return nullptr;
    }
    return &sum->slots[sum->cursor];
}

} // namespace

extern "C" {

tav_status tav_util_sum_init(tav_util_sum *sum, size_t N) {
    // A null record gets a refusal rather than a write through it.
    if (sum == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (N == 0) {
        TAV_PLAIN_LINE("N is zero");
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    sum->slots = static_cast<double *>(std::calloc(N, sizeof(double)));
    if (sum->slots == nullptr) {
        TAV_PLAIN_LINE("calloc() failed, N=%zu", N);
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    sum->N = N;
    sum->cursor = 0;
    sum->recent_sum = 0;
    sum->total = 0;
    return TAV_OK;
}

void tav_util_sum_free(tav_util_sum *sum) {
    if (sum != nullptr && sum->slots != nullptr) {
        std::free(sum->slots);
        sum->slots = nullptr;
    }
}

void tav_util_sum_inc(tav_util_sum *sum, double value) {
    double *slot = current_slot(sum);
    if (slot == nullptr) {
        return;
    }
    *slot = *slot + value;
    sum->recent_sum = sum->recent_sum + value;
    sum->total = sum->total + value;
}

void tav_util_sum_set(tav_util_sum *sum, double value) {
    double *slot = current_slot(sum);
    if (slot == nullptr) {
        return;
    }
    sum->total = (sum->total - *slot) + value;
    sum->recent_sum = sum->recent_sum - *slot;
    *slot = value;
    sum->recent_sum = sum->recent_sum + value;
}

double tav_util_sum_partial(const tav_util_sum *sum) {
    const double *slot = current_slot(sum);
    return slot == nullptr ? 0 : *slot;
}

double tav_util_sum_get(const tav_util_sum *sum) { return sum == nullptr ? 0 : sum->recent_sum; }

double tav_util_sum_next(tav_util_sum *sum) {
    if (current_slot(sum) == nullptr) {
        return tav_util_sum_get(sum);
    }
    const double before = sum->recent_sum;
    ++sum->cursor;
    if (sum->cursor == sum->N) {
        sum->cursor = 0;
    }
    double &oldest = sum->slots[sum->cursor];
    sum->recent_sum = sum->recent_sum - oldest;
    oldest = 0;
    return before;
}

double tav_util_sum_get_total(const tav_util_sum *sum) { return sum == nullptr ? 0 : sum->total; }

} // extern "C"
