// ELF files as a linker writes them: sections one after the other, a segment over what is loaded, a
// symbol table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "output.h"

constexpr uint64_t image_base = 0x400000;
constexpr uint32_t SHT_PROGBITS = 1, SHT_SYMTAB = 2, SHT_STRTAB = 3, SHT_RELA = 4,
                   SHT_SYMTAB_SHNDX = 18;
constexpr uint64_t SHF_WRITE = 1, SHF_ALLOC = 2, SHF_EXECINSTR = 4, SHF_INFO_LINK = 0x40;
constexpr uint16_t ET_REL = 1, ET_EXEC = 2;
constexpr uint64_t code = SHF_ALLOC | SHF_EXECINSTR;
constexpr uint64_t data = SHF_ALLOC | SHF_WRITE;

struct section {
    std::string name = {};
    uint32_t type = SHT_PROGBITS;
    uint64_t flags = 0;
    uint64_t size = 0; // of filler, when there is no data
    bytes data = {};
    uint32_t link = 0, info = 0;
    uint64_t entsize = 0;
    bool is_hole = false;
    uint64_t offset = 0;
};

// Section 0 is the null section.
struct elf_file {
    uint16_t type = ET_EXEC;
    std::vector<section> sections{{.name = "", .type = 0}};
};

// The index of the section.
uint32_t add(elf_file& file, section added);
void write_elf(output& to, elf_file& file);

struct symbol_table {
    bytes symbols = bytes(24, '\0');
    bytes strings = bytes(1, '\0');
    bytes indexes = bytes(4, '\0'); // the extended section index of each symbol
    uint32_t count = 1;
};

void add_symbol(symbol_table& table, const std::string& name, uint8_t info, uint32_t in,
                uint64_t value);
// Symbols of sections `first` to `last`, a third of them local, with names of 2/3 to 4/3 of
// `length` letters.
symbol_table make_symbols(const elf_file& file, uint64_t count, size_t length, uint32_t first,
                          uint32_t last, uint32_t& locals);
// The string table gets a size that is divisible by 8: the modes that keep it ask for that.
uint32_t add_symbol_table(elf_file& file, symbol_table& table, uint32_t locals);
void add_debug(elf_file& file, uint64_t size);
