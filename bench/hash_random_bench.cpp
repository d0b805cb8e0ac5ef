// Hash and generator throughput, side by side with what a user would
// otherwise pick: XXH64 for hashing, std::mt19937_64 and xoshiro256** for
// random words. Every case reports bytes per second. Two pairs make rows of
// bench/compare.py: the hash beside the same serial chain written plainly,
// and the byte fill beside a xoshiro256** fill.
#include <xxhash.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "pairs.hpp"
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

// The hash's own chain written as plainly as C allows: a word at a time,
// the tail packed byte by byte, sixteen bare passes. What the library has to
// match, not beat by much: the chain is serial.
uint64_t plain_chain_hash(const unsigned char *data, size_t length) {
    uint64_t h = 1;
    size_t i = 0;
    for (; i + 8 <= length; i += 8) {
        uint64_t word;
        std::memcpy(&word, data + i, 8);
        h += word;
        h ^= h << 10;
        h ^= h >> 15;
        h ^= h << 4;
        h ^= h >> 13;
    }
    if (i < length) {
        uint64_t word = 0;
        for (; i < length; ++i) {
            word = word << 8 | data[i];
        }
        h += word;
        h ^= h << 10;
        h ^= h >> 15;
        h ^= h << 4;
        h ^= h >> 13;
    }
    for (int pass = 0; pass < 16; ++pass) {
        h ^= h << 10;
        h ^= h >> 15;
        h ^= h << 4;
        h ^= h >> 13;
    }
    return h;
}

TAV_BENCH_CHECK(Hash) {
    const auto data = sample_bytes(kLarge);
    for (size_t length = 1; length <= 64; ++length) {
        uint64_t ours = 0;
        tav_util_hash64(data.data(), length, &ours);
        if (ours != plain_chain_hash(data.data(), length)) {
            return false;
        }
    }
    uint64_t ours = 0;
    tav_util_hash64(data.data(), data.size(), &ours);
    return ours == plain_chain_hash(data.data(), data.size());
}

void BM_Hash_tav(benchmark::State &state) {
    const auto data = sample_bytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        uint64_t result = 0;
        tav_util_hash64(data.data(), data.size(), &result);
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Hash_tav)->Arg(kSmall)->Arg(kLarge);

void BM_Hash_peer(benchmark::State &state) {
    const auto data = sample_bytes(static_cast<size_t>(state.range(0)));
    state.SetLabel("the same chain, plain C");
    for (auto _ : state) {
        benchmark::DoNotOptimize(plain_chain_hash(data.data(), data.size()));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Hash_peer)->Arg(kSmall)->Arg(kLarge);

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
void BM_PrngFill_tav(benchmark::State &state) {
    tav_util_prng_state prng;
    tav_util_seed_prng(&prng, 1, 0);
    std::vector<unsigned char> out(static_cast<size_t>(state.range(0)) + 1);
    for (auto _ : state) {
        tav_util_prng_fill(&prng, out.data() + 1, out.size() - 6);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * (state.range(0) - 5));
}
BENCHMARK(BM_PrngFill_tav)->Arg(kSmall)->Arg(kLarge);

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

// No output check: the two generators make different streams.
void BM_PrngFill_peer(benchmark::State &state) {
    state.SetLabel("xoshiro256** fill");
    fill_from(state, Xoshiro256StarStar(1));
}
BENCHMARK(BM_PrngFill_peer)->Arg(kSmall)->Arg(kLarge);

} // namespace
