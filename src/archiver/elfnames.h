// The names that an ELF file defines for others: what a symbol index says of a member.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "shared/genfile.h"

struct defined_names {
    std::string text;   // the names in the order of the symbol table, each with its NUL
    uint32_t count = 0; // of them
    // The file holds a compiler's intermediate code: what it defines stands there, and its symbol
    // table does not tell.
    bool is_intermediate = false;
};

// Global and weak symbols that are defined, and commons. Nothing when the file is damaged, or when
// the names take more than `limit` bytes. Moves the stream's position.
std::optional<defined_names> find_defined_names(gen_stream& stream, uint64_t limit);
