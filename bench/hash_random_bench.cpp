// Hash and generator throughput, side by side with what a user would
// otherwise pick: XXH64 for hashing, std::mt19937_64 and xoshiro256** for
// random words. Every case reports bytes per second.
#include <benchmark/benchmark.h>
#include <xxhash.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "tavutil.h"

namespace {

constexpr int64_t kSmall = 64 << 10;
constexpr int64_t kLarge = 1 << 20;

std::vector<unsigned char> sample_bytes(size_t size) {
    std::vector<unsigned char> bytes(size);
    std::mt19937_64 source(12345);
    for (auto &byte : bytes) {
        byte = static_cast<unsigned char>(source());
    }
    return bytes;
}

// xoshiro256**: the usual small, fast generator, written out for comparison.
class Xoshiro256StarStar {
  public:
    explicit Xoshiro256StarStar(uint64_t seed) {
        for (auto &word : s_) { // splitmix64 to spread the seed
            seed += 0x9E3779B97F4A7C15;
            uint64_t z = seed;
            z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
            z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
            word = z ^ (z >> 31);
        }
    }
    uint64_t operator()() {
        const uint64_t result = rotl(s_[1] * 5, 7) * 9;
        const uint64_t t = s_[1] << 17;
        s_[2] ^= s_[0];
        s_[3] ^= s_[1];
        s_[1] ^= s_[2];
        s_[0] ^= s_[3];
        s_[2] ^= t;
        s_[3] = rotl(s_[3], 45);
        return result;
    }

  private:
    static uint64_t rotl(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }
    uint64_t s_[4];
};

// ---- hashing ---------------------------------------------------------------

void BM_Hash_Tav(benchmark::State &state) {
    const auto data = sample_bytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        uint64_t result = 0;
        tav_util_hash64(data.data(), data.size(), &result);
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Hash_Tav)->Arg(kSmall)->Arg(kLarge);

void BM_Hash_XXH64(benchmark::State &state) {
    const auto data = sample_bytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(XXH64(data.data(), data.size(), 0));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Hash_XXH64)->Arg(kSmall)->Arg(kLarge);

// ---- single words ----------------------------------------------------------

// Words one call at a time, as many as fill the size given.
void BM_Prng_Word_Tav(benchmark::State &state) {
    tav_util_prng_state prng;
    tav_util_seed_prng(&prng, 1, 0);
    std::vector<uint64_t> out(static_cast<size_t>(state.range(0)) / 8);
    for (auto _ : state) {
        for (auto &word : out) {
            tav_util_prng(&prng, &word);
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Prng_Word_Tav)->Arg(kSmall)->Arg(kLarge);

template <typename Engine> void words_from(benchmark::State &state, Engine engine) {
    std::vector<uint64_t> out(static_cast<size_t>(state.range(0)) / 8);
    for (auto _ : state) {
        for (auto &word : out) {
            word = engine();
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Prng_Word_Mt19937_64(benchmark::State &state) { words_from(state, std::mt19937_64(1)); }
BENCHMARK(BM_Prng_Word_Mt19937_64)->Arg(kSmall)->Arg(kLarge);

void BM_Prng_Word_Xoshiro256ss(benchmark::State &state) {
    words_from(state, Xoshiro256StarStar(1));
}
BENCHMARK(BM_Prng_Word_Xoshiro256ss)->Arg(kSmall)->Arg(kLarge);

// ---- batches and fills -------------------------------------------------------

void BM_Prng_Batch_Tav(benchmark::State &state) {
    tav_util_prng_state prng;
    tav_util_seed_prng(&prng, 1, 0);
    std::vector<uint64_t> out(static_cast<size_t>(state.range(0)) / 8);
    for (auto _ : state) {
        tav_util_prng_batch(&prng, out.data(), out.size());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Prng_Batch_Tav)->Arg(kSmall)->Arg(kLarge);

// A fill into a buffer one byte off alignment, 5 bytes short of whole words.
void BM_Prng_Fill_Tav(benchmark::State &state) {
    tav_util_prng_state prng;
    tav_util_seed_prng(&prng, 1, 0);
    std::vector<unsigned char> out(static_cast<size_t>(state.range(0)) + 1);
    for (auto _ : state) {
        tav_util_prng_fill(&prng, out.data() + 1, out.size() - 6);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * (state.range(0) - 5));
}
BENCHMARK(BM_Prng_Fill_Tav)->Arg(kSmall)->Arg(kLarge);

template <typename Engine> void fill_from(benchmark::State &state, Engine engine) {
    std::vector<unsigned char> out(static_cast<size_t>(state.range(0)) + 1);
    for (auto _ : state) {
        const size_t length = out.size() - 6;
        unsigned char *bytes = out.data() + 1;
        size_t done = 0;
        for (; done + 8 <= length; done += 8) {
            const uint64_t word = engine();
            std::memcpy(bytes + done, &word, 8);
        }
        const uint64_t word = engine();
        std::memcpy(bytes + done, &word, length - done);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * (state.range(0) - 5));
}

void BM_Prng_Fill_Mt19937_64(benchmark::State &state) { fill_from(state, std::mt19937_64(1)); }
BENCHMARK(BM_Prng_Fill_Mt19937_64)->Arg(kSmall)->Arg(kLarge);

void BM_Prng_Fill_Xoshiro256ss(benchmark::State &state) { fill_from(state, Xoshiro256StarStar(1)); }
BENCHMARK(BM_Prng_Fill_Xoshiro256ss)->Arg(kSmall)->Arg(kLarge);

} // namespace
