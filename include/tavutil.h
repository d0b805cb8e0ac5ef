/**
 * @file tavutil.h
 * @brief libtavutil: the one header users include.
 *
 * Pulls in every family's header under include/tavutil/. Link with
 * `-ltavutil` (pkg-config `tavutil`, or the CMake target `tavutil::tavutil`).
 */

/**
 * @mainpage libtavutil
 *
 * The support library of a family of Linux daemons and command-line tools:
 * text building, encoding and hashing, small containers, an option parser,
 * durable file I/O, time and process control, all behind a plain C ABI.
 *
 * Every operation reports through one frame: most return a ::tav_status
 * (tavutil/status.h); on failure an operation may also leave an entry in the
 * calling thread's error trace (libtaverrortrace) and a log line (libtavlog).
 * Each function's comment says which status it gives, whether it traces and
 * which line it logs. Memory handed to the caller comes from the malloc family
 * and is released with `free`, unless a record has a release operation of its
 * own. Include tavutil.h and see the file list for each family's header.
 */
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
#include "tavutil/clock.h"
#include "tavutil/timeout.h"
#include "tavutil/timeval.h"

/* spawn, child timeout, process search, signals */
#include "tavutil/signals.h"
#include "tavutil/spawn.h"

/* pid file, status record, environment, group, host */
#include "tavutil/identity.h"
#include "tavutil/pid_file.h"
#include "tavutil/proc_stat.h"

#endif
