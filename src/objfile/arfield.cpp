// Fields of archive headers, and the words for damage. All damage comes through here, so that the
// switch that makes it fatal has one reader.
#include "objfile/arfield.h"

#include <algorithm>
#include <cinttypes>

#include "shared/genexit.h"

namespace {

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The number that the field begins with.
uint64_t leading_number(std::string_view field, unsigned base) {
    uint64_t value = 0;
    for (const char c : field) {
        const unsigned digit = static_cast<unsigned>(c - '0');
        if (digit >= base)
            break;
        value = value * base + digit;
    }
    return value;
}

} // namespace

int64_t ar_decimal(std::string_view field) {
    while (!field.empty() && is_space(field.front()))
        field.remove_prefix(1);
    const bool negative = field.starts_with('-');
    if (negative || field.starts_with('+'))
        field.remove_prefix(1);
    const uint64_t value = leading_number(field, 10);
    return static_cast<int64_t>(negative ? 0 - value : value);
}

uint32_t ar_octal(std::string_view field) {
    return static_cast<uint32_t>(leading_number(field, 8));
}

std::string_view ar_without_trailing_space(std::string_view text) {
    while (!text.empty() && is_space(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string_view ar_text(std::string_view bytes) {
    return {bytes.begin(), std::find(bytes.begin(), bytes.end(), '\0')};
}

bool ar_read_header_bytes(ar_reader& reader, char* to, size_t size) {
    gen_stream& stream = reader.stream;
    stream.read_error = 0;
    if (gen_read_stream(stream, to, size) == size)
        return true;
    if (stream.read_error != 0)
        ar_report_read_error(reader);
    return false;
}

bool ar_check_terminator(const ar_reader& reader, std::string_view found) {
    static constexpr char message[] =
        "Unexpected chars in archive file header '%s' at 0x%" PRIx64 " '\\%03o' '\\%03o'";
    if (found == "`\n")
        return true;
    const unsigned bytes[2] = {static_cast<uint8_t>(found[0]), static_cast<uint8_t>(found[1])};
    const uint64_t position = reader.stream.position;
    if (reader.ar_damage_is_fatal)
        gen_fatal(status_failure, message, reader.archive_name, position, bytes[0], bytes[1]);
    gen_error(message, reader.archive_name, position, bytes[0], bytes[1]);
    return false;
}

void ar_report_read_error(const ar_reader& reader) {
    static constexpr char message[] = "error reading archive file '%s'";
    if (reader.ar_damage_is_fatal)
        gen_fatal(status_failure, message, reader.archive_name);
    gen_error(message, reader.archive_name);
}

bool ar_check_size(const ar_reader& reader, const char* member_name, int64_t size) {
    if (size >= 0)
        return true;
    gen_warning("%s has negative size (%" PRId64 ")", member_name, size);
    ar_report_read_error(reader);
    return false;
}
