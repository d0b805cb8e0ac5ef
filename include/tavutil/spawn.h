/**
 * @file tavutil/spawn.h
 * @brief Spawn and wait: start a child program with an exact argument vector
 * and environment, and collect its exit code.
 */
#ifndef TAVUTIL_SPAWN_H
#define TAVUTIL_SPAWN_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief A child held by the caller; null when no child is held.
 *
 * Released by tav_wait() on success or by tav_free_proc_handle(), never by
 * `free`.
 */
typedef struct tav_proc_record *tav_proc_handle;

/**
 * @brief Forks and executes argv[0] (no PATH search) with @p argv and exactly
 * @p envp as the child's environment.
 *
 * Succeeds whenever the fork succeeded: a program that could not be executed
 * shows later as exit code 1. Failures, traced, no line: a failed allocation
 * gives TAV_ERR_NOMEM, a failed `fork` TAV_ERR_SYSTEM; @p handle then holds
 * null. None of the pointers is tested.
 * @param argv   Null-terminated argument vector, at least argv[0].
 * @param envp   Null-terminated environment of the child.
 * @param handle Receives the child; must not hold one already.
 * @return TAV_OK or a status above.
 */
tav_status tav_spawn(char *const argv[], char *const envp[], tav_proc_handle *handle);

/**
 * @brief Blocks until the child has ended, then releases the handle (null
 * stored) and gives its exit code.
 *
 * Failures: a null @p handle, or one holding null, gives TAV_ERR_NULL_ARG,
 * traced, no line; a failed `waitpid` (interrupted too; no retry) the reasoned
 * error line "Failed to wait on process %d" and TAV_ERR_SYSTEM, traced. On
 * failure the handle stays valid and @p exit_code is not written.
 * @param handle    In and out: the child.
 * @param exit_code Receives 0 to 255, or -1 for a child ended by a signal.
 * @return TAV_OK or a status above.
 */
tav_status tav_wait(tav_proc_handle *handle, int32_t *exit_code);

/**
 * @brief tav_spawn() and tav_wait() in one; nothing is left allocated on any
 * path.
 *
 * A failure of tav_spawn() is traced again; one of tav_wait() is passed up
 * untraced (the child is then not collected).
 * @param argv      As for tav_spawn().
 * @param envp      As for tav_spawn().
 * @param exit_code Receives the exit code as tav_wait() gives it.
 * @return TAV_OK or the callee's status.
 */
tav_status tav_spawn_and_wait(char *const argv[], char *const envp[], int32_t *exit_code);

/**
 * @brief Gives up the handle without waiting or signalling: the child runs
 * on. Stores null in the handle.
 * @param handle The handle; null, or one holding null, is ignored.
 */
void tav_free_proc_handle(tav_proc_handle *handle);

#ifdef __cplusplus
}
#endif

#endif
