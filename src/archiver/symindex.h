// The symbol index "/ ": a count, the position of the defining member for each symbol (32 bits,
// most significant byte first), and the names, each with its NUL.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "archiver/oldarchive.h"

struct index_entry {
    uint32_t member = 0;   // which defines the symbol
    uint32_t name_at = 0;  // in the names
    uint32_t name_end = 0; // behind its NUL
};

struct symbol_index {
    std::vector<index_entry> entries;
    std::string names;
};

// Reads the old index: every entry has to name a member. False after a report.
bool read_index(const old_archive& archive, symbol_index& index);

// The index as it is after the changes, by members: untouched ones keep their entries, and so do
// those that say nothing of their symbols; entries of the other ELF files are made anew. False
// after a report: a file is damaged.
bool renew_index(const old_archive& archive, symbol_index& index);

// Adds the names that an ELF file defines. False after a report: it is damaged, or the index gets
// too large.
bool add_names(const char* archive_name, symbol_index& index, uint32_t member,
               const listed_file& file);

// Bytes of the index in a file. It is filled up to an even size.
uint64_t index_size(const symbol_index& index);
// Those bytes. `positions` tells where the header of each member is. False after a report: a member
// is too far away.
bool encode_index(const char* archive_name, const symbol_index& index,
                  std::span<const uint64_t> positions, std::string& bytes);
