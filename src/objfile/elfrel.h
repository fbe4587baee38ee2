// ELF relocation entries, of both classes and byte orders (System V gABI, chapter 4). In memory
// every entry has one shape.
#pragma once

#include <cstddef>
#include <cstdint>

#include "objfile/elffield.h"

// A relocation, r_info in the 64-bit encoding. r_addend stays 0 in REL entries.
struct elf_relocation {
    uint64_t r_offset = 0;
    uint64_t r_info = 0; // symbol index in the upper half, type in the lower
    int64_t r_addend = 0;
};

inline uint32_t elf_relocation_symbol(const elf_relocation& relocation) {
    return static_cast<uint32_t>(relocation.r_info >> 32);
}
inline uint32_t elf_relocation_type(const elf_relocation& relocation) {
    return static_cast<uint32_t>(relocation.r_info);
}

// Bytes of one entry in the file.
constexpr uint64_t elf_rel_size(int elfbits) {
    return elfbits == 64 ? 16 : 8;
}
constexpr uint64_t elf_rela_size(int elfbits) {
    return elfbits == 64 ? 24 : 12;
}

// One relocation at `at`.
elf_relocation elf_decode_rel(const elf_access& elf, const std::byte* at);
elf_relocation elf_decode_rela(const elf_access& elf, const std::byte* at);
// The same back. A symbol index, type, offset or addend that a 32-bit entry cannot hold is
// elf_overflow.
void elf_encode_rel(elf_access& elf, std::byte* at, const elf_relocation& relocation);
void elf_encode_rela(elf_access& elf, std::byte* at, const elf_relocation& relocation);
