// Operations on processes that live in the shared object without being
// exported: callers inside the project reach them through this header.
#pragma once

#include <cstdint>
#include <dirent.h>

#include "tavutil.h"

extern "C" {

// Waits up to `seconds` for the child `pid` to end, polling once a second;
// past the deadline the child is sent SIGKILL (not collected) and the result
// is TAV_ERR_TIMEOUT.
tav_status tav_util_await_child_timeout(int32_t pid, int32_t seconds);

// Finds the processes whose first argument equals `text` (mode 1) or holds it
// (any other mode). `*pids` (if `pids` is not null) receives a malloc array
// with room for every scanned process, the matches first; `*count` the number
// of matches.
tav_status tav_util_pid_of(const char *text, int32_t mode, uint32_t **pids, uint64_t *count);

// The filter of that scan: 1 keeps a numeric directory whose command line
// opens, 0 drops anything else. Private to the search, reachable by tests.
int vet_possible_directory(const struct dirent *entry);

} // extern "C"
