/* Integer helpers: power-of-two rounding and overflow tests. */
#ifndef TAVUTIL_INTEGER_H
#define TAVUTIL_INTEGER_H

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
