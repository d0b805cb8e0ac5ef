#include <stdio.h>
#include <stdlib.h>

#include <tavutil.h>

int main(void) {
    char *text = NULL;
    if (tav_util_asprintf(&text, NULL, "%s-%d", "installed", 1) != TAV_OK) {
        return 1;
    }
    puts(text);
    free(text);
    return 0;
}
