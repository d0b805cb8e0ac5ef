// Internal: the expiry test of absolute timeouts, for the library's own
// bounded waits. It lives in the shared object but is not exported.
#pragma once

#include <cstdint>
#include <ctime>

#include "tavutil.h"

extern "C" {

// Stores 1 in `*expired` once the real-time clock has reached `*timeout`
// (an equal reading counts), else 0.
tav_status tav_util_query_timeout_expired(const struct timespec *timeout, int32_t *expired);
}
