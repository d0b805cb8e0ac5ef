// The status record reader: inside the shared object, not exported.
#pragma once

#include "tavutil.h"

extern "C" {

// Fills `ret_proc_stat` from /proc/<pid>/stat (pid 0: the calling process).
tav_status tav_util_proc_stat(tav_proc_stat *ret_proc_stat, int32_t pid);

} // extern "C"
