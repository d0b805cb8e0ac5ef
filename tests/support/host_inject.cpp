#include "host_inject.hpp"
#include "recorder.hpp"

#include <cerrno>
#include <cstdio>
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using SysconfFn = long (*)(int);
using FlockFn = int (*)(int, int);

bool sysconf_active = false;
int sysconf_name = 0;
long sysconf_result = 0;
int sysconf_error = 0;
std::function<void()> before_flock;

SysconfFn real_sysconf() {
    static SysconfFn real = reinterpret_cast<SysconfFn>(dlsym(RTLD_NEXT, "sysconf"));
    return real;
}

FlockFn real_flock() {
    static FlockFn real = reinterpret_cast<FlockFn>(dlsym(RTLD_NEXT, "flock"));
    return real;
}

} // namespace

extern "C" int flock(int fd, int operation) {
    if (before_flock) {
        const std::function<void()> before = std::move(before_flock);
        before_flock = nullptr;
        before();
    }
    return real_flock()(fd, operation);
}

extern "C" long sysconf(int name) {
    if (sysconf_active && name == sysconf_name) {
        errno = sysconf_error;
        return sysconf_result;
    }
    return real_sysconf()(name);
}

namespace tavtest {

SysconfOverride::SysconfOverride(int name, long result, int error) {
    real_sysconf();
    sysconf_name = name;
    sysconf_result = result;
    sysconf_error = error;
    sysconf_active = true;
}

SysconfOverride::~SysconfOverride() { sysconf_active = false; }

BeforeFlock::BeforeFlock(std::function<void()> before) {
    real_flock();
    before_flock = std::move(before);
}

BeforeFlock::~BeforeFlock() { before_flock = nullptr; }

std::vector<std::string> in_child(const std::function<std::vector<std::string>()> &body) {
    int channel[2];
    if (pipe(channel) != 0) {
        return {"pipe failed"};
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        std::string out;
        for (const std::string &line : body()) {
            out += line + '\n';
        }
        for (size_t done = 0; done < out.size();) {
            const ssize_t n = write(channel[1], out.data() + done, out.size() - done);
            if (n <= 0) {
                tavtest::child_exit(1);
            }
            done += static_cast<size_t>(n);
        }
        tavtest::child_exit(0);
    }
    close(channel[1]);
    std::string text;
    char chunk[4096];
    for (ssize_t n; (n = read(channel[0], chunk, sizeof chunk)) > 0;) {
        text.append(chunk, static_cast<size_t>(n));
    }
    close(channel[0]);
    int wstatus = 0;
    waitpid(child, &wstatus, 0);
    if (!WIFEXITED(wstatus) || WEXITSTATUS(wstatus) != 0) {
        return {"child ended with wait status " + std::to_string(wstatus)};
    }
    std::vector<std::string> lines;
    for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
        lines.push_back(text.substr(at, end - at));
    }
    return lines;
}

} // namespace tavtest
