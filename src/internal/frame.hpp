// The reporting frame of libtavutil and the RAII helpers every family uses.
//
// Each reporting word maps to exactly one call here, so an operation reads as
// its list of steps: `return traced(TAV_SITE, TAV_ERR_NULL_ARG);`,
// `reasoned_line(errno, TAV_SITE, "Could not open %s", path);` and so on.
// Nothing here allocates, throws or needs the C++ runtime.
#pragma once

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <sys/file.h>
#include <unistd.h>

#include "tavutil.h"

// glibc gives C++ the GNU strerror_r, which may hand back a static text and
// leave the buffer alone. The XSI behaviour (always fill the buffer when the
// number is known, never touch it otherwise) lives under this name.
extern "C" int __xpg_strerror_r(int error_number, char *buffer, size_t size);

namespace tav {

inline constexpr int32_t kSeverityError = 3;
inline constexpr int32_t kSeverityDebug = 7;
inline constexpr int32_t kModule = 128;

// The source path as reports carry it: the file's path from "src/" on.
// consteval, so the search happens at compile time and costs nothing.
consteval const char *source_path(const char *file) {
    const char *found = file;
    for (const char *p = file; *p != '\0'; ++p) {
        if (p[0] == '/' && p[1] == 's' && p[2] == 'r' && p[3] == 'c' && p[4] == '/') {
            found = p + 1;
        }
    }
    return found;
}

// Where a report is made: the operation's own name, its file and line.
struct Site {
    const char *function;
    const char *path;
    int32_t line;
};

#define TAV_SITE (::tav::Site{__func__, ::tav::source_path(__FILE__), __LINE__})

// traced / traced again: one trace entry; the status is returned unchanged so
// that `return traced(TAV_SITE, status);` reads as the step says.
inline tav_status traced(Site site, tav_status status) {
    tav_trace_save(site.function, site.path, site.line, status);
    return status;
}

inline tav_status traced_again(Site site, tav_status status) { return traced(site, status); }

// traced twice: two entries at one level, where the status is tested and
// where it is returned.
inline tav_status traced_twice(Site tested, Site returned, tav_status status) {
    traced(tested, status);
    return traced(returned, status);
}

// plain error line: the caller's format with its arguments, no file, line 0.
#define TAV_PLAIN_LINE(...)                                                                        \
    tav_util_log_internal(::tav::kSeverityError, ::tav::kModule, __func__, "", 0, __VA_ARGS__)

// reasoned error line: the message and the system's text for error_number.
[[gnu::format(printf, 3, 4)]] inline void reasoned_line(int error_number, Site site,
                                                        const char *format, ...) {
    char reason[256];
    char message[2048];
    std::snprintf(reason, sizeof reason, "error code %d", error_number);
    // The result is not examined: an unknown number leaves the numeric text.
    __xpg_strerror_r(error_number, reason, sizeof reason);
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
    tav_util_log_internal(kSeverityError, kModule, site.function, site.path, site.line,
                          "%s  Reason: %s", message, reason);
}

// perror line: a fixed message and the saved errno, for libtavlog to explain.
inline void perror_line(int saved_errno, Site site, const char *message) {
    tav_util_log_internal_perror(saved_errno, kSeverityError, kModule, site.function, site.path,
                                 site.line, message);
}

// errno slot: an optional out-argument; a null slot is never written.
inline void store_errno(int32_t *slot, int value) {
    if (slot != nullptr) {
        *slot = value;
    }
}

// A failed system call: its errno into the slot, then traced.
inline tav_status traced_with_errno(int32_t *slot, Site site, tav_status status) {
    store_errno(slot, errno);
    return traced(site, status);
}

// ---- RAII helpers -------------------------------------------------------

// A copy of a caller's argument list, ended on every path, so that the
// caller's own list is never consumed.
class ArgsCopy {
  public:
    explicit ArgsCopy(va_list source) { va_copy(list_, source); }
    ~ArgsCopy() { va_end(list_); }
    ArgsCopy(const ArgsCopy &) = delete;
    ArgsCopy &operator=(const ArgsCopy &) = delete;
    va_list &get() { return list_; }

  private:
    va_list list_;
};

// One owned resource, released on every path unless handed on with
// release(). `Empty` is the value that owns nothing.
template <typename Handle, Handle Empty, void (*Release)(Handle)> class Owned {
  public:
    explicit Owned(Handle handle = Empty) : handle_(handle) {}
    ~Owned() { reset(); }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    Handle get() const { return handle_; }
    explicit operator bool() const { return handle_ != Empty; }
    Handle release() {
        const Handle handle = handle_;
        handle_ = Empty;
        return handle;
    }
    void reset(Handle handle = Empty) {
        if (handle_ != Empty) {
            Release(handle_);
        }
        handle_ = handle;
    }

  private:
    Handle handle_;
};

template <typename T> void free_block(T *block) { std::free(block); }
inline void close_descriptor(int fd) { ::close(fd); }
inline void close_stream(FILE *stream) { std::fclose(stream); }
inline void close_directory(DIR *stream) { ::closedir(stream); }
inline void unlock_descriptor(int fd) { ::flock(fd, LOCK_UN); }

// A malloc-family block owned until released to the caller.
template <typename T> using MallocPtr = Owned<T *, nullptr, free_block<T>>;
// A descriptor the operation opened for itself.
using UniqueFd = Owned<int, -1, close_descriptor>;
// A stream the operation opened for itself.
using UniqueFile = Owned<FILE *, nullptr, close_stream>;
// A directory stream the operation opened for itself.
using UniqueDir = Owned<DIR *, nullptr, close_directory>;
// A flock the operation holds on a descriptor it keeps open meanwhile.
using HeldFlock = Owned<int, -1, unlock_descriptor>;

// A text formatted into fresh memory for the operation's own use (a path to
// open). The block is owned on every path, the unfinished one that a failed
// fill pass leaves behind included.
inline tav_status format_owned(MallocPtr<char> &text, int32_t *errno_slot, const char *format,
                               va_list args) {
    char *built = nullptr;
    const tav_status status = tav_util_vasprintf(&built, format, args, errno_slot);
    text.reset(built);
    return status;
}

} // namespace tav
