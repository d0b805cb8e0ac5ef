// Environment, effective group and host name. Whatever changes what the
// process shares runs in a child, which hands back what it saw as lines.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <grp.h>
#include <optional>
#include <sched.h>
#include <set>
#include <string>
#include <sys/utsname.h>
#include <unistd.h>
#include <vector>

#include "alloc_inject.hpp"
#include "host_inject.hpp"
#include "recorder.hpp"
#include "tavutil.h"

namespace {

using Lines = std::vector<std::string>;

// A heap text as a line, freed; "null" for none.
std::string shown(char *text) {
    const std::string line = text == nullptr ? "null" : "'" + std::string(text) + "'";
    std::free(text);
    return line;
}
std::string shown(tav_status status) { return std::to_string(status); }

// One call as a line: its result, the size of its first allocation, the
// blocks it left to the caller, and its reports.
template <typename Call> std::string observe(long fail_at, Call call) {
    tavtest::clear_reports();
    decltype(call()) result{};
    const tavtest::AllocRun run = tavtest::run_allocations(fail_at, [&] { result = call(); });
    std::string line = shown(result) + " |";
    if (!run.sizes.empty()) {
        line += " " + std::to_string(run.sizes[0]);
    }
    line += " | " + std::to_string(run.live_blocks);
    for (const std::string &report : tavtest::report_summary()) {
        line += " | " + report;
    }
    return line;
}

TEST(Identity, GetenvCopiesValuesUpTo299Characters) {
    const std::string v299(299, 'v');
    struct Row {
        const char *name;
        std::optional<std::string> value; // none: not set
        long fail_at;
        std::string expected;
    };
    const Row rows[] = {
        {nullptr, std::nullopt, 0, "null | | 0"}, {"TAV_UNSET", std::nullopt, 0, "null | | 0"},
        {"TAV_EMPTY", "", 0, "'' | 1 | 1"},       {"TAV_299", v299, 0, "'" + v299 + "' | 300 | 1"},
        {"TAV_300", v299 + "v", 0, "null | | 0"}, {"TAV_SHORT", "abc", 1, "null | 4 | 0"},
    };
    Lines expected;
    for (const Row &row : rows) {
        expected.push_back(row.expected);
    }
    expected.push_back("copy kept: 'abc'");
    EXPECT_EQ(tavtest::in_child([&] {
                  Lines seen;
                  for (const Row &row : rows) {
                      if (row.value) {
                          setenv(row.name, row.value->c_str(), 1);
                      }
                      seen.push_back(
                          observe(row.fail_at, [&] { return tav_util_getenv(row.name); }));
                  }
                  // A copy, not the environment's storage: a later change leaves it.
                  char *copy = tav_util_getenv("TAV_SHORT");
                  setenv("TAV_SHORT", "xyz", 1);
                  seen.push_back("copy kept: " + shown(copy));
                  return seen;
              }),
              expected);
}

TEST(Identity, SetenvAndUnsetenv) {
    const std::string set = "trace tav_util_setenv src/env/linux.cpp ";
    const std::string unset = "trace tav_util_unsetenv src/env/linux.cpp ";
    const std::string set_line = "perror tav_util_setenv src/env/linux.cpp ";
    const std::string unset_line = "perror tav_util_unsetenv src/env/linux.cpp ";
    const std::string einval = std::to_string(EINVAL) + " Failed to ";
    struct Row {
        std::function<tav_status()> call;
        std::string expected; // status, then the variable TAV_V, then the reports
    };
    const Row rows[] = {
        {[] { return tav_util_setenv(nullptr, "x"); }, "3 null | " + set + "3"},
        {[] { return tav_util_setenv("TAV_V", nullptr); }, "3 null | " + set + "3"},
        {[] { return tav_util_setenv("", "x"); },
         "6 null | " + set_line + einval + "set environment variable | " + set + "6"},
        {[] { return tav_util_setenv("TAV_V=", "x"); },
         "6 null | " + set_line + einval + "set environment variable | " + set + "6"},
        {[] { return tav_util_setenv("TAV_V", "one"); }, "0 'one'"},
        {[] { return tav_util_setenv("TAV_V", "two"); }, "0 'two'"},
        {[] { return tav_util_unsetenv(nullptr); }, "3 'two' | " + unset + "3"},
        {[] { return tav_util_unsetenv(""); },
         "6 'two' | " + unset_line + einval + "unset environment variable | " + unset + "6"},
        {[] { return tav_util_unsetenv("TAV_V=x"); },
         "6 'two' | " + unset_line + einval + "unset environment variable | " + unset + "6"},
        {[] { return tav_util_unsetenv("TAV_V"); }, "0 null"},
        {[] { return tav_util_unsetenv("TAV_V"); }, "0 null"},
    };
    Lines expected;
    for (const Row &row : rows) {
        expected.push_back(row.expected);
    }
    expected.push_back("6 | perror tav_util_setenv src/env/linux.cpp " + std::to_string(ENOMEM) +
                       " Failed to set environment variable | " + set + "6");
    EXPECT_EQ(tavtest::in_child([&] {
                  Lines seen;
                  for (const Row &row : rows) {
                      tavtest::clear_reports();
                      std::string line = std::to_string(row.call());
                      line += " " + shown(tav_util_getenv("TAV_V"));
                      for (const std::string &report : tavtest::report_summary()) {
                          line += " | " + report;
                      }
                      seen.push_back(line);
                  }
                  // setenv's own allocations failing: each failure alike (setenv
                  // does without some bookkeeping of its own, and succeeds).
                  std::set<std::string> failed;
                  tav_status status = TAV_OK;
                  tavtest::for_each_allocation_failure(
                      [&] {
                          tavtest::clear_reports();
                          status = tav_util_setenv("TAV_NEW", "value");
                      },
                      [&](long, const tavtest::AllocRun &) {
                          if (status == TAV_OK) {
                              return;
                          }
                          std::string line = std::to_string(status);
                          for (const std::string &report : tavtest::report_summary()) {
                              line += " | " + report;
                          }
                          failed.insert(line);
                      });
                  seen.insert(seen.end(), failed.begin(), failed.end());
                  return seen;
              }),
              expected);
}

TEST(Identity, EnsureEgid) {
    const std::string where = "ensure_egid src/permissions/permissions_linux.cpp";
    const std::string trace = "trace " + where + " ";
    const std::string line = "log " + where + ": ";
    const std::string g32(32, 'g');
    const long size = sysconf(_SC_GETGR_R_SIZE_MAX);
    const std::string sized = std::to_string(size);
    struct Row {
        std::string name;
        long fail_at;
        long sysconf_result; // 0: the system's
        std::string expected;
    };
    // clang-format off
    const Row rows[] = {
        {g32 + "g", 0, 0, "7 | | 0 | " + trace + "7 | 0"},
        {g32, 0, 0, "6 | " + sized + " | 0 | log ensure_egid Failed to find group " + g32 + " | " + trace + "6 | 0"},
        {"root", 0, -1, "6 | | 0 | " + line + "Failed to query group structure size  Reason: Invalid argument | " + trace + "6 | 0"},
        // A buffer too small for the record: the lookup's own error, no second try.
        {"root", 0, 8, "6 | 8 | 0 | " + line + "Failed to query group root data  Reason: Numerical result out of range | " + trace + "6 | 0"},
        {"root", 1, 0, "2 | " + sized + " | 0 | log ensure_egid Failed to allocate " + sized + " byte buffer | " + trace + "2 | 0"},
        {"nogroup", 0, 0, "0 | " + sized + " | 0 | 65534"},
    };
    // clang-format on
    Lines expected{"3 | | 0 | " + trace + "3 | 0"};
    for (const Row &row : rows) {
        expected.push_back(row.expected);
    }
    // Without the privilege, only the group change itself fails.
    expected.push_back("6 | " + sized + " | 0 | " + line +
                       "Failed to update effective gid for group root  Reason: Operation not "
                       "permitted | " +
                       trace + "6 | 65534");
    EXPECT_EQ(tavtest::in_child([&] {
                  // The lookups' one-time set-up is not the operation's.
                  getgrnam("root");
                  getgrnam(g32.c_str());
                  // The line, then the effective group after the call.
                  auto egid = [](long fail_at, const char *name) {
                      std::string line = observe(fail_at, [&] { return ensure_egid(name); });
                      return line + " | " + std::to_string(getegid());
                  };
                  Lines seen{egid(0, nullptr)};
                  for (const Row &row : rows) {
                      std::optional<tavtest::SysconfOverride> override;
                      if (row.sysconf_result != 0) {
                          override.emplace(_SC_GETGR_R_SIZE_MAX, row.sysconf_result, EINVAL);
                      }
                      seen.push_back(egid(row.fail_at, row.name.c_str()));
                  }
                  if (setgid(65534) != 0 || setuid(65534) != 0) {
                      return Lines{"could not drop privileges"};
                  }
                  seen.push_back(egid(0, "root"));
                  return seen;
              }),
              expected);
}

TEST(Identity, Hostname) {
    utsname names{};
    uname(&names);
    EXPECT_EQ(observe(0, [] { return tav_util_get_hostname(); }),
              "'" + std::string(names.nodename) + "' | 64 | 1");
    // A name as long as the buffer leaves no room for its terminator.
    const std::string h63(63, 'h');
    EXPECT_EQ(tavtest::in_child([&] {
                  if (unshare(CLONE_NEWUTS) != 0) {
                      return Lines{"no host name of its own"};
                  }
                  auto call = [] { return tav_util_get_hostname(); };
                  sethostname(h63.data(), h63.size());
                  Lines seen{observe(0, call), observe(1, call)};
                  sethostname((h63 + "h").data(), h63.size() + 1);
                  seen.push_back(observe(0, call));
                  tavtest::SysconfOverride failing(_SC_HOST_NAME_MAX, -1, EINVAL);
                  seen.push_back(observe(0, call));
                  return seen;
              }),
              (Lines{"'" + h63 + "' | 64 | 1", "null | 64 | 0", "null | 64 | 0", "null | | 0"}));
}

} // namespace
