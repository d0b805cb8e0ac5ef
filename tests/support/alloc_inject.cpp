#include "alloc_inject.hpp"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>

// Where the real allocator lives: libc's own entry points, or the
// sanitizer's when one is loaded (it interposes malloc itself).
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

namespace {

struct State {
    bool armed = false; // a run is in progress
    long fail_at = 0;
    long calls = 0;
    bool injected = false;
    std::atomic<int> paused = 0; // reports may come from several threads
    size_t sizes[64] = {};
};
State state;

// The blocks a run allocated, in a fixed open-addressing table (no
// allocation of its own, so it can be consulted from inside malloc).
constexpr size_t kSlots = size_t{1} << 16;
uintptr_t live[kSlots];
constexpr uintptr_t kDeleted = 1;
long live_count = 0;

size_t slot_of(uintptr_t p) { return (p >> 4) * 0x9E3779B97F4A7C15ULL >> (64 - 16); }

void remember(void *block) {
    const auto p = reinterpret_cast<uintptr_t>(block);
    for (size_t i = slot_of(p), probes = 0; probes < kSlots; i = (i + 1) % kSlots, ++probes) {
        if (live[i] == 0 || live[i] == kDeleted) {
            live[i] = p;
            ++live_count;
            return;
        }
    }
}

bool forget(void *block) {
    const auto p = reinterpret_cast<uintptr_t>(block);
    for (size_t i = slot_of(p), probes = 0; live[i] != 0 && probes < kSlots;
         i = (i + 1) % kSlots, ++probes) {
        if (live[i] == p) {
            live[i] = kDeleted;
            --live_count;
            return true;
        }
    }
    return false;
}

void forget_all() {
    for (auto &slot : live) {
        slot = 0;
    }
    live_count = 0;
}

bool counting() { return state.armed && state.paused == 0; }

// True when this allocation is the one chosen to fail.
bool should_fail(size_t size) {
    if (!counting()) {
        return false;
    }
    if (state.calls < 64) {
        state.sizes[state.calls] = size;
    }
    ++state.calls;
    if (state.fail_at != 0 && state.calls == state.fail_at) {
        state.injected = true;
        return true;
    }
    return false;
}

void *real_malloc(size_t n) {
    return __interceptor_malloc ? __interceptor_malloc(n) : __libc_malloc(n);
}
void *real_calloc(size_t n, size_t m) {
    return __interceptor_calloc ? __interceptor_calloc(n, m) : __libc_calloc(n, m);
}
void *real_realloc(void *p, size_t n) {
    return __interceptor_realloc ? __interceptor_realloc(p, n) : __libc_realloc(p, n);
}
void real_free(void *p) { __interceptor_free ? __interceptor_free(p) : __libc_free(p); }

} // namespace

extern "C" {

void *malloc(size_t size) {
    if (should_fail(size)) {
        errno = ENOMEM;
        return nullptr;
    }
    void *block = real_malloc(size);
    if (block != nullptr && counting()) {
        remember(block);
    }
    return block;
}

void *calloc(size_t count, size_t size) {
    if (should_fail(count * size)) {
        errno = ENOMEM;
        return nullptr;
    }
    void *block = real_calloc(count, size);
    if (block != nullptr && counting()) {
        remember(block);
    }
    return block;
}

void *realloc(void *old, size_t size) {
    if (should_fail(size)) {
        errno = ENOMEM;
        return nullptr;
    }
    void *block = real_realloc(old, size);
    if (old != nullptr && (block != nullptr || size == 0)) {
        forget(old);
    }
    if (block != nullptr && counting()) {
        remember(block);
    }
    return block;
}

void free(void *block) {
    if (block != nullptr && live_count > 0) {
        forget(block);
    }
    real_free(block);
}

} // extern "C"

namespace tavtest {

AllocPause::AllocPause() { ++state.paused; }
AllocPause::~AllocPause() { --state.paused; }

AllocRun run_allocations(long fail_at, const std::function<void()> &op) {
    forget_all();
    state.fail_at = fail_at;
    state.calls = 0;
    state.injected = false;
    state.armed = true;
    op();
    state.armed = false;
    AllocRun run;
    run.injected = state.injected;
    run.allocations = state.calls;
    run.live_blocks = live_count;
    run.sizes.assign(state.sizes, state.sizes + (state.calls < 64 ? state.calls : 64));
    forget_all();
    return run;
}

long for_each_allocation_failure(const std::function<void()> &op,
                                 const std::function<void(long, const AllocRun &)> &check) {
    long failed_runs = 0;
    for (long nth = 1;; ++nth) {
        const AllocRun run = run_allocations(nth, op);
        if (!run.injected) {
            return failed_runs;
        }
        ++failed_runs;
        check(nth, run);
    }
}

} // namespace tavtest
