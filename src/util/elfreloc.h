// Relocations: scanned before the symbols are decided, checked and rewritten after.
//
// Entries are looked at, and rewritten, in one block of limited size, so a table may be read twice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "util/elfimage.h"
#include "util/elfpolicy.h"
#include "util/elfsymbols.h"

struct relocation_table {
    bool has_addend = false; // RELA
    uint64_t count = 0;
    uint64_t entry_size = 0;
    uint32_t section = 0;
};

// Whether relocations are made relative to sections, and which of them can be.
struct conversion_rules {
    bool is_wanted = false; // --convert-to-secrel-reloc
    bool is_never = false;  // -X1
    bool is_always = false; // -X2
};

struct relocation_plan {
    conversion_rules conversion;
    std::vector<relocation_table> tables;
    std::vector<uint32_t> table_of; // by section index: the number of its table + 1, or 0
    gen_block piece;                // some entries of one table
};

// Whether the section is of a relocation type, or of a processor-specific one with the same low
// four bits.
bool is_relocation_section(const elf_section_header& section);

// Whether the entries of a kept section are rewritten against the kept symbol table, whichever
// table its sh_link names. The one place of this choice: it renumbers .rela.dyn and .rela.plt, too,
// which count in the dynamic symbol table.
bool relocations_are_rewritten(const elf_image& image, const elf_section_header& section);

// Reads the relocations of the kept sections, when a symbol table is kept. With
// --convert-to-secrel-reloc it notes in `symbols` which symbols they name and how; a wrong symbol
// index is then a failed assertion. False after a report of damage.
bool read_relocations(const option_flags& flags, elf_image& image, const section_plan& plan,
                      symbol_plan& symbols, relocation_plan& relocations);

// Whether every relocation names a symbol that there is. False after a report of damage.
bool relocations_are_sound(elf_image& image, const symbol_plan& symbols,
                           relocation_plan& relocations);

// The entries of table `number`, renumbered, those left out that name a symbol which is gone. The
// first routine is for a small table, and its result lasts until the next look at entries; the
// second writes any table at the stream's position and gives the bytes written.
bool is_small_table(const relocation_table& table);
std::span<const std::byte> rewritten_table(elf_image& image, const symbol_plan& symbols,
                                           relocation_plan& relocations, uint32_t number);
uint64_t write_relocations(const char* name, gen_stream& output, elf_image& image,
                           const symbol_plan& symbols, relocation_plan& relocations,
                           uint32_t number);
