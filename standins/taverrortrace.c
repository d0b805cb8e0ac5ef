/* Stand-in for the closed libtaverrortrace: keeps the calling thread's most
 * recent trace entries in a fixed ring, so saving can never fail. */
#include <stdio.h>

#include "tavutil/closed_libs.h"

#define TRACE_DEPTH 32

struct trace_entry {
    const char *function;
    const char *source_path;
    int32_t source_line;
    tav_status status;
};

static __thread struct trace_entry ring[TRACE_DEPTH];
static __thread unsigned saved;

void tav_trace_save(const char *function, const char *source_path, int32_t source_line,
                    tav_status status) {
    struct trace_entry *entry = &ring[saved % TRACE_DEPTH];
    entry->function = function;
    entry->source_path = source_path;
    entry->source_line = source_line;
    entry->status = status;
    saved++;
}

/* Prints the calling thread's entries, oldest first, and forgets them. */
void tav_trace_print(FILE *stream) {
    unsigned first = saved > TRACE_DEPTH ? saved - TRACE_DEPTH : 0;
    for (unsigned i = first; i < saved; i++) {
        const struct trace_entry *entry = &ring[i % TRACE_DEPTH];
        fprintf(stream, "trace: %s (%s:%d) status %d\n", entry->function, entry->source_path,
                (int)entry->source_line, (int)entry->status);
    }
    saved = 0;
}
