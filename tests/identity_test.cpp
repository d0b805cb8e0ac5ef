// Environment, effective group and host name, changed in a child.
#include <grp.h>
#include <numeric>
#include <regex>
#include <sched.h>
#include <set>
#include <sys/utsname.h>

#include "host_inject.hpp"
#include "rows.hpp"

namespace {

std::string shown(char *text) { // a heap text, freed
    const std::string line = text == nullptr ? "null" : "'" + std::string(text) + "'";
    std::free(text);
    return line;
}
std::string shown(tav_status status) { return std::to_string(status); }

// The reports, @ for the source path of this family.
std::string reports() {
    const std::regex path(" src/(env/linux|permissions/permissions_linux)\\.cpp");
    return std::regex_replace(tavtest::reported(), path, "@");
}

// One call: "result size live|reports", with the size of its first allocation
// (- for none) and the blocks it left to the caller.
template <typename Call> std::string observe(long fail_at, Call call) {
    tavtest::clear_reports();
    decltype(call()) result{};
    const tavtest::AllocRun run = tavtest::run_allocations(fail_at, [&] { result = call(); });
    return "\n" + shown(result) + " " + (run.sizes.empty() ? "-" : std::to_string(run.sizes[0])) +
           " " + std::to_string(run.live_blocks) + reports();
}

TEST(Identity, GetenvCopiesValuesUpTo299Characters) {
    const std::string v299(299, 'v');
    EXPECT_EQ(
        tavtest::in_child([&] {
            setenv("EMPTY", "", 1), setenv("V299", v299.c_str(), 1);
            setenv("V300", (v299 + "v").c_str(), 1), setenv("SHORT", "abc", 1);
            std::string seen;
            for (const char *name : {(const char *)nullptr, "UNSET", "EMPTY", "V299", "V300"}) {
                seen += observe(0, [&] { return tav_util_getenv(name); });
            }
            seen += observe(1, [] { return tav_util_getenv("SHORT"); });
            char *copy = tav_util_getenv("SHORT"); // not the environment's storage
            setenv("SHORT", "xyz", 1);
            return seen + " " + shown(copy);
        }),
        "\nnull - 0\nnull - 0\n'' 1 1\n'" + v299 + "' 300 1\nnull - 0\nnull 4 0 'abc'");
}

// Each call: "status|reports V" with what V holds after it; then setenv's own
// allocations failing (some it does without).
TEST(Identity, SetenvAndUnsetenv) {
    EXPECT_EQ(tavtest::in_child([] {
                  std::string seen;
                  auto row = [&](tav_status status) {
                      seen += "\n" + shown(status) + reports() + " " + shown(tav_util_getenv("V"));
                      tavtest::clear_reports();
                  };
                  tavtest::clear_reports();
                  row(tav_util_setenv(nullptr, "x")), row(tav_util_setenv("V", nullptr));
                  row(tav_util_setenv("V=", "x")), row(tav_util_setenv("V", "one"));
                  row(tav_util_setenv("V", "two")), row(tav_util_unsetenv(nullptr));
                  row(tav_util_unsetenv("V=x")), row(tav_util_unsetenv("V"));
                  std::set<std::string> failed;
                  tav_status status = TAV_OK;
                  tavtest::for_each_allocation_failure(
                      [&] { tavtest::clear_reports(), status = tav_util_setenv("NEW", "x"); },
                      [&](long, const tavtest::AllocRun &) {
                          failed.insert(status ? "\n" + shown(status) + reports() : "");
                      });
                  return std::accumulate(failed.begin(), failed.end(), seen);
              }),
              "\n3|trace tav_util_setenv@ 3 null\n3|trace tav_util_setenv@ 3 null"
              "\n6|perror tav_util_setenv@ 22 Failed to set environment variable"
              "|trace tav_util_setenv@ 6 null\n0 'one'\n0 'two'"
              "\n3|trace tav_util_unsetenv@ 3 'two'"
              "\n6|perror tav_util_unsetenv@ 22 Failed to unset environment variable"
              "|trace tav_util_unsetenv@ 6 'two'\n0 null"
              "\n6|perror tav_util_setenv@ 12 Failed to set environment variable"
              "|trace tav_util_setenv@ 6");
}

// Each call: "status size live|reports egid"; the last as nobody, where only
// the change itself fails.
TEST(Identity, EnsureEgid) {
    const std::string g32(32, 'g'), size = std::to_string(sysconf(_SC_GETGR_R_SIZE_MAX));
    const std::string rows[] = {
        "\n3 - 0|trace ensure_egid@ 3 0",
        "\n7 - 0|trace ensure_egid@ 7 0",
        "\n6 " + size + " 0|log ensure_egid Failed to find group " + g32 +
            "|trace ensure_egid@ 6 0",
        "\n6 - 0|log ensure_egid@: Failed to query group structure size  Reason: Invalid "
        "argument|trace ensure_egid@ 6 0",
        "\n6 8 0|log ensure_egid@: Failed to query group root data  Reason: Numerical result out "
        "of range|trace ensure_egid@ 6 0", // no second try
        "\n2 " + size + " 0|log ensure_egid Failed to allocate " + size +
            " byte buffer|trace ensure_egid@ 2 0",
        "\n0 " + size + " 0 65534",
        "\n6 " + size +
            " 0|log ensure_egid@: Failed to update effective gid for group root  "
            "Reason: Operation not permitted|trace ensure_egid@ 6 65534"};
    EXPECT_EQ(tavtest::in_child([&] {
                  getgrnam("root"), getgrnam(g32.c_str()); // the lookups' one-time set-up
                  std::string seen;
                  auto row = [&](long fail_at, const char *name) {
                      seen += observe(fail_at, [&] { return ensure_egid(name); });
                      seen += " " + std::to_string(getegid());
                  };
                  row(0, nullptr), row(0, (g32 + "g").c_str()), row(0, g32.c_str());
                  for (long result : {-1, 8}) {
                      tavtest::HostInjection sized(
                          {.sysconf_name = _SC_GETGR_R_SIZE_MAX, .sysconf_result = result});
                      row(0, "root");
                  }
                  row(1, "root"), row(0, "nogroup");
                  return tavtest::drop_to_nobody() ? (row(0, "root"), seen) : "not nobody";
              }),
              std::accumulate(std::begin(rows), std::end(rows), std::string()));
}

// A name as long as the buffer leaves no room for its terminator.
TEST(Identity, Hostname) {
    utsname names{};
    uname(&names);
    auto call = [] { return tav_util_get_hostname(); };
    EXPECT_EQ(observe(0, call), "\n'" + std::string(names.nodename) + "' 64 1");
    const std::string h63(63, 'h');
    EXPECT_EQ(tavtest::in_child([&] {
                  if (unshare(CLONE_NEWUTS) != 0 || sethostname(h63.data(), 63) != 0) {
                      return std::string("no host name of its own");
                  }
                  std::string seen = observe(0, call) + observe(1, call);
                  sethostname((h63 + "h").data(), 64);
                  seen += observe(0, call);
                  tavtest::HostInjection failing(
                      {.sysconf_name = _SC_HOST_NAME_MAX, .sysconf_result = -1});
                  return seen + observe(0, call);
              }),
              "\n'" + h63 + "' 64 1\nnull 64 0\nnull 64 0\nnull - 0");
}

} // namespace
