// The option table parser: one walk over argv through the caller's rows, and
// the three standard handlers. Tokens that match no row are passed over
// without a word; nothing is reordered, copied or handed back.
#include <cstring>
#include <string_view>

#include "internal/frame.hpp"

namespace {

// Longest argument the standard handlers take.
constexpr uint64_t kLongestArgument = 300;

// The first row whose short name is `name`. A two-byte token's second byte is
// never 0, so rows without a short name (0) never match here.
const tav_util_option *short_row(const tav_util_option *rows, int32_t row_count, char name) {
    for (int32_t i = 0; i < row_count; ++i) {
        if (rows[i].short_option == name) {
            return &rows[i];
        }
    }
    return nullptr;
}

// The first row whose long name is exactly `name`. The name is never empty,
// so rows without a long name ("") never match. The row's name is read
// within its 31 bytes even if the caller left it unterminated.
const tav_util_option *long_row(const tav_util_option *rows, int32_t row_count, const char *name) {
    constexpr size_t kField = sizeof rows->long_option;
    const std::string_view wanted(name, strnlen(name, kField + 1));
    for (int32_t i = 0; i < row_count; ++i) {
        if (std::string_view(rows[i].long_option, strnlen(rows[i].long_option, kField)) == wanted) {
            return &rows[i];
        }
    }
    return nullptr;
}

// The row a token selects, or null. One or two lead characters ("-" or "/",
// then "-" or not) stand before a long name; a single one before a short name.
const tav_util_option *matching_row(const tav_util_option *rows, int32_t row_count,
                                    const char *token) {
    const size_t measure = strnlen(token, 3);
    if (measure < 2 || (token[0] != '-' && token[0] != '/')) {
        return nullptr;
    }
    if (measure == 2) {
        return short_row(rows, row_count, token[1]);
    }
    return long_row(rows, row_count, token[1] == '-' ? token + 2 : token + 1);
}

// Runs one matched row. The walk moves on by what `takes_argument` says, never
// by what the handler wrote to its counter, and only when the handler
// succeeded.
tav_status process_option(const tav_util_option *row, char *const argv[], int32_t argc,
                          int32_t *index) {
    // Every row that can match must have a handler; a row without one is
    // refused rather than called through a null pointer.
    if (row->handler == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    int32_t consumed = 0;
    const char *argument = nullptr;
    int32_t advance = 1;
    if (row->takes_argument != 0) {
        if (*index + 1 >= argc) {
            TAV_PLAIN_LINE("Missing mandatory option\n");
            return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
        }
        argument = argv[*index + 1];
        advance = 2;
    }
    const tav_status status = row->handler(row, argument, &consumed);
    if (status != TAV_OK) {
        return tav::traced_again(TAV_SITE, status);
    }
    *index += advance;
    return TAV_OK;
}

// The three standard handlers share their first test: every pointer they
// use must be there.
bool missing(const tav_util_option *row, const int32_t *consumed) {
    return row == nullptr || consumed == nullptr || row->target == nullptr;
}

} // namespace

extern "C" {

tav_status tav_util_getopt(int32_t argc, char *const argv[], const tav_util_option *rows,
                           int32_t row_count) {
    if (rows == nullptr || argv == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (argc <= 0 || row_count <= 0) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    return tav_util_getopt_from(argc, argv, rows, row_count, 1);
}

tav_status tav_util_getopt_from(int32_t argc, char *const argv[], const tav_util_option *rows,
                                int32_t row_count, int32_t start) {
    if (rows == nullptr || argv == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (argc <= 0 || row_count <= 0 || start < 0) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    int32_t index = start;
    while (index < argc) {
        const tav_util_option *row = matching_row(rows, row_count, argv[index]);
        if (row == nullptr) {
            ++index;
            continue;
        }
        const tav_status status = process_option(row, argv, argc, &index);
        if (status != TAV_OK) {
            const tav::Site tested = TAV_SITE;
            return tav::traced_twice(tested, TAV_SITE, status);
        }
    }
    return TAV_OK;
}

tav_status tav_util_getopt_string(const tav_util_option *row, const char *argument,
                                  int32_t *consumed) {
    if (missing(row, consumed) || argument == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    char **variable = static_cast<char **>(row->target);
    if (*variable != nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    const uint64_t length = tav_util_strnlen(argument, kLongestArgument + 1);
    if (length > kLongestArgument) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    auto *copy = static_cast<char *>(std::calloc(length + 1, 1));
    if (copy == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    std::memcpy(copy, argument, length);
    copy[length] = '\0';
    *variable = copy;
    *consumed = 2;
    return TAV_OK;
}

tav_status tav_util_getopt_int(const tav_util_option *row, const char *argument,
                               int32_t *consumed) {
    if (missing(row, consumed) || argument == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (strnlen(argument, kLongestArgument + 1) > kLongestArgument) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    // Straight into the target: a failed conversion leaves it alone.
    if (std::sscanf(argument, "%d", static_cast<int32_t *>(row->target)) != 1) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    *consumed = 2;
    return TAV_OK;
}

tav_status tav_util_getopt_flag(const tav_util_option *row, const char * /*argument*/,
                                int32_t *consumed) {
    if (missing(row, consumed)) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    if (row->takes_argument != 0) {
        return tav::traced(TAV_SITE, TAV_ERR_BAD_ARG);
    }
    *static_cast<int32_t *>(row->target) = 1;
    *consumed = 1;
    return TAV_OK;
}

} // extern "C"
