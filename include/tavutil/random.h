/* The seeded pseudo-random generator. */
#ifndef TAVUTIL_RANDOM_H
#define TAVUTIL_RANDOM_H

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
