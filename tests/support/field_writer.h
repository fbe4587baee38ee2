// Puts the fields of a record behind each other: numbers in either byte order, and texts that are
// filled up to their width.
#pragma once

#include <initializer_list>

#include "support/elf_builder.h"

struct field_writer {
    bool big_endian = false;
    std::string bytes = {};

    // One number for each digit, which is its width.
    field_writer& numbers(const char* widths, std::initializer_list<uint64_t> values) {
        for (uint64_t value : values)
            bytes += number(value, static_cast<size_t>(*widths++ - '0'), big_endian);
        return *this;
    }
    field_writer& text(const std::string& text, size_t width, char fill = ' ') {
        bytes += text;
        bytes.append(text.size() < width ? width - text.size() : 0, fill);
        return *this;
    }
};
