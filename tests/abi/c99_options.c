/* Compiled as -std=c99 -pedantic -Werror and run: a C caller fills a table of
 * option rows, walks a command line through the public header and the shared
 * object, and finds the records laid out as the header says. */
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tavutil.h>

/* A negative array size stops the build when a field is not where the ABI puts it. */
typedef char option_short_at_0[offsetof(tav_util_option, short_option) == 0 ? 1 : -1];
typedef char option_long_at_1[offsetof(tav_util_option, long_option) == 1 ? 1 : -1];
typedef char option_long_is_31[sizeof(((tav_util_option *)0)->long_option) == 31 ? 1 : -1];
typedef char option_handler_at_32[offsetof(tav_util_option, handler) == 32 ? 1 : -1];
typedef char option_target_at_40[offsetof(tav_util_option, target) == 40 ? 1 : -1];
typedef char option_takes_at_48[offsetof(tav_util_option, takes_argument) == 48 ? 1 : -1];
typedef char sum_fields_in_order[offsetof(tav_util_sum, cursor) == 8 &&
                                         offsetof(tav_util_sum, slots) == 16 &&
                                         offsetof(tav_util_sum, recent_sum) == 24 &&
                                         offsetof(tav_util_sum, total) == 32
                                     ? 1
                                     : -1];

/* A handler of the caller's own: counts its occurrences. */
static tav_status count_verbose(const tav_util_option *row, const char *argument,
                                int32_t *consumed) {
    (void)argument;
    ++*(int32_t *)row->target;
    *consumed = 1;
    return TAV_OK;
}

int main(void) {
    char *name = NULL;
    int32_t port = 0, daemon = 0, verbose = 0;
    char *argv[] = {"prog", "--name", "alpha", "-p", "8080", "/daemon", "-v", "rest", "--verbose"};
    tav_util_option rows[4] = {
        {.short_option = 'n',
         .long_option = "name",
         .handler = tav_util_getopt_string,
         .target = &name,
         .takes_argument = 1},
        {'p', "port", tav_util_getopt_int, &port, 1},
        {'d', "daemon", tav_util_getopt_flag, &daemon, 0},
        {'v', "verbose", count_verbose, &verbose, 0},
    };
    tav_status status = tav_util_getopt(9, argv, rows, 4);
    int ok = status == TAV_OK && name != NULL && strcmp(name, "alpha") == 0 && port == 8080 &&
             daemon == 1 && verbose == 2;
    printf("status %d, name %s, port %d, daemon %d, verbose %d\n", (int)status,
           name ? name : "(null)", (int)port, (int)daemon, (int)verbose);
    free(name);
    return ok ? 0 : 1;
}
