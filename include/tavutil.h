/* libtavutil: the one header users include. */
#ifndef TAVUTIL_H
#define TAVUTIL_H

#include "tavutil/closed_libs.h"
#include "tavutil/format.h"
#include "tavutil/primitives.h"
#include "tavutil/status.h"

#endif
