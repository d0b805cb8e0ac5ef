// One fuzz target per build, named by TAV_FUZZ_TARGET; each checks what its operation promises.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

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

static const uint8_t *in; // the input, cut by byte(), take(k) bytes and text(k) up to a zero
static size_t n;
uint8_t byte() { return n > 0 ? (--n, *in++) : 0; }
string take(size_t k = -1) { return k = std::min(k, n), in += k, n -= k, S(in - k, k); }
string text(size_t k = -1) { return take(k).c_str(); }

static char scratch[] = "/tmp/tavutil_fuzz_XXXXXX"; // removed at exit
static const int scratch_fd = (atexit([] { remove(scratch); }), mkstemp(scratch));

void fuzz_base64() {
    const string data = take(), code = got<char>(tav_util_base64_encode, U(data), data.size());
    CHECK(code.size() == tav_util_to_base64_size(data.size()));
    CHECK(got(tav_util_base64_decode, code.data(), code.size()) == data);
    CHECK(got(tav_util_base64_decode, data.data(), data.size()).size() <= data.size() / 4 * 3 + 3);
}

void fuzz_hex() {
    const string data = take();
    char *text;
    uint8_t *bytes, *any;
    OK(tav_util_sprintf_bytes(U(data), data.size(), &text));
    OK(tav_util_sscanf_bytes(text, strlen(text), &bytes));
    OK(tav_util_sscanf_bytes(data.c_str(), data.size(), &any)); // any text reads
    CHECK(strspn(text, "0123456789abcdef") == 2 * data.size() && !text[2 * data.size()]);
    CHECK(S(bytes, data.size()) == data), free(bytes), free(text), free(any);
}

bool bit(const string &s, size_t b) { return b / 8 < s.size() && s[b / 8] >> (7 - b % 8) & 1; }

void fuzz_bits() {
    const uint64_t wide = byte() | byte() << 8, factor = byte() % 5;
    const string data = take();
    uint64_t len = data.size(), length = len, shift = wide % (8 * len + 24);
    string work = data, map, grown;
    OK(tav_util_shift_bitstring_left(reinterpret_cast<uint8_t *>(work.data()), &length, shift));
    CHECK(length == len - std::min(shift / 8, len));
    for (uint64_t b = 0; b < 8 * len; map += char(bit(data, b++))) {
        CHECK( // behind the new length: cleared after a shift within bytes, else as it was
            bit(work, b) == (b < 8 * length ? bit(data, b + shift) : !(shift % 8) && bit(data, b)));
        grown += b < factor * len ? data.substr(b / factor, 1) : "";
    }
    CHECK(got(tav_util_map_bitstring_to_bytes, U(data), len) == map);
    CHECK(got(tav_util_expand_byte_array, U(data), len, factor) == grown);
}

void fuzz_split() {
    const string delimiter = text(byte() % 4), line = text();
    char **tokens;
    uint64_t count;
    OK(tav_util_split(line.c_str(), delimiter.c_str(), &tokens, &count));
    CHECK((count == 0) == (tokens == nullptr));
    const string joined = count ? got<char>(tav_util_join, tokens, count, delimiter.c_str()) : "";
    string rebuilt;
    for (size_t i = 0, at = 0; i < count; at += strlen(tokens[i]), free(tokens[i++])) {
        CHECK(*tokens[i] != 0 && (delimiter == "" || !strstr(tokens[i], delimiter.c_str())));
        CHECK((at = line.find(tokens[i], at)) != string::npos);
        rebuilt += (i > 0 ? delimiter : "") + tokens[i];
    }
    CHECK(joined == (count ? rebuilt + '\0' : "")), free(tokens);
}

// An append, a hex dump in lines of 16 bytes at most, then substitutions of x by b.
void fuzz_strbuf() {
    tav_util_strbuf *record = tav_util_strbuf_new(byte());
    const int8_t shown = byte(), limit = int8_t(byte()) >> 4; // limit: most replacements, 0 for all
    const string a = text(byte() % 64), b = text(byte() % 8), x = text(byte() % 4), d = take();
    tav_util_strbuf_set_hex_limit(record, shown);
    CHECK(tav_util_strbuf_append_f(record, "%s", a.c_str()) == int32_t(a.size()));
    tav_util_strbuf_hexdump(record, b == "" ? nullptr : b.c_str(), d.data(), d.size());
    const size_t k = std::min<size_t>(d.size(), shown ? std::max<int>(shown, 0) : SIZE_MAX),
                 size = a.size() + (d != "" && k == 0) +
                        (k + 15) / 16 * ((b == "" ? 4 : b.size()) + 3) + 4 * k +
                        2 * (k / 16 + (k % 16 > 8));
    CHECK(strlen(record->text) == size && string(record->text).starts_with(a));
    const int32_t grown = tav_util_strbuf_substitute(record, x.c_str(), limit, "%s", b.c_str());
    CHECK(int32_t(strlen(record->text) - size) == grown &&
          record->capacity > int32_t(size + grown));
    tav_util_strbuf_free(record);
}

void fuzz_append() {
    char *text = nullptr;
    uint64_t length = byte(); // any value before the first append
    for (string model, addition; n > 0 && st == TAV_OK;) {
        addition = take(byte() % 64), model += addition;
        st = tav_util_append_string(&text, &length, addition.data(), addition.size());
        CHECK(st == (addition == "" ? TAV_ERR_BAD_ARG : TAV_OK) && (st || traces + logs == 0));
        CHECK(text ? length == model.size() && S(text, length + 1) == model + '\0' : model == "");
    }
    free(text);
}

void fuzz_getopt() {
    tav_util_option_handler *const handlers[] = {tav_util_getopt_string, tav_util_getopt_int,
                                                 tav_util_getopt_flag};
    tav_util_option rows[4] = {};
    string tokens[32] = {"prog"};
    char *strings[4] = {}, *argv[32] = {tokens[0].data()};
    int32_t ints[4] = {}, count = 1 + byte() % 4, argc = 1;
    for (int32_t i = 0; i < count; ++i) {
        const uint8_t how = byte(), kind = how / 2 % 3;
        void *target = how & 16 ? nullptr : kind ? (void *)&ints[i] : &strings[i];
        rows[i] = {char(byte()), {}, handlers[kind], target, how & 1};
        text(3).copy(rows[i].long_option, 3);
    }
    for (; argc < 32 && n > 0; ++argc)
        argv[argc] = (tokens[argc] = text(byte() % 16)).data();
    st = tav_util_getopt(argc, argv, rows, count);
    CHECK(memchr("\0\3\6\7", st, 4) && logs == (st == TAV_ERR_SYSTEM) && (!st || traces >= 3));
    for (char *s : strings)
        CHECK(!s || std::count(tokens, tokens + argc, s)), free(s);
}

void fuzz_human_time() {
    const double seconds = strtod(text(32).c_str(), nullptr);
    const size_t room = byte() % 40;
    string full(400, 0), cut(48, 'U');
    OK(tav_util_snprintf_human_time(full.data(), full.size(), seconds));
    OK(tav_util_snprintf_human_time(cut.data(), room, seconds));
    CHECK(cut.substr(room) == string(48 - room, 'U') &&
          (room == 0 || cut.c_str() == string(full.c_str()).substr(0, room - 1)));
}

// The link sends every fopen through here: /proc/self/stat becomes the scratch file.
extern "C" FILE *__real_fopen(const char *path, const char *mode);
extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    return __real_fopen(strcmp(path, "/proc/self/stat") ? path : scratch, mode);
}

void fuzz_proc_stat() {
    const string line = take();
    OK(tav_util_write_named_file(scratch, 1, line.data(), line.size(), nullptr));
    tav_proc_stat record;
    st = tav_util_proc_stat(&record, 0);
    CHECK(line == "" ? st == TAV_ERR_READ : st == TAV_OK || st == TAV_ERR_SYSTEM);
    CHECK(traces <= 1 && memchr(record.comm, '\0', sizeof record.comm) != nullptr);
}

// Writes over what the last run left, appends, reads back; a directory cannot be written.
void fuzz_files() {
    const string first = take(byte() * 16), second = take();
    OK(tav_util_write_named_file(scratch, 1, first.data(), first.size(), nullptr));
    OK(tav_util_write_named_file(scratch, 0, second.data(), second.size(), nullptr));
    uint8_t *bytes;
    uint64_t size;
    OK(tav_util_read_named_file(scratch, &bytes, &size, nullptr));
    CHECK(S(bytes, size + 1) == first + second + '\0' && traces + logs == 0), free(bytes);
    CHECK((st = tav_util_write_named_file("/tmp", 1, "", 0, nullptr)) == TAV_ERR_SYSTEM);
}

// Success leaves no trace entry or line; a failure at least one entry, all of its own status.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    in = data, n = size, traces = logs = mixed = st = 0;
    TAV_FUZZ_TARGET();
    CHECK(st == TAV_OK ? traces + logs == 0 : traces > 0 && !mixed && last == st);
    return 0;
}
