// Lets a test make vsnprintf misbehave in ways that real formats cannot
// reach cheaply: a fill pass that fails, or a size pass that reports a
// chosen size. The test programs define vsnprintf, forwarding to libc's.
#pragma once

#include <cstddef>

namespace tavtest {

struct VsnprintfPlan {
    // Calls with a nonzero size return -1 with this errno (0: behave).
    int fail_sized_with = 0;
    // Calls with size 0 return this instead of the real count (-2: behave).
    long long size_pass_result = -2;
    // Only calls whose format is exactly this are affected (null: all).
    const char *only_format = nullptr;
};

// Applies the plan while it exists.
class VsnprintfInjection {
  public:
    explicit VsnprintfInjection(const VsnprintfPlan &plan);
    ~VsnprintfInjection();
    VsnprintfInjection(const VsnprintfInjection &) = delete;
    VsnprintfInjection &operator=(const VsnprintfInjection &) = delete;
    // How many calls the plan changed.
    long changed() const;
};

} // namespace tavtest
