// Builds small COFF files and PE images for tests, of either byte order. Nothing is checked:
// afterwards any field can be set to anything.
#pragma once

#include <utility>

#include "support/elf_builder.h"
#include "support/runner.h"

struct coff_draft {
    std::string magic = "\x4C\x01";
    size_t entry_size = 18; // of a symbol; there are ten
    enum { NO_LINES, LINES_BEFORE, LINES_BEHIND } lines = NO_LINES;
    words names = {}; // eight bytes each; all sections but the first have line numbers
    bool big_endian = false;
    bool ti = false; // with a target id, 32-bit counts, reserved and page fields
    std::string strings = "long_name";
};
// An executable image of two sections, the first without a pointer to its line numbers.
struct pe_draft {
    uint64_t magic = 0x10B, directories = 16;
    size_t optional_size = 0; // 0: as large as its fields
    bool big_endian = false;
    std::vector<std::pair<size_t, size_t>> debug = {}; // sizes, and places behind the strings
    size_t tail_size = 0;                              // bytes behind the strings
    bool directory_last = false;                       // of what is debugged: at the end of them
};
struct built_file {
    std::string bytes;
    size_t sections_at, symbols_at, strings_at, end;
    size_t header_at = 0, directories_at = 0, debug_at = 0;
};
built_file build_coff(const coff_draft& draft);
built_file build_pe(const pe_draft& draft);
