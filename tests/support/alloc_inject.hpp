// The test program defines malloc, calloc, realloc and free, so every
// allocation the library makes (and libc's inside strdup, fopen, scandir...)
// passes here: a run can fail its nth allocation and count what it leaves.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

namespace tavtest {

struct AllocRun {
    bool injected = false;     // the chosen allocation was reached and failed
    long allocations = 0;      // allocation calls made by the run
    long live_blocks = 0;      // blocks the run allocated and did not free
    std::vector<size_t> sizes; // sizes asked for by its first 64 calls (calloc: the product)
};

// Runs `op` with allocation number `fail_at` (1 = the first) failing; 0 lets
// every allocation succeed. Reports and assertions belong outside `op`.
AllocRun run_allocations(long fail_at, const std::function<void()> &op);

// Runs `op` once for each allocation it makes, that one failing, and hands
// each run to `check`. Returns how many runs injected a failure.
long for_each_allocation_failure(const std::function<void()> &op,
                                 const std::function<void(long nth, const AllocRun &)> &check);

// While one exists, allocations are neither counted nor failed.
struct AllocPause {
    AllocPause();
    ~AllocPause();
    AllocPause(const AllocPause &) = delete;
};

} // namespace tavtest
