// The strings of a symbol table on their way from the old string table to the new one.
//
// Strings move whole, once, in the order of their first use; a name that points into the middle of
// a string shares the move. The new table is not made in memory: it is a list of texts to be
// written one behind the other, where neighbours of the old table are one text.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "shared/genfile.h"
#include "shared/genmem.h"
#include "util/stringindex.h"

struct string_move {
    string_index old;
    std::vector<std::string_view> texts; // with their NULs
    uint64_t newstrsize = 0;
    gen_block new_offsets; // uint32_t for each old string: its new offset + 1, or 0
};

// Prepares the move of `size` bytes at `strings`, which a further NUL follows.
string_move prepare_strings(const char* strings, uint64_t size);

// The new offset of the name at `offset`, its string moved on first use. Ends the program by
// assertion if the new table would outgrow the old one, and if the new offset needs over 32 bits.
uint32_t move_string(string_move& move, uint32_t offset);

// Appends `length` bytes of text, which stay where they are, to the new table. Their offset.
uint32_t append_string(string_move& move, const char* text, uint64_t length);

// Writes the new table at the stream's position, filled up to `size` bytes with zeros.
void write_strings(const char* name, gen_stream& output, const string_move& move, uint64_t size);
