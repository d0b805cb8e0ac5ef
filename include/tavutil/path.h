/* Path helpers: path texts derived from a path text, in fresh memory. */
#ifndef TAVUTIL_PATH_H
#define TAVUTIL_PATH_H

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* `*dir_out` receives a malloc text: `path` cut at its last slash, or all of
 * `path` when it has none. Touches no file. */
tav_status tav_util_get_directory_component(const char *path, char **dir_out);

/* `*abs_out` receives the canonical absolute form of an existing path, from
 * realpath (the caller frees it). */
tav_status tav_util_abs_path(const char *path, char **abs_out);

#ifdef __cplusplus
}
#endif

#endif
