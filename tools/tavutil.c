/* tavutil: the library's operations from a shell, one subcommand each.
 * Exit status: 0 success, 1 failure, 2 misuse. Errors: one line on stderr. */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <math.h>
#include <signal.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <tavutil.h>

/* Kept out of the shared object's exports; reached through the static
 * archive (see tools/CMakeLists.txt). */
tav_status tav_util_await_child_timeout(int32_t pid, int32_t seconds);
tav_status tav_util_pid_of(const char *text, int32_t mode, uint32_t **pids, uint64_t *count);
tav_status tav_util_proc_stat(tav_proc_stat *ret_proc_stat, int32_t pid);

enum { OK = 0, FAILURE = 1, MISUSE = 2 };

/* Options of every subcommand; each one accepts the rows its mask names. */
static struct {
    int32_t help, decode, exact, seconds;
    char *seed;
} opt = {0, 0, 0, INT32_MIN, NULL}; /* INT32_MIN: no time limit */

/* Row bits, and REST: the first argument ends the options (its program's). */
enum { O_HELP = 1, O_DECODE = 2, O_EXACT = 4, O_TIME = 8, O_SEED = 16, REST = 32 };

static const tav_util_option all_rows[] = {
    {'h', "help", tav_util_getopt_flag, &opt.help, 0},
    {'d', "decode", tav_util_getopt_flag, &opt.decode, 0},
    {'x', "exact", tav_util_getopt_flag, &opt.exact, 0},
    {'t', "time", tav_util_getopt_int, &opt.seconds, 1},
    {'s', "seed", tav_util_getopt_string, &opt.seed, 1},
};
enum { ROW_COUNT = sizeof all_rows / sizeof all_rows[0] };

typedef int command_fn(int count, char **args);
struct command {
    const char *name;
    command_fn *run;
    unsigned options;
    int min_args, max_args; /* positional arguments; -1: any number */
    const char *usage, *text;
};
static const struct command *cmd;

/* The library's log lines come here instead of going to libtavlog: the
 * latest failure line is the reason in the tool's own one-line message. */
static char library_line[512];

void tav_util_log_internal(int32_t severity, int32_t module, const char *function, const char *file,
                           int32_t line, const char *format, ...) {
    (void)module, (void)function, (void)file, (void)line;
    if (severity <= 3) {
        va_list args;
        va_start(args, format);
        vsnprintf(library_line, sizeof library_line, format, args);
        va_end(args);
        library_line[strcspn(library_line, "\n")] = '\0';
    }
}

void tav_util_log_internal_perror(int32_t error_number, int32_t severity, int32_t module,
                                  const char *function, const char *source_path,
                                  int32_t source_line, const char *message) {
    (void)severity, (void)module, (void)function, (void)source_path, (void)source_line;
    snprintf(library_line, sizeof library_line, "%s: %s", message, strerror(error_number));
}

/* One line: the library's own line when it made one, else what failed and
 * the system's reason from an errno slot or the meaning of the status. */
static int fail(const char *what, tav_status status, int error_number, const char *why) {
    static const char *const reasons[] = {
        [TAV_ERR_NOMEM] = "out of memory",        [TAV_ERR_SYSTEM] = "system call failed",
        [TAV_ERR_BAD_ARG] = "unusable argument",  [TAV_ERR_OPEN] = "open failed",
        [TAV_ERR_TIMEOUT] = "time limit reached",
    };
    const char *reason = (size_t)status < sizeof reasons / sizeof reasons[0] && reasons[status]
                             ? reasons[status]
                             : "failed";
    reason = error_number != 0 ? strerror(error_number) : reason;
    if (library_line[0] != '\0' && why == NULL) {
        fprintf(stderr, "tavutil %s: %s (status %d)\n", cmd->name, library_line, (int)status);
    } else {
        fprintf(stderr, "tavutil %s: %s: %s (status %d)\n", cmd->name, what, why ? why : reason,
                (int)status);
    }
    return FAILURE;
}

static int misuse(const char *what, const char *token) {
    fprintf(stderr, "tavutil %s: %s%s (usage: tavutil %s %s)\n", cmd->name, what, token, cmd->name,
            cmd->usage);
    return MISUSE;
}

/* ---- input and output ---- */

/* The whole of FILE ("-": standard input) in a malloc block with a zero byte
 * behind it: a regular file in one read, anything else chunk by chunk. */
static int read_input(const char *name, uint8_t **data, uint64_t *size) {
    int32_t fd = 0, error_number = 0;
    tav_status st = TAV_OK;
    struct stat info;
    *data = NULL;
    *size = 0;
    if (strcmp(name, "-") != 0) {
        st = tav_util_open(&fd, &error_number, O_RDONLY | O_CLOEXEC, 0, "%s", name);
        if (st != TAV_OK) {
            return fail(name, st, error_number, NULL);
        }
    }
    if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
        st = tav_util_read_file(fd, data, size, &error_number);
    } else {
        char chunk[65536];
        ssize_t got;
        while (st == TAV_OK && (got = read(fd, chunk, sizeof chunk)) > 0) {
            st = tav_util_append_string((char **)data, size, chunk, (uint64_t)got);
        }
        if (st == TAV_OK && got < 0) {
            st = TAV_ERR_SYSTEM;
            error_number = errno;
        } else if (st == TAV_OK && *data == NULL && (*data = calloc(1, 1)) == NULL) {
            st = TAV_ERR_NOMEM;
        }
    }
    if (fd != 0) {
        close(fd);
    }
    if (st != TAV_OK) {
        free(*data);
        *data = NULL;
        return fail(name, st, error_number, NULL);
    }
    return OK;
}

/* TEXT in lines of `width` characters, each ending in a line end. */
static void write_wrapped(const char *text, uint64_t length, uint64_t width) {
    for (uint64_t at = 0; at < length; at += width) {
        uint64_t line = length - at < width ? length - at : width;
        fwrite(text + at, 1, line, stdout);
        putchar('\n');
    }
}

/* The end of a conversion: its result written (in lines of `width`
 * characters, or raw when `width` is 0) when it succeeded, both blocks
 * freed, and the exit status. */
static int converted(tav_status st, uint8_t *input, void *result, uint64_t length, uint64_t width) {
    length = st == TAV_OK ? length : 0;
    if (width != 0) {
        write_wrapped(result, length, width);
    } else {
        fwrite(result, 1, length, stdout);
    }
    free(result);
    free(input);
    return st == TAV_OK ? OK : fail("conversion", st, 0, NULL);
}

/* ---- subcommands ---- */

static int base64_cmd(int count, char **args) {
    uint8_t *data;
    uint64_t size;
    if (read_input(count ? args[0] : "-", &data, &size) != OK) {
        return FAILURE;
    }
    uint64_t out_size = 0;
    if (opt.decode) {
        uint8_t *bytes = NULL;
        tav_status st = tav_util_base64_decode((const char *)data, size, &bytes, &out_size);
        return converted(st, data, bytes, out_size, 0);
    }
    char *text = NULL;
    tav_status st = tav_util_base64_encode(data, size, &text, &out_size);
    return converted(st, data, text, out_size, 76);
}

static int hex_cmd(int count, char **args) {
    uint8_t *data;
    uint64_t size;
    const char *name = count ? args[0] : "-";
    if (read_input(name, &data, &size) != OK) {
        return FAILURE;
    }
    if (opt.decode) {
        /* The converter reads pairs without complaint; line ends and blanks
         * go, anything else that is no hex digit is refused here. */
        uint64_t digits = 0;
        for (uint64_t i = 0; i < size; i++) {
            if (strchr(" \t\r\n", data[i]) == NULL) {
                data[digits++] = data[i];
            }
        }
        data[digits] = '\0';
        if (strspn((char *)data, "0123456789abcdefABCDEF") != digits || digits % 2 != 0) {
            free(data);
            return fail(name, TAV_ERR_BAD_ARG, 0, "not hex text");
        }
        uint8_t *bytes = NULL;
        tav_status st = tav_util_sscanf_bytes((char *)data, digits, &bytes);
        return converted(st, data, bytes, digits / 2, 0);
    }
    char *text = NULL;
    tav_status st = tav_util_sprintf_bytes(data, size, &text);
    return converted(st, data, text, 2 * size, 60);
}

static int hexdump_cmd(int count, char **args) {
    uint8_t *data;
    uint64_t size;
    if (read_input(count ? args[0] : "-", &data, &size) != OK) {
        return FAILURE;
    }
    tav_util_strbuf *sb = tav_util_strbuf_new(0);
    if (sb == NULL) {
        free(data);
        return fail("dump", TAV_ERR_NOMEM, 0, NULL);
    }
    tav_util_strbuf_set_hex_limit(sb, 0);
    /* Whole rows at a time keep the buffer small and the layout unchanged. */
    for (uint64_t at = 0; at < size; at += 4096) {
        tav_util_strbuf_clear(sb);
        tav_util_strbuf_hexdump(sb, "", data + at, (int64_t)(size - at < 4096 ? size - at : 4096));
        fputs(tav_util_strbuf_getstr(sb), stdout);
    }
    tav_util_strbuf_free(sb);
    free(data);
    return OK;
}

static int hash_cmd(int count, char **args) {
    char *stdin_only[] = {"-"};
    if (count == 0) {
        args = stdin_only;
        count = 1;
    }
    for (int i = 0; i < count; i++) {
        uint8_t *data;
        uint64_t size;
        uint64_t value = 0;
        if (read_input(args[i], &data, &size) != OK) {
            return FAILURE;
        }
        tav_status st = tav_util_hash64(data, size, &value);
        free(data);
        if (st != TAV_OK) {
            return fail(args[i], st, 0, size == 0 ? "empty input has no hash" : NULL);
        }
        printf("%016" PRIx64 "  %s\n", value, args[i]);
    }
    return OK;
}

static int parse_u64(const char *text, uint64_t *value) {
    char *end;
    errno = 0;
    *value = strtoull(text, &end, 0);
    return text[0] != '-' && end != text && *end == '\0' && errno == 0;
}

static int random_cmd(int count, char **args) {
    (void)count;
    uint64_t length, seed = 0;
    if (!parse_u64(args[0], &length)) {
        return misuse("not a byte count: ", args[0]);
    }
    if (opt.seed != NULL && !parse_u64(opt.seed, &seed)) {
        return misuse("not a seed: ", opt.seed);
    }
    tav_util_prng_state state;
    tav_status st = tav_util_seed_prng(&state, seed, 0);
    /* Chunks of whole words give the same bytes as one fill. */
    static uint8_t chunk[65536];
    for (uint64_t left = length; st == TAV_OK && left > 0;) {
        size_t now = left < sizeof chunk ? (size_t)left : sizeof chunk;
        st = tav_util_prng_fill(&state, chunk, now);
        fwrite(chunk, 1, now, stdout);
        left -= now;
    }
    return st == TAV_OK ? OK : fail("generator", st, 0, NULL);
}

static int lines_cmd(int count, char **args) {
    char *stdin_only[] = {"-"};
    int named = count > 0;
    if (!named) {
        args = stdin_only;
        count = 1;
    }
    uint64_t *lines = calloc((size_t)count, sizeof *lines);
    uint64_t total = 0, regular_bytes = 0;
    int width = 1, minimum_width = 1;
    if (lines == NULL) {
        return fail("counts", TAV_ERR_NOMEM, 0, NULL);
    }
    for (int i = 0; i < count; i++) {
        int32_t fd = 0, error_number = 0;
        tav_status st = TAV_OK;
        struct stat info;
        if (strcmp(args[i], "-") != 0) {
            st = tav_util_open(&fd, &error_number, O_RDONLY | O_CLOEXEC, 0, "%s", args[i]);
        }
        if (st == TAV_OK) {
            st = tav_util_count_lines(fd, &lines[i], &error_number);
            if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
                regular_bytes += (uint64_t)info.st_size;
            } else {
                minimum_width = 7;
            }
        }
        if (fd > 0) {
            close(fd);
        }
        if (st != TAV_OK) {
            free(lines);
            return fail(args[i], st, error_number, NULL);
        }
        total += lines[i];
    }
    /* Columns as wide as the byte total of the files could need, as wc -l
     * lays out several files; one file gets no padding. */
    for (; count > 1 && regular_bytes >= 10; regular_bytes /= 10) {
        width++;
    }
    width = count > 1 && width < minimum_width ? minimum_width : width;
    for (int i = 0; i < count; i++) {
        printf(named ? "%*" PRIu64 " %s\n" : "%*" PRIu64 "\n", width, lines[i], args[i]);
    }
    if (count > 1) {
        printf("%*" PRIu64 " total\n", width, total);
    }
    free(lines);
    return OK;
}

static int pidof_cmd(int count, char **args) {
    (void)count;
    uint32_t *pids = NULL;
    uint64_t found = 0;
    tav_status st = tav_util_pid_of(args[0], opt.exact ? 1 : 0, &pids, &found);
    for (uint64_t i = 0; st == TAV_OK && i < found; i++) {
        printf(i + 1 < found ? "%" PRIu32 " " : "%" PRIu32 "\n", pids[i]);
    }
    free(pids);
    if (st != TAV_OK) {
        return fail("/proc", st, 0, NULL);
    }
    return found > 0 ? OK : FAILURE;
}

static int procstat_cmd(int count, char **args) {
    uint64_t pid = 0;
    if (count && (!parse_u64(args[0], &pid) || pid > INT32_MAX)) {
        return misuse("not a process id: ", args[0]);
    }
    tav_proc_stat r;
    tav_status st = tav_util_proc_stat(&r, (int32_t)pid);
    if (st != TAV_OK) {
        return fail(count ? args[0] : "self", st, 0, NULL);
    }
    /* The numbers in the record's order, each widened with its own sign; the
     * six that the record keeps unsigned although the kernel prints them
     * signed (cutime to itrealvalue) are shown as the kernel prints them. */
#define S(field)                                                                                   \
    { #field, (uint64_t)(int64_t)r.field, 1 }
#define U(field)                                                                                   \
    { #field, (uint64_t)r.field, 0 }
    const struct {
        const char *name;
        uint64_t value;
        int is_signed;
    } fields[] = {
        // clang-format off
        S(ppid), S(pgrp), S(session), S(tty_nr), S(tpgid), U(flags), U(minflt), U(cminflt),
        U(majflt), U(cmajflt), U(utime), U(stime), S(cutime), S(cstime), S(priority), S(nice),
        S(num_threads), S(itrealvalue), U(starttime), U(vsize), S(rss), U(rsslim), U(startcode),
        U(endcode), U(startstack), U(kstkesp), U(kstkeip), U(signal), U(blocked), U(sigignore),
        U(sigcatch), U(wchan), U(nswap), U(cnswap), S(exit_signal), S(processor),
        U(rt_priority), U(policy), U(delayacct_blkio_ticks),
        // clang-format on
    };
#undef S
#undef U
    printf("pid: %" PRId32 "\ncomm: %s\nstate: %c\n", r.pid, r.comm, r.state);
    for (size_t i = 0; i < sizeof fields / sizeof fields[0]; i++) {
        printf(fields[i].is_signed ? "%s: %" PRId64 "\n" : "%s: %" PRIu64 "\n", fields[i].name,
               fields[i].value);
    }
    return OK;
}

static int claim_cmd(int count, char **args) {
    (void)count;
    uint32_t holder = 0;
    tav_status st = tav_util_claim_pid_file(args[0], args[1], &holder);
    if (st == TAV_ERR_ALREADY_RUNNING) {
        printf("%" PRIu32 "\n", holder);
        fprintf(stderr, "tavutil claim: %s is held by running instance %" PRIu32 "\n", args[0],
                holder);
        return FAILURE;
    }
    if (st != TAV_OK) {
        return fail(args[0], st, 0, NULL);
    }
    /* The pid written is ours, and stays the program's across the exec. */
    fflush(stdout);
    execvp(args[1], args + 1);
    return fail(args[1], TAV_ERR_SYSTEM, errno, NULL);
}

static volatile sig_atomic_t child_pid, child_code = -1;

static void on_child(int signal_number, siginfo_t *info, void *context) {
    (void)signal_number, (void)context;
    if (info->si_pid == child_pid) {
        child_code = info->si_code == CLD_EXITED ? info->si_status : 128 + info->si_status;
    }
}

static int run_cmd(int count, char **args) {
    (void)count;
    if (opt.seconds < 0 && opt.seconds != INT32_MIN) {
        return misuse("the time limit must be 0 or more", "");
    }
    /* The bounded wait collects the child without its status: the status
     * comes with SIGCHLD, which is queued before the child can be collected. */
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_sigaction = on_child;
    action.sa_flags = SA_SIGINFO | SA_NOCLDSTOP | SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGCHLD, &action, NULL);
    /* Held back until the child's pid is known to the handler. */
    sigset_t chld, before;
    sigemptyset(&chld);
    sigaddset(&chld, SIGCHLD);
    sigprocmask(SIG_BLOCK, &chld, &before);
    fflush(NULL);
    pid_t pid = fork();
    if (pid == 0) {
        sigprocmask(SIG_SETMASK, &before, NULL);
        execvp(args[0], args);
        fprintf(stderr, "tavutil run: %s: %s\n", args[0], strerror(errno));
        _exit(127);
    }
    if (pid < 0) {
        return fail("fork", TAV_ERR_SYSTEM, errno, NULL);
    }
    child_pid = pid;
    sigprocmask(SIG_SETMASK, &before, NULL);
    tav_status st =
        tav_util_await_child_timeout(pid, opt.seconds == INT32_MIN ? INT32_MAX : opt.seconds);
    if (st == TAV_ERR_TIMEOUT) {
        waitpid(pid, NULL, 0);
        fprintf(stderr, "tavutil run: %s: killed after %d second(s)\n", args[0], (int)opt.seconds);
        return FAILURE;
    }
    return st == TAV_OK ? (int)child_code : fail(args[0], st, 0, NULL);
}

static int ls_cmd(int count, char **args) {
    const char *path = count ? args[0] : ".";
    tav_util_dirscan_handle *scan = tav_util_dirscan_begin(path);
    if (scan == NULL) {
        return fail(path, TAV_ERR_SYSTEM, 0, NULL);
    }
    tav_status st;
    while ((st = tav_util_dirscan(scan)) == TAV_OK) {
        char *name = tav_dirscan_file_name(scan);
        if (name == NULL) {
            st = TAV_ERR_NOMEM;
            break;
        }
        puts(name);
        free(name);
    }
    tav_util_dirscan_end(scan);
    return st == TAV_ERR_NO_MORE ? OK : fail(path, st, 0, NULL);
}

static int now_cmd(int count, char **args) {
    (void)count, (void)args;
    char text[64];
    size_t size = sizeof text;
    int32_t error_number = 0;
    tav_status st = tav_util_now_str(text, &size, &error_number);
    if (st != TAV_OK) {
        return fail("clock", st, error_number, NULL);
    }
    puts(text);
    return OK;
}

static int human_cmd(int count, char **args) {
    (void)count;
    char *end, text[64];
    double seconds = strtod(args[0], &end);
    if (end == args[0] || *end != '\0' || !isfinite(seconds)) {
        return misuse("not a number of seconds: ", args[0]);
    }
    tav_util_snprintf_human_time(text, sizeof text, seconds);
    puts(text);
    return OK;
}

static int help_cmd(int count, char **args);

static const struct command commands[] = {
    {"base64", base64_cmd, O_DECODE, 0, 1, "[-d] [FILE]",
     "Base64 of FILE (or standard input) in lines of 76 characters; -d decodes,\n"
     "skipping every character outside the alphabet. Same bytes as coreutils base64."},
    {"hex", hex_cmd, O_DECODE, 0, 1, "[-d] [FILE]",
     "Lower-case hex text in lines of 60 digits, as xxd -p prints it; -d turns\n"
     "hex text (blanks and line ends allowed) back into bytes, as xxd -r -p."},
    {"hexdump", hexdump_cmd, 0, 0, 1, "[FILE]",
     "The library's hex dump: 16 bytes a row, upper-case pairs, printable text."},
    {"hash", hash_cmd, 0, 0, -1, "[FILE...]",
     "The 64-bit hash of each FILE's whole content, as 16 hex digits and the name."},
    {"random", random_cmd, O_SEED, 1, 1, "[-s SEED] COUNT",
     "COUNT pseudo-random bytes from SEED (default 0); the same seed gives the same bytes."},
    {"lines", lines_cmd, 0, 0, -1, "[FILE...]",
     "Line ends in each FILE, laid out as wc -l; input must be seekable."},
    {"pidof", pidof_cmd, O_EXACT, 1, 1, "[-x] TEXT",
     "Processes whose first argument holds TEXT (-x: equals it), in /proc's order;\n"
     "exit status 1 when none matches."},
    {"procstat", procstat_cmd, 0, 0, 1, "[PID]",
     "The status record of PID (default: this process), one \"name: value\" line a field."},
    {"claim", claim_cmd, REST, 2, -1, "PIDFILE PROGRAM [ARG...]",
     "Claims PIDFILE for PROGRAM and runs it under this pid; when a running PROGRAM\n"
     "holds it, prints the holder's pid and exits 1."},
    {"run", run_cmd, O_TIME | REST, 1, -1, "[-t SECONDS] PROGRAM [ARG...]",
     "Runs PROGRAM and exits with its code (128 + N for signal N, 127 if it cannot\n"
     "start); with -t, kills it when SECONDS have passed and exits 1."},
    {"ls", ls_cmd, 0, 0, 1, "[DIR]",
     "The names in DIR (default .), hidden ones too, in ascending order ignoring case."},
    {"now", now_cmd, 0, 0, 0, "",
     "The present local time in the C library's ctime form, without its line end."},
    {"human", human_cmd, 0, 1, 1, "SECONDS",
     "SECONDS as the library's human text: \"90\" gives \"2 minutes\"."},
    {"help", help_cmd, 0, 0, 1, "[COMMAND]", "What each command does."},
};
enum { COMMAND_COUNT = sizeof commands / sizeof commands[0] };

static const struct command *find(const char *name) {
    for (int i = 0; i < COMMAND_COUNT; i++) {
        if (strcmp(commands[i].name, name) == 0) {
            return &commands[i];
        }
    }
    return NULL;
}

static void describe(const struct command *c) {
    printf("usage: tavutil %s %s\n%s\n", c->name, c->usage, c->text);
}

static int help_cmd(int count, char **args) {
    if (count) {
        const struct command *c = find(args[0]);
        if (c == NULL) {
            return misuse("unknown command: ", args[0]);
        }
        describe(c);
        return OK;
    }
    printf("usage: tavutil COMMAND [OPTION...] [ARG...]; tavutil COMMAND --help\n"
           "Exit status 0 on success, 1 on failure, 2 on misuse.\n\n");
    for (int i = 0; i < COMMAND_COUNT; i++) {
        const struct command *c = &commands[i];
        printf("  %s%*s%s\n", c->name, c->usage[0] ? 10 - (int)strlen(c->name) : 0, "", c->usage);
    }
    return OK;
}

/* ---- options ---- */

static tav_status probe(const tav_util_option *row, const char *argument, int32_t *consumed) {
    (void)argument, (void)consumed;
    *(const tav_util_option **)row->target = row;
    return TAV_OK;
}

/* Walks the options before the first argument (run and claim hand the rest
 * to their program) or all of them. Each token is offered alone to the
 * parser, first with a probe table to learn which row, if any, it names,
 * then to the real row with its value. Tokens that name no row are
 * arguments, unless they look like options. */
static int parse(int argc, char **argv, char **args, int *count) {
    tav_util_option rows[ROW_COUNT], probes[ROW_COUNT];
    const tav_util_option *hit;
    int32_t n = 0;
    for (int i = 0; i < ROW_COUNT; i++) {
        if ((cmd->options | O_HELP) & (1u << i)) {
            rows[n] = all_rows[i];
            probes[n] = rows[n];
            probes[n].handler = probe;
            probes[n].target = &hit;
            probes[n++].takes_argument = 0;
        }
    }
    *count = 0;
    for (int32_t i = 2; i < argc; i++) {
        int options_end = *count > 0 && (cmd->options & REST);
        hit = NULL;
        if (!options_end) {
            tav_util_getopt_from(i + 1, argv, probes, n, i);
        }
        if (hit == NULL) {
            if (!options_end && argv[i][0] == '-' && argv[i][1] != '\0') {
                return misuse("unknown option ", argv[i]);
            }
            args[(*count)++] = argv[i];
            continue;
        }
        const tav_util_option *row = &rows[hit - probes];
        if (row->takes_argument && i + 1 >= argc) {
            return misuse("missing value for ", argv[i]);
        }
        tav_status st = tav_util_getopt_from(i + 1 + (row->takes_argument != 0), argv, row, 1, i);
        if (st != TAV_OK) {
            fprintf(stderr, "tavutil %s: bad value for %s: %s (status %d)\n", cmd->name, argv[i],
                    row->takes_argument ? argv[i + 1] : "", (int)st);
            return MISUSE;
        }
        i += row->takes_argument != 0;
    }
    return OK;
}

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: tavutil COMMAND [ARG...]; tavutil help lists the commands\n");
        return MISUSE;
    }
    cmd = find(argv[1]);
    if (cmd == NULL) {
        fprintf(stderr, "tavutil: unknown command '%s'; tavutil help lists the commands\n",
                argv[1]);
        return MISUSE;
    }
    char **args = calloc((size_t)argc, sizeof *args);
    int count = 0, status;
    if (args == NULL) {
        return fail("arguments", TAV_ERR_NOMEM, 0, NULL);
    }
    status = parse(argc, argv, args, &count);
    if (status == OK && opt.help) {
        describe(cmd);
    } else if (status == OK &&
               (count < cmd->min_args || (cmd->max_args >= 0 && count > cmd->max_args))) {
        status = misuse(count < cmd->min_args ? "missing argument" : "too many arguments", "");
    } else if (status == OK) {
        status = cmd->run(count, args);
    }
    free(args);
    free(opt.seed);
    if (fflush(stdout) != 0 || ferror(stdout)) {
        fprintf(stderr, "tavutil %s: standard output: %s\n", cmd->name, strerror(errno));
        return FAILURE;
    }
    return status;
}
