// Environment, effective group and host name. What changes what the process
// shares runs in a child, which hands back what it saw as lines.
#include <gtest/gtest.h>

#include <cerrno>
#include <grp.h>
#include <sched.h>
#include <set>
#include <sys/utsname.h>

#include "alloc_inject.hpp"
#include "host_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;

std::string shown(char *text) { // a heap text, freed
    const std::string line = text == nullptr ? "null" : "'" + std::string(text) + "'";
    std::free(text);
    return line;
}
std::string shown(tav_status status) { return std::to_string(status); }

std::string reports() { // " | report" each
    std::string line;
    for (const std::string &report : tavtest::report_summary()) {
        line += " | " + report;
    }
    return line;
}

// One call as a line: its result, the size of its first allocation, the
// blocks it left to the caller, and its reports.
template <typename Call> std::string observe(long fail_at, Call call) {
    tavtest::clear_reports();
    decltype(call()) result{};
    const tavtest::AllocRun run = tavtest::run_allocations(fail_at, [&] { result = call(); });
    return shown(result) + " |" + (run.sizes.empty() ? "" : " " + std::to_string(run.sizes[0])) +
           " | " + std::to_string(run.live_blocks) + reports();
}

TEST(Identity, GetenvCopiesValuesUpTo299Characters) {
    const std::string v299(299, 'v');
    const Lines expected{"null | | 0", "null | | 0",   "'' | 1 | 1", "'" + v299 + "' | 300 | 1",
                         "null | | 0", "null | 4 | 0", "'abc'"};
    EXPECT_EQ(tavtest::in_child([&] {
                  setenv("EMPTY", "", 1), setenv("V299", v299.c_str(), 1);
                  setenv("V300", (v299 + "v").c_str(), 1), setenv("SHORT", "abc", 1);
                  Lines seen;
                  for (const char *name :
                       {static_cast<const char *>(nullptr), "UNSET", "EMPTY", "V299", "V300"}) {
                      seen.push_back(observe(0, [&] { return tav_util_getenv(name); }));
                  }
                  seen.push_back(observe(1, [] { return tav_util_getenv("SHORT"); }));
                  char *copy = tav_util_getenv("SHORT"); // not the environment's storage
                  setenv("SHORT", "xyz", 1);
                  seen.push_back(shown(copy));
                  return seen;
              }),
              expected);
}

// Each line: the status, the reports, then the variable V.
TEST(Identity, SetenvAndUnsetenv) {
    auto refused = [](const char *op, int error) {
        const std::string fn = std::string("tav_util_") + op + "env src/env/linux.cpp ";
        return "6 | perror " + fn + std::to_string(error) + " Failed to " + op +
               " environment variable | trace " + fn + "6";
    };
    auto null = [](const char *op) {
        return std::string("3 | trace tav_util_") + op + "env src/env/linux.cpp 3";
    };
    const Lines expected{null("set") + " null",
                         null("set") + " null",
                         refused("set", EINVAL) + " null",
                         refused("set", EINVAL) + " null",
                         "0 'one'",
                         "0 'two'",
                         null("unset") + " 'two'",
                         refused("unset", EINVAL) + " 'two'",
                         refused("unset", EINVAL) + " 'two'",
                         "0 null",
                         "0 null",
                         refused("set", ENOMEM)};
    EXPECT_EQ(tavtest::in_child([] {
                  Lines seen;
                  tavtest::clear_reports(); // each row's call is made before row() runs
                  auto row = [&](tav_status status) {
                      seen.push_back(std::to_string(status) + reports() + " " +
                                     shown(tav_util_getenv("V")));
                      tavtest::clear_reports();
                  };
                  row(tav_util_setenv(nullptr, "x"));
                  row(tav_util_setenv("V", nullptr)); // refused, not crashed
                  row(tav_util_setenv("", "x"));
                  row(tav_util_setenv("V=", "x"));
                  row(tav_util_setenv("V", "one"));
                  row(tav_util_setenv("V", "two"));
                  row(tav_util_unsetenv(nullptr));
                  row(tav_util_unsetenv(""));
                  row(tav_util_unsetenv("V=x"));
                  row(tav_util_unsetenv("V"));
                  row(tav_util_unsetenv("V")); // not set: no failure
                  // setenv's own allocations failing (some it does without).
                  std::set<std::string> failed;
                  tav_status status = TAV_OK;
                  tavtest::for_each_allocation_failure(
                      [&] { tavtest::clear_reports(), status = tav_util_setenv("NEW", "x"); },
                      [&](long, const tavtest::AllocRun &) {
                          if (status != TAV_OK) {
                              failed.insert(std::to_string(status) + reports());
                          }
                      });
                  seen.insert(seen.end(), failed.begin(), failed.end());
                  return seen;
              }),
              expected);
}

TEST(Identity, EnsureEgid) {
    const std::string trace = " | trace ensure_egid src/permissions/permissions_linux.cpp ";
    const std::string line = " | log ensure_egid src/permissions/permissions_linux.cpp: ";
    const std::string g32(32, 'g'), size = std::to_string(sysconf(_SC_GETGR_R_SIZE_MAX));
    const Lines expected{
        "3 | | 0" + trace + "3 0", "7 | | 0" + trace + "7 0",
        "6 | " + size + " | 0 | log ensure_egid Failed to find group " + g32 + trace + "6 0",
        "6 | | 0" + line + "Failed to query group structure size  Reason: Invalid argument" +
            trace + "6 0",
        // A buffer too small for the record: the lookup's own error, no second try.
        "6 | 8 | 0" + line +
            "Failed to query group root data  Reason: Numerical result out of range" + trace +
            "6 0",
        "2 | " + size + " | 0 | log ensure_egid Failed to allocate " + size + " byte buffer" +
            trace + "2 0",
        "0 | " + size + " | 0 65534",
        // Without the privilege, only the change itself fails.
        "6 | " + size + " | 0" + line +
            "Failed to update effective gid for group root  Reason: Operation not permitted" +
            trace + "6 65534"};
    EXPECT_EQ(tavtest::in_child([&] {
                  getgrnam("root"), getgrnam(g32.c_str()); // the lookups' one-time set-up
                  Lines seen;
                  auto row = [&](long fail_at, const char *name) {
                      seen.push_back(observe(fail_at, [&] { return ensure_egid(name); }));
                      seen.back() += " " + std::to_string(getegid());
                  };
                  row(0, nullptr), row(0, (g32 + "g").c_str()), row(0, g32.c_str());
                  for (long result : {-1, 8}) {
                      tavtest::SysconfOverride sized(_SC_GETGR_R_SIZE_MAX, result, EINVAL);
                      row(0, "root");
                  }
                  row(1, "root"), row(0, "nogroup");
                  if (setgid(65534) != 0 || setuid(65534) != 0) {
                      return Lines{"could not drop privileges"};
                  }
                  row(0, "root");
                  return seen;
              }),
              expected);
}

// A name as long as the buffer leaves no room for its terminator.
TEST(Identity, Hostname) {
    utsname names{};
    uname(&names);
    auto call = [] { return tav_util_get_hostname(); };
    EXPECT_EQ(observe(0, call), "'" + std::string(names.nodename) + "' | 64 | 1");
    const std::string h63(63, 'h');
    EXPECT_EQ(tavtest::in_child([&] {
                  if (unshare(CLONE_NEWUTS) != 0 || sethostname(h63.data(), 63) != 0) {
                      return Lines{"no host name of its own"};
                  }
                  Lines seen{observe(0, call), observe(1, call)};
                  sethostname((h63 + "h").data(), 64);
                  seen.push_back(observe(0, call));
                  tavtest::SysconfOverride failing(_SC_HOST_NAME_MAX, -1, EINVAL);
                  seen.push_back(observe(0, call));
                  return seen;
              }),
              (Lines{"'" + h63 + "' | 64 | 1", "null | 64 | 0", "null | 64 | 0", "null | | 0"}));
}

} // namespace
