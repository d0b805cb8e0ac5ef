// One fuzz target per build, named by TAV_FUZZ_TARGET; each checks what its operation promises.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "../src/internal/proc_stat.hpp"

#define CHECK(c) ((c) ? (void)0 : (fprintf(stderr, "failed: %s (%d)\n", #c, __LINE__), abort()))
#define OK(call) CHECK((call) == TAV_OK)
using std::string;

static int traces, logs, last, mixed, st; // st: how a target ends, to be carried by every entry
extern "C" void tav_trace_save(const char *, const char *, int32_t, tav_status status) {
    mixed |= traces++ > 0 && status != last, last = status;
}
#define SINK(name, ...)                                                                            \
    extern "C" void name(__VA_ARGS__) { ++logs; }
SINK(tav_util_log_internal, int, int, const char *, const char *, int, const char *, ...)
SINK(tav_util_log_internal_perror, int, int, int, const char *, const char *, int, const char *)
static string S(const void *p, size_t n) { return string(static_cast<const char *>(p), n); }
static const uint8_t *U(const string &s) { return reinterpret_cast<const uint8_t *>(s.data()); }

// Runs an operation that must succeed with (args..., &block, &size): the block as a string, freed.
template <class T = uint8_t> static string got(auto operation, auto... args) {
    T *block;
    uint64_t size;
    OK(operation(args..., &block, &size));
    const string s = S(block, size);
    return free(block), s;
}

// The input cut into pieces: a byte, the next k bytes, those of them before a zero byte.
struct In {
    const uint8_t *p;
    size_t n;
    uint8_t byte() { return n > 0 ? (--n, *p++) : 0; }
    string take(size_t k = SIZE_MAX) { return k = std::min(k, n), p += k, n -= k, S(p - k, k); }
    string text(size_t k = SIZE_MAX) { return take(k).c_str(); }
};

// Arbitrary text decodes as its characters of the alphabet; encoding and decoding give it back.
void fuzz_base64(In in) {
    const string data = in.take(), code = got<char>(tav_util_base64_encode, U(data), data.size());
    CHECK(code.size() == tav_util_to_base64_size(data.size()));
    CHECK(got(tav_util_base64_decode, code.data(), code.size()) == data);
    string usable = data;
    std::erase_if(usable, [](char c) { return !isalnum(uint8_t(c)) && c != '+' && c != '/'; });
    const string bytes = got(tav_util_base64_decode, data.data(), data.size());
    const size_t groups = usable.size() / 4;
    CHECK(bytes.size() == groups * 3 + "\0\3\1\2"[usable.size() % 4]);
    CHECK(got<char>(tav_util_base64_encode, U(bytes), groups * 3) == usable.substr(0, groups * 4));
}

// Bytes to hex text and back; arbitrary text reads without going past its length.
void fuzz_hex(In in) {
    const string data = in.take();
    char *text;
    uint8_t *bytes;
    OK(tav_util_sprintf_bytes(U(data), data.size(), &text));
    CHECK(strlen(text) == 2 * data.size() && strspn(text, "0123456789abcdef") == strlen(text));
    OK(tav_util_sscanf_bytes(text, strlen(text), &bytes));
    CHECK(S(bytes, data.size()) == data);
    free(bytes), free(text);
    OK(tav_util_sscanf_bytes(data.c_str(), data.size(), &bytes));
    free(bytes);
}

static bool bit(const string &s, size_t b) {
    return b / 8 < s.size() && s[b / 8] >> (7 - b % 8) & 1;
}

void fuzz_bits(In in) {
    const uint64_t wide = in.byte() | in.byte() << 8, factor = in.byte() % 5;
    const string data = in.take();
    const uint64_t len = data.size(), shift = wide % (8 * len + 24);
    string work = data, map, grown;
    uint64_t length = len;
    OK(tav_util_shift_bitstring_left(reinterpret_cast<uint8_t *>(work.data()), &length, shift));
    CHECK(length == len - std::min(shift / 8, len));
    for (uint64_t b = 0; b < 8 * len; map += char(bit(data, b++))) {
        // Behind the new length: cleared after a shift within bytes, else as it was.
        CHECK(bit(work, b) ==
              (b < 8 * length ? bit(data, b + shift) : shift % 8 == 0 && bit(data, b)));
        grown += b < factor * len ? data.substr(b / factor, 1) : "";
    }
    CHECK(got(tav_util_map_bitstring_to_bytes, U(data), len) == map);
    CHECK(got(tav_util_expand_byte_array, U(data), len, factor) == grown);
}

void fuzz_split(In in) {
    const string delimiter = in.text(in.byte() % 4), text = in.text();
    char **tokens;
    uint64_t count;
    OK(tav_util_split(text.c_str(), delimiter.c_str(), &tokens, &count));
    CHECK((count == 0) == (tokens == nullptr));
    const string joined = count ? got<char>(tav_util_join, tokens, count, delimiter.c_str()) : "";
    string rebuilt, runs; // up to one byte of delimiter: the runs between delimiters, not empty
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] != delimiter[0])
            runs += (runs != "" && text[i - 1] == delimiter[0] ? delimiter : string()) + text[i];
    for (size_t i = 0, at = 0; i < count; at += strlen(tokens[i]), free(tokens[i++])) {
        CHECK(*tokens[i] != 0 && (delimiter == "" || !strstr(tokens[i], delimiter.c_str())));
        CHECK((at = text.find(tokens[i], at)) != string::npos);
        rebuilt += (i > 0 ? delimiter : "") + tokens[i];
    }
    free(tokens);
    CHECK((delimiter.size() > 1 ? rebuilt : runs) == rebuilt);
    CHECK(joined == (count ? rebuilt + '\0' : ""));
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

// Appends, hex dumps and substitutions on a new or a zero-filled record, against a model text.
void fuzz_strbuf(In in) {
    const uint8_t start = in.byte();
    auto *record = start & 1 ? tav_util_strbuf_new(start >> 2)
                             : static_cast<tav_util_strbuf *>(calloc(1, sizeof(tav_util_strbuf)));
    tav_util_strbuf_set_hex_limit(record, int8_t(in.byte()));
    for (string model; in.n > 0;) {
        const uint8_t op = in.byte();
        const string a = in.text(in.byte() % 32), b = in.text(in.byte() % 32);
        const char *prefix = op & 4 ? nullptr : b.c_str();
        if (op % 3 == 0) {
            CHECK(tav_util_strbuf_append_f(record, "%s", a.c_str()) == int32_t(a.size()));
            model += a;
        } else if (op % 3 == 1) {
            tav_util_strbuf_hexdump(record, prefix, a.data(), a.size());
            model += dump(prefix, a, record->hex_limit);
        } else if (record->text) { // leftmost matches, no overlap, at most `limit` (0: all)
            string next = model;
            int32_t limit = int8_t(op) >> 3, count = 0;
            for (size_t at = 0; (a != "" || limit) && (!limit || count++ < limit) &&
                                (at = next.find(a, at)) != string::npos;
                 at += b.size())
                next.replace(at, a.size(), b);
            // A replacement with no conversion may be its own format.
            const char *format = prefix || b.find('%') != string::npos ? "%s" : b.c_str();
            CHECK(tav_util_strbuf_substitute(record, a.c_str(), limit, format, b.c_str()) ==
                  int32_t(next.size() - model.size()));
            model = next;
        }
        const char *text = tav_util_strbuf_getstr(record);
        CHECK(text ? model == text && record->capacity > int32_t(model.size()) : model == "");
    }
    tav_util_strbuf_free(record);
}

// Appends until an empty addition, which is refused and leaves the text as it was.
void fuzz_append(In in) {
    char *text = nullptr;
    uint64_t length = in.byte(); // any value before the first append
    for (string model, addition; in.n > 0 && st == TAV_OK;) {
        addition = in.take(in.byte() % 64), model += addition;
        st = tav_util_append_string(&text, &length, addition.data(), addition.size());
        CHECK(st == (addition == "" ? TAV_ERR_BAD_ARG : TAV_OK) && (st || traces + logs == 0));
        CHECK(text ? length == model.size() && S(text, length + 1) == model + '\0' : model == "");
    }
    free(text);
}

// The option walk over rows and an argument vector both taken from the input.
void fuzz_getopt(In in) {
    tav_util_option_handler *const handlers[] = {tav_util_getopt_string, tav_util_getopt_int,
                                                 tav_util_getopt_flag};
    tav_util_option rows[4] = {};
    char *strings[4] = {};
    int32_t ints[4] = {}, count = 1 + in.byte() % 4;
    for (int32_t i = 0; i < count; ++i) {
        const uint8_t how = in.byte();
        rows[i] = {char(in.byte()),
                   {},
                   handlers[how / 2 % 3],
                   how & 16      ? nullptr
                   : how / 2 % 3 ? (void *)&ints[i]
                                 : &strings[i],
                   how & 1};
        in.text(3).copy(rows[i].long_option, 3);
    }
    std::vector<string> tokens{"prog"};
    while (in.n > 0)
        tokens.push_back(in.text(in.byte() % 16));
    std::vector<char *> argv(tokens.size());
    std::transform(tokens.begin(), tokens.end(), argv.begin(), [](string &t) { return t.data(); });
    st = tav_util_getopt(int32_t(argv.size()), argv.data(), rows, count);
    // The handlers' own reports and a missing argument.
    CHECK(memchr("\0\3\6\7", st, 4) && logs == (st == TAV_ERR_SYSTEM) && (!st || traces >= 3));
    for (char *s : strings)
        CHECK(!s || std::count(tokens.begin(), tokens.end(), s)), free(s);
}

// The text in a buffer of any size is the start of the whole text, which names its unit.
void fuzz_human_time(In in) {
    double seconds = 0, v;
    in.take(sizeof seconds).copy(reinterpret_cast<char *>(&seconds), sizeof seconds);
    const size_t room = in.byte() % 40;
    char full[400], cut[48], want[400];
    memset(cut, 0x55, sizeof cut);
    OK(tav_util_snprintf_human_time(full, sizeof full, seconds));
    OK(tav_util_snprintf_human_time(cut, room, seconds));
    CHECK(std::count(cut + room, cut + sizeof cut, 0x55) == long(sizeof cut - room));
    CHECK(room == 0 || (strlen(cut) < room && strncmp(cut, full, room - 1) == 0));
    int unit = 0; // seconds, then minutes below 60, hours below 24, days
    for (v = seconds; unit < 3 && !(v < "<<\x18"[unit]); ++unit)
        v /= unit == 2 ? 24 : 60;
    const char *units[] = {"second", "minute", "hour", "day"};
    snprintf(want, sizeof want, "%.0f %s%s", v, units[unit], v == 1.0 ? "" : "s");
    CHECK(strcmp(full, want) == 0);
}

// The link sends /proc/self/stat to a scratch file that holds the input.
static char stat_copy[] = "/tmp/tavutil_fuzz_stat_XXXXXX";
extern "C" FILE *__real_fopen(const char *path, const char *mode);
extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    return __real_fopen(strcmp(path, "/proc/self/stat") == 0 ? stat_copy : path, mode);
}

void fuzz_proc_stat(In in) {
    static const int fd = (atexit([] { unlink(stat_copy); }), mkstemp(stat_copy));
    const string line = in.take(), first = line.substr(0, line.find('\n') + 1 ?: line.size());
    CHECK(ftruncate(fd, 0) == 0 && pwrite(fd, line.data(), line.size(), 0) == ssize_t(line.size()));
    tav_proc_stat record;
    st = tav_util_proc_stat(&record, 0);
    CHECK(line == "" ? st == TAV_ERR_READ : st == TAV_OK || st == TAV_ERR_SYSTEM);
    CHECK(traces <= 1 && memchr(record.comm, '\0', sizeof record.comm) != nullptr);
    // Without a parenthesis 42 tokens need 41 separators before the line end.
    CHECK(first.find('(') != string::npos ||
          (st == TAV_OK) == (std::count_if(first.begin(), first.end(),
                                           [](char c) { return c == ' ' || c == 0; }) >= 41));
}

// Writes the first part, appends the second, reading back each time; the directory is no file.
void fuzz_files(In in) {
    static char dir[] = "/tmp/tavutil_fuzz_files_XXXXXX";
    static const string path = (atexit([] { rmdir(dir); }), string(mkdtemp(dir)) + "/f");
    const string first = in.take(in.byte() * 16), second = in.take();
    uint8_t *bytes;
    uint64_t size;
    for (int round = 0; round < 2; ++round, free(bytes)) {
        const string &part = round ? second : first;
        OK(tav_util_write_named_file(path.c_str(), !round, part.data(), part.size(), nullptr));
        OK(tav_util_read_named_file(path.c_str(), &bytes, &size, nullptr));
        CHECK(S(bytes, size + 1) == first + (round ? second : "") + '\0' && traces + logs == 0);
    }
    CHECK(remove(path.c_str()) == 0);
    st = tav_util_write_named_file(dir, 1, U(first), first.size(), nullptr);
    CHECK(st == TAV_ERR_SYSTEM);
}

// Success leaves no trace entry or line; a failure at least one entry, all of its own status.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    traces = logs = mixed = st = 0;
    TAV_FUZZ_TARGET(In{data, size});
    CHECK(st == TAV_OK ? traces + logs == 0 : traces > 0 && !mixed && last == st);
    return 0;
}
