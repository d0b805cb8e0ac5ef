/**
 * @file tavutil/path.h
 * @brief Path helpers: path texts derived from a path text, in fresh memory
 * that the caller frees with `free`.
 */
#ifndef TAVUTIL_PATH_H
#define TAVUTIL_PATH_H

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Cuts a path at its last slash; touches no file and normalises
 * nothing ("a/b/c" gives "a/b", "file" gives "file", "/x" the empty text).
 *
 * Failures: a null pointer gives TAV_ERR_NULL_ARG, traced, nothing written; a
 * failed allocation the reasoned error line "Memory allocation for path %s"
 * (no slash) or "Memory allocation error" and TAV_ERR_NOMEM, traced, with
 * null in @p dir_out.
 * @param path    The path.
 * @param dir_out Receives the text ahead of the last slash, or a copy of all
 *                of @p path when it has none.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_get_directory_component(const char *path, char **dir_out);

/**
 * @brief The canonical absolute form of an existing path (links, "." and
 * ".." resolved), from `realpath`.
 *
 * Failures: a null pointer gives TAV_ERR_NULL_ARG, traced, nothing written; a
 * failed `realpath` the reasoned error line "Cannot determine absolute file
 * path from relative path %s" and TAV_ERR_SYSTEM, traced, with null in
 * @p abs_out.
 * @param path    The path.
 * @param abs_out Receives the absolute path; the caller frees it.
 * @return TAV_OK or a status above.
 */
tav_status tav_util_abs_path(const char *path, char **abs_out);

#ifdef __cplusplus
}
#endif

#endif
