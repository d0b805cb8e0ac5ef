/* Compiled as -std=c99 -pedantic -Werror: the public header is plain C. */
#include <tavutil.h>

int tavutil_c99_header_check(void);

int tavutil_c99_header_check(void) {
    char *text = 0;
    tav_status status = tav_util_asprintf(&text, 0, "%d", 42);
    tav_util_free(&text);
    return status == TAV_OK ? 0 : 1;
}
