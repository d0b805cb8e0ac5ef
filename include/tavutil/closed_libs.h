/**
 * @file tavutil/closed_libs.h
 * @brief The three entry points of the two closed sibling libraries,
 * libtavlog and libtaverrortrace.
 *
 * libtavutil imports these and nothing else of them: it never initialises,
 * configures or closes either library, ignores their results, and relies only
 * on each call returning. Every log line it makes has module 128 and severity
 * 3 (one informational line of the process search has 7).
 */
#ifndef TAVUTIL_CLOSED_LIBS_H
#define TAVUTIL_CLOSED_LIBS_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief libtaverrortrace: records one entry of the calling thread's error
 * trace.
 * @param function    Name of the reporting function.
 * @param source_path Path of its source file, from `src/` on.
 * @param source_line Line of the report in that file.
 * @param status      The status being reported.
 */
void tav_trace_save(const char *function, const char *source_path, int32_t source_line,
                    tav_status status);

/**
 * @brief libtavlog: one log line.
 * @param severity Severity (3 for every failure line of libtavutil).
 * @param module   Module number (always 128 from libtavutil).
 * @param function Name of the reporting function.
 * @param file     Source path; may be empty (plain error lines).
 * @param line     Source line; may be 0 (plain error lines).
 * @param format   printf format of the message, followed by its arguments.
 */
void tav_util_log_internal(int32_t severity, int32_t module, const char *function, const char *file,
                           int32_t line, const char *format, ...) TAV_PRINTF_LIKE(6, 7);

/**
 * @brief libtavlog: one log line that carries the text of @p error_number.
 * @param error_number The saved errno whose text the line carries.
 * @param severity     Severity (3 from libtavutil).
 * @param module       Module number (128 from libtavutil).
 * @param function     Name of the reporting function.
 * @param source_path  Its source file, from `src/` on.
 * @param source_line  Line of the report.
 * @param message      Fixed message text.
 */
void tav_util_log_internal_perror(int32_t error_number, int32_t severity, int32_t module,
                                  const char *function, const char *source_path,
                                  int32_t source_line, const char *message);

#ifdef __cplusplus
}
#endif

#endif
