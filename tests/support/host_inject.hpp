// A scripted sysconf for the host tests, and a way to run a test body in a
// child process when it changes what the process shares.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tavtest {

// While one exists, sysconf(name) returns `result`, with errno set to `error`.
class SysconfOverride {
  public:
    SysconfOverride(int name, long result, int error);
    ~SysconfOverride();
    SysconfOverride(const SysconfOverride &) = delete;
    SysconfOverride &operator=(const SysconfOverride &) = delete;
};

// Runs `body` in a forked child and hands back the lines it returned, or a
// single line telling how the child ended if it did not return normally.
std::vector<std::string> in_child(const std::function<std::vector<std::string>()> &body);

} // namespace tavtest
