/* The three entry points of the two closed sibling libraries, libtavlog and
 * libtaverrortrace. libtavutil imports these and nothing else of them. */
#ifndef TAVUTIL_CLOSED_LIBS_H
#define TAVUTIL_CLOSED_LIBS_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* libtaverrortrace: records one entry of the calling thread's error trace. */
void tav_trace_save(const char *function, const char *source_path, int32_t source_line,
                    tav_status status);

/* libtavlog: one log line. `file` may be empty and `line` 0. */
void tav_util_log_internal(int32_t severity, int32_t module, const char *function, const char *file,
                           int32_t line, const char *format, ...) TAV_PRINTF_LIKE(6, 7);

/* libtavlog: one log line that carries the text of `error_number`. */
void tav_util_log_internal_perror(int32_t error_number, int32_t severity, int32_t module,
                                  const char *function, const char *source_path,
                                  int32_t source_line, const char *message);

#ifdef __cplusplus
}
#endif

#endif
