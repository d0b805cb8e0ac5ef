// Named-file streams: a stream by a formatted path, a whole named file read
// into memory, a durable whole write, a copy, and bytes printed as hex text.
// None of them logs; the durable write ends only after the file and its
// directory have been flushed to stable storage.
#include <cstring>

#include "internal/frame.hpp"

extern "C" {

tav_status tav_util_fopen(FILE **stream_out, int32_t *errno_slot, const char *mode,
                          const char *format, ...) {
    if (stream_out == nullptr || mode == nullptr || format == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    tav::MallocPtr<char> path;
    va_list args;
    va_start(args, format);
    const tav_status formatted = tav::format_owned(path, errno_slot, format, args);
    va_end(args);
    if (formatted != TAV_OK) {
        return tav::traced_again(TAV_SITE, formatted);
    }
    FILE *stream = std::fopen(path.get(), mode);
    if (stream == nullptr) {
        tav::store_errno(errno_slot, errno);
        path.reset();
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    path.reset();
    *stream_out = stream;
    return TAV_OK;
}

tav_status tav_util_read_named_file(const char *path, uint8_t **data_out, uint64_t *size_out,
                                    int32_t * /*ignored*/) {
    if (path == nullptr || data_out == nullptr || size_out == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    uint64_t size = 0;
    const tav_status sized = tav_util_get_file_size(path, &size);
    if (sized != TAV_OK) {
        return tav::traced_again(TAV_SITE, sized);
    }
    *size_out = size;
    tav::UniqueFile stream(std::fopen(path, "rb"));
    if (!stream) {
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    // Unbuffered, fread reads straight into the block: no stdio buffer is
    // allocated and no byte is copied twice.
    std::setvbuf(stream.get(), nullptr, _IONBF, 0);
    *data_out = static_cast<uint8_t *>(std::malloc(size + 1));
    if (*data_out == nullptr) {
        stream.reset();
        return tav::traced(TAV_SITE, TAV_ERR_NOMEM);
    }
    uint64_t total = 0;
    while (total < size) {
        total += std::fread(*data_out + total, 1, size - total, stream.get());
        // A stream error, or end of file short of the size taken before the
        // open: the file shrank, and the rest of the block would hold no
        // file bytes. Both end the read as a failure of the stream.
        if (std::ferror(stream.get()) != 0 || (total < size && std::feof(stream.get()) != 0)) {
            std::free(*data_out);
            *data_out = nullptr;
            stream.reset();
            return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
        }
    }
    (*data_out)[size] = 0;
    return TAV_OK;
}

tav_status tav_util_write_named_file(const char *path, int32_t truncate_flag, const void *data,
                                     uint64_t size, int32_t * /*ignored*/) {
    if (path == nullptr || data == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    char *dir_text = nullptr;
    const tav_status found = tav_util_get_directory_component(path, &dir_text);
    tav::MallocPtr<char> dir(dir_text);
    if (found != TAV_OK) {
        return tav::traced_again(TAV_SITE, found);
    }
    tav::UniqueFile stream(std::fopen(path, truncate_flag != 0 ? "wb" : "ab"));
    if (!stream) {
        dir.reset();
        return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
    }
    const auto *bytes = static_cast<const unsigned char *>(data);
    uint64_t total = 0;
    while (total < size) {
        const size_t written = std::fwrite(bytes + total, 1, size - total, stream.get());
        // A write that moves nothing and sets no error would repeat for ever:
        // it fails as a stream error does.
        if (std::ferror(stream.get()) != 0 || written == 0) {
            stream.reset();
            dir.reset();
            return tav::traced(TAV_SITE, TAV_ERR_SYSTEM);
        }
        total += written;
    }
    const tav_status synced = tav_util_sync(stream.get(), dir.get());
    dir.reset();
    // Flushed by the sync: what fclose says adds nothing.
    stream.reset();
    if (synced != TAV_OK) {
        return tav::traced_again(TAV_SITE, synced);
    }
    return TAV_OK;
}

tav_status tav_util_copy_file(const char *source, const char *destination) {
    if (source == nullptr || destination == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    uint8_t *data = nullptr;
    uint64_t size = 0;
    int32_t ignored = 0;
    const tav_status read = tav_util_read_named_file(source, &data, &size, &ignored);
    if (read != TAV_OK) {
        return read;
    }
    const tav::MallocPtr<uint8_t> content(data);
    return tav_util_write_named_file(destination, 1, data, size, &ignored);
}

tav_status tav_util_fprintf_bytes(FILE *stream, const uint8_t *bytes, uint64_t count) {
    if (stream == nullptr || bytes == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    // One call per byte; a failing stream does not show in the status.
    for (uint64_t i = 0; i < count; ++i) {
        std::fprintf(stream, "%02x", bytes[i]);
    }
    return TAV_OK;
}

tav_status tav_util_printf_bytes(const uint8_t *bytes, uint64_t count) {
    if (bytes == nullptr) {
        return tav::traced(TAV_SITE, TAV_ERR_NULL_ARG);
    }
    return tav_util_fprintf_bytes(stdout, bytes, count);
}

} // extern "C"
