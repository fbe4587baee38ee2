// ELF symbols and extended section indexes, of both classes and byte orders (System V gABI, chapter
// 4).
//
// Symbol tables are read and written in large pieces. In memory every entry has one shape for both
// classes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "objfile/elfhead.h"

constexpr uint8_t STB_LOCAL = 0;
constexpr uint8_t STT_FUNC = 2, STT_SECTION = 3, STT_FILE = 4, STT_COMMON = 5;

// A symbol. st_shndx holds the true section number, even one of 0xFF00 or more; a reserved index of
// the file (SHN_ABS, SHN_COMMON ...) is held at 0xFFFF0000 and above, so that it compares above
// every section count.
struct elf_symbol {
    uint32_t st_name = 0;
    uint8_t st_info = 0;
    uint8_t st_other = 0;
    uint32_t st_shndx = 0;
    uint64_t st_value = 0;
    uint64_t st_size = 0;
};

inline uint8_t elf_symbol_type(const elf_symbol& symbol) {
    return symbol.st_info & 0xF;
}
inline uint8_t elf_symbol_binding(const elf_symbol& symbol) {
    return symbol.st_info >> 4;
}

// Bytes of one entry in the file.
constexpr uint64_t elf_symbol_size(int elfbits) {
    return elfbits == 64 ? 24 : 16;
}

// A section index of a file as it is held in memory, and back. One of 0x10000 or more ends the
// program.
uint32_t elf_index_in(uint32_t index);
uint32_t elf_index_out(uint32_t index);

// The symbols of section `symtab`, read in pieces; sh_entsize 0 means the standard size, a larger
// one is skipped to, a partial entry at the end is lost. The caller has checked that the file holds
// the table, whose entries are not below the standard size. `words` is the extended index table
// (elf_read_shndx); a symbol that needs it ends the program if there is none. Nothing if a symbol
// lies behind the end of `words`.
std::optional<std::vector<elf_symbol>> elf_read_symtab(elf_access& elf, const char* name,
                                                       gen_stream& stream, uint64_t base,
                                                       const elf_section_header& symtab,
                                                       const std::vector<uint32_t>* words);

// The extended index table at `section`, which the caller has checked to lie inside the file.
std::vector<uint32_t> elf_read_shndx(elf_access& elf, const char* name, gen_stream& stream,
                                     uint64_t base, const elf_section_header& section);

// Makes `symbols` ready to be written: fills `words`, if given, with one extended word each. A
// symbol whose section index needs such a word while `words` is null is an error, and false under a
// sink.
bool elf_symbols_for_output(elf_access& elf, std::span<const elf_symbol> symbols,
                            std::vector<uint32_t>* words);

// Writes symbols in the standard entry size at the stream's position, in pieces. In a 32-bit file
// the low halves of st_value and st_size are written. Bytes written.
uint64_t elf_write_symbols(elf_access& elf, const char* name, gen_stream& stream,
                           std::span<const elf_symbol> symbols);
// Writes an extended index table at the stream's position. Bytes written.
uint64_t elf_write_words(elf_access& elf, const char* name, gen_stream& stream,
                         std::span<const uint32_t> words);
