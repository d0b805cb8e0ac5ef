// The growing string buffer: formatted appends, a hex dump and
// search-and-replace. It knows no status codes: results are counts, and
// failures show as plain error lines only.
#include <cctype>
#include <cstring>
#include <string_view>

#include "internal/frame.hpp"

namespace {

constexpr int32_t kDefaultCapacity = 128;
constexpr int32_t kDefaultHexLimit = 256;
constexpr int64_t kGrowthMargin = 128;
constexpr int64_t kRowBytes = 16;
constexpr const char *kDefaultIndent = "    ";
constexpr char kHexDigits[] = "0123456789ABCDEF";

// The capacity the block grows to when `n` characters did not fit behind
// `length`. vsnprintf answers -1 when it cannot tell how much it needs, so
// the block is doubled and the append tried again.
int64_t grown_capacity(int n, int64_t capacity, size_t length) {
    return n == -1 ? capacity * 2 : n + static_cast<int64_t>(length) + kGrowthMargin;
}

// The capacity field is 32-bit signed, so a block of 2 GiB or more could not
// be described: such a growth is refused as a failed realloc would be, and
// an endless -1 from vsnprintf stops doubling there. A capacity that does not
// grow (only a record whose fields were set by hand has one) is refused too,
// so a realloc never shrinks or frees the block under the text.
bool representable(int64_t new_capacity, int64_t capacity) {
    return new_capacity > capacity && new_capacity <= INT32_MAX;
}

// The append from its first vsnprintf on, for a text whose length is known:
// the public append measures the text, and the dump and substitute keep the
// length as they go, so that many appends to one record cost no pass over
// the text each. It bears the append's own name, since the lines it makes
// are the append's.
int32_t tav_util_strbuf_append_fv(tav_util_strbuf *record, size_t length, const char *format,
                                  va_list args) {
    char *text = record->text;
    int64_t capacity = record->capacity;
    for (;;) {
        const int n = std::vsnprintf(text + length, static_cast<size_t>(capacity) - length, format,
                                     tav::ArgsCopy(args).get());
        // Exactly capacity - length - 1 characters still fit with the terminator.
        if (n >= 0 && static_cast<int32_t>(capacity - static_cast<int64_t>(length)) > n) {
            return n;
        }

        const int64_t new_capacity = grown_capacity(n, capacity, length);
        char *grown =
            representable(new_capacity, capacity)
                ? static_cast<char *>(std::realloc(text, static_cast<size_t>(new_capacity)))
                : nullptr;
        if (grown == nullptr) {
            // The old block stays the record's, holding what fitted of the text.
            TAV_PLAIN_LINE("Could not realloc strbuf to %ld", static_cast<long>(new_capacity));
            TAV_PLAIN_LINE("Error in strbuf");
            return -1;
        }
        text = grown;
        capacity = new_capacity;
        record->text = text;
        record->capacity = static_cast<int32_t>(capacity);
        std::memset(text + length, 0, static_cast<size_t>(capacity) - length);
    }
}

// Appends to one record that keep the text's length as they go: the pieces
// of a hex dump and of a substitution. A piece whose bytes are known and fit
// in the block as it is gets copied in with its terminator, exactly what
// vsnprintf would write there. Anything else is a real append from the kept
// length, so capacities, failure lines and a text cut short by a failed
// growth are those of one append per piece. After a real append the length
// is found again from the kept one on: a format may write a zero byte, and a
// failed growth leaves what fitted.
class KeptAppends {
  public:
    explicit KeptAppends(tav_util_strbuf *record)
        : record_(record), length_(record->text != nullptr ? std::strlen(record->text) : 0) {}

    // One append whose bytes are `head` then `tail`, what `format` gives
    // with its arguments; its result is the append's. A template, so that
    // the common case inlines.
    template <typename... Args>
    int32_t append(std::string_view head, std::string_view tail, const char *format, Args... args) {
        const size_t n = head.size() + tail.size();
        if (fits_without_growth(n)) {
            copy_in(head);
            copy_in(tail);
            record_->text[length_] = '\0';
            return static_cast<int32_t>(n);
        }
        return append_printed(format, args...);
    }

    // One append of a format whose bytes are not known beforehand.
    int32_t append_v(const char *format, va_list args) {
        int32_t appended;
        if (record_->text == nullptr) {
            appended = tav_util_strbuf_append_fv(record_, format, args); // makes the first block
        } else {
            appended = tav_util_strbuf_append_fv(record_, length_, format, args);
        }
        if (record_->text != nullptr) {
            length_ += std::strlen(record_->text + length_);
        }
        return appended;
    }

  private:
    int32_t append_printed(const char *format, ...) {
        va_list args;
        va_start(args, format);
        const int32_t appended = append_v(format, args);
        va_end(args);
        return appended;
    }

    // The append's own test: it grows unless capacity - length exceeds n.
    bool fits_without_growth(size_t n) const {
        return record_->text != nullptr &&
               static_cast<int64_t>(record_->capacity) - static_cast<int64_t>(length_) >
                   static_cast<int64_t>(n);
    }

    // An empty piece has no bytes (and perhaps no pointer) to copy.
    void copy_in(std::string_view piece) {
        if (!piece.empty()) {
            std::memcpy(record_->text + length_, piece.data(), piece.size());
            length_ += piece.size();
        }
    }

    tav_util_strbuf *record_;
    size_t length_;
};

// A row character: the byte itself where it is printable, else a full stop.
void append_row_characters(KeptAppends &out, const unsigned char *row, int64_t count) {
    for (int64_t j = 0; j < count; ++j) {
        const char shown = std::isprint(row[j]) ? static_cast<char>(row[j]) : '.';
        out.append({&shown, 1}, {}, "%c", shown);
    }
}

} // namespace

extern "C" {

tav_util_strbuf *tav_util_strbuf_new(int32_t capacity) {
    tav::MallocPtr<tav_util_strbuf> record(
        static_cast<tav_util_strbuf *>(std::calloc(1, sizeof(tav_util_strbuf))));
    if (!record) {
        return nullptr;
    }
    if (capacity == 0) {
        capacity = kDefaultCapacity;
    }
    // Widened with its sign: a negative capacity asks for an impossible block.
    record.get()->text =
        static_cast<char *>(std::calloc(1, static_cast<size_t>(static_cast<int64_t>(capacity))));
    if (record.get()->text == nullptr) {
        return nullptr;
    }
    record.get()->capacity = capacity;
    record.get()->hex_limit = kDefaultHexLimit;
    return record.release();
}

void tav_util_strbuf_free(tav_util_strbuf *record) {
    if (record == nullptr) {
        return;
    }
    std::free(record->text);
    std::free(record);
}

void tav_util_strbuf_clear(tav_util_strbuf *record) {
    // A null record or one that has no block yet is already empty: left alone
    // rather than written through a null pointer.
    if (record == nullptr || record->text == nullptr) {
        return;
    }
    record->text[0] = '\0';
}

int32_t tav_util_strbuf_append_fv(tav_util_strbuf *record, const char *format, va_list args) {
    if (record == nullptr) {
        TAV_PLAIN_LINE("NULL strbuf");
        TAV_PLAIN_LINE("Error in strbuf");
        return -1;
    }
    // vsnprintf cannot take a null format: it is refused as the null record
    // is, and the record is not touched.
    if (format == nullptr) {
        TAV_PLAIN_LINE("NULL format");
        TAV_PLAIN_LINE("Error in strbuf");
        return -1;
    }

    char *text = record->text;
    int64_t capacity = record->capacity;
    if (text == nullptr) {
        if (capacity == 0) {
            capacity = kDefaultCapacity;
        }
        text = static_cast<char *>(std::calloc(1, static_cast<size_t>(capacity)));
        if (text == nullptr) {
            TAV_PLAIN_LINE("Alloc failed for strbuf");
            TAV_PLAIN_LINE("Error in strbuf");
            return -1;
        }
        record->text = text;
        record->capacity = static_cast<int32_t>(capacity);
    }

    return tav_util_strbuf_append_fv(record, std::strlen(text), format, args);
}

int32_t tav_util_strbuf_append_f(tav_util_strbuf *record, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t appended = tav_util_strbuf_append_fv(record, format, args);
    va_end(args);
    return appended;
}

void tav_util_strbuf_set_hex_limit(tav_util_strbuf *record, int32_t limit) {
    if (record == nullptr) {
        return;
    }
    record->hex_limit = limit;
}

void tav_util_strbuf_hexdump(tav_util_strbuf *record, const char *prefix, const void *bytes,
                             int64_t length) {
    if (record == nullptr || bytes == nullptr || length == 0) {
        return;
    }
    const char *indent = prefix != nullptr ? prefix : kDefaultIndent;
    const std::string_view indent_text(indent);
    const auto *data = static_cast<const unsigned char *>(bytes);
    const int32_t limit = record->hex_limit;
    KeptAppends out(record);
    unsigned char row[kRowBytes];

    int64_t i = 0;
    for (; i < length && (limit == 0 || i < limit); ++i) {
        if (i == 0) {
            out.append(indent_text, {}, "%s", indent);
        } else if (i % kRowBytes == 0) {
            out.append(" : ", {}, " : ");
            append_row_characters(out, row, kRowBytes);
            out.append("\n", indent_text, "\n%s", indent);
        } else if (i % 8 == 0) {
            out.append(" - ", {}, " - ");
        } else {
            out.append(" ", {}, " ");
        }
        const unsigned char byte = data[i];
        const char pair[2] = {kHexDigits[byte >> 4], kHexDigits[byte & 0xF]};
        out.append({pair, 2}, {}, "%02X", byte);
        row[i % kRowBytes] = byte;
    }
    if (i > 0) {
        // The last row, full or not, with no filling before its characters.
        out.append(" : ", {}, " : ");
        append_row_characters(out, row, (i - 1) % kRowBytes + 1);
    }
    out.append("\n", {}, "\n");
}

int32_t tav_util_strbuf_substitute_v(tav_util_strbuf *record, const char *needle, int32_t limit,
                                     const char *format, va_list args) {
    // A record with no block yet has no text to search: it is answered as a
    // missing argument is, rather than read through a null pointer.
    if (record == nullptr || needle == nullptr || format == nullptr || record->text == nullptr) {
        return 0;
    }
    tav_util_strbuf *scratch = tav_util_strbuf_new(record->capacity);
    if (scratch == nullptr) {
        // Nothing can be built without the scratch record: the text stays as
        // it was, still valid, the change in length is 0, and the failure is
        // told as a failed first block of an append is.
        TAV_PLAIN_LINE("Alloc failed for strbuf");
        TAV_PLAIN_LINE("Error in strbuf");
        return 0;
    }

    const size_t needle_length = std::strlen(needle);
    // A replacement with no conversion is its own text: vsnprintf would
    // write the format as it is.
    const bool literal = std::strchr(format, '%') == nullptr;
    const std::string_view replacement = literal ? format : "";
    KeptAppends out(scratch);
    const char *pos = record->text;
    int32_t count = 0;
    uint32_t delta = 0; // unsigned, so that it wraps as the 32-bit result does
    for (;;) {
        if (limit != 0) {
            if (count >= limit) {
                break;
            }
            ++count;
        }
        // An empty needle matches where the scan stands without moving it on:
        // unlimited, that would never end, so it then matches nothing.
        if (needle_length == 0 && limit == 0) {
            break;
        }
        const char *match = std::strstr(pos, needle);
        if (match == nullptr) {
            break;
        }
        const auto kept = static_cast<size_t>(match - pos);
        out.append({pos, kept}, {}, "%.*s", static_cast<int>(kept), pos);
        delta += static_cast<uint32_t>(literal ? out.append(replacement, {}, format)
                                               : out.append_v(format, tav::ArgsCopy(args).get()));
        delta -= static_cast<uint32_t>(needle_length);
        pos = match + needle_length;
    }
    out.append(pos, {}, "%s", pos);

    // The scratch block becomes the record's; the old text goes with the
    // scratch record.
    char *old_text = record->text;
    record->text = scratch->text;
    record->capacity = scratch->capacity;
    scratch->text = old_text;
    tav_util_strbuf_free(scratch);
    return static_cast<int32_t>(delta);
}

int32_t tav_util_strbuf_substitute(tav_util_strbuf *record, const char *needle, int32_t limit,
                                   const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t delta = tav_util_strbuf_substitute_v(record, needle, limit, format, args);
    va_end(args);
    return delta;
}

char *tav_util_strbuf_getstr(const tav_util_strbuf *record) {
    return record != nullptr ? record->text : nullptr;
}

} // extern "C"
