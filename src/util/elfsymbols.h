// Symbols: which stay, their new numbers and names, and the rebuilt tables.
#pragma once

#include <cstdint>
#include <vector>

#include "objfile/elfsym.h"
#include "util/elfimage.h"
#include "util/elfpolicy.h"
#include "util/elfstrings.h"

constexpr uint32_t symbol_gone = UINT32_MAX;

// How relocations name one input symbol, and what its section's symbol has to make up for when it
// stands in. Recorded only with --convert-to-secrel-reloc.
struct symbol_usage {
    int64_t value_delta = 0;      // from its section's symbol, if that stands in for it
    bool referenced = false;      // a relocation names it
    bool nonsimple_reloc = false; // one that cannot be made relative to its section does
    bool thumb_function = false;  // its address carries the Thumb bit
};

struct symbol_plan {
    bool present = false; // a symbol table is kept
    // The input's; after rewrite_symbols the kept ones in new order.
    std::vector<elf_symbol> symbols;
    // By input index: the new index, that of the section symbol in its place, or symbol_gone.
    std::vector<uint32_t> new_index;
    std::vector<symbol_usage> usage; // by input index, or empty
    uint32_t first_nonlocal = 0;     // the new index behind the last local symbol
    gen_block strtab;                // the old strings, unless they are the section names too
    string_move strings;
    std::vector<uint32_t> newshndx; // the new extended index table, if one is kept
};

// Reads the symbol table that `plan` keeps, if any, and its strings. False after a report of
// damage.
bool read_symbols(elf_image& image, const section_plan& plan, symbol_plan& symbols);

// Decides every symbol by the lists and options, renumbers the kept ones and moves their strings.
// With a string table that serves the section names too, these move with them, and sh_name changes.
void rewrite_symbols(const strip_options& options, elf_image& image, const section_plan& plan,
                     symbol_plan& symbols);

inline bool drops_symbols(const symbol_plan& symbols) {
    return symbols.symbols.size() != symbols.new_index.size();
}

// Prepares the rewritten symbols for the output, which is open by now.
void prepare_symbol_output(elf_access& elf, const section_plan& plan, symbol_plan& symbols);

// Each writes the new contents of its section at the stream's position. Bytes written.
uint64_t write_index_table(elf_access& elf, const char* name, gen_stream& output,
                           const elf_section_header& section, const symbol_plan& symbols);
uint64_t write_string_table(const char* name, gen_stream& output, const elf_image& image,
                            const elf_section_header& section, const symbol_plan& symbols);
