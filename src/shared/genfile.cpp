// Checked streams: the stream itself, and the wrappers that put its failures into words.
#include "shared/genfile.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "shared/genexit.h"
#include "shared/host.h"

namespace {

constexpr uint64_t window_limit = 64 * 1024; // bytes read ahead
constexpr uint64_t reserve_worth = 512 * 1024;
constexpr uint64_t reserve_unit = 64 * 1024;
constexpr int interrupted_tries = 10;
constexpr int error_is_a_directory = 21; // the same number on every host, for the same message

// What a mode string asks for; nothing when it names no purpose.
std::optional<host_access> access_of(const char* mode) {
    for (const char* letter = mode; *letter; ++letter) {
        if (*letter == 'r')
            return strchr(letter, '+') ? host_access::update : host_access::read;
        if (*letter == 'w' && !strchr(letter, 'x'))
            return host_access::create;
        if (*letter == 'w')
            return strchr(letter, '+') ? host_access::create_exclusive_update
                                       : host_access::create_exclusive;
        if (*letter == 'a')
            return host_access::append;
    }
    return std::nullopt;
}

const char* purpose_of(std::optional<host_access> access) {
    return access == host_access::read || access == host_access::update ? "input" : "output";
}

// Bytes read; 0 at the end of the file or on a failure, which the stream remembers.
size_t read_from_host(gen_stream& stream, std::byte* to, uint64_t size, uint64_t offset) {
    const int64_t got = host_read_at(stream.descriptor, to, size, offset);
    if (got < 0)
        stream.read_error = errno;
    if (got == 0)
        stream.at_end = true;
    return got > 0 ? static_cast<size_t>(got) : 0;
}

// Fills the window from `start` on. False at the end of the file or on a failure.
bool fill_window(gen_stream& stream, uint64_t start) {
    // Memory from the slots is cleared: no more than the file can fill.
    if (!stream.window) {
        stream.window_capacity =
            static_cast<size_t>(std::clamp<uint64_t>(stream.size, 512, window_limit));
        stream.window = std::make_unique_for_overwrite<std::byte[]>(stream.window_capacity);
    }
    stream.window_length =
        read_from_host(stream, stream.window.get(), stream.window_capacity, start);
    if (stream.window_length != 0)
        stream.window_start = start;
    return stream.window_length != 0;
}

// Bytes of the window at the stream's position and after it.
size_t bytes_in_window(const gen_stream& stream) {
    if (stream.position < stream.window_start ||
        stream.position - stream.window_start >= stream.window_length)
        return 0;
    return stream.window_length - static_cast<size_t>(stream.position - stream.window_start);
}

bool is_in_window(const gen_stream& stream, uint64_t start, uint64_t size) {
    return start >= stream.window_start && start - stream.window_start <= stream.window_length &&
           size <= stream.window_length - (start - stream.window_start);
}

// Takes bytes of a part from the stream that it is a part of.
uint64_t read_part(gen_stream& part, void* buffer, uint64_t size) {
    const uint64_t wanted = gen_enter_part(part, size);
    const uint64_t got = gen_read_stream(*part.whole, buffer, wanted);
    part.position += got;
    gen_note_part_failure(part);
    part.at_end = part.at_end || (got < size && part.whole->read_error == 0);
    return got;
}

// A file as messages call it, for "%s%s%s": its name in quotes, or "file". A failure may be for
// want of memory, so nothing is put together here.
struct file_words {
    const char* quote;
    const char* name;

    explicit file_words(const char* known)
        : quote(known ? "'" : ""), name(known ? known : "file") {}
};

void report_failure(const char* what, const char* name) {
    const file_words file(name);
    gen_perror("%s %s%s%s", what, file.quote, file.name, file.quote);
}

// A negative size or count is one of nothing.
uint64_t size_or_none(int32_t number) {
    return number < 0 ? 0 : static_cast<uint64_t>(number);
}

// Bytes of so many items; 0 when no number is large enough.
uint64_t size_of_items(uint64_t size, uint64_t count) {
    uint64_t bytes = 0;
    return __builtin_mul_overflow(size, count, &bytes) ? 0 : bytes;
}

int64_t read_items(const char* routine, const char* name, void* buffer, uint64_t size,
                   uint64_t count, gen_stream& stream) {
    if (!buffer) {
        gen_error("internal: null buffer passed to %s", routine);
        return -1;
    }
    const uint64_t bytes = size_of_items(size, count);
    const uint64_t items = size != 0 ? gen_read_stream(stream, buffer, bytes) / size : 0;
    if (items == 0)
        report_failure("Error reading from", name);
    return static_cast<int64_t>(items);
}

} // namespace

void gen_stream_closer::operator()(gen_stream* stream) const {
    gen_close(gen_stream_ptr(stream));
}

gen_stream_ptr gen_open(const char* name, const char* mode) {
    const std::optional<host_access> access = access_of(mode);
    if (!access) {
        errno = EINVAL;
        return nullptr;
    }
    const int descriptor = host_open(name, *access);
    if (descriptor < 0)
        return nullptr;
    gen_stream_ptr stream(std::make_unique<gen_stream>().release()); // the closer now owns it
    stream->descriptor = descriptor;
    if (*access == host_access::create_exclusive)
        return stream; // it is new, and empty
    const std::optional<host_status> status = host_descriptor_status(descriptor);
    if (!status)
        return nullptr;
    stream->opened = *status;
    stream->size = status->size;
    if (*access == host_access::append)
        stream->position = stream->size;
    return stream;
}

// A small part is brought into the window as a whole: its tables are not read from front to back,
// and once it is there nothing can fail.
gen_stream_ptr gen_open_part(gen_stream& whole, uint64_t start, uint64_t size) {
    errno = 0;
    if (size <= window_limit && !is_in_window(whole, start, size)) {
        fill_window(whole, start);
        if (!is_in_window(whole, start, size))
            return nullptr;
    }
    gen_stream_ptr part(std::make_unique<gen_stream>().release());
    part->descriptor = whole.descriptor;
    part->size = size;
    part->whole = &whole;
    part->start = start;
    return part;
}

uint64_t gen_enter_part(gen_stream& part, uint64_t size) {
    part.whole->position = part.start + part.position;
    part.whole->read_error = 0;
    return part.position < part.size ? std::min(size, part.size - part.position) : 0;
}

void gen_note_part_failure(gen_stream& part) {
    if (part.whole->read_error != 0)
        part.read_error = part.whole->read_error;
}

int gen_close(gen_stream_ptr stream) {
    const std::unique_ptr<gen_stream> closing(stream.release());
    return closing->whole ? 0 : host_close(closing->descriptor);
}

int gen_seek(gen_stream& stream, int64_t offset, gen_origin origin) {
    if (stream.write_error != 0) {
        errno = stream.write_error;
        return -1;
    }
    const uint64_t from = origin == GEN_SEEK_SET   ? 0
                          : origin == GEN_SEEK_CUR ? stream.position
                                                   : stream.size;
    int64_t target = 0;
    if (__builtin_add_overflow(from, offset, &target) || target < 0) {
        errno = EINVAL;
        return -1;
    }
    // Beyond the bytes that are there the host decides how far a file may reach; every host goes as
    // far as 2 GiB.
    if (static_cast<uint64_t>(target) > stream.size && target > INT32_MAX &&
        host_check_offset(stream.descriptor, target) != 0)
        return -1;
    stream.position = static_cast<uint64_t>(target);
    stream.at_end = false;
    return 0;
}

uint64_t gen_read_stream(gen_stream& stream, void* buffer, uint64_t size) {
    if (stream.whole)
        return read_part(stream, buffer, size);
    std::byte* to = static_cast<std::byte*>(buffer);
    uint64_t done = 0;
    while (done < size) {
        const uint64_t wanted = size - done;
        uint64_t got = std::min<uint64_t>(bytes_in_window(stream), wanted);
        if (got != 0)
            memcpy(to + done, stream.window.get() + (stream.position - stream.window_start),
                   static_cast<size_t>(got));
        else if (wanted >= window_limit) // a large read goes past the window
            got = read_from_host(stream, to + done, wanted, stream.position);
        else if (fill_window(stream, stream.position))
            continue;
        if (got == 0)
            break;
        stream.position += got;
        done += got;
    }
    return done;
}

int gen_getc(gen_stream& stream) {
    uint8_t byte = 0;
    return gen_read_stream(stream, &byte, 1) == 1 ? byte : -1;
}

// The beginning is left out. File systems that bring a new file's bytes to the disk before it takes
// an old one's place do so for bytes that have no space yet, and a crash must find one of the two.
void gen_reserve(const gen_stream& stream, uint64_t size) {
    const uint64_t left_out = reserve_unit - stream.position % reserve_unit;
    if (size >= reserve_worth)
        host_reserve(stream.descriptor, stream.position + left_out, size - left_out);
}

uint64_t gen_write_stream(gen_stream& stream, const void* buffer, uint64_t size) {
    const std::byte* from = static_cast<const std::byte*>(buffer);
    uint64_t done = 0;
    gen_reserve(stream, size);
    stream.window_length = 0;
    while (done < size) {
        const int64_t put =
            host_write_at(stream.descriptor, from + done, size - done, stream.position);
        if (put <= 0) {
            if (stream.write_error == 0)
                stream.write_error = errno;
            break;
        }
        stream.position += static_cast<uint64_t>(put);
        done += static_cast<uint64_t>(put);
    }
    stream.size = std::max(stream.size, stream.position);
    return done;
}

gen_stream_ptr gen_safe_fopen(const char* name, const char* kind, const char* mode) {
    gen_stream_ptr stream;
    // The place where a view path would lead the name elsewhere.
    for (int tries = 0; !stream && tries <= interrupted_tries; ++tries) {
        errno = 0;
        stream = gen_open(name, mode);
        if (!stream && errno != EINTR)
            break;
    }
    if (stream && !stream->opened.is_directory)
        return stream;
    // Some hosts open directories, others have their own reasons not to.
    const std::optional<host_status> status =
        stream ? std::optional(stream->opened) : host_status_of(name);
    if (status && status->is_directory)
        errno = error_is_a_directory;
    const char* purpose = purpose_of(access_of(mode));
    if (kind)
        gen_perror_exit(status_failure, "Unable to open %s '%s' for %s", kind, name, purpose);
    gen_perror_exit(status_failure, "Unable to open %s for %s", name, purpose);
}

int32_t gen_safe_fread(const char* name, void* buffer, int32_t size, int32_t count,
                       gen_stream* stream) {
    return static_cast<int32_t>(read_items("gen_safe_fread", name, buffer, size_or_none(size),
                                           size_or_none(count), *stream));
}

int64_t gen_safe_fread64(const char* name, void* buffer, uint64_t size, uint64_t count,
                         gen_stream* stream) {
    return read_items("gen_safe_fread64", name, buffer, size, count, *stream);
}

int32_t gen_safe_fwrite(const char* name, const void* buffer, int32_t size, int32_t count,
                        gen_stream* stream) {
    return static_cast<int32_t>(
        gen_safe_fwrite64(name, buffer, size_or_none(size), size_or_none(count), stream));
}

int64_t gen_safe_fwrite64(const char* name, const void* buffer, uint64_t size, uint64_t count,
                          gen_stream* stream) {
    const uint64_t bytes = size_of_items(size, count);
    const uint64_t items = size != 0 ? gen_write_stream(*stream, buffer, bytes) / size : 0;
    if (items < count)
        report_failure("Error writing to", name);
    return static_cast<int64_t>(items);
}

int gen_safe_fclose(const char* name, const char* kind, gen_stream_ptr stream) {
    const bool present = stream != nullptr;
    const int result = present ? gen_close(std::move(stream)) : -1;
    if (result == 0)
        return 0;
    const std::string text = name ? name : "";
    const std::string description = kind ? std::string(kind) + " '" + text + "'" : text;
    if (present)
        gen_perror("Error closing %s", description.c_str());
    else
        gen_error("Attempt to close NULL file %s", description.c_str());
    return result;
}

int gen_safe_fseek(const char* name, gen_stream* stream, int32_t offset, gen_origin origin) {
    if (gen_seek(*stream, offset, origin) == 0)
        return 0;
    const file_words file(name);
    gen_perror_exit(status_failure, "seek failed to %d in %s%s%s", offset, file.quote, file.name,
                    file.quote);
}

int gen_safe_fseek64(const char* name, gen_stream* stream, int64_t offset, gen_origin origin) {
    if (gen_seek(*stream, offset, origin) == 0)
        return 0;
    const file_words file(name);
    gen_perror_exit(status_failure, "seek failed to 0x%" PRIx64 " in %s%s%s",
                    static_cast<uint64_t>(offset), file.quote, file.name, file.quote);
}

int gen_safe_fflush(const char* name, gen_stream* stream) {
    if (stream->write_error == 0)
        return 0;
    errno = stream->write_error;
    const file_words file(name);
    gen_perror_exit(status_failure, "Error writing to %s%s%s", file.quote, file.name, file.quote);
}

int gen_set_length(const char* name, uint64_t length) {
    return host_set_length(name, length);
}

int64_t gen_read(int descriptor, void* buffer, uint64_t count) {
    if (count > UINT32_MAX)
        gen_error("gen_read(): count exceeds unsigned 32-bit range");
    return host_read(descriptor, buffer, static_cast<uint32_t>(count));
}

int64_t gen_write(int descriptor, const void* buffer, uint64_t count) {
    if (count > UINT32_MAX)
        gen_error("gen_write(): count exceeds unsigned 32-bit range");
    return host_write(descriptor, buffer, static_cast<uint32_t>(count));
}

int32_t gen_strtoul(const char* string, const char** end, int base) {
    char* stop = nullptr;
    const unsigned long value = string ? strtoul(string, &stop, base) : 0;
    if (end)
        *end = stop;
    return static_cast<int32_t>(static_cast<uint32_t>(value));
}

int32_t gen_strlen(const char* string) {
    const size_t length = strlen(string);
    if (length > INT32_MAX)
        gen_error("result of strlen() call truncated");
    return static_cast<int32_t>(static_cast<uint32_t>(length));
}
