/* A small tour of libtavutil, as a C user would write it. */
#include <stdio.h>
#include <stdlib.h>

#include <tavutil.h>

/* The stand-in error trace offers this to show what was recorded. */
void tav_trace_print(FILE *stream);

int main(void) {
    char *greeting = NULL;
    int32_t error_number = -1;
    if (tav_util_asprintf(&greeting, &error_number, "%s, %d %s", "hello", 3, "times") != TAV_OK) {
        return 1;
    }
    printf("formatted: \"%s\" (errno slot %d)\n", greeting, (int)error_number);
    tav_util_free(&greeting);

    char small[8];
    int32_t written = tav_util_snprintf(small, sizeof small, "%s", "does not fit");
    printf("bounded: %d, buffer holds \"%s\"\n", (int)written, small);

    /* A failure reaches the error trace: a null out-argument. */
    tav_status status = tav_util_asprintf(NULL, NULL, "%d", 1);
    printf("null out gives status %d; the trace holds:\n", (int)status);
    tav_trace_print(stdout);
    return 0;
}
