/* Stand-in for the closed libtavlog: each line goes to standard error. */
#define _POSIX_C_SOURCE 200809L
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "tavutil/closed_libs.h"

static void write_prefix(int32_t severity, int32_t module, const char *function, const char *file,
                         int32_t line) {
    fprintf(stderr, "<%d> [%d] %s", (int)severity, (int)module, function ? function : "?");
    if (file != NULL && file[0] != '\0') {
        fprintf(stderr, " (%s:%d)", file, (int)line);
    }
    fputs(": ", stderr);
}

void tav_util_log_internal(int32_t severity, int32_t module, const char *function, const char *file,
                           int32_t line, const char *format, ...) {
    va_list args;
    va_start(args, format);
    flockfile(stderr);
    write_prefix(severity, module, function, file, line);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    funlockfile(stderr);
    va_end(args);
}

void tav_util_log_internal_perror(int32_t error_number, int32_t severity, int32_t module,
                                  const char *function, const char *source_path,
                                  int32_t source_line, const char *message) {
    char reason[256];
    /* The XSI form, as this file is compiled without _GNU_SOURCE. */
    if (strerror_r(error_number, reason, sizeof reason) != 0) {
        snprintf(reason, sizeof reason, "error %d", (int)error_number);
    }
    flockfile(stderr);
    write_prefix(severity, module, function, source_path, source_line);
    fprintf(stderr, "%s: %s\n", message, reason);
    funlockfile(stderr);
}
