// The strings of a symbol table on their way from the old string table to the new one.
//
// Strings are copied whole, once, in the order of their first use; a name that points into the
// middle of a string shares the copy.
#pragma once

#include <cstdint>

#include "shared/genmem.h"
#include "util/stringindex.h"

struct string_move {
    string_index old;
    gen_block newstrtab; // as large as the old table; zero behind newstrsize
    uint64_t newstrsize = 0;
    gen_block new_offsets; // uint32_t for each old string: its new offset + 1, or 0
};

// Prepares the move of `size` bytes at `strings`, which a further NUL follows.
string_move prepare_strings(const char* strings, uint64_t size);

// The new offset of the name at `offset`, its string copied on first use. Ends the program by
// assertion if the new table would outgrow the old one, and if the new offset needs over 32 bits.
uint32_t move_string(string_move& move, uint32_t offset);

// Appends `length` bytes of text to the new table, which has room for them. Their offset.
uint32_t append_string(string_move& move, const char* text, uint64_t length);
