/* Spawn and wait: start a child program with an exact argument vector and
 * environment, and collect its exit code. */
#ifndef TAVUTIL_SPAWN_H
#define TAVUTIL_SPAWN_H

#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A child held by the caller; null when no child is held. Released by
 * tav_wait on success or by tav_free_proc_handle, never by free. */
typedef struct tav_proc_record *tav_proc_handle;

/* Forks and executes argv[0] (no PATH search) with `argv` and exactly `envp`
 * as the child's environment. TAV_OK whenever the fork succeeded: a program
 * that could not be executed shows later as exit code 1. `*handle` must not
 * hold a child. None of the pointers is tested. */
tav_status tav_spawn(char *const argv[], char *const envp[], tav_proc_handle *handle);

/* Blocks until the child has ended, then releases the handle and stores its
 * exit code: 0 to 255, or -1 for a child ended by a signal. On failure the
 * handle stays valid and `*exit_code` is not written. */
tav_status tav_wait(tav_proc_handle *handle, int32_t *exit_code);

/* tav_spawn and tav_wait in one; nothing is left allocated on any path. */
tav_status tav_spawn_and_wait(char *const argv[], char *const envp[], int32_t *exit_code);

/* Gives up the handle without waiting or signalling: the child runs on.
 * A null `handle`, or one holding null, is ignored. */
void tav_free_proc_handle(tav_proc_handle *handle);

#ifdef __cplusplus
}
#endif

#endif
