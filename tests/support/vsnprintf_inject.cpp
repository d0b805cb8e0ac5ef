#include "vsnprintf_inject.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>

namespace {
using VsnprintfFn = int (*)(char *, size_t, const char *, va_list);
tavtest::VsnprintfPlan plan;
bool active = false;
VsnprintfFn real() {
    static auto found = reinterpret_cast<VsnprintfFn>(dlsym(RTLD_NEXT, "vsnprintf"));
    return found;
}
bool applies(const char *format) {
    return active && (plan.only_format == nullptr ||
                      (format != nullptr && std::strcmp(format, plan.only_format) == 0));
}
} // namespace

extern "C" int vsnprintf(char *buffer, size_t size, const char *format, va_list args) {
    if (applies(format)) {
        if (size > 0 && plan.fail_sized_with != 0) {
            errno = plan.fail_sized_with;
            return -1;
        }
        if (size == 0 && plan.size_pass_result != -2) {
            return static_cast<int>(plan.size_pass_result);
        }
    }
    return real()(buffer, size, format, args);
}

tavtest::VsnprintfInjection::VsnprintfInjection(const VsnprintfPlan &p) {
    real(); // resolved before the plan is in force
    plan = p;
    active = true;
}
tavtest::VsnprintfInjection::~VsnprintfInjection() { active = false; }
