// Relocation entries, one at a time: the ways in which r_info is made up.
#include "objfile/elfrel.h"

namespace {

// In a 32-bit file r_info is the symbol index shifted by 8, with the type below.
uint64_t widen_info(uint32_t info) {
    return uint64_t{info >> 8} << 32 | (info & 0xFF);
}

uint32_t narrow_info(elf_access& elf, uint64_t info) {
    const uint64_t symbol = info >> 32;
    const uint64_t type = info & 0xFFFFFFFF;
    if (symbol > 0xFFFFFF || type > 0xFF)
        elf_overflow(elf);
    return static_cast<uint32_t>(symbol << 8 | (type & 0xFF));
}

// The offset and r_info, which REL and RELA entries begin with.
elf_relocation decode_head(elf_decoder& fields) {
    elf_relocation relocation;
    fields.word(relocation.r_offset);
    fields.word(relocation.r_info);
    if (!fields.is_64)
        relocation.r_info = widen_info(static_cast<uint32_t>(relocation.r_info));
    return relocation;
}

void encode_head(elf_encoder& fields, const elf_relocation& relocation) {
    fields.word(relocation.r_offset);
    fields.word(fields.is_64 ? relocation.r_info : narrow_info(fields.elf, relocation.r_info));
}

} // namespace

elf_relocation elf_decode_rel(const elf_access& elf, const std::byte* at) {
    elf_decoder fields = elf_decode_at(elf, at);
    return decode_head(fields);
}

elf_relocation elf_decode_rela(const elf_access& elf, const std::byte* at) {
    elf_decoder fields = elf_decode_at(elf, at);
    elf_relocation relocation = decode_head(fields);
    uint64_t addend = 0;
    fields.word(addend);
    relocation.r_addend =
        elf.is_64() ? static_cast<int64_t>(addend) : int64_t{static_cast<int32_t>(addend)};
    return relocation;
}

void elf_encode_rel(elf_access& elf, std::byte* at, const elf_relocation& relocation) {
    elf_encoder fields = elf_encode_at(elf, at);
    encode_head(fields, relocation);
}

void elf_encode_rela(elf_access& elf, std::byte* at, const elf_relocation& relocation) {
    elf_encoder fields = elf_encode_at(elf, at);
    encode_head(fields, relocation);
    const int64_t addend = relocation.r_addend;
    if (elf.is_64()) {
        fields.u64(static_cast<uint64_t>(addend));
        return;
    }
    if (addend < INT32_MIN || addend > INT32_MAX)
        elf_overflow(elf);
    fields.u32(static_cast<uint32_t>(addend));
}
