/* A small daemon built on libtavutil, as a C user would write it: it takes
 * its options from a table, claims a pid file, ignores the common signals,
 * runs a child under a time limit, reads its own status record and reports
 * failures through the library. */
#define _POSIX_C_SOURCE 200809L
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <tavutil.h>

/* Two operations live in the library without being exported; this program
 * links the static archive, which holds them too. */
tav_status tav_util_await_child_timeout(int32_t pid, int32_t seconds);
tav_status tav_util_proc_stat(tav_proc_stat *ret_proc_stat, int32_t pid);

/* The stand-in error trace offers this to show what was recorded. */
void tav_trace_print(FILE *stream);

static void formatting(void) {
    char *greeting = NULL;
    int32_t error_number = -1;
    if (tav_util_asprintf(&greeting, &error_number, "%s, %d %s", "hello", 3, "times") == TAV_OK) {
        printf("formatted: \"%s\" (errno slot %d)\n", greeting, (int)error_number);
    }
    tav_util_free(&greeting);

    char small[8];
    int32_t written = tav_util_snprintf(small, sizeof small, "%s", "does not fit");
    printf("bounded: %d, buffer holds \"%s\"\n", (int)written, small);
}

static void string_buffer(void) {
    tav_util_strbuf *sb = tav_util_strbuf_new(0);
    if (sb == NULL) {
        return;
    }
    static const unsigned char bytes[] = {0x00, 0x41, 0x42, 0xff};
    tav_util_strbuf_append_f(sb, "user=%s id=%d\n", "alice", 42);
    int32_t delta = tav_util_strbuf_substitute(sb, "alice", 0, "%s", "bob");
    tav_util_strbuf_hexdump(sb, "  ", bytes, sizeof bytes);
    printf("%s(length change %d)\n", tav_util_strbuf_getstr(sb), (int)delta);
    tav_util_strbuf_free(sb);
}

static void string_operations(void) {
    char **fields = NULL;
    uint64_t count = 0;
    if (tav_util_split("alpha::beta::::gamma", "::", &fields, &count) == TAV_OK) {
        char *line = NULL;
        uint64_t size = 0;
        if (tav_util_join((const char *const *)fields, count, ", ", &line, &size) == TAV_OK) {
            printf("split into %d, joined: \"%s\" (%d bytes)\n", (int)count, line, (int)size);
        }
        free(line);
        for (uint64_t i = 0; i < count; ++i) {
            free(fields[i]);
        }
        free(fields);
    }
    char *hex = NULL;
    const uint8_t raw[] = {0xde, 0xad, 0x00, 0x2a};
    if (tav_util_sprintf_bytes(raw, sizeof raw, &hex) == TAV_OK) {
        printf("hex: %s\n", hex);
    }
    free(hex);
}

static void encoding(void) {
    const uint8_t secret[] = "tav";
    char *text = NULL;
    uint8_t *back = NULL;
    uint64_t text_size = 0, back_size = 0;
    if (tav_util_base64_encode(secret, 3, &text, &text_size) == TAV_OK &&
        tav_util_base64_decode(text, text_size, &back, &back_size) == TAV_OK) {
        printf("base64: %.*s -> %.*s\n", (int)text_size, text, (int)back_size, (char *)back);
    }
    free(text);
    free(back);
    uint8_t bits[] = {0xAB, 0xCD};
    uint64_t length = sizeof bits;
    tav_util_shift_bitstring_left(bits, &length, 4);
    printf("shifted: %02X %02X (length %llu)\n", bits[0], bits[1], (unsigned long long)length);
}

static void hashing_and_random(void) {
    /* Hash a key, seed a generator from it, draw words and bytes. */
    uint64_t key_hash = 0;
    if (tav_util_hash64("session-42", 10, &key_hash) == TAV_OK) {
        tav_util_prng_state rng;
        uint64_t words[4];
        unsigned char token[13];
        tav_util_seed_prng(&rng, key_hash, 0);
        tav_util_prng_batch(&rng, words, 4);
        tav_util_prng_fill(&rng, token, sizeof token);
        printf("hash %016llx, first word %016llx, token starts %02x\n",
               (unsigned long long)key_hash, (unsigned long long)words[0], token[0]);
    }
    printf("1000 items -> %llu slots%s\n", (unsigned long long)round_up_power_2(1000),
           tav_util_check_multiply_overflow_u64(UINT64_MAX / 2, 3) ? " (a product would overflow)"
                                                                   : "");
}

/* The daemon's settings, from a table of option rows:
 *   --pid-file PATH (-p), --work SECONDS (-w), --limit SECONDS (-l),
 *   --tour (-t) for a tour of the text and number helpers first. */
struct settings {
    char *pid_file; /* a string option must start out null */
    int32_t work, limit, tour;
};

static tav_status parse_options(int argc, char **argv, struct settings *s) {
    const tav_util_option rows[] = {
        {'p', "pid-file", tav_util_getopt_string, &s->pid_file, 1},
        {'w', "work", tav_util_getopt_int, &s->work, 1},
        {'l', "limit", tav_util_getopt_int, &s->limit, 1},
        {'t', "tour", tav_util_getopt_flag, &s->tour, 0},
    };
    return tav_util_getopt(argc, argv, rows, sizeof rows / sizeof rows[0]);
}

/* One instance at a time: the pid file names the holder. Instances compare
 * by their first argument, so start them the same way. */
static int claim(const char *pid_file, const char *program) {
    uint32_t holder = 0;
    tav_status status = tav_util_claim_pid_file(pid_file, program, &holder);
    if (status == TAV_ERR_ALREADY_RUNNING) {
        printf("[%d] %s is held by running instance %u: not starting\n", (int)getpid(), pid_file,
               (unsigned)holder);
    } else if (status != TAV_OK) {
        printf("[%d] could not claim %s: status %d\n", (int)getpid(), pid_file, (int)status);
    } else {
        printf("[%d] claimed %s\n", (int)getpid(), pid_file);
    }
    return status == TAV_OK;
}

/* A child doing `work` seconds of work, allowed `limit`: past it, killed. */
static void run_child(int32_t work, int32_t limit) {
    char seconds[16];
    snprintf(seconds, sizeof seconds, "%d", (int)work);
    pid_t child = fork();
    if (child == 0) {
        execl("/bin/sleep", "sleep", seconds, (char *)NULL);
        _exit(127);
    }
    if (child < 0) {
        return;
    }
    tav_status status = tav_util_await_child_timeout(child, limit);
    if (status == TAV_ERR_TIMEOUT) {
        waitpid(child, NULL, 0); /* killed, not yet collected */
    }
    printf("[%d] child %d, %ds of work in a %ds limit: %s\n", (int)getpid(), (int)child, (int)work,
           (int)limit,
           status == TAV_OK            ? "done"
           : status == TAV_ERR_TIMEOUT ? "killed"
                                       : "failed");
}

static void own_status(void) {
    tav_proc_stat st;
    char *host = tav_util_get_hostname();
    if (tav_util_proc_stat(&st, 0) == TAV_OK) {
        printf("[%d] %s on %s: state %c, parent %d, %llu thread(s), thread id %lld, "
               "%llu kB resident\n",
               (int)st.pid, st.comm, host != NULL ? host : "?", st.state, (int)st.ppid,
               (unsigned long long)st.num_threads, (long long)tav_util_tid(),
               (unsigned long long)st.rss * (unsigned long long)(sysconf(_SC_PAGESIZE) / 1024));
    }
    free(host);
}

static void failure_report(void) {
    /* A failure reaches the error trace: a null out-argument. */
    tav_status status = tav_util_asprintf(NULL, NULL, "%d", 1);
    printf("null out gives status %d; the trace holds:\n", (int)status);
    tav_trace_print(stdout);
}

int main(int argc, char **argv) {
    struct settings s = {NULL, 1, 3, 0};
    if (parse_options(argc, argv, &s) != TAV_OK) {
        tav_trace_print(stdout);
        return 2;
    }
    const char *pid_file = s.pid_file != NULL ? s.pid_file : "/tmp/tavutil_demo.pid";
    if (s.tour) {
        formatting();
        string_buffer();
        string_operations();
        encoding();
        hashing_and_random();
    }
    if (!claim(pid_file, argv[0])) {
        tav_trace_print(stdout);
        free(s.pid_file);
        return 1;
    }
    /* A daemon shrugs off hang-ups and broken pipes, but keeps SIGCHLD's
     * default: ignored, its children would vanish unwaited. */
    tav_util_ignore_common_signals();
    tav_util_reset_signal(SIGCHLD);
    run_child(s.work, s.limit);
    own_status();
    failure_report();
    unlink(pid_file); /* the claim leaves the file; its owner removes it */
    free(s.pid_file);
    return 0;
}
