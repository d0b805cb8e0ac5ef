// A scripted sysconf and a hook on flock for the host tests, and a way to run a test body in a
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

// While one exists, `before` runs once, as the next flock is called: a test
// can let another process take the lock at that moment.
class BeforeFlock {
  public:
    explicit BeforeFlock(std::function<void()> before);
    ~BeforeFlock();
    BeforeFlock(const BeforeFlock &) = delete;
    BeforeFlock &operator=(const BeforeFlock &) = delete;
};

// Runs `body` in a forked child and hands back the lines it returned, or a
// single line telling how the child ended if it did not return normally.
std::vector<std::string> in_child(const std::function<std::vector<std::string>()> &body);

} // namespace tavtest
