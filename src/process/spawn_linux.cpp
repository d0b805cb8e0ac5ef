// Spawn and wait on Linux: fork and execve, then a blocking waitpid.
#include <sys/wait.h>

#include "internal/frame.hpp"

// What a handle points to: the child as fork returned it.
struct tav_proc_record {
    int32_t pid;
};

extern "C" {

tav_status tav_spawn(char *const argv[], char *const envp[], tav_proc_handle *handle) {
    *handle = static_cast<tav_proc_record *>(std::malloc(sizeof(tav_proc_record)));
    if (*handle == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    const pid_t pid = ::fork();
    if (pid == -1) {
        std::free(*handle);
        *handle = nullptr;
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (pid == 0) {
        // The child does nothing but this: exit, not _exit, so that what it
        // inherited (exit handlers, unflushed streams) runs when execve fails.
        ::execve(argv[0], argv, envp);
        std::exit(1);
    }
    (*handle)->pid = pid;
    return TAV_OK;
}

tav_status tav_wait(tav_proc_handle *handle, int32_t *exit_code) {
    if (handle == nullptr || *handle == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    const pid_t pid = (*handle)->pid;
    int wait_status = 0;
    if (::waitpid(pid, &wait_status, 0) != pid) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to wait on process %d", pid);
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    tav_free_proc_handle(handle);
    *exit_code = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1;
    return TAV_OK;
}

} // extern "C"
