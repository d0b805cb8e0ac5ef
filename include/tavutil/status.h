/* Status codes shared by every family of libtavutil. */
#ifndef TAVUTIL_STATUS_H
#define TAVUTIL_STATUS_H

/* A sparse 32-bit enumeration: callers test for TAV_OK or for equality with
 * one value; neither the order nor the gaps mean anything. */
typedef enum tav_status {
    TAV_OK = 0,
    TAV_ERR_NOMEM = 2,
    TAV_ERR_NULL_ARG = 3,
    TAV_ERR_SYSTEM = 6,
    TAV_ERR_BAD_ARG = 7,
    TAV_ERR_READ = 9,
    TAV_ERR_TOO_SMALL = 16,
    TAV_ERR_OPEN = 32,
    TAV_ERR_OVERFLOW = 33,
    TAV_ERR_TIMEOUT = 36,
    TAV_ERR_NO_MORE = 37,
    TAV_ERR_ACCESS = 39,
    TAV_ERR_ALREADY_RUNNING = 52
} tav_status;

/* Lets the compiler check the formats that callers pass. */
#if defined(__GNUC__)
#define TAV_PRINTF_LIKE(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define TAV_PRINTF_LIKE(fmt, first)
#endif

#endif
