// What the readers of archive headers share: numbers as text, and the reports of damage.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "objfile/arformat.h"

// Both take what the C runtime's conversions would from a field that is padded with blanks, and
// wrap: leading white space and a sign are decimal's only.
int64_t ar_decimal(std::string_view field);
uint32_t ar_octal(std::string_view field);

std::string_view ar_without_trailing_space(std::string_view text);
// The part before the first NUL.
std::string_view ar_text(std::string_view bytes);

// A header's fields from the first to the last.
struct ar_field_cursor {
    std::string_view rest;

    std::string_view take(size_t width) {
        const std::string_view field = rest.substr(0, width);
        rest.remove_prefix(field.size());
        return field;
    }
};

// False after a short read. One that only met the end of the file is not reported: it is the normal
// end of an archive.
bool ar_read_header_bytes(ar_reader& reader, char* to, size_t size);
// Whether the last two bytes that were read, `found`, are what ends a header; reported if not.
bool ar_check_terminator(const ar_reader& reader, std::string_view found);
void ar_report_read_error(const ar_reader& reader);
// False, reported, for a size below 0: nothing can follow such a member.
bool ar_check_size(const ar_reader& reader, const char* member_name, int64_t size);
