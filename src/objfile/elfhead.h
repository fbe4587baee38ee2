// ELF file headers, section headers and program headers, of both classes and byte orders (System V
// gABI, chapters 4 and 5, with extended section numbering).
//
// In memory every record has its 64-bit shape. A base is the position of the ELF file in the
// stream, which is not 0 for an archive member. Errors go through elf_error (objfile/elffield.h).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "objfile/elffield.h"

constexpr uint32_t EI_CLASS = 4, EI_DATA = 5, EI_NIDENT = 16;
constexpr uint8_t ELFCLASS32 = 1, ELFCLASS64 = 2;
constexpr uint8_t ELFDATA2LSB = 1, ELFDATA2MSB = 2;
constexpr uint16_t ET_REL = 1, ET_EXEC = 2, ET_DYN = 3, ET_CORE = 4;
// 6 was EM_486 before it became EM_IAMCU.
constexpr uint16_t EM_M32 = 1, EM_SPARC = 2, EM_386 = 3, EM_68K = 4, EM_486 = 6, EM_MIPS = 8,
                   EM_MIPS_RS3_LE = 10, EM_SPARC32PLUS = 18, EM_960 = 19, EM_PPC = 20,
                   EM_PPC64 = 21, EM_SPU = 23, EM_V800 = 36, EM_FR20 = 37, EM_RH32 = 38,
                   EM_RCE = 39, EM_ARM = 40, EM_SH = 42, EM_SPARCV9 = 43, EM_TRICORE = 44,
                   EM_ARC = 45, EM_IA_64 = 50, EM_MIPS_X = 51, EM_COLDFIRE = 52, EM_MMA = 54,
                   EM_NDR1 = 57, EM_STARCORE = 58, EM_ST100 = 60, EM_X86_64 = 62, EM_PDSP = 63,
                   EM_JAVELIN = 77, EM_FIREPATH = 78, EM_ZSP = 79, EM_V850 = 87, EM_M32R = 88,
                   EM_ARC_COMPACT = 93, EM_MAX = 102, EM_BLACKFIN = 106, EM_DSPIC30F = 118,
                   EM_AARCH64 = 183, EM_RISCV = 243;
constexpr uint32_t SHT_SYMTAB = 2, SHT_RELA = 4, SHT_NOBITS = 8, SHT_REL = 9, SHT_SYMTAB_SHNDX = 18;
constexpr uint64_t SHF_ALLOC = 2;
constexpr uint32_t SHN_LORESERVE = 0xFF00, SHN_XINDEX = 0xFFFF;
constexpr uint16_t PN_XNUM = 0xFFFF;

struct elf_file_header {
    uint8_t e_ident[EI_NIDENT] = {};
    uint16_t e_type = 0;
    uint16_t e_machine = 0;
    uint32_t e_version = 0;
    uint64_t e_entry = 0;
    uint64_t e_phoff = 0;
    uint64_t e_shoff = 0;
    uint32_t e_flags = 0;
    uint16_t e_ehsize = 0;
    uint16_t e_phentsize = 0;
    uint16_t e_phnum = 0;
    uint16_t e_shentsize = 0;
    uint32_t e_shnum = 0;    // the true count under extended numbering
    uint32_t e_shstrndx = 0; // the true index under extended numbering
};

struct elf_section_header {
    uint32_t sh_name = 0;
    uint32_t sh_type = 0;
    uint64_t sh_flags = 0;
    uint64_t sh_addr = 0;
    uint64_t sh_offset = 0;
    uint64_t sh_size = 0;
    uint32_t sh_link = 0;
    uint32_t sh_info = 0;
    uint64_t sh_addralign = 0;
    uint64_t sh_entsize = 0;
};

struct elf_program_header {
    uint32_t p_type = 0;
    uint32_t p_flags = 0;
    uint64_t p_offset = 0;
    uint64_t p_vaddr = 0;
    uint64_t p_paddr = 0;
    uint64_t p_filesz = 0;
    uint64_t p_memsz = 0;
    uint64_t p_align = 0;
};

// An offset that means the stream's position as it is.
constexpr uint64_t elf_here = UINT64_MAX;

// Bytes of one entry in the file.
constexpr uint16_t elf_file_header_size(int elfbits) {
    return elfbits == 64 ? 64 : 52;
}
constexpr uint16_t elf_section_header_size(int elfbits) {
    return elfbits == 64 ? 64 : 40;
}
constexpr uint16_t elf_program_header_size(int elfbits) {
    return elfbits == 64 ? 56 : 32;
}

// 32, 64, or -1 for anything else in EI_CLASS. Keeps the stream's position.
int elf_class_of(gen_stream& stream, uint64_t base, const char* name);

// Reads the file header at the stream's position, which is `base`, in the class that `elf` has, and
// sets its byte order. False after an error; under a sink the fields from there on keep what they
// held.
bool genelf_readXheader(elf_access& elf, gen_stream& stream, uint64_t base,
                        elf_file_header& elfhead);
// Writes the file header at the stream's position. From 0xFF00 sections on, the counts go into
// `section_zero`, which the caller writes afterwards; null is an error then. Write failures are
// reported under `name`.
bool genelf_writeXheader(elf_access& elf, const char* name, gen_stream& stream,
                         const elf_file_header& elfhead, elf_section_header* section_zero);

// Read `count` entries at `offset` (elf_here: at the position), `entsize` bytes apart (0: the
// standard size), in large pieces. The caller has checked that the file holds the table; what is
// missing all the same reads as 0xFF. False after an error, or, for section headers, when entsize
// is below the standard size.
bool elf_read_progheaders(elf_access& elf, gen_stream& stream,
                          std::vector<elf_program_header>& table, uint32_t count, uint64_t offset,
                          uint32_t entsize);
bool elf_read_secheaders(elf_access& elf, gen_stream& stream,
                         std::vector<elf_section_header>& table, uint32_t count, uint64_t offset,
                         uint32_t entsize);
// Write entries of the standard size at the stream's position, in one piece, reporting under
// `name`.
void elf_write_progheaders(elf_access& elf, const char* name, gen_stream& stream,
                           std::span<const elf_program_header> table);
void elf_write_secheaders(elf_access& elf, const char* name, gen_stream& stream,
                          std::span<const elf_section_header> table);

// The name of section `index`, from the string table at section `strings`; nothing when the file
// ends before the name does. Keeps the stream's position.
std::optional<std::string> elf_read_section_name(gen_stream& stream, uint32_t strings,
                                                 const std::vector<elf_section_header>& sechead,
                                                 uint32_t index, uint64_t base);
// The header of the first section called `name`. Nothing when there is none, or after an error,
// which is counted. Sets the class in `elf`, and moves the stream's position.
std::optional<elf_section_header> elf_find_section(elf_access& elf, gen_stream& stream,
                                                   const char* name, uint64_t base);
