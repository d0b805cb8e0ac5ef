/* The option table parser: a command line walked through the caller's rows. */
#ifndef TAVUTIL_GETOPT_H
#define TAVUTIL_GETOPT_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tav_util_option tav_util_option;

/* A handler: called once per occurrence of its row's option with the row,
 * the option's argument (straight from argv, or null for a row that takes
 * none) and a counter where it may write the tokens taken (1 or 2); the
 * counter does not steer the walk. TAV_OK lets the walk go on; any other
 * status ends it and is what the parser returns. */
typedef tav_status tav_util_option_handler(const tav_util_option *row, const char *argument,
                                           int32_t *consumed);

/* One row of the caller's table; rows lie next to each other. */
struct tav_util_option {
    char short_option;                /* matches "-x" and "/x"; 0: no short name */
    char long_option[31];             /* matches "-name", "--name", "/name", "/-name"; "": none */
    tav_util_option_handler *handler; /* must not be null */
    void *target;                     /* where the handler stores; never read by the parser */
    int32_t takes_argument;           /* nonzero: the next token is the argument */
};

/* Walks argv[1] to argv[argc - 1] (argv[0] is not examined). Tokens that
 * match no row are passed over; nothing is reordered or handed back. */
tav_status tav_util_getopt(int32_t argc, char *const argv[], const tav_util_option *rows,
                           int32_t row_count);

/* The same walk, from argv[start] on. */
tav_status tav_util_getopt_from(int32_t argc, char *const argv[], const tav_util_option *rows,
                                int32_t row_count, int32_t start);

/* Stores a copy of the argument (at most 300 characters) in the `char *` at
 * `target`, which must hold null: given twice, the option fails. The copy is
 * the caller's to free. */
tav_status tav_util_getopt_string(const tav_util_option *row, const char *argument,
                                  int32_t *consumed);

/* Stores the argument's "%d" value in the `int32_t` at `target`. */
tav_status tav_util_getopt_int(const tav_util_option *row, const char *argument, int32_t *consumed);

/* Stores 1 in the `int32_t` at `target`; the row must take no argument. */
tav_status tav_util_getopt_flag(const tav_util_option *row, const char *argument,
                                int32_t *consumed);

#ifdef __cplusplus
}
#endif

#endif
