/**
 * @file tavutil/signals.h
 * @brief Signal dispositions for the numbers 1 to 31.
 *
 * A disposition is shared by every thread of the process; the previous one
 * is not kept. A failed `sigaction` is logged and never traced.
 */
#ifndef TAVUTIL_SIGNALS_H
#define TAVUTIL_SIGNALS_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Ignores a signal.
 * @param signum The signal. SIGKILL, SIGTERM, SIGSTOP and numbers outside 1
 *               to 31 are passed over silently with TAV_OK.
 * @return TAV_OK; TAV_ERR_SYSTEM when `sigaction` fails, with the reasoned
 *         error line "Failed to set ignore signal %s (%d)", not traced.
 */
tav_status tav_util_ignore_signal(int32_t signum);

/**
 * @brief Ignores every number from 1 to 31 but SIGKILL, SIGTERM and SIGSTOP
 * (SIGCHLD included); a failure on one does not stop the others.
 * @return TAV_OK; TAV_ERR_SYSTEM when any `sigaction` failed, with the
 *         reasoned error line "Failed to set ignore signal %s (%d)" for each,
 *         not traced.
 */
tav_status tav_util_ignore_common_signals(void);

/**
 * @brief Gives a signal its default disposition back.
 * @param signum The signal, 1 to 31.
 * @return TAV_OK; TAV_ERR_BAD_ARG for a number outside 1 to 31, after the
 *         plain error line "Invalid or unsupported signal value %d", traced;
 *         TAV_ERR_SYSTEM when `sigaction` fails (SIGKILL, SIGSTOP), with the
 *         reasoned error line "Failed to reset signal %s (%d)", not traced.
 */
tav_status tav_util_reset_signal(int32_t signum);

#ifdef __cplusplus
}
#endif

#endif
