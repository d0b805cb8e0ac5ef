// The effective group, set by the group's name.
#include <cstring>
#include <grp.h>

#include "internal/frame.hpp"

namespace {

constexpr size_t kLongestGroupName = 32;

} // namespace

extern "C" {

tav_status ensure_egid(const char *group_name) {
    if (group_name == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (strnlen(group_name, kLongestGroupName + 1) == kLongestGroupName + 1) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    const long size = sysconf(_SC_GETGR_R_SIZE_MAX);
    if (size == -1) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to query group structure size");
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    const tav::MallocPtr<char> buffer(static_cast<char *>(std::malloc(static_cast<size_t>(size))));
    if (!buffer) {
        TAV_PLAIN_LINE("Failed to allocate %ld byte buffer", size);
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }

    // One try: a record too large for the buffer ends in the error below.
    group record{};
    group *found = nullptr;
    const int looked_up =
        getgrnam_r(group_name, &record, buffer.get(), static_cast<size_t>(size), &found);
    if (looked_up != 0) {
        // The lookup's own result is the error number, not errno.
        tav::reasoned_line(looked_up, TAV_SITE, "Failed to query group %s data", group_name);
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (found == nullptr) {
        TAV_PLAIN_LINE("Failed to find group %s", group_name);
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    if (setegid(record.gr_gid) == -1) {
        tav::reasoned_line(errno, TAV_SITE, "Failed to update effective gid for group %s",
                           record.gr_name);
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    return TAV_OK;
}

} // extern "C"
