// One fuzz target per build, named by TAV_FUZZ_TARGET; each checks what its operation promises.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "internal/proc_stat.hpp"
#include "tavutil.h"

#define CHECK(c) ((c) ? (void)0 : (fprintf(stderr, "failed: %s (%d)\n", #c, __LINE__), abort()))
#define OK(call) CHECK((call) == TAV_OK)
using std::string;

static int traces, logs, last, mixed;
extern "C" void tav_trace_save(const char *, const char *, int32_t, tav_status st) {
    mixed |= traces++ > 0 && st != last, last = st;
}
#define SINK(name, ...)                                                                            \
    extern "C" void name(__VA_ARGS__) { ++logs; }
SINK(tav_util_log_internal, int, int, const char *, const char *, int, const char *, ...)
SINK(tav_util_log_internal_perror, int, int, int, const char *, const char *, int, const char *)
static uint8_t *bytes;
static char *chars;
static uint64_t size, again;
static string S(const void *p, size_t n) { return string(static_cast<const char *>(p), n); }
static const uint8_t *U(const string &s) { return reinterpret_cast<const uint8_t *>(s.data()); }

struct In {
    const uint8_t *p;
    size_t n;
    uint8_t byte() { return n > 0 ? (--n, *p++) : 0; }
    string take(size_t k) { return k = std::min(k, n), p += k, n -= k, S(p - k, k); }
    string text(size_t k) { return take(k).c_str(); } // up to a zero byte
};

namespace fz {

tav_status base64(In in) {
    const string data = in.take(in.n),
                 abc = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    string usable;
    for (char c : data)
        usable += abc.find(c) != string::npos ? S(&c, 1) : "";
    OK(tav_util_base64_decode(data.data(), data.size(), &bytes, &size));
    const size_t groups = usable.size() / 4;
    CHECK(size == groups * 3 + "\0\3\1\2"[usable.size() % 4]);
    OK(tav_util_base64_encode(bytes, groups * 3, &chars, &again));
    CHECK(S(chars, again) == usable.substr(0, groups * 4));
    free(bytes), free(chars);
    OK(tav_util_base64_encode(U(data), data.size(), &chars, &size));
    CHECK(size == tav_util_to_base64_size(data.size()));
    OK(tav_util_base64_decode(chars, size, &bytes, &again));
    CHECK(S(bytes, again) == data);
    free(bytes), free(chars);
    return TAV_OK;
}

tav_status hex(In in) {
    const string data = in.take(in.n);
    OK(tav_util_sprintf_bytes(U(data), data.size(), &chars));
    CHECK(string(chars).find_first_not_of("0123456789abcdef") == string::npos);
    OK(tav_util_sscanf_bytes(chars, 2 * data.size(), &bytes));
    CHECK(strlen(chars) == 2 * data.size() && S(bytes, data.size()) == data);
    free(bytes), free(chars);
    // Arbitrary text: pairs of hex digits before the terminator read as themselves.
    OK(tav_util_sscanf_bytes(data.c_str(), data.size(), &bytes));
    for (size_t i = 0; i + 1 < strlen(data.c_str()); i += 2)
        CHECK(!isxdigit(uint8_t(data[i])) || !isxdigit(uint8_t(data[i + 1])) ||
              bytes[i / 2] == strtoul(data.substr(i, 2).c_str(), nullptr, 16));
    free(bytes);
    return TAV_OK;
}

tav_status bits(In in) {
    const uint64_t wide = in.byte() | in.byte() << 8, factor = in.byte() % 5;
    const string data = in.take(in.n);
    const uint64_t len = data.size(), shift = wide % (8 * len + 24);
    auto bit = [&](uint64_t b) { return b < 8 * len ? data[b / 8] >> (7 - b % 8) & 1 : 0; };
    string work = data, want;
    uint64_t length = len;
    OK(tav_util_shift_bitstring_left((uint8_t *)work.data(), &length, shift));
    CHECK(length == len - std::min(shift / 8, len));
    for (uint64_t i = 0; i < 8 * len; i += 8)
        want += char(i < 8 * length || shift % 8 ? 0 : data[i / 8]);
    for (uint64_t b = 0; b < 8 * length; ++b)
        want[b / 8] |= bit(b + shift) << (7 - b % 8);
    CHECK(work == want);
    OK(tav_util_map_bitstring_to_bytes(U(data), len, &bytes, &size));
    for (want.clear(); want.size() < 8 * len;)
        want += char(bit(want.size()));
    CHECK(S(bytes, size) == want);
    free(bytes);
    OK(tav_util_expand_byte_array(U(data), len, factor, &bytes, &size));
    for (want.clear(); want.size() < factor * len;)
        want += data[want.size() / factor];
    CHECK(S(bytes, size) == want);
    free(bytes);
    return TAV_OK;
}

tav_status split(In in) {
    const string delimiter = in.text(in.byte() % 4), text = in.text(in.n);
    char **tokens;
    OK(tav_util_split(text.c_str(), delimiter.c_str(), &tokens, &size));
    CHECK((size == 0) == (tokens == nullptr));
    string rebuilt, collapsed; // one-byte delimiter: runs count as one, none at the ends
    for (char c : text)
        collapsed +=
            c != delimiter[0] || (collapsed != "" && collapsed.back() != c) ? S(&c, 1) : "";
    collapsed.resize(collapsed.size() - collapsed.ends_with(delimiter[0]));
    for (size_t i = 0, at = 0; i < size; at += strlen(tokens[i++])) {
        CHECK(*tokens[i] != 0 && (delimiter == "" || !strstr(tokens[i], delimiter.c_str())));
        CHECK((at = text.find(tokens[i], at)) != string::npos);
        rebuilt += (i > 0 ? delimiter : "") + tokens[i];
    }
    CHECK((delimiter == "" ? text : delimiter.size() == 1 ? collapsed : rebuilt) == rebuilt);
    if (size > 0)
        OK(tav_util_join(tokens, size, delimiter.c_str(), &chars, &again)),
            CHECK(S(chars, again) == rebuilt + '\0'), free(chars);
    while (size > 0)
        free(tokens[--size]);
    free(tokens);
    return TAV_OK;
}

// The hex dump as its layout says, built independently.
static string dump(const char *prefix, const string &bytes, int32_t limit) {
    const string indent = prefix != nullptr ? prefix : "    ";
    const size_t k = limit == 0 ? bytes.size() : std::min<size_t>(bytes.size(), std::max(limit, 0));
    string out, row;
    char pair[3];
    for (size_t i = 0; i < k; row += isprint(uint8_t(bytes[i])) ? bytes[i] : '.', ++i) {
        out += i == 0 ? indent : i % 16 == 0 ? " : " + row + "\n" + indent : i % 8 ? " " : " - ";
        row = i % 16 == 0 ? "" : row;
        out += (snprintf(pair, sizeof pair, "%02X", uint8_t(bytes[i])), pair);
    }
    return bytes.empty() ? "" : out + (k > 0 ? " : " + row : "") + "\n";
}

tav_status strbuf(In in) {
    const uint8_t start = in.byte();
    auto *record = start & 1 ? tav_util_strbuf_new(start >> 1)
                             : static_cast<tav_util_strbuf *>(calloc(1, sizeof(tav_util_strbuf)));
    string model;
    while (in.n > 0) {
        const uint8_t op = in.byte();
        const string a = in.text(in.byte() % 32), b = in.text(in.byte() % 32);
        const int32_t limit = int8_t(op) >> 3;
        const bool had_text = record->text != nullptr;
        if (op % 4 == 0) {
            CHECK(tav_util_strbuf_append_f(record, "%s", a.c_str()) == int32_t(a.size()));
            model += a;
        } else if (op % 4 == 1) {
            const char *prefix = op & 4 ? nullptr : b.c_str();
            tav_util_strbuf_hexdump(record, prefix, a.data(), a.size());
            model += dump(prefix, a, record->hex_limit);
        } else if (op % 4 == 2) { // leftmost matches, no overlap, at most `limit` (0: all)
            string next;
            size_t pos = 0, match = 0;
            for (int32_t count = 0; had_text && (a != "" || limit != 0); pos = match + a.size()) {
                if ((limit != 0 && count++ >= limit) ||
                    (match = model.find(a, pos)) == string::npos)
                    break;
                next += model.substr(pos, match - pos) + b;
            }
            next += model.substr(std::min(pos, model.size()));
            // A replacement with no conversion may be its own format.
            const char *format = b.find('%') == string::npos && op & 4 ? b.c_str() : "%s";
            CHECK(tav_util_strbuf_substitute(record, a.c_str(), limit, format, b.c_str()) ==
                  int32_t(next.size() - model.size()));
            model = had_text ? next : model;
        } else if (had_text && op & 4) {
            tav_util_strbuf_clear(record), model.clear();
        } else {
            tav_util_strbuf_set_hex_limit(record, limit);
        }
        const char *text = tav_util_strbuf_getstr(record);
        CHECK(text ? model == text && record->capacity > int32_t(model.size()) : model == "");
    }
    tav_util_strbuf_free(record);
    return TAV_OK;
}

// Appends until an empty addition, which is refused and leaves the text as it was.
tav_status append(In in) {
    char *text = nullptr;
    uint64_t length = in.byte(); // any value before the first append
    string model, addition;
    tav_status st = TAV_OK;
    while (in.n > 0 && st == TAV_OK) {
        addition = in.take(in.byte() % 64), model += addition;
        st = tav_util_append_string(&text, &length, addition.data(), addition.size());
        CHECK(st == (addition == "" ? TAV_ERR_BAD_ARG : TAV_OK) && (st || traces + logs == 0));
        CHECK(text ? length == model.size() && S(text, length + 1) == model + '\0' : model == "");
    }
    free(text);
    return st;
}

// The option walk: rows and an argument vector both come from the input.
static std::vector<tav_util_option> rows;
static std::vector<char *> argv;
static tav_status own(const tav_util_option *row, const char *argument, int32_t *consumed) {
    CHECK(row >= rows.data() && row < rows.data() + rows.size() && consumed != nullptr);
    CHECK(argument ? std::count(argv.begin(), argv.end(), argument) > 0 : !row->takes_argument);
    *consumed = 7; // the walk must not heed it
    return argument != nullptr && argument[0] == '!' ? TAV_ERR_READ : TAV_OK;
}

tav_status getopt(In in) {
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
        rows[i].target = how & 16 ? nullptr : how & 6 ? (void *)&ints[i] : &strings[i];
    }
    std::vector<string> tokens{"prog", ""}; // the input's stretches between blanks
    for (char c : in.text(in.n))
        c != ' ' ? tokens.back() += c : tokens.emplace_back();
    argv.clear();
    for (string &token : tokens)
        argv.push_back(token.data());
    const tav_status st =
        tav_util_getopt(int32_t(argv.size()), argv.data(), rows.data(), rows.size());
    // The handlers' own reports, a missing argument, and READ from `own`.
    CHECK(memchr("\0\3\6\7\x09", st, 5) && logs == (st == TAV_ERR_SYSTEM) && (!st || traces >= 3));
    for (char *s : strings)
        CHECK(!s || (strlen(s) <= 300 && std::count(tokens.begin(), tokens.end(), s))), free(s);
    return st;
}

tav_status human_time(In in) {
    double seconds = 0, v;
    const string raw = in.take(sizeof seconds);
    memcpy(&seconds, raw.data(), raw.size());
    const size_t size = in.byte() % 40;
    char full[400], cut[48], want[400];
    memset(cut, 0x55, sizeof cut);
    OK(tav_util_snprintf_human_time(full, sizeof full, seconds));
    OK(tav_util_snprintf_human_time(cut, size, seconds));
    CHECK(std::count(cut + size, cut + sizeof cut, 0x55) == long(sizeof cut - size));
    CHECK(size == 0 || (strlen(cut) < size && strncmp(cut, full, size - 1) == 0));
    int unit = 0; // seconds, then minutes below 60, hours below 24, days
    for (v = seconds; unit < 3 && !(v < "<<\x18"[unit]); ++unit)
        v /= unit == 2 ? 24 : 60;
    const char *units[] = {"second", "minute", "hour", "day"};
    snprintf(want, sizeof want, "%.0f %s%s", v, units[unit], v == 1.0 ? "" : "s");
    CHECK(strcmp(full, want) == 0);
    return TAV_OK;
}

// This target's link sends /proc/self/stat to a scratch file that holds the input.
static char stat_copy[] = "/tmp/tavutil_fuzz_stat_XXXXXX";
extern "C" __attribute__((weak)) FILE *__real_fopen(const char *path, const char *mode);
extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    return __real_fopen(strcmp(path, "/proc/self/stat") == 0 ? stat_copy : path, mode);
}

tav_status proc_stat(In in) {
    static const int fd = (atexit([] { unlink(stat_copy); }), mkstemp(stat_copy));
    const string line = in.take(in.n), first = line.substr(0, line.find('\n') + 1 ?: line.size());
    CHECK(ftruncate(fd, 0) == 0 && pwrite(fd, line.data(), line.size(), 0) == ssize_t(line.size()));
    tav_proc_stat record;
    const tav_status st = tav_util_proc_stat(&record, 0);
    CHECK(line == "" ? st == TAV_ERR_READ : st == TAV_OK || st == TAV_ERR_SYSTEM);
    CHECK(traces <= 1 && memchr(record.comm, '\0', sizeof record.comm) != nullptr);
    // Without a parenthesis 42 tokens need 41 separators before the line end.
    CHECK(first.find('(') != string::npos ||
          (st == TAV_OK) == (std::count_if(first.begin(), first.end(),
                                           [](char c) { return c == ' ' || c == 0; }) >= 41));
    return st;
}

// Writes the first part, appends the second, reading back each time; the directory is no file.
tav_status files(In in) {
    static char dir[] = "/tmp/tavutil_fuzz_files_XXXXXX";
    static const string path = string(mkdtemp(dir)) + "/f";
    static const int gone = atexit([] { rmdir(dir); });
    const string first = in.take(in.byte() * 16), second = in.take(in.n);
    for (int round = 0; round < 2; ++round, free(bytes)) {
        const string &part = round ? second : first;
        OK(tav_util_write_named_file(path.c_str(), !round, part.data(), part.size(), nullptr));
        OK(tav_util_read_named_file(path.c_str(), &bytes, &size, nullptr));
        CHECK(S(bytes, size + 1) == first + (round ? second : "") + '\0' && traces + logs == 0);
    }
    CHECK(gone == 0 && remove(path.c_str()) == 0);
    const tav_status st = tav_util_write_named_file(dir, 1, U(first), first.size(), nullptr);
    CHECK(st == TAV_ERR_SYSTEM);
    return st;
}

} // namespace fz

// Success leaves no trace entry or line; a failure at least one entry, all of its own status.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    traces = logs = mixed = 0;
    const tav_status st = fz::TAV_FUZZ_TARGET(In{data, size});
    CHECK(st == TAV_OK ? traces + logs == 0 : traces > 0 && !mixed && last == st);
    return 0;
}
