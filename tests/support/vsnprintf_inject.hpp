// Makes vsnprintf misbehave while an injection exists: calls with a size
// fail with an errno, or calls of size 0 report a chosen count.
#pragma once

namespace tavtest {

struct VsnprintfPlan {
    int fail_sized_with = 0;           // errno for calls with a size (0: behave)
    long long size_pass_result = -2;   // result of size 0 calls (-2: behave)
    const char *only_format = nullptr; // only this format is affected (null: all)
};

struct VsnprintfInjection {
    explicit VsnprintfInjection(const VsnprintfPlan &plan);
    ~VsnprintfInjection();
    VsnprintfInjection(const VsnprintfInjection &) = delete;
};

} // namespace tavtest
