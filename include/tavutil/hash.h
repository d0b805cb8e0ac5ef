/* The 64-bit hash of a byte run. */
#ifndef TAVUTIL_HASH_H
#define TAVUTIL_HASH_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif
