// Where the strings of a string table begin.
//
// Names of a damaged or hostile file may all point into one string as long as the file. The index
// finds the string that holds a byte in constant time, so that work on whole strings is done once
// for each of them. It costs a bit for each byte of the table, and 24 bytes for each 512.
#pragma once

#include <cstdint>
#include <vector>

struct string_index {
    const char* strings = nullptr; // followed by a NUL that is not counted
    uint64_t size = 0;
    uint32_t count = 0; // strings in the table, as far as 32-bit offsets reach

    // Which bytes begin a string, and for each 512 of them what lies before.
    struct block_start {
        uint32_t strings_before = 0; // how many strings begin before the block
        uint32_t last_start = 0;     // where the last of them does
        uint16_t words_before[8];    // and how many begin in the block before each of its words
    };
    std::vector<uint64_t> starts;
    std::vector<block_start> blocks;
};

// The string that holds a byte: where it begins, and how many strings begin before it.
struct string_place {
    uint32_t start;
    uint32_t number;
};

string_index index_strings(const char* strings, uint64_t size);

// `offset` lies inside the table.
string_place find_string(const string_index& index, uint32_t offset);
