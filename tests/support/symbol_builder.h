// ELF files with symbols and relocations out of text, so that a case is a line that goes in and a
// line that must come out. Entries are separated by "; ":
//
//   a symbol: name, binding and type, section [, value, size, st_other]   main gF .text 16 8
//   a relocation: @section, offset, type, symbol [, addend]               @.rela.text 4 2 main 7
//
// '' is no name, and no section. Bindings are l, g and w, types N, O, F, S, f (file) and C. Beside
// names of sections there are ABS, COM and #n; instead of a symbol's name there is #n as well.
#pragma once

#include <string>
#include <vector>

#include "support/elf_builder.h"

struct header_change {
    std::string section;
    field which;
    uint64_t value;
};

// Some sections. What -x and -s remove stands among those that stay.
elf_draft base_draft(const elf_form& form);

struct symbol_draft {
    std::string entries = {};                 // less symbol 0
    std::string strings = {};                 // of ".strtab", "|" for NUL; empty: as needed
    std::vector<header_change> changes = {};  // made in the end
    uint64_t extra_entsize = 0;               // bytes by which symbols exceed their standard size
    elf_draft elf = base_draft(elf_forms[0]); // the tables come behind its sections
};

// The draft's file; the draft gets the tables that it lacks.
std::string build_symbols(symbol_draft& draft);

// Runs the program on the draft's file. What is wrong with the result, less the sections that the
// program removed, when these entries and strings are expected; "untouched"; or, of an untouched
// file, what was said, behind "(left) " when a temporary file is left.
std::string strip_symbols(const std::string& options, symbol_draft draft,
                          const std::string& entries = "", const std::string& strings = "");

// Strips the draft with other entries for each case: "options | entries | expected |", where what
// strip_symbols gives back can be expected as well. With -stripreloc it is an object.
void check_strips(symbol_draft draft, std::string cases);
