/* The process status record and the calling thread's id. */
#ifndef TAVUTIL_PROC_STAT_H
#define TAVUTIL_PROC_STAT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of `comm`, terminator included: room for the longest name the kernel
 * prints in a status line. */
#define TAV_PROC_COMM_SIZE 64

/* The numbers of one line of /proc/<pid>/stat, in the line's order, under the
 * kernel's names. The caller provides the record; it is zeroed, then filled.
 * Tokens 16 to 21 are printed signed but kept unsigned: a nice value of -5
 * reads as 2^64 - 5. */
typedef struct tav_proc_stat {
    int32_t pid;
    char comm[TAV_PROC_COMM_SIZE]; /* command name without its parentheses, cut
                                      to fit; always terminated */
    char state;
    int32_t ppid;
    int32_t pgrp;
    int32_t session;
    int32_t tty_nr;
    int32_t tpgid;
    uint32_t flags;
    uint64_t minflt;
    uint64_t cminflt;
    uint64_t majflt;
    uint64_t cmajflt;
    uint64_t utime;
    uint64_t stime;
    uint64_t cutime;
    uint64_t cstime;
    uint64_t priority;
    uint64_t nice;
    uint64_t num_threads;
    uint64_t itrealvalue;
    uint64_t starttime;
    uint64_t vsize;
    int64_t rss;
    uint64_t rsslim;
    uint64_t startcode;
    uint64_t endcode;
    uint64_t startstack;
    uint64_t kstkesp;
    uint64_t kstkeip;
    uint64_t signal;
    uint64_t blocked;
    uint64_t sigignore;
    uint64_t sigcatch;
    uint64_t wchan;
    uint64_t nswap;
    uint64_t cnswap;
    int32_t exit_signal;
    int32_t processor;
    uint32_t rt_priority;
    uint32_t policy;
    uint64_t delayacct_blkio_ticks;
} tav_proc_stat;

/* The kernel's id of the calling thread. */
int64_t tav_util_tid(void);

#ifdef __cplusplus
}
#endif

#endif
