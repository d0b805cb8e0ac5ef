// Every fuzz target, one per build: TAV_FUZZ_TARGET names the function that
// takes the input. Each checks what the operation promises, not survival.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "internal/proc_stat.hpp"
#include "tavutil.h"

#define CHECK(c)                                                                                   \
    ((c) ? (void)0 : (std::fprintf(stderr, "failed: %s (line %d)\n", #c, __LINE__), std::abort()))

// The three entry points land here: a count of lines and trace entries.
static int traces, logs;
static tav_status traced_status;
static bool mixed;
extern "C" void tav_trace_save(const char *, const char *, int32_t, tav_status st) {
    mixed |= traces++ > 0 && st != traced_status;
    traced_status = st;
}
extern "C" void tav_util_log_internal(int32_t, int32_t, const char *, const char *, int32_t,
                                      const char *, ...) {
    ++logs;
}
extern "C" void tav_util_log_internal_perror(int32_t, int32_t, int32_t, const char *, const char *,
                                             int32_t, const char *) {
    ++logs;
}
static void reset() { traces = logs = 0, mixed = false; }
// A failure leaves at least `least` entries, all of its own status; success none.
static void traced(tav_status st, int least) {
    CHECK(st == TAV_OK ? traces == 0 : traces >= least && !mixed && traced_status == st);
}

struct In {
    const uint8_t *p;
    size_t n;
    uint8_t byte() { return n > 0 ? (--n, *p++) : 0; }
    std::string take(size_t k) {
        k = std::min(k, n);
        std::string s(reinterpret_cast<const char *>(p), k);
        p += k, n -= k;
        return s;
    }
    std::string text(size_t k) { // up to the first zero byte
        std::string s = take(k);
        return s.substr(0, s.find('\0'));
    }
};
static const uint8_t *u8(const std::string &s) {
    return reinterpret_cast<const uint8_t *>(s.data());
}
static std::string from(const void *p, size_t n) {
    return std::string(static_cast<const char *>(p), n);
}

namespace fz {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void base64(In in) {
    const std::string data = in.take(in.n);
    std::string usable;
    for (char c : data) {
        usable += kAlphabet.find(c) != kAlphabet.npos ? std::string(1, c) : "";
    }
    uint8_t *bytes = nullptr;
    char *text = nullptr;
    uint64_t size = 0, again = 0;
    reset();
    CHECK(tav_util_base64_decode(data.data(), data.size(), &bytes, &size) == TAV_OK);
    const size_t groups = usable.size() / 4, tail = usable.size() % 4;
    CHECK(size == groups * 3 + "\0\3\1\2"[tail]);
    // Whole groups come back exactly when encoded again.
    CHECK(tav_util_base64_encode(bytes, groups * 3, &text, &again) == TAV_OK);
    CHECK(from(text, again) == usable.substr(0, groups * 4));
    std::free(bytes), std::free(text);
    CHECK(tav_util_base64_encode(u8(data), data.size(), &text, &size) == TAV_OK);
    CHECK(size == tav_util_to_base64_size(data.size()) && size % 4 == 0);
    CHECK(from(text, size).find_first_not_of(kAlphabet) >= size - 2);
    CHECK(tav_util_base64_decode(text, size, &bytes, &again) == TAV_OK);
    CHECK(from(bytes, again) == data);
    std::free(bytes), std::free(text);
    CHECK(traces == 0 && logs == 0);
}

void hex(In in) {
    const std::string data = in.take(in.n);
    char *text = nullptr;
    uint8_t *bytes = nullptr;
    reset();
    CHECK(tav_util_sprintf_bytes(u8(data), data.size(), &text) == TAV_OK);
    CHECK(std::strlen(text) == 2 * data.size());
    CHECK(std::string(text).find_first_not_of("0123456789abcdef") == std::string::npos);
    CHECK(tav_util_sscanf_bytes(text, 2 * data.size(), &bytes) == TAV_OK);
    CHECK(from(bytes, data.size()) == data);
    std::free(bytes), std::free(text);
    // Arbitrary text: pairs of hex digits before the terminator read as themselves.
    CHECK(tav_util_sscanf_bytes(data.c_str(), data.size(), &bytes) == TAV_OK);
    for (size_t i = 0; i + 1 < std::strlen(data.c_str()); i += 2) {
        if (std::isxdigit(uint8_t(data[i])) && std::isxdigit(uint8_t(data[i + 1]))) {
            CHECK(bytes[i / 2] == std::strtoul(data.substr(i, 2).c_str(), nullptr, 16));
        }
    }
    std::free(bytes);
    CHECK(traces == 0 && logs == 0);
}

void bits(In in) {
    const uint64_t wide = in.byte() | in.byte() << 8;
    const int32_t factor = in.byte() % 5;
    const std::string data = in.take(in.n);
    const uint64_t len = data.size(), shift = wide % (8 * len + 24);
    auto bit = [&](uint64_t b) { return b < 8 * len ? (data[b / 8] >> (7 - b % 8)) & 1 : 0; };
    std::vector<uint8_t> work(data.begin(), data.end());
    work.reserve(1); // never a null array
    uint64_t length = len;
    reset();
    CHECK(tav_util_shift_bitstring_left(work.data(), &length, shift) == TAV_OK);
    CHECK(length == len - std::min(shift / 8, len));
    for (uint64_t i = 0; i < len; ++i) {
        uint8_t want = i < length ? 0 : shift % 8 ? 0 : uint8_t(data[i]);
        for (uint64_t b = 0; i < length && b < 8; ++b) {
            want |= bit(8 * i + b + shift) << (7 - b);
        }
        CHECK(work[i] == want);
    }
    uint8_t *out = nullptr;
    uint64_t size = 0;
    CHECK(tav_util_map_bitstring_to_bytes(u8(data), len, &out, &size) == TAV_OK);
    CHECK(size == 8 * len);
    for (uint64_t b = 0; b < size; ++b) {
        CHECK(out[b] == bit(b));
    }
    std::free(out);
    CHECK(tav_util_expand_byte_array(u8(data), len, factor, &out, &size) == TAV_OK);
    CHECK(size == factor * len);
    for (uint64_t b = 0; b < size; ++b) {
        CHECK(out[b] == uint8_t(data[b / factor]));
    }
    std::free(out);
    CHECK(traces == 0 && logs == 0);
}

void split(In in) {
    const std::string delimiter = in.text(in.byte() % 4), text = in.text(in.n);
    char **tokens = nullptr, *joined = nullptr;
    uint64_t count = 0, size = 0;
    reset();
    CHECK(tav_util_split(text.c_str(), delimiter.c_str(), &tokens, &count) == TAV_OK);
    CHECK((count == 0) == (tokens == nullptr));
    std::string rebuilt, expected; // one-byte delimiter: runs count as one, none at the ends
    for (char c : text) {
        expected += c != delimiter[0] || (!expected.empty() && expected.back() != c)
                        ? std::string(1, c)
                        : "";
    }
    expected = expected.substr(0, expected.size() -
                                      (!expected.empty() && expected.back() == delimiter[0]));
    size_t at = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const std::string token = tokens[i];
        CHECK(!token.empty() && (delimiter.empty() || token.find(delimiter) == token.npos));
        CHECK((at = text.find(token, at)) != text.npos);
        at += token.size();
        rebuilt += (i > 0 ? delimiter : "") + token;
    }
    CHECK((delimiter.empty() ? text : delimiter.size() == 1 ? expected : rebuilt) == rebuilt);
    if (count > 0) {
        CHECK(tav_util_join(tokens, count, delimiter.c_str(), &joined, &size) == TAV_OK);
        CHECK(from(joined, size) == rebuilt + '\0');
        std::free(joined);
    }
    for (uint64_t i = 0; i < count; ++i) {
        std::free(tokens[i]);
    }
    std::free(tokens);
    CHECK(traces == 0 && logs == 0);
    // Join of texts that may be empty, the input's stretches between zero bytes.
    std::vector<std::string> parts{""};
    for (char c : text + in.take(in.n)) {
        c != '\0' ? parts.back() += c : parts.emplace_back();
    }
    std::vector<const char *> texts;
    std::string whole;
    for (const std::string &part : parts) {
        texts.push_back(part.c_str());
        whole += (texts.size() == 1 ? "" : delimiter) + part;
    }
    CHECK(tav_util_join(texts.data(), texts.size(), delimiter.c_str(), &joined, &size) == TAV_OK);
    CHECK(size == whole.size() + 1 && from(joined, size) == whole + '\0');
    std::free(joined);
}

// The hex dump as its layout says, built independently.
static std::string dump(const char *prefix, const std::string &bytes, int32_t limit) {
    const std::string indent = prefix != nullptr ? prefix : "    ";
    const size_t k = limit == 0 ? bytes.size() : std::min<size_t>(bytes.size(), std::max(limit, 0));
    std::string out, row;
    char pair[3];
    for (size_t i = 0; i < k; ++i) {
        out += i == 0 ? indent : i % 16 == 0 ? " : " + row + "\n" + indent : i % 8 ? " " : " - ";
        row = i % 16 == 0 ? "" : row;
        std::snprintf(pair, sizeof pair, "%02X", uint8_t(bytes[i]));
        out += pair;
        row += std::isprint(uint8_t(bytes[i])) ? bytes[i] : '.';
    }
    return bytes.empty() ? "" : out + (k > 0 ? " : " + row : "") + "\n";
}

void strbuf(In in) {
    const uint8_t start = in.byte();
    tav_util_strbuf *record =
        start & 1 ? tav_util_strbuf_new(start >> 1)
                  : static_cast<tav_util_strbuf *>(calloc(1, sizeof(tav_util_strbuf)));
    CHECK(record != nullptr);
    std::string model;
    reset();
    while (in.n > 0) {
        const uint8_t op = in.byte();
        const std::string a = in.text(in.byte() % 32), b = in.text(in.byte() % 32);
        const bool had_text = record->text != nullptr;
        if (op % 4 == 0) {
            CHECK(tav_util_strbuf_append_f(record, "%s", a.c_str()) == int32_t(a.size()));
            model += a;
        } else if (op % 4 == 1) {
            const char *prefix = op & 4 ? nullptr : b.c_str();
            tav_util_strbuf_hexdump(record, prefix, a.data(), a.size());
            model += dump(prefix, a, record->hex_limit);
        } else if (op % 4 == 2) {
            const int32_t limit = int8_t(op) >> 3;
            std::string next;
            size_t pos = 0, match = 0;
            for (int32_t count = 0; (a.size() > 0 || limit != 0) && had_text;
                 pos = match + a.size()) {
                if (limit != 0 && count++ >= limit) {
                    break;
                }
                if ((match = model.find(a, pos)) == model.npos) {
                    break;
                }
                next += model.substr(pos, match - pos) + b;
            }
            next += model.substr(std::min(pos, model.size()));
            // A replacement with no conversion may be its own format.
            const char *format = b.find('%') == b.npos && op & 4 ? b.c_str() : "%s";
            const int32_t delta =
                tav_util_strbuf_substitute(record, a.c_str(), limit, format, b.c_str());
            CHECK(delta == int32_t(next.size() - model.size()));
            model = had_text ? next : model;
        } else if (had_text && op & 4) {
            tav_util_strbuf_clear(record);
            model.clear();
        } else {
            tav_util_strbuf_set_hex_limit(record, int8_t(op) >> 3);
        }
        const char *text = tav_util_strbuf_getstr(record);
        CHECK(text != nullptr ? model == text && record->capacity > int32_t(model.size())
                              : model.empty());
    }
    tav_util_strbuf_free(record);
    CHECK(traces == 0 && logs == 0);
}

void append(In in) {
    char *text = nullptr;
    uint64_t length = in.byte(); // any value before the first append
    std::string model;
    while (in.n > 0) {
        const std::string addition = in.take(in.byte() % 64);
        reset();
        const tav_status st =
            tav_util_append_string(&text, &length, addition.data(), addition.size());
        CHECK(st == (addition.empty() ? TAV_ERR_BAD_ARG : TAV_OK));
        traced(st, 1);
        model += addition;
        CHECK(text == nullptr ? model.empty()
                              : length == model.size() && from(text, length + 1) == model + '\0');
    }
    std::free(text);
}

// The option walk: rows and an argument vector both come from the input.
static std::vector<tav_util_option> rows;
static std::vector<char *> argv;
static tav_status own(const tav_util_option *row, const char *argument, int32_t *consumed) {
    CHECK(row >= rows.data() && row < rows.data() + rows.size() && consumed != nullptr);
    CHECK((argument == nullptr) == (row->takes_argument == 0));
    CHECK(argument == nullptr || std::find(argv.begin(), argv.end(), argument) != argv.end());
    *consumed = 7; // the walk must not heed it
    return argument != nullptr && argument[0] == '!' ? TAV_ERR_READ : TAV_OK;
}

void getopt(In in) {
    tav_util_option_handler *const handlers[] = {tav_util_getopt_string, tav_util_getopt_int,
                                                 tav_util_getopt_flag, own};
    rows.assign(1 + in.byte() % 4, tav_util_option{});
    char *strings[4] = {};
    int32_t ints[4] = {};
    for (size_t i = 0; i < rows.size(); ++i) {
        rows[i].short_option = char(in.byte());
        in.text(3).copy(rows[i].long_option, 3);
        const uint8_t how = in.byte();
        rows[i].takes_argument = how & 1;
        rows[i].handler = handlers[how / 2 % 4];
        rows[i].target = how & 16      ? nullptr
                         : how / 2 % 4 ? static_cast<void *>(&ints[i])
                                       : &strings[i];
    }
    std::vector<std::string> tokens{"prog", ""};
    for (char c : in.take(in.n)) {
        c != '\0' ? tokens.back() += c : tokens.emplace_back();
    }
    argv.clear();
    for (std::string &token : tokens) {
        argv.push_back(token.data());
    }
    reset();
    const tav_status st =
        tav_util_getopt(int32_t(argv.size()), argv.data(), rows.data(), rows.size());
    CHECK(st == TAV_OK || st == TAV_ERR_SYSTEM || st == TAV_ERR_BAD_ARG || st == TAV_ERR_NULL_ARG ||
          st == TAV_ERR_READ);
    traced(st, 3);
    CHECK(logs == (st == TAV_ERR_SYSTEM));
    for (char *s : strings) {
        CHECK(s == nullptr ||
              (std::strlen(s) <= 300 && std::find_if(tokens.begin(), tokens.end(), [&](auto &t) {
                                            return t == s;
                                        }) != tokens.end()));
        std::free(s);
    }
}

void human_time(In in) {
    double seconds = 0;
    const std::string raw = in.take(sizeof seconds);
    std::memcpy(&seconds, raw.data(), raw.size());
    const size_t size = in.byte() % 40;
    char full[400], cut[48];
    std::memset(cut, 0x55, sizeof cut);
    reset();
    CHECK(tav_util_snprintf_human_time(full, sizeof full, seconds) == TAV_OK);
    CHECK(tav_util_snprintf_human_time(cut, size, seconds) == TAV_OK);
    CHECK(std::count(cut + size, cut + sizeof cut, 0x55) == long(sizeof cut - size));
    CHECK(size == 0 || (std::strlen(cut) < size && std::strncmp(cut, full, size - 1) == 0));
    double v = seconds;
    const char *unit = v < 60           ? "second"
                       : (v /= 60) < 60 ? "minute"
                       : (v /= 60) < 24 ? "hour"
                                        : (v /= 24, "day");
    char want[400];
    std::snprintf(want, sizeof want, "%.0f %s%s", v, unit, v == 1.0 ? "" : "s");
    CHECK(std::strcmp(full, want) == 0 && traces == 0 && logs == 0);
}

} // namespace fz

// The status record reads /proc/self/stat; this build's link sends that name
// to a scratch file that holds the input.
static char stat_copy[] = "/tmp/tavutil_fuzz_stat_XXXXXX";
extern "C" __attribute__((weak)) FILE *__real_fopen(const char *path, const char *mode);
extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    return __real_fopen(std::strcmp(path, "/proc/self/stat") == 0 ? stat_copy : path, mode);
}

namespace fz {

void proc_stat(In in) {
    static const int fd = [] {
        return std::atexit([] { unlink(stat_copy); }), mkstemp(stat_copy);
    }();
    const std::string line = in.take(in.n);
    CHECK(fd >= 0 && ftruncate(fd, 0) == 0 &&
          pwrite(fd, line.data(), line.size(), 0) == ssize_t(line.size()));
    tav_proc_stat record;
    reset();
    const tav_status st = tav_util_proc_stat(&record, 0);
    CHECK(line.empty() ? st == TAV_ERR_READ : st == TAV_OK || st == TAV_ERR_SYSTEM);
    traced(st, 1);
    CHECK(traces <= 1 && std::memchr(record.comm, '\0', sizeof record.comm) != nullptr);
    // Without a parenthesis 42 tokens need 41 separators before the line end.
    const size_t end = line.find('\n');
    const std::string first = line.substr(0, end == line.npos ? end : end + 1);
    if (first.find('(') == first.npos) {
        CHECK((st == TAV_OK) == (std::count(first.begin(), first.end(), ' ') +
                                     std::count(first.begin(), first.end(), '\0') >=
                                 41));
    }
}

void files(In in) {
    static char dir[] = "/tmp/tavutil_fuzz_files_XXXXXX";
    static const std::string path = std::string(mkdtemp(dir)) + "/f";
    static const int gone = std::atexit([] { rmdir(dir); });
    const std::string first = in.take(in.byte() * 16), second = in.take(in.n);
    uint8_t *data = nullptr;
    uint64_t size = 0;
    reset();
    CHECK(tav_util_write_named_file(path.c_str(), 1, first.data(), first.size(), nullptr) ==
          TAV_OK);
    CHECK(tav_util_read_named_file(path.c_str(), &data, &size, nullptr) == TAV_OK);
    CHECK(from(data, size + 1) == first + '\0');
    std::free(data);
    CHECK(tav_util_write_named_file(path.c_str(), 0, second.data(), second.size(), nullptr) ==
          TAV_OK);
    CHECK(tav_util_read_named_file(path.c_str(), &data, &size, nullptr) == TAV_OK);
    CHECK(from(data, size + 1) == first + second + '\0');
    std::free(data);
    CHECK(traces == 0 && logs == 0);
    // The directory itself is no file to write.
    CHECK(tav_util_write_named_file(dir, 1, first.data(), first.size(), nullptr) == TAV_ERR_SYSTEM);
    traced(TAV_ERR_SYSTEM, 1);
    CHECK(gone == 0 && std::remove(path.c_str()) == 0);
}

} // namespace fz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fz::TAV_FUZZ_TARGET(In{data, size});
    return 0;
}
