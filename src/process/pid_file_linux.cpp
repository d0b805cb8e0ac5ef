// The pid file claim: one decision, made under a non-blocking flock, between
// a live instance that holds the file and a stale file that is rewritten.
#include <cstring>
#include <fcntl.h>

#include "internal/frame.hpp"

namespace {

constexpr uint64_t kLongestProgram = 100;

// The start of the process's command line, at most `limit` bytes, in a
// zero-filled block; `exe` stays null when there is no such process or its
// command line reads as empty (a zombie holds nothing).
tav_status map_pid_to_exe(const char *pid_text, char **exe, uint64_t limit) {
    *exe = nullptr;
    char *built_path = nullptr;
    const tav_status built = tav_util_asprintf(&built_path, nullptr, "/proc/%s/cmdline", pid_text);
    tav::MallocPtr<char> path(built_path);
    if (const tav::Site tested = TAV_SITE; built != TAV_OK) {
        return tav::traced_twice(tested, TAV_SITE, built);
    }

    tav::UniqueFd fd(open(path.get(), O_RDONLY));
    const int open_errno = errno;
    path.reset();
    if (!fd) {
        return open_errno == ENOENT ? TAV_OK : tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    tav::MallocPtr<char> block(static_cast<char *>(std::calloc(1, limit + 1)));
    if (!block) {
        fd.reset();
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    const ssize_t got = read(fd.get(), block.get(), limit);
    fd.reset();
    if (got >= 1) {
        *exe = block.release();
    }
    return TAV_OK;
}

// Rewrites the file with the caller's pid through a stream of its own. A
// failed flush or close is logged and kept, and the other step still runs.
tav_status write_pid_file(const char *path) {
    tav::UniqueFile stream(std::fopen(path, "w"));
    if (!stream) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to open pid file %s", path);
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    std::fprintf(stream.get(), "%u", static_cast<unsigned>(getpid()));
    tav_status status = TAV_OK;
    if (std::fflush(stream.get()) != 0) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to flush written pid file %s", path);
        status = TAV_ERR_SYSTEM;
    }
    if (std::fclose(stream.release()) != 0) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to close written pid file %s", path);
        status = TAV_ERR_SYSTEM;
    }
    return status;
}

// The claim's lock, which never waits: held elsewhere, the claim fails. The
// reports are the claim's, at `site`; the descriptor is closed before the
// trace.
tav_status lock_claim(tav::UniqueFd &fd, const char *path, tav::Site site) {
    if (flock(fd.get(), LOCK_EX | LOCK_NB) == 0) {
        return TAV_OK;
    }
    tav::reasoned_line(errno, site, "Failed to lock PID file %s", path);
    fd.reset();
    return tav::traced(site, TAV_ERR_SYSTEM);
}

} // namespace

extern "C" {

tav_status tav_util_claim_pid_file(const char *path, const char *program, uint32_t *pid_out) {
    if (path == nullptr || program == nullptr || pid_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }

    tav::UniqueFd created(open(path, O_RDWR | O_CREAT | O_EXCL, 0664));
    const int create_errno = errno;
    if (created) {
        // Until the pid is written the new file is empty, and an empty file
        // is stale to any other claim. The lock closes that gap: a claim that
        // opened the file meanwhile either fails at its own lock, or holds
        // the lock first, so that this claim fails here and leaves the file
        // to it. Either way one claim wins.
        const tav_status locked = lock_claim(created, path, TAV_SITE);
        if (locked != TAV_OK) {
            return locked;
        }
        const tav::HeldFlock lock(created.get());
        return write_pid_file(path);
    }
    if (create_errno == EACCES) {
        return tav::traced(TAV_SITE, TAV_ERR_ACCESS);
    }
    if (create_errno != EEXIST) {
        tav::reasoned_line(create_errno, TAV_SITE, "Cannot access pid file %s", path);
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }

    // Released in this order on every path: lock, descriptor, content, exe.
    tav::MallocPtr<char> exe;
    tav::MallocPtr<uint8_t> content;
    tav::UniqueFd fd(open(path, O_RDWR));
    if (!fd) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to open pid file %s", path);
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    const tav_status locked = lock_claim(fd, path, TAV_SITE);
    if (locked != TAV_OK) {
        return locked;
    }
    const tav::HeldFlock lock(fd.get());

    uint8_t *data = nullptr;
    uint64_t size = 0;
    const tav_status read = tav_util_read_named_file(path, &data, &size, nullptr);
    content.reset(data);
    if (read != TAV_OK) {
        return tav::traced_again(TAV_SITE, read);
    }
    if (size == 0) {
        return write_pid_file(path);
    }
    const uint64_t name_len = tav_util_strnlen(program, kLongestProgram + 1);
    if (name_len > kLongestProgram) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    // The content goes into the path unchecked: junk that names nothing
    // under /proc makes the file stale like an ended process.
    const char *pid_text = reinterpret_cast<const char *>(content.get());
    char *found = nullptr;
    const tav_status mapped = map_pid_to_exe(pid_text, &found, name_len + 1);
    exe.reset(found);
    if (mapped != TAV_OK) {
        return tav::traced_again(TAV_SITE, mapped);
    }
    // Only name_len bytes count: a first argument that merely begins with
    // the program's name is an instance of it.
    if (!exe || std::strncmp(program, exe.get(), name_len) != 0) {
        return write_pid_file(path);
    }
    unsigned holder = 0;
    if (std::sscanf(pid_text, "%u", &holder) != 1) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    *pid_out = holder;
    return tav::traced(TAV_SITE, TAV_ERR_ALREADY_RUNNING);
}

} // extern "C"
