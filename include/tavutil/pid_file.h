/**
 * @file tavutil/pid_file.h
 * @brief Single-instance claims through a pid file.
 */
#ifndef TAVUTIL_PID_FILE_H
#define TAVUTIL_PID_FILE_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Claims a pid file for a program: writes the caller's pid (decimal,
 * no line end) into it, unless the pid in it names a live process whose first
 * argument begins with @p program.
 *
 * A new file gets mode 0664 less the umask. The file is stale (and rewritten)
 * when empty, or when what it names has no command line or another one. No
 * descriptor or lock is held once it returns. Failures, each traced:
 * TAV_ERR_NULL_ARG for a null argument; TAV_ERR_ACCESS when creation is
 * denied; TAV_ERR_SYSTEM after the reasoned error line "Cannot access pid
 * file %s", "Failed to open pid file %s" or "Failed to lock PID file %s" (a
 * claim racing another one); TAV_ERR_BAD_ARG for a @p program over 100 bytes
 * when it has to be compared; the status of a failed read, traced again.
 * @param path    The pid file.
 * @param program Start of the first argument of a running instance, as it
 *                was started (a full path if started by one).
 * @param pid_out Receives the live instance's pid; written only then.
 * @return TAV_OK when the claim succeeded; TAV_ERR_ALREADY_RUNNING, traced,
 *         when a live instance holds the file (left unchanged); or a status
 *         above.
 */
tav_status tav_util_claim_pid_file(const char *path, const char *program, uint32_t *pid_out);

#ifdef __cplusplus
}
#endif

#endif
