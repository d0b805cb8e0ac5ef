#include <atomic>

#include "support.hpp"

// The real allocator: libc's own entry points, or the sanitizer's when one is
// loaded (it interposes malloc itself).
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
[[gnu::weak]] void *__interceptor_malloc(size_t);
[[gnu::weak]] void *__interceptor_calloc(size_t, size_t);
[[gnu::weak]] void *__interceptor_realloc(void *, size_t);
[[gnu::weak]] void __interceptor_free(void *);
}
#define REAL(name) (__interceptor_##name ? __interceptor_##name : __libc_##name)

namespace {

bool armed = false, injected = false;
std::atomic<int> paused = 0; // reports may come from several threads
long fail_at = 0, calls = 0;
size_t sizes[64];

// The run's live blocks, in a fixed open-addressing table: malloc cannot
// allocate to keep them.
constexpr size_t kSlots = size_t{1} << 16;
constexpr uintptr_t kFreed = 1;
uintptr_t live[kSlots];
long live_count = 0;

size_t slot_of(uintptr_t p) { return (p >> 4) * 0x9E3779B97F4A7C15ULL >> 48; }

void remember(uintptr_t p) {
    for (size_t i = slot_of(p), probes = 0; probes < kSlots; i = (i + 1) % kSlots, ++probes) {
        if (live[i] <= kFreed) {
            live[i] = p, ++live_count;
            return;
        }
    }
}

void forget(uintptr_t p) {
    for (size_t i = slot_of(p), probes = 0; live[i] != 0 && probes < kSlots;
         i = (i + 1) % kSlots, ++probes) {
        if (live[i] == p) {
            live[i] = kFreed, --live_count;
            return;
        }
    }
}

bool counting() { return armed && paused == 0; }

// Counts the call and fails the chosen one; else makes the block and keeps it.
template <typename Real> void *allocate(size_t size, Real real) {
    if (counting()) {
        if (calls < 64) {
            sizes[calls] = size;
        }
        if (++calls == fail_at) {
            injected = true;
            errno = ENOMEM;
            return nullptr;
        }
    }
    void *block = real();
    if (block != nullptr && counting()) {
        remember(reinterpret_cast<uintptr_t>(block));
    }
    return block;
}

} // namespace

extern "C" {

void *malloc(size_t size) {
    return allocate(size, [=] { return REAL(malloc)(size); });
}

void *calloc(size_t count, size_t size) {
    return allocate(count * size, [=] { return REAL(calloc)(count, size); });
}

void *realloc(void *old, size_t size) {
    return allocate(size, [=] {
        void *block = REAL(realloc)(old, size);
        if (old != nullptr && (block != nullptr || size == 0) && live_count > 0) {
            forget(reinterpret_cast<uintptr_t>(old));
        }
        return block;
    });
}

void free(void *block) {
    if (block != nullptr && live_count > 0) {
        forget(reinterpret_cast<uintptr_t>(block));
    }
    REAL(free)(block);
}

} // extern "C"

namespace tavtest {

AllocPause::AllocPause() { ++paused; }
AllocPause::~AllocPause() { --paused; }

AllocRun run_allocations(long nth, const std::function<void()> &op) {
    std::fill(std::begin(live), std::end(live), 0);
    live_count = calls = 0;
    fail_at = nth;
    injected = false;
    armed = true;
    op();
    armed = false;
    AllocRun run{injected, calls, live_count, {sizes, sizes + std::min(calls, 64L)}};
    std::fill(std::begin(live), std::end(live), 0);
    live_count = 0;
    return run;
}

long for_each_allocation_failure(const std::function<void()> &op,
                                 const std::function<void(long, const AllocRun &)> &check) {
    long nth = 1;
    for (AllocRun run; (run = run_allocations(nth, op)).injected; ++nth) {
        check(nth, run);
    }
    return nth - 1;
}

} // namespace tavtest
