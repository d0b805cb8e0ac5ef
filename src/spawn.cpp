// Spawn and wait in one call, and the release of a handle without waiting.
#include "internal/frame.hpp"

extern "C" {

tav_status tav_spawn_and_wait(char *const argv[], char *const envp[], int32_t *exit_code) {
    tav_proc_handle handle = nullptr;
    const tav_status spawned = tav_spawn(argv, envp, &handle);
    if (spawned != TAV_OK) {
        return tav::traced_again(TAV_SITE, spawned);
    }
    const tav_status waited = tav_wait(&handle, exit_code);
    if (waited != TAV_OK) {
        // The child is not collected; only its record goes.
        tav_free_proc_handle(&handle);
    }
    return waited;
}

void tav_free_proc_handle(tav_proc_handle *handle) {
    if (handle == nullptr || *handle == nullptr) {
        return;
    }
    std::free(*handle);
    *handle = nullptr;
}

} // extern "C"
