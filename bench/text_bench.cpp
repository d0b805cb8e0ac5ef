// Text operations beside their usual peers: hex text both ways beside
// libsodium, split and join of 80-byte tokens beside GLib, and
// search-and-replace in a 1 MiB text beside a plain strstr and memcpy loop,
// at 10 000 and 100 000 matches (it takes time in proportion to the text, so
// the two throughputs are alike). Every library call allocates its output
// (that is its interface), and so does each peer here but libsodium's, which
// writes into a buffer prepared once.
#include <glib.h>
#include <sodium.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "pairs.hpp"
#include "tavutil.h"

namespace {

constexpr size_t kTextSize = 1 << 20;
constexpr size_t kTokenLength = 80;

std::vector<uint8_t> random_bytes(size_t length) {
    std::mt19937_64 engine(7);
    std::vector<uint8_t> bytes(length);
    for (auto &byte : bytes) {
        byte = static_cast<uint8_t>(engine());
    }
    return bytes;
}

// ---- hex text -------------------------------------------------------------

// Lower-case hex text of `length` characters, as both sides write it.
std::string hex_text(size_t length) {
    const auto bytes = random_bytes(length / 2);
    std::string text(length, '\0');
    sodium_bin2hex(text.data(), length + 1, bytes.data(), bytes.size());
    return text;
}

TAV_BENCH_CHECK(HexEncode) {
    for (const size_t length : {kTextSize, size_t{0}, size_t{1}, size_t{17}, size_t{33}}) {
        const auto bytes = random_bytes(length);
        std::vector<char> theirs(2 * length + 1);
        sodium_bin2hex(theirs.data(), theirs.size(), bytes.data(), bytes.size());
        char *ours = nullptr;
        tav_util_sprintf_bytes(bytes.data(), bytes.size(), &ours);
        const bool same = std::strcmp(ours, theirs.data()) == 0;
        std::free(ours);
        if (!same) {
            return false;
        }
    }
    return true;
}

void BM_HexEncode_tav(benchmark::State &state) {
    const auto bytes = random_bytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        char *out = nullptr;
        tav_util_sprintf_bytes(bytes.data(), bytes.size(), &out);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_HexEncode_tav)->Arg(kTextSize);

void BM_HexEncode_peer(benchmark::State &state) {
    const auto bytes = random_bytes(static_cast<size_t>(state.range(0)));
    std::vector<char> out(2 * bytes.size() + 1);
    state.SetLabel("libsodium sodium_bin2hex");
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            sodium_bin2hex(out.data(), out.size(), bytes.data(), bytes.size()));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_HexEncode_peer)->Arg(kTextSize);

// Upper and lower case alike; the text holds only digit pairs, the one form
// both sides define the same way.
TAV_BENCH_CHECK(HexDecode) {
    for (const size_t length : {kTextSize, size_t{0}, size_t{2}, size_t{34}, size_t{66}}) {
        for (const bool upper : {false, true}) {
            std::string text = hex_text(length);
            for (size_t i = 0; upper && i < text.size(); i += 3) {
                text[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[i])));
            }
            std::vector<uint8_t> theirs(length / 2);
            size_t made = 0;
            sodium_hex2bin(theirs.data(), theirs.size(), text.data(), text.size(), nullptr, &made,
                           nullptr);
            uint8_t *ours = nullptr;
            tav_util_sscanf_bytes(text.data(), text.size(), &ours);
            const bool same = made == theirs.size() && std::memcmp(ours, theirs.data(), made) == 0;
            std::free(ours);
            if (!same) {
                return false;
            }
        }
    }
    return true;
}

void BM_HexDecode_tav(benchmark::State &state) {
    const std::string text = hex_text(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        uint8_t *out = nullptr;
        tav_util_sscanf_bytes(text.data(), text.size(), &out);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_HexDecode_tav)->Arg(kTextSize);

void BM_HexDecode_peer(benchmark::State &state) {
    const std::string text = hex_text(static_cast<size_t>(state.range(0)));
    std::vector<uint8_t> out(text.size() / 2);
    state.SetLabel("libsodium sodium_hex2bin");
    for (auto _ : state) {
        size_t made = 0;
        benchmark::DoNotOptimize(sodium_hex2bin(out.data(), out.size(), text.data(), text.size(),
                                                nullptr, &made, nullptr));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_HexDecode_peer)->Arg(kTextSize);

// ---- split and join -------------------------------------------------------

// About 1 MiB of 80-character tokens (letters and digits), one comma apart.
std::vector<std::string> tokens() {
    std::mt19937_64 engine(11);
    static const char kCharacters[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::vector<std::string> all(kTextSize / (kTokenLength + 1));
    for (auto &token : all) {
        token.resize(kTokenLength);
        for (auto &character : token) {
            character = kCharacters[engine() % (sizeof kCharacters - 1)];
        }
    }
    return all;
}

std::string joined_tokens() {
    std::string text;
    for (const auto &token : tokens()) {
        text += text.empty() ? "" : ",";
        text += token;
    }
    return text;
}

std::vector<const char *> token_pointers(const std::vector<std::string> &all) {
    std::vector<const char *> pointers;
    for (const auto &token : all) {
        pointers.push_back(token.c_str());
    }
    pointers.push_back(nullptr); // GLib's arrays end in null
    return pointers;
}

TAV_BENCH_CHECK(Split) {
    const std::string text = joined_tokens();
    char **ours = nullptr;
    uint64_t count = 0;
    tav_util_split(text.c_str(), ",", &ours, &count);
    gchar **theirs = g_strsplit(text.c_str(), ",", 0);
    bool same = count == g_strv_length(theirs);
    for (uint64_t i = 0; i < count; ++i) {
        same = same && std::strcmp(ours[i], theirs[i]) == 0;
        std::free(ours[i]);
    }
    std::free(ours);
    g_strfreev(theirs);
    return same;
}

void BM_Split_tav(benchmark::State &state) {
    const std::string text = joined_tokens();
    for (auto _ : state) {
        char **parts = nullptr;
        uint64_t count = 0;
        tav_util_split(text.c_str(), ",", &parts, &count);
        for (uint64_t i = 0; i < count; ++i) {
            std::free(parts[i]);
        }
        std::free(parts);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Split_tav);

void BM_Split_peer(benchmark::State &state) {
    const std::string text = joined_tokens();
    state.SetLabel("GLib g_strsplit + g_strfreev");
    for (auto _ : state) {
        gchar **parts = g_strsplit(text.c_str(), ",", 0);
        benchmark::DoNotOptimize(parts);
        g_strfreev(parts);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Split_peer);

TAV_BENCH_CHECK(Join) {
    const auto all = tokens();
    const auto pointers = token_pointers(all);
    char *ours = nullptr;
    uint64_t size = 0;
    tav_util_join(pointers.data(), all.size(), ",", &ours, &size);
    gchar *theirs = g_strjoinv(",", const_cast<gchar **>(pointers.data()));
    const bool same = size == std::strlen(theirs) + 1 && std::strcmp(ours, theirs) == 0;
    std::free(ours);
    g_free(theirs);
    return same;
}

void BM_Join_tav(benchmark::State &state) {
    const auto all = tokens();
    const auto pointers = token_pointers(all);
    uint64_t size = 0;
    for (auto _ : state) {
        char *text = nullptr;
        tav_util_join(pointers.data(), all.size(), ",", &text, &size);
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size - 1));
}
BENCHMARK(BM_Join_tav);

void BM_Join_peer(benchmark::State &state) {
    const auto all = tokens();
    const auto pointers = token_pointers(all);
    state.SetLabel("GLib g_strjoinv");
    size_t size = 0;
    for (auto _ : state) {
        gchar *text = g_strjoinv(",", const_cast<gchar **>(pointers.data()));
        size = std::strlen(text);
        g_free(text);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}
BENCHMARK(BM_Join_peer);

// ---- search and replace ---------------------------------------------------

// A 1 MiB text with `matches` places of "{{name}}", evenly spread.
std::string text_with_matches(size_t matches) {
    const std::string needle = "{{name}}";
    const size_t gap = kTextSize / matches - needle.size();
    std::string text;
    for (size_t i = 0; i < matches; ++i) {
        text.append(gap, static_cast<char>('a' + i % 26));
        text += needle;
    }
    return text;
}

constexpr const char *kNeedle = "{{name}}";
constexpr const char *kReplacement = "Ada Lovelace";

// The plain way: find, copy the text before, copy the replacement, into a
// block grown by doubling. The caller frees the text.
char *plain_substitute(const std::string &text, const char *needle, const char *with) {
    const size_t needle_length = std::strlen(needle);
    const size_t with_length = std::strlen(with);
    size_t capacity = text.size() + 1;
    size_t length = 0;
    auto *out = static_cast<char *>(std::malloc(capacity));
    const char *pos = text.c_str();
    auto put = [&](const char *bytes, size_t n) {
        if (length + n + 1 > capacity) {
            capacity = 2 * (length + n + 1);
            out = static_cast<char *>(std::realloc(out, capacity));
        }
        std::memcpy(out + length, bytes, n);
        length += n;
    };
    for (const char *match; (match = std::strstr(pos, needle)) != nullptr;
         pos = match + needle_length) {
        put(pos, static_cast<size_t>(match - pos));
        put(with, with_length);
    }
    put(pos, std::strlen(pos));
    out[length] = '\0';
    return out;
}

TAV_BENCH_CHECK(Substitute) {
    for (const size_t matches : {10000, 100000}) {
        const std::string text = text_with_matches(matches);
        tav_util_strbuf *record = tav_util_strbuf_new(static_cast<int32_t>(text.size() + 1));
        tav_util_strbuf_append_f(record, "%s", text.c_str());
        const int32_t delta = tav_util_strbuf_substitute(record, kNeedle, 0, "%s", kReplacement);
        char *plain = plain_substitute(text, kNeedle, kReplacement);
        const std::string expected = plain;
        std::free(plain);
        const bool same =
            expected == tav_util_strbuf_getstr(record) &&
            delta == static_cast<int32_t>(expected.size()) - static_cast<int32_t>(text.size());
        tav_util_strbuf_free(record);
        if (!same) {
            return false;
        }
    }
    return true;
}

void BM_Substitute_tav(benchmark::State &state) {
    const std::string text = text_with_matches(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        tav_util_strbuf *record = tav_util_strbuf_new(static_cast<int32_t>(text.size() + 1));
        tav_util_strbuf_append_f(record, "%s", text.c_str());
        state.ResumeTiming();
        benchmark::DoNotOptimize(
            tav_util_strbuf_substitute(record, kNeedle, 0, "%s", kReplacement));
        state.PauseTiming();
        tav_util_strbuf_free(record);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Substitute_tav)->Arg(10000)->Arg(100000);

void BM_Substitute_peer(benchmark::State &state) {
    const std::string text = text_with_matches(static_cast<size_t>(state.range(0)));
    state.SetLabel("strstr and memcpy loop");
    for (auto _ : state) {
        char *out = plain_substitute(text, kNeedle, kReplacement);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Substitute_peer)->Arg(10000)->Arg(100000);

} // namespace
