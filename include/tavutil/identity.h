/* Environment variables, the effective group and the host name. */
#ifndef TAVUTIL_IDENTITY_H
#define TAVUTIL_IDENTITY_H

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A malloc copy of the variable's value, which the caller frees; null when
 * `name` is null, the variable is not set, its value is 300 characters or
 * longer, or memory runs out. */
char *tav_util_getenv(const char *name);

/* Sets `name` to `value`, replacing an existing value. A null `name` or
 * `value` is refused with TAV_ERR_NULL_ARG. */
tav_status tav_util_setenv(const char *name, const char *value);

/* Removes `name`; a variable that is not set is no failure. */
tav_status tav_util_unsetenv(const char *name);

/* Makes the named group (at most 32 characters) the effective group. */
tav_status ensure_egid(const char *group_name);

/* A malloc copy of the host name, which the caller frees; null on failure. */
char *tav_util_get_hostname(void);

#ifdef __cplusplus
}
#endif

#endif
