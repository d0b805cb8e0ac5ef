/**
 * @file tavutil/identity.h
 * @brief Environment variables, the effective group and the host name.
 *
 * All of these are shared by the whole process: callers keep them away from
 * concurrent changes of the same things.
 */
#ifndef TAVUTIL_IDENTITY_H
#define TAVUTIL_IDENTITY_H

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief A copy of an environment variable's value. Silent on every path.
 * @param name The variable.
 * @return A `malloc` copy that the caller frees; null when @p name is null,
 *         the variable is not set, its value is 300 characters or longer, or
 *         memory runs out.
 */
char *tav_util_getenv(const char *name);

/**
 * @brief Sets a variable, replacing an existing value.
 * @param name  The variable.
 * @param value Its new value.
 * @return TAV_OK; TAV_ERR_NULL_ARG, traced, for a null @p name or @p value;
 *         TAV_ERR_SYSTEM when `setenv` fails, after a line carrying errno's
 *         text, "Failed to set environment variable", traced.
 */
tav_status tav_util_setenv(const char *name, const char *value);

/**
 * @brief Removes a variable; one that is not set is no failure.
 * @param name The variable.
 * @return TAV_OK; TAV_ERR_NULL_ARG, traced, for a null @p name;
 *         TAV_ERR_SYSTEM when `unsetenv` fails, after a line carrying errno's
 *         text, "Failed to unset environment variable", traced.
 */
tav_status tav_util_unsetenv(const char *name);

/**
 * @brief Makes the named group the effective group of the process, and
 * leaves it so.
 *
 * Failures, each traced: a null name gives TAV_ERR_NULL_ARG, a name of 33
 * characters or more TAV_ERR_BAD_ARG, with no line; a failed buffer
 * allocation the plain error line "Failed to allocate %ld byte buffer" and
 * TAV_ERR_NOMEM; otherwise TAV_ERR_SYSTEM after the reasoned error line
 * "Failed to query group structure size", "Failed to query group %s data" or
 * "Failed to update effective gid for group %s", or the plain error line
 * "Failed to find group %s" for an unknown group.
 * @param group_name The group, at most 32 characters.
 * @return TAV_OK or a status above.
 */
tav_status ensure_egid(const char *group_name);

/**
 * @brief The host name. Silent on every path.
 * @return A `malloc` copy that the caller frees; null on failure.
 */
char *tav_util_get_hostname(void);

#ifdef __cplusplus
}
#endif

#endif
