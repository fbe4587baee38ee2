// ELF headers: each layout stands once, as a template over a decoder or an encoder.
#include "objfile/elfhead.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <type_traits>

#include "shared/genmessage.h"

namespace {

constexpr uint8_t elf_magic[4] = {0x7F, 'E', 'L', 'F'};
constexpr uint64_t piece_limit = 4 * 1024 * 1024; // bytes of a table that are held undecoded

bool has_class(elf_access& elf) {
    const bool is_class = elf.elfbits == 32 || elf.elfbits == 64;
    if (!is_class)
        elf_bad_class(elf);
    return is_class;
}

// The fields behind e_ident. The two counts are 16 bits wide in the file.
template <class fields>
void elf_layout_file_header(fields& f, elf_file_header& head, uint16_t& shnum, uint16_t& shstrndx) {
    f.u16(head.e_type);
    f.u16(head.e_machine);
    f.u32(head.e_version);
    f.word(head.e_entry);
    f.word(head.e_phoff);
    f.word(head.e_shoff);
    f.u32(head.e_flags);
    f.u16(head.e_ehsize);
    f.u16(head.e_phentsize);
    f.u16(head.e_phnum);
    f.u16(head.e_shentsize);
    f.u16(shnum);
    f.u16(shstrndx);
}

template <class fields, class entry>
void elf_layout(fields& f, entry& section) requires
    std::is_same_v<std::remove_const_t<entry>, elf_section_header> {
    f.u32(section.sh_name);
    f.u32(section.sh_type);
    f.word(section.sh_flags);
    f.word(section.sh_addr);
    f.word(section.sh_offset);
    f.word(section.sh_size);
    f.u32(section.sh_link);
    f.u32(section.sh_info);
    f.word(section.sh_addralign);
    f.word(section.sh_entsize);
}

// The classes differ in the place of p_flags.
template <class fields, class entry>
void elf_layout(fields& f, entry& segment) requires
    std::is_same_v<std::remove_const_t<entry>, elf_program_header> {
    f.u32(segment.p_type);
    if (f.is_64)
        f.u32(segment.p_flags);
    f.word(segment.p_offset);
    f.word(segment.p_vaddr);
    f.word(segment.p_paddr);
    f.word(segment.p_filesz);
    f.word(segment.p_memsz);
    if (!f.is_64)
        f.u32(segment.p_flags);
    f.word(segment.p_align);
}

// Reads `count` entries `entsize` bytes apart (0: the standard size) from the stream's position.
// False when they would be smaller than the standard.
template <class entry>
bool read_table(const elf_access& elf, gen_stream& stream, std::vector<entry>& table,
                uint32_t count, uint32_t entsize, uint32_t standard) {
    if (entsize != 0 && entsize < standard)
        return false;
    table.resize(count);
    const uint64_t stride = std::max(entsize, standard);
    const uint64_t piece_count = std::max<uint64_t>(1, piece_limit / stride);
    const gen_block piece = gen_new_block(stride * std::min<uint64_t>(piece_count, table.size()));
    for (uint64_t first = 0; first < table.size(); first += piece_count) {
        const uint64_t in_piece = std::min<uint64_t>(piece_count, table.size() - first);
        // What follows the standard part of the last entry may lie outside the file.
        const uint64_t wanted = in_piece * stride;
        const uint64_t got = gen_read_stream(stream, piece.bytes.get(), wanted);
        std::fill(piece.bytes.get() + got, piece.bytes.get() + wanted, std::byte{0xFF});
        for (uint64_t i = 0; i < in_piece; ++i) {
            elf_decoder fields = elf_decode_at(elf, piece.bytes.get() + i * stride);
            elf_layout(fields, table[first + i]);
        }
    }
    return true;
}

template <class entry>
void write_table(elf_access& elf, const char* name, gen_stream& stream,
                 std::span<const entry> table, uint64_t standard) {
    if (table.empty())
        return;
    const gen_block block = gen_new_block(table.size() * standard);
    for (uint64_t i = 0; i < table.size(); ++i) {
        elf_encoder fields = elf_encode_at(elf, block.bytes.get() + i * standard);
        elf_layout(fields, table[i]);
    }
    gen_safe_fwrite64(name, block.bytes.get(), 1, block.size, &stream);
}

// Reads the fields of one class as they stand in the file. False when the magic number is not
// there.
bool read_plain_header(elf_access& elf, gen_stream& stream, elf_file_header& elfhead) {
    const gen_block ident = elf_read_bytes(elf, stream, EI_NIDENT);
    if (!ident.bytes)
        return false;
    memcpy(elfhead.e_ident, ident.bytes.get(), EI_NIDENT);
    if (memcmp(elfhead.e_ident, elf_magic, sizeof elf_magic) != 0) {
        elf_error(elf, "bad elf magic number");
        return false;
    }
    elf.elf_byte_order = elfhead.e_ident[EI_DATA] == ELFDATA2MSB ? ELF_ORDER_BIG : ELF_ORDER_LITTLE;

    std::byte rest[64];
    std::fill(std::begin(rest), std::end(rest), std::byte{0xFF});
    gen_read_stream(stream, rest, elf_file_header_size(elf.elfbits) - EI_NIDENT);
    elf_decoder fields = elf_decode_at(elf, rest);
    uint16_t shnum = 0;
    uint16_t shstrndx = 0;
    elf_layout_file_header(fields, elfhead, shnum, shstrndx);
    elfhead.e_shnum = shnum;
    elfhead.e_shstrndx = shstrndx;
    return true;
}

// Extended numbering: the true counts stand in section header 0.
bool resolve_extended_numbering(elf_access& elf, gen_stream& stream, uint64_t base,
                                elf_file_header& elfhead) {
    if (elfhead.e_shnum != 0 || elfhead.e_shoff == 0)
        return true;
    std::vector<elf_section_header> zero;
    if (!elf_read_secheaders(elf, stream, zero, 1, base + elfhead.e_shoff, elfhead.e_shentsize)) {
        elf_error(elf, "genelf_readXheader: Unable to read section header");
        return false;
    }
    elfhead.e_shnum = elf_narrow(elf, zero[0].sh_size);
    if (elfhead.e_shstrndx == SHN_XINDEX)
        elfhead.e_shstrndx = zero[0].sh_link;
    return true;
}

// Whether the name at `offset` is `name`: only as many bytes are read as it takes to tell, since
// all names of a hostile file may share one endless string.
bool name_is(gen_stream& stream, uint64_t offset, const char* name) {
    if (offset > stream.size || gen_seek(stream, static_cast<int64_t>(offset), GEN_SEEK_SET) != 0)
        return false;
    for (; gen_getc(stream) == static_cast<uint8_t>(*name); ++name)
        if (*name == '\0')
            return true;
    return false;
}

// Whether the file holds `count` entries at `offset` from `base`.
bool table_is_inside(const gen_stream& stream, uint64_t base, uint64_t offset, uint64_t count,
                     uint64_t stride) {
    const uint64_t size = base < stream.size ? stream.size - base : 0;
    return offset <= size && count <= (size - offset) / stride;
}

} // namespace

int elf_class_of(gen_stream& stream, uint64_t base, const char* name) {
    const uint64_t position = stream.position;
    uint8_t e_ident[EI_NIDENT] = {};
    elf_seek(name, stream, base);
    gen_read_stream(stream, e_ident, sizeof e_ident);
    elf_seek(name, stream, position);
    if (e_ident[EI_CLASS] == ELFCLASS32)
        return 32;
    return e_ident[EI_CLASS] == ELFCLASS64 ? 64 : -1;
}

bool genelf_readXheader(elf_access& elf, gen_stream& stream, uint64_t base,
                        elf_file_header& elfhead) {
    return has_class(elf) && read_plain_header(elf, stream, elfhead) &&
           resolve_extended_numbering(elf, stream, base, elfhead);
}

bool genelf_writeXheader(elf_access& elf, const char* name, gen_stream& stream,
                         const elf_file_header& elfhead, elf_section_header* section_zero) {
    if (!has_class(elf))
        return false;
    elf_file_header head = elfhead;
    uint16_t shnum = static_cast<uint16_t>(head.e_shnum);
    uint16_t shstrndx = static_cast<uint16_t>(head.e_shstrndx);
    if (head.e_shnum >= SHN_LORESERVE) {
        if (!section_zero) {
            elf_error(elf, "genelf_writeXheader: Unable to write ELF header");
            return false;
        }
        section_zero->sh_size = head.e_shnum;
        shnum = 0;
        // A large string table index is escaped only together with the count.
        if (head.e_shstrndx >= SHN_LORESERVE) {
            section_zero->sh_link = head.e_shstrndx;
            shstrndx = SHN_XINDEX;
        }
    }
    const uint16_t size = elf_file_header_size(elf.elfbits);
    std::byte bytes[64];
    memcpy(bytes, head.e_ident, EI_NIDENT);
    elf_encoder fields = elf_encode_at(elf, bytes + EI_NIDENT);
    elf_layout_file_header(fields, head, shnum, shstrndx);
    return gen_safe_fwrite64(name, bytes, 1, size, &stream) == size;
}

bool elf_read_progheaders(elf_access& elf, gen_stream& stream,
                          std::vector<elf_program_header>& table, uint32_t count, uint64_t offset,
                          uint32_t entsize) {
    if (!has_class(elf))
        return false;
    if (offset != elf_here && elf.is_64())
        elf_seek(nullptr, stream, offset);
    else if (offset != elf_here)
        gen_safe_fseek(nullptr, &stream, static_cast<int32_t>(elf_narrow(elf, offset)),
                       GEN_SEEK_SET);
    if (read_table(elf, stream, table, count, entsize, elf_program_header_size(elf.elfbits)))
        return true;
    elf_error(elf, elf.is_64() ? "elf64_readprogheader(): phentsize"
                               : "elf_readprogheader(): phentsize");
    return false;
}

bool elf_read_secheaders(elf_access& elf, gen_stream& stream,
                         std::vector<elf_section_header>& table, uint32_t count, uint64_t offset,
                         uint32_t entsize) {
    if (!has_class(elf))
        return false;
    if (offset != elf_here)
        elf_seek(nullptr, stream, offset);
    return read_table(elf, stream, table, count, entsize, elf_section_header_size(elf.elfbits));
}

void elf_write_progheaders(elf_access& elf, const char* name, gen_stream& stream,
                           std::span<const elf_program_header> table) {
    write_table(elf, name, stream, table, elf_program_header_size(elf.elfbits));
}

void elf_write_secheaders(elf_access& elf, const char* name, gen_stream& stream,
                          std::span<const elf_section_header> table) {
    write_table(elf, name, stream, table, elf_section_header_size(elf.elfbits));
}

std::optional<std::string> elf_read_section_name(gen_stream& stream, uint32_t strings,
                                                 const std::vector<elf_section_header>& sechead,
                                                 uint32_t index, uint64_t base) {
    if (strings >= sechead.size() || index >= sechead.size())
        return std::nullopt;
    const uint64_t position = stream.position;
    elf_seek(nullptr, stream, base + sechead[strings].sh_offset + sechead[index].sh_name);
    std::optional<std::string> name(std::in_place);
    int byte = gen_getc(stream);
    for (; byte > 0; byte = gen_getc(stream))
        name->push_back(static_cast<char>(byte));
    if (byte < 0)
        name.reset();
    elf_seek(nullptr, stream, position);
    return name;
}

std::optional<elf_section_header> elf_find_section(elf_access& elf, gen_stream& stream,
                                                   const char* name, uint64_t base) {
    gen_safe_fseek(nullptr, &stream, static_cast<int32_t>(base), GEN_SEEK_SET);
    elf.elfbits = elf_class_of(stream, base, nullptr);
    elf_file_header elfhead;
    std::vector<elf_section_header> sechead;
    const bool readable =
        genelf_readXheader(elf, stream, base, elfhead) && elfhead.e_shoff != 0 &&
        table_is_inside(stream, base, elfhead.e_shoff, elfhead.e_shnum,
                        std::max(elfhead.e_shentsize, elf_section_header_size(elf.elfbits))) &&
        elf_read_secheaders(elf, stream, sechead, elfhead.e_shnum, base + elfhead.e_shoff,
                            elfhead.e_shentsize) &&
        elfhead.e_shstrndx < sechead.size();
    if (!readable) {
        ++elf.elf_error_count;
        return std::nullopt;
    }
    const uint64_t strings = base + sechead[elfhead.e_shstrndx].sh_offset;
    for (const elf_section_header& section : sechead)
        if (name_is(stream, strings + section.sh_name, name))
            return section;
    return std::nullopt;
}
