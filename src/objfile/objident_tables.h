// The magic numbers of object files, as data, and the searches through them.
//
// Rows are searched in the order given and the first match counts. No row has the target 0.
#pragma once

#include <cstdint>
#include <span>

#include "objfile/objident.h"

// The length of the longest archive magic, damaged forms included.
constexpr uint32_t obj_archive_magic_size = 11;

struct obj_archive_row {
    const char* text;
    obj_archive_magic result;
    obj_kind kind;
};

struct obj_coff_row {
    uint8_t bytes[2]; // as they stand in the file
    uint32_t machine;
    uint32_t target;
    bool big_endian; // code and data alike
    obj_kind kind;
    uint32_t sym_entry_size;
};

struct obj_aout_row {
    uint8_t bytes[4]; // as they stand in the file
    uint32_t machine;
    uint32_t target;
    bool big_endian; // code and data alike
};

extern const std::span<const obj_archive_row> obj_archive_rows;

const obj_coff_row* obj_find_coff_row(const uint8_t (&bytes)[2]); // null when there is none
const obj_aout_row* obj_find_aout_row(const uint8_t (&bytes)[4]); // null when there is none
// These give the target, or 0 when there is no row.
uint32_t obj_elf_target(uint32_t e_machine, uint32_t e_flags);
uint32_t obj_tooldata_target(uint32_t version);
