// Base64 throughput, side by side with OpenSSL's block coders, on 64 KiB and
// 1 MiB inputs. Bytes per second count the input of each call. The library's
// calls allocate their output block each time (that is their interface); the
// OpenSSL calls write into a buffer prepared once.
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "pairs.hpp"
#include "tavutil.h"

namespace {

std::vector<uint8_t> random_input(size_t length) {
    std::mt19937_64 engine(42);
    std::vector<uint8_t> bytes(length);
    for (auto &byte : bytes) {
        byte = static_cast<uint8_t>(engine());
    }
    return bytes;
}

// A Base64 text of exactly `length` characters (a multiple of 4).
std::vector<char> encoded_input(size_t length) {
    const std::vector<uint8_t> bytes = random_input(length / 4 * 3);
    std::vector<char> text(length + 1);
    EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text.data()), bytes.data(),
                    static_cast<int>(bytes.size()));
    text.pop_back();
    return text;
}

void BM_Base64Encode_tav(benchmark::State &state) {
    const auto input = random_input(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        char *out = nullptr;
        uint64_t size = 0;
        tav_util_base64_encode(input.data(), input.size(), &out, &size);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Base64Encode_peer(benchmark::State &state) {
    const auto input = random_input(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> out(tav_util_to_base64_size(input.size()) + 1);
    state.SetLabel("OpenSSL EVP_EncodeBlock");
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            EVP_EncodeBlock(out.data(), input.data(), static_cast<int>(input.size())));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Base64Decode_tav(benchmark::State &state) {
    const auto text = encoded_input(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        uint8_t *out = nullptr;
        uint64_t size = 0;
        tav_util_base64_decode(text.data(), text.size(), &out, &size);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Base64Decode_peer(benchmark::State &state) {
    const auto text = encoded_input(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> out(text.size() / 4 * 3);
    state.SetLabel("OpenSSL EVP_DecodeBlock");
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char *>(text.data()),
                            static_cast<int>(text.size())));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// Both sides on 1 MiB and on every length from 0 to 64 (all tails).
TAV_BENCH_CHECK(Base64Encode) {
    for (const size_t length : {size_t{1} << 20, size_t{64} << 10, size_t{0}}) {
        for (size_t cut = 0; cut <= (length == 0 ? 64 : 0); ++cut) {
            const auto input = random_input(length + cut);
            std::vector<unsigned char> theirs(tav_util_to_base64_size(input.size()) + 1);
            const int made =
                EVP_EncodeBlock(theirs.data(), input.data(), static_cast<int>(input.size()));
            char *ours = nullptr;
            uint64_t size = 0;
            tav_util_base64_encode(input.data(), input.size(), &ours, &size);
            const bool same =
                size == static_cast<uint64_t>(made) && std::memcmp(ours, theirs.data(), size) == 0;
            std::free(ours);
            if (!same) {
                return false;
            }
        }
    }
    return true;
}

TAV_BENCH_CHECK(Base64Decode) {
    for (const size_t length : {size_t{1} << 20, size_t{64} << 10}) {
        const auto text = encoded_input(length);
        std::vector<unsigned char> theirs(text.size() / 4 * 3);
        const int made =
            EVP_DecodeBlock(theirs.data(), reinterpret_cast<const unsigned char *>(text.data()),
                            static_cast<int>(text.size()));
        uint8_t *ours = nullptr;
        uint64_t size = 0;
        tav_util_base64_decode(text.data(), text.size(), &ours, &size);
        const bool same =
            size == static_cast<uint64_t>(made) && std::memcmp(ours, theirs.data(), size) == 0;
        std::free(ours);
        if (!same) {
            return false;
        }
    }
    return true;
}

} // namespace

BENCHMARK(BM_Base64Encode_tav)->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK(BM_Base64Encode_peer)->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK(BM_Base64Decode_tav)->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK(BM_Base64Decode_peer)->Arg(64 << 10)->Arg(1 << 20);
