// The benchmark program's entry: every pair's output check first, then the
// benchmarks. The check results go into the JSON context as "check <Op>",
// where bench/compare.py reads them.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "pairs.hpp"

namespace tavbench {
namespace {

std::vector<std::pair<const char *, bool (*)()>> &checks() {
    static std::vector<std::pair<const char *, bool (*)()>> all;
    return all;
}

} // namespace

bool add_check(const char *pair, bool (*same_output)()) {
    checks().emplace_back(pair, same_output);
    return true;
}

} // namespace tavbench

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    bool all_same = true;
    for (const auto &[pair, same_output] : tavbench::checks()) {
        const bool same = same_output();
        benchmark::AddCustomContext(std::string("check ") + pair, same ? "same" : "DIFFERENT");
        if (!same) {
            std::fprintf(stderr, "%s: the library's output differs from the peer's\n", pair);
            all_same = false;
        }
    }
    if (!all_same) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
