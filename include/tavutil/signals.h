/* Signal dispositions for the numbers 1 to 31. */
#ifndef TAVUTIL_SIGNALS_H
#define TAVUTIL_SIGNALS_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Ignores `signum`. SIGKILL, SIGTERM, SIGSTOP and numbers outside 1 to 31 are
 * passed over silently with TAV_OK. */
tav_status tav_util_ignore_signal(int32_t signum);

/* Ignores every number from 1 to 31 but SIGKILL, SIGTERM and SIGSTOP; a
 * failure on one does not stop the others. */
tav_status tav_util_ignore_common_signals(void);

/* Gives `signum` (1 to 31) its default disposition back. */
tav_status tav_util_reset_signal(int32_t signum);

#ifdef __cplusplus
}
#endif

#endif
