/* A small tour of libtavutil, as a C user would write it. */
#include <stdio.h>
#include <stdlib.h>

#include <tavutil.h>

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

/* The program's own options, from a table of rows:
 *   --name TEXT (-n), --count N (-c), --verbose (-v). */
static void options(int argc, char **argv) {
    char *name = NULL; /* a string option must start out null */
    int32_t count = 1, verbose = 0;
    const tav_util_option rows[] = {
        {'n', "name", tav_util_getopt_string, &name, 1},
        {'c', "count", tav_util_getopt_int, &count, 1},
        {'v', "verbose", tav_util_getopt_flag, &verbose, 0},
    };
    tav_status status = tav_util_getopt(argc, argv, rows, sizeof rows / sizeof rows[0]);
    printf("options: status %d, name \"%s\", count %d, verbose %d\n", (int)status,
           name != NULL ? name : "(none)", (int)count, (int)verbose);
    free(name);
}

static void failure_report(void) {
    /* A failure reaches the error trace: a null out-argument. */
    tav_status status = tav_util_asprintf(NULL, NULL, "%d", 1);
    printf("null out gives status %d; the trace holds:\n", (int)status);
    tav_trace_print(stdout);
}

int main(int argc, char **argv) {
    options(argc, argv);
    formatting();
    string_buffer();
    string_operations();
    encoding();
    hashing_and_random();
    failure_report();
    return 0;
}
