/* The growing string buffer. */
#ifndef TAVUTIL_STRBUF_H
#define TAVUTIL_STRBUF_H

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
