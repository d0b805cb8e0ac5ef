// The process status record: one line of /proc/<pid>/stat spread over a
// record, and the calling thread's id.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <sys/syscall.h>

#include "internal/frame.hpp"
#include "internal/proc_stat.hpp"

namespace {

// Where each token of the line goes and how it converts, tokens 1 to 42 in
// order. Token 2, the command name, has no format: it is kept as text.
struct Token {
    const char *format;
    size_t offset;
};

#define TAV_TOKEN(format, field)                                                                   \
    Token { format, offsetof(tav_proc_stat, field) }
constexpr Token kTokens[] = {
    TAV_TOKEN("%d", pid),          TAV_TOKEN(nullptr, comm),
    TAV_TOKEN("%c", state),        TAV_TOKEN("%d", ppid),
    TAV_TOKEN("%d", pgrp),         TAV_TOKEN("%d", session),
    TAV_TOKEN("%d", tty_nr),       TAV_TOKEN("%d", tpgid),
    TAV_TOKEN("%u", flags),        TAV_TOKEN("%lu", minflt),
    TAV_TOKEN("%lu", cminflt),     TAV_TOKEN("%lu", majflt),
    TAV_TOKEN("%lu", cmajflt),     TAV_TOKEN("%lu", utime),
    TAV_TOKEN("%lu", stime),       TAV_TOKEN("%lu", cutime),
    TAV_TOKEN("%lu", cstime),      TAV_TOKEN("%lu", priority),
    TAV_TOKEN("%lu", nice),        TAV_TOKEN("%lu", num_threads),
    TAV_TOKEN("%lu", itrealvalue), TAV_TOKEN("%llu", starttime),
    TAV_TOKEN("%lu", vsize),       TAV_TOKEN("%ld", rss),
    TAV_TOKEN("%lu", rsslim),      TAV_TOKEN("%lu", startcode),
    TAV_TOKEN("%lu", endcode),     TAV_TOKEN("%lu", startstack),
    TAV_TOKEN("%lu", kstkesp),     TAV_TOKEN("%lu", kstkeip),
    TAV_TOKEN("%lu", signal),      TAV_TOKEN("%lu", blocked),
    TAV_TOKEN("%lu", sigignore),   TAV_TOKEN("%lu", sigcatch),
    TAV_TOKEN("%lu", wchan),       TAV_TOKEN("%lu", nswap),
    TAV_TOKEN("%lu", cnswap),      TAV_TOKEN("%d", exit_signal),
    TAV_TOKEN("%d", processor),    TAV_TOKEN("%u", rt_priority),
    TAV_TOKEN("%u", policy),       TAV_TOKEN("%llu", delayacct_blkio_ticks),
};
#undef TAV_TOKEN
static_assert(std::size(kTokens) == 42);
constexpr size_t kNameToken = 1;

// The command name may hold blanks and parentheses of its own. The kernel
// prints nothing with a ')' behind it, so when the token opens with '(' it
// runs to the line's last ')', and every later token keeps its place.
// Returns where the scan for the token's end goes on.
size_t name_scan_start(const char *line, size_t j, size_t len) {
    if (j >= len || line[j] != '(') {
        return j;
    }
    const void *close = memrchr(line + j, ')', len - j);
    return close == nullptr ? j : static_cast<size_t>(static_cast<const char *>(close) - line);
}

// The record keeps the name between its parentheses, cut to fit, so `comm`
// is always terminated (the record was zeroed).
void keep_name(char (&comm)[TAV_PROC_COMM_SIZE], const char *token, size_t length) {
    if (length >= 2 && token[0] == '(' && token[length - 1] == ')') {
        ++token;
        length -= 2;
    }
    std::memcpy(comm, token, std::min(length, sizeof comm - 1));
}

} // namespace

extern "C" {

tav_status tav_util_proc_stat(tav_proc_stat *ret_proc_stat, int32_t pid) {
    if (ret_proc_stat == nullptr) {
        TAV_PLAIN_LINE("ret_proc_stat is NULL");
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    std::memset(ret_proc_stat, 0, sizeof *ret_proc_stat);

    char path[128] = "/proc/self/stat";
    if (pid != 0) {
        std::snprintf(path, sizeof path, "/proc/%d/stat", pid);
    }
    tav::UniqueFile stream(std::fopen(path, "r"));
    if (!stream) {
        return tav::traced(TAV_SITE, TAV_ERR_OPEN);
    }

    char *raw_line = nullptr;
    size_t capacity = 0;
    const ssize_t got = getline(&raw_line, &capacity, stream.get());
    // getline may allocate even when it fails: the block is ours either way.
    const tav::MallocPtr<char> owned_line(raw_line);
    if (got == -1) {
        tav::reasoned_line(errno, TAV_SITE, "getline() failed");
        return tav::traced(TAV_SITE, TAV_ERR_READ);
    }
    stream.reset();

    // The terminator lies inside the range, so a last token may end at it.
    char *const line = owned_line.get();
    const size_t len = static_cast<size_t>(got) + 1;
    auto *const record = reinterpret_cast<char *>(ret_proc_stat);
    size_t start = 0;
    size_t j = 0;
    for (size_t token = 0; token < std::size(kTokens); ++token) {
        if (token == kNameToken) {
            j = name_scan_start(line, j, len);
        }
        while (j < len && line[j] != ' ' && line[j] != '\0') {
            ++j;
        }
        if (j == len) {
            TAV_PLAIN_LINE("Parsing logic failed, j=%zu, len=%zu\n", j, len);
            return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
        }
        line[j] = '\0';
        if (token == kNameToken) {
            keep_name(ret_proc_stat->comm, line + start, j - start);
        } else {
            // Not examined: a token that does not convert leaves its field zero.
            std::sscanf(line + start, kTokens[token].format, record + kTokens[token].offset);
        }
        start = j + 1;
        j = start;
    }
    return TAV_OK;
}

int64_t tav_util_tid(void) { return syscall(SYS_gettid); }

} // extern "C"
