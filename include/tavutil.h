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

/* descriptor files, named files, sync, paths */

/* directories */

/* time */
#include "tavutil/timeout.h"
#include "tavutil/timeval.h"
#include "tavutil/clock.h"

/* spawn, child timeout, process search, signals */
#include "tavutil/spawn.h"

#include "tavutil/signals.h"

/* pid file, status record, environment, group, host */

#endif
