/**
 * @file tavutil/proc_stat.h
 * @brief The process status record and the calling thread's id.
 */
#ifndef TAVUTIL_PROC_STAT_H
#define TAVUTIL_PROC_STAT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Bytes of `comm`, terminator included: room for the longest name the
 * kernel prints in a status line.
 */
#define TAV_PROC_COMM_SIZE 64

/**
 * @brief The numbers of one line of `/proc/<pid>/stat`, in the line's order,
 * under the kernel's names.
 *
 * The caller provides the record; it is zeroed, then filled. A token that does
 * not convert leaves its field zero. Tokens 16 to 21 are printed signed but
 * kept unsigned: a nice value of -5 reads as 2^64 - 5.
 */
typedef struct tav_proc_stat {
    int32_t pid;                    /**< Process id. */
    char comm[TAV_PROC_COMM_SIZE];  /**< Command name without its parentheses, cut
                                       to fit; always terminated. */
    char state;                     /**< State letter. */
    int32_t ppid;                   /**< Parent's process id. */
    int32_t pgrp;                   /**< Process group id. */
    int32_t session;                /**< Session id. */
    int32_t tty_nr;                 /**< Controlling terminal. */
    int32_t tpgid;                  /**< Foreground process group of the terminal. */
    uint32_t flags;                 /**< Kernel flags word of the process. */
    uint64_t minflt;                /**< Minor faults. */
    uint64_t cminflt;               /**< Minor faults of waited-for children. */
    uint64_t majflt;                /**< Major faults. */
    uint64_t cmajflt;               /**< Major faults of waited-for children. */
    uint64_t utime;                 /**< User-mode time in clock ticks. */
    uint64_t stime;                 /**< Kernel-mode time in clock ticks. */
    uint64_t cutime;                /**< User-mode time of waited-for children. */
    uint64_t cstime;                /**< Kernel-mode time of waited-for children. */
    uint64_t priority;              /**< Scheduling priority. */
    uint64_t nice;                  /**< Nice value. */
    uint64_t num_threads;           /**< Number of threads. */
    uint64_t itrealvalue;           /**< Time to the next interval-timer signal. */
    uint64_t starttime;             /**< Start time after boot, in clock ticks. */
    uint64_t vsize;                 /**< Virtual memory size in bytes. */
    int64_t rss;                    /**< Resident set size in pages. */
    uint64_t rsslim;                /**< Soft limit of the resident set in bytes. */
    uint64_t startcode;             /**< Address where the program text begins. */
    uint64_t endcode;               /**< Address where the program text ends. */
    uint64_t startstack;            /**< Address of the bottom of the stack. */
    uint64_t kstkesp;               /**< Current stack pointer. */
    uint64_t kstkeip;               /**< Current instruction pointer. */
    uint64_t signal;                /**< Bitmap of pending signals. */
    uint64_t blocked;               /**< Bitmap of blocked signals. */
    uint64_t sigignore;             /**< Bitmap of ignored signals. */
    uint64_t sigcatch;              /**< Bitmap of caught signals. */
    uint64_t wchan;                 /**< Wait channel. */
    uint64_t nswap;                 /**< Pages swapped. */
    uint64_t cnswap;                /**< Pages swapped by children. */
    int32_t exit_signal;            /**< Signal sent to the parent at the end. */
    int32_t processor;              /**< Processor last run on. */
    uint32_t rt_priority;           /**< Real-time priority. */
    uint32_t policy;                /**< Scheduling policy. */
    uint64_t delayacct_blkio_ticks; /**< Block input-output delay in clock ticks. */
} tav_proc_stat;

/**
 * @brief The kernel's id of the calling thread (`gettid`); no failure, no
 * report.
 * @return The thread id.
 */
int64_t tav_util_tid(void);

#ifdef __cplusplus
}
#endif

#endif
