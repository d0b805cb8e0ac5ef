// A time value some whole seconds ahead of the present.
#include <sys/time.h>

#include "internal/frame.hpp"

extern "C" {

tav_status tav_util_future_time(int32_t seconds, struct timeval *tv) {
    if (tv == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (seconds < 0) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    if (gettimeofday(tv, nullptr) < 0) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    // The callee reports its own refusal; tv keeps the present time then.
    return tav_util_safe_add_seconds(tv, seconds);
}

} // extern "C"
