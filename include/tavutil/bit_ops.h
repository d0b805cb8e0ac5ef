/* Base64 and bit strings. */
#ifndef TAVUTIL_BIT_OPS_H
#define TAVUTIL_BIT_OPS_H

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
