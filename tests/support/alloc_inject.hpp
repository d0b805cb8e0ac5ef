// Allocation-failure injector for the test programs.
//
// The test programs define malloc, calloc, realloc and free themselves, so
// every allocation the library makes, and those libc makes inside strdup,
// fopen, scandir and the like, pass through here. A run can make its nth
// allocation fail and count the blocks it leaves allocated.
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

// Runs `op` once for each allocation it makes, that allocation failing, and
// hands each run to `check` with allocation working again. Returns how many
// runs injected a failure.
long for_each_allocation_failure(const std::function<void()> &op,
                                 const std::function<void(long nth, const AllocRun &)> &check);

// While one exists, allocations are neither counted nor failed (the recorder
// uses it so that recording a report never disturbs a run).
class AllocPause {
  public:
    AllocPause();
    ~AllocPause();
    AllocPause(const AllocPause &) = delete;
    AllocPause &operator=(const AllocPause &) = delete;
};

} // namespace tavtest
