/* String operations and multibyte conversion. */
#ifndef TAVUTIL_STRING_OPS_H
#define TAVUTIL_STRING_OPS_H

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
