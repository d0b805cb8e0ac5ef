/**
 * @file tavutil/status.h
 * @brief Status codes shared by every family of libtavutil.
 *
 * Most operations return a ::tav_status. On failure an operation may also
 * leave an entry in the calling thread's error trace (libtaverrortrace) and a
 * log line (libtavlog); each operation's comment says which. "Traced" means one
 * trace entry under the operation's own name with the status it returns;
 * "traced again" means one more entry on top of the callee's own.
 */
#ifndef TAVUTIL_STATUS_H
#define TAVUTIL_STATUS_H

/**
 * @brief Result of most libtavutil operations.
 *
 * A sparse 32-bit enumeration: callers test for TAV_OK or for equality with
 * one value; neither the order nor the gaps mean anything.
 */
typedef enum tav_status {
    TAV_OK = 0,                  /**< Success. */
    TAV_ERR_NOMEM = 2,           /**< Memory could not be obtained. */
    TAV_ERR_NULL_ARG = 3,        /**< A required pointer argument was null. */
    TAV_ERR_SYSTEM = 6,          /**< An operating-system or libc call failed. */
    TAV_ERR_BAD_ARG = 7,         /**< An argument has an unusable value. */
    TAV_ERR_READ = 9,            /**< A file could not be read. */
    TAV_ERR_TOO_SMALL = 16,      /**< A caller's buffer or capacity is too small. */
    TAV_ERR_OPEN = 32,           /**< A file could not be opened. */
    TAV_ERR_OVERFLOW = 33,       /**< An arithmetic result would not fit. */
    TAV_ERR_TIMEOUT = 36,        /**< A bounded wait ran out. */
    TAV_ERR_NO_MORE = 37,        /**< An iteration has no further entry. */
    TAV_ERR_ACCESS = 39,         /**< The operating system denied access. */
    TAV_ERR_ALREADY_RUNNING = 52 /**< Another live process holds the pid file. */
} tav_status;

/**
 * @brief Marks a printf-like parameter pair so that the compiler checks the
 * formats that callers pass.
 * @param fmt   1-based position of the format parameter.
 * @param first 1-based position of the first formatted argument (0 for a
 *              list).
 */
#if defined(__GNUC__)
#define TAV_PRINTF_LIKE(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define TAV_PRINTF_LIKE(fmt, first)
#endif

#endif
