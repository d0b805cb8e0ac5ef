/* Single-instance claims through a pid file. */
#ifndef TAVUTIL_PID_FILE_H
#define TAVUTIL_PID_FILE_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the caller's pid (decimal, no line end) into the file at `path`,
 * created with mode 0664 less the umask, unless the pid in it names a live
 * process whose first argument begins with `program` (at most 100 bytes):
 * then the file stays as it is, that pid goes to `*pid_out` and the result is
 * TAV_ERR_ALREADY_RUNNING. A claim racing another one gets TAV_ERR_SYSTEM. No
 * descriptor or lock is held once it returns. */
tav_status tav_util_claim_pid_file(const char *path, const char *program, uint32_t *pid_out);

#ifdef __cplusplus
}
#endif

#endif
