/* libtavutil: the one header users include. */
#ifndef TAVUTIL_H
#define TAVUTIL_H

#include "tavutil/status.h"

#include "tavutil/closed_libs.h"

#include "tavutil/primitives.h"

#include "tavutil/format.h"

#include "tavutil/strbuf.h"

#include "tavutil/string_ops.h"

#include "tavutil/bit_ops.h"

#include "tavutil/hash.h"

#include "tavutil/random.h"

#include "tavutil/integer.h"

/* collection, rotating sum, option parser */
#include "tavutil/collection.h"
#include "tavutil/getopt.h"
#include "tavutil/sum.h"

/* descriptor files, named files, sync, paths */
#include "tavutil/file.h"
#include "tavutil/path.h"
#include "tavutil/sync.h"

/* directories */
#include "tavutil/directory.h"

/* time */
#include "tavutil/timeout.h"
#include "tavutil/timeval.h"
#include "tavutil/clock.h"

/* spawn, child timeout, process search, signals */
#include "tavutil/spawn.h"

#include "tavutil/signals.h"

/* pid file, status record, environment, group, host */
#include "tavutil/pid_file.h"
#include "tavutil/proc_stat.h"
#include "tavutil/identity.h"

#endif
