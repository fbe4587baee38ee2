// Reads ELF files for tests, and works out what stripping must make of one. Independent of the
// program's own readers and of the way the program lays files out.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "support/elf_builder.h"

// The fields of one header; those of other headers stay 0.
struct field_values {
    std::array<uint64_t, static_cast<size_t>(field::end)> values = {};

    uint64_t& operator[](field which) { return values[static_cast<size_t>(which)]; }
    uint64_t operator[](field which) const { return values[static_cast<size_t>(which)]; }
    bool operator==(const field_values&) const = default;
};

struct view_section {
    std::string name;
    field_values header; // less sh_name
    std::string content; // as far as the file goes

    bool operator==(const view_section&) const = default;
};

struct elf_view {
    std::string problem; // why the file cannot be read; empty if it can
    std::string ident;
    field_values header; // e_shnum and e_shstrndx as they stand
    std::vector<view_section> sections;
    std::vector<field_values> segments;
    uint64_t names_index = 0; // of the name table
    uint64_t used_size = 0;   // end of the last header, table or section
    uint64_t stray = 0;       // bytes other than 0 that lie outside all of these

    uint64_t index_of(const std::string& name) const; // 0: none
    const view_section& find(const std::string& name) const { return sections[index_of(name)]; }
    std::vector<std::string> names() const; // without section 0
};

elf_view read_elf(const std::string& file);

// What is wrong with `after` as the result of removing from `before` the unallocated sections whose
// names are in `removed`, with no symbol table kept; empty when it is right in every byte.
std::string check_stripped(const std::string& before, const std::string& after,
                           const std::set<std::string>& removed);
