/**
 * @file tavutil/getopt.h
 * @brief The option table parser: a command line walked through the caller's
 * rows.
 *
 * A token of two bytes starting with "-" or "/" is a short option ("-x",
 * "/x"); a longer one a long option ("-name", "--name", "/name", "/-name").
 * The first matching row runs; tokens that match no row are passed over
 * without a word. Nothing is reordered or handed back, and "--" ends nothing.
 */
#ifndef TAVUTIL_GETOPT_H
#define TAVUTIL_GETOPT_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @brief One row of the caller's option table (see struct tav_util_option). */
typedef struct tav_util_option tav_util_option;

/**
 * @brief A handler, called once per occurrence of its row's option.
 * @param row      The row that matched.
 * @param argument The option's argument, straight from argv (not a copy), or
 *                 null for a row that takes none.
 * @param consumed A counter where the handler may write the tokens taken (1
 *                 or 2); it does not steer the walk.
 * @return TAV_OK lets the walk go on; any other status ends it and is what
 *         the parser returns.
 */
typedef tav_status tav_util_option_handler(const tav_util_option *row, const char *argument,
                                           int32_t *consumed);

/** @brief One row of the caller's table; rows lie next to each other. */
struct tav_util_option {
    char short_option;                /**< Matches "-x" and "/x"; 0: no short name. */
    char long_option[31];             /**< Matches "-name", "--name", "/name"; "": none. */
    tav_util_option_handler *handler; /**< Must not be null. */
    void *target;                     /**< Where the handler stores; never read by the parser. */
    int32_t takes_argument;           /**< Nonzero: the next token is the argument. */
};

/**
 * @brief Walks argv[1] to argv[argc - 1] (argv[0] is not examined) through
 * the rows.
 *
 * Failures: a null @p argv or @p rows gives TAV_ERR_NULL_ARG, traced; an
 * @p argc or @p row_count below 1 TAV_ERR_BAD_ARG, traced; a failure of the
 * walk is passed up untraced from tav_util_getopt_from().
 * @param argc      Number of entries in @p argv.
 * @param argv      The argument vector; not changed.
 * @param rows      The option table; not changed.
 * @param row_count Number of rows.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_getopt(int32_t argc, char *const argv[], const tav_util_option *rows,
                           int32_t row_count);

/**
 * @brief The same walk, from argv[@p start] on.
 *
 * Failures: a null @p argv or @p rows gives TAV_ERR_NULL_ARG, traced; an
 * @p argc or @p row_count below 1, or a negative @p start, TAV_ERR_BAD_ARG,
 * traced. An option that takes an argument as the last token gives the plain
 * error line "Missing mandatory option\n" (under `process_option`) and
 * TAV_ERR_SYSTEM; a handler's failure is returned as it is. Either ends the
 * walk at once, traced under `process_option` and then twice here; what
 * earlier handlers stored stays stored.
 * @param argc      Number of entries in @p argv.
 * @param argv      The argument vector; not changed.
 * @param rows      The option table; not changed.
 * @param row_count Number of rows.
 * @param start     Index of the first token examined.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_getopt_from(int32_t argc, char *const argv[], const tav_util_option *rows,
                                int32_t row_count, int32_t start);

/**
 * @brief Standard handler: stores a copy of the argument in the `char *` at
 * the row's target, which must hold null (the option cannot be given twice).
 *
 * Failures, each traced, nothing logged, nothing stored: a null pointer
 * (row, argument, counter, target) gives TAV_ERR_NULL_ARG; a target already
 * set, or an argument over 300 characters, TAV_ERR_BAD_ARG; a failed
 * allocation TAV_ERR_NOMEM.
 * @param row      The row that matched.
 * @param argument The argument.
 * @param consumed Receives 2.
 * @return TAV_OK or a status above. The copy is the caller's to free.
 */
tav_status tav_util_getopt_string(const tav_util_option *row, const char *argument,
                                  int32_t *consumed);

/**
 * @brief Standard handler: stores the argument's "%d" value in the `int32_t`
 * at the row's target; a later occurrence overwrites an earlier one.
 *
 * Failures, each traced, nothing logged: a null pointer (row, argument,
 * counter, target) gives TAV_ERR_NULL_ARG; an argument over 300 characters,
 * or one that does not convert, TAV_ERR_BAD_ARG.
 * @param row      The row that matched.
 * @param argument The argument.
 * @param consumed Receives 2.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_getopt_int(const tav_util_option *row, const char *argument, int32_t *consumed);

/**
 * @brief Standard handler: stores 1 in the `int32_t` at the row's target.
 *
 * Failures, each traced, nothing logged: a null row, counter or target gives
 * TAV_ERR_NULL_ARG; a row that takes an argument TAV_ERR_BAD_ARG.
 * @param row      The row that matched; must take no argument.
 * @param argument Not looked at.
 * @param consumed Receives 1.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_getopt_flag(const tav_util_option *row, const char *argument,
                                int32_t *consumed);

#ifdef __cplusplus
}
#endif

#endif
