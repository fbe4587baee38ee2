// ELF symbols: index encoding, tables in pieces.
#include "objfile/elfsym.h"

#include <algorithm>

#include "shared/genexit.h"

namespace {

constexpr uint32_t reserved_shift = 0xFFFF0000; // between a reserved index in a file and held
constexpr uint64_t piece_limit = 1024 * 1024;   // bytes of a table that are held undecoded

// gABI, figure 4-15: the classes order the fields differently. The section index is 16 bits wide.
template <class fields, class symbol>
void elf_layout_symbol(fields& f, symbol& s, uint16_t& shndx) {
    f.u32(s.st_name);
    if (!f.is_64) {
        f.word(s.st_value);
        f.word(s.st_size);
    }
    f.u8(s.st_info);
    f.u8(s.st_other);
    f.u16(shndx);
    if (f.is_64) {
        f.word(s.st_value);
        f.word(s.st_size);
    }
}

// Widens the section index `shndx` of symbol `position`. False when the extended table is too
// short.
bool widen_index(elf_symbol& symbol, uint16_t shndx, uint64_t position,
                 const std::vector<uint32_t>* words) {
    if (shndx != SHN_XINDEX) {
        symbol.st_shndx = elf_index_in(shndx);
        return true;
    }
    if (!words)
        gen_fatal(status_failure, "symbol requires SYMTAB_SHNDX mapping");
    if (position >= words->size())
        return false;
    symbol.st_shndx = (*words)[position];
    return true;
}

bool needs_word(const elf_symbol& symbol) {
    return symbol.st_shndx >= SHN_LORESERVE && symbol.st_shndx < reserved_shift;
}

} // namespace

uint32_t elf_index_in(uint32_t index) {
    if (index > 0xFFFF)
        gen_fatal(status_failure, "Invalid section");
    return index < SHN_LORESERVE ? index : index + reserved_shift;
}

uint32_t elf_index_out(uint32_t index) {
    return index >= reserved_shift ? index - reserved_shift : index;
}

std::optional<std::vector<elf_symbol>> elf_read_symtab(elf_access& elf, const char* name,
                                                       gen_stream& stream, uint64_t base,
                                                       const elf_section_header& symtab,
                                                       const std::vector<uint32_t>* words) {
    const uint64_t stride =
        symtab.sh_entsize != 0 ? symtab.sh_entsize : elf_symbol_size(elf.elfbits);
    std::vector<elf_symbol> symbols(symtab.sh_size / stride);
    const uint64_t piece_count = std::max<uint64_t>(1, piece_limit / stride);
    const gen_block piece = gen_new_block(stride * std::min<uint64_t>(piece_count, symbols.size()));
    elf_seek(name, stream, base + symtab.sh_offset);
    for (uint64_t first = 0; first < symbols.size(); first += piece_count) {
        const uint64_t count = std::min<uint64_t>(piece_count, symbols.size() - first);
        const uint64_t got = gen_read_stream(stream, piece.bytes.get(), count * stride);
        std::fill(piece.bytes.get() + got, piece.bytes.get() + count * stride, std::byte{0xFF});
        for (uint64_t i = 0; i < count; ++i) {
            elf_decoder fields = elf_decode_at(elf, piece.bytes.get() + i * stride);
            uint16_t shndx = 0;
            elf_layout_symbol(fields, symbols[first + i], shndx);
            if (!widen_index(symbols[first + i], shndx, first + i, words))
                return std::nullopt;
        }
    }
    return symbols;
}

std::vector<uint32_t> elf_read_shndx(elf_access& elf, const char* name, gen_stream& stream,
                                     uint64_t base, const elf_section_header& section) {
    elf_seek(name, stream, base + section.sh_offset);
    std::vector<uint32_t> words(section.sh_size / 4);
    const gen_block block = elf_read_bytes(elf, stream, words.size() * 4);
    elf_decoder fields = elf_decode_at(elf, block.bytes.get());
    for (uint32_t& word : words)
        fields.u32(word);
    return words;
}

bool elf_symbols_for_output(elf_access& elf, std::span<const elf_symbol> symbols,
                            std::vector<uint32_t>* words) {
    if (words)
        words->assign(symbols.size(), 0);
    for (size_t i = 0; i < symbols.size(); ++i) {
        if (!needs_word(symbols[i]))
            continue;
        if (!words) {
            elf_error(elf, "symbol requires SYMTAB_SHNDX section");
            return false;
        }
        (*words)[i] = symbols[i].st_shndx;
    }
    return true;
}

uint64_t elf_write_symbols(elf_access& elf, const char* name, gen_stream& stream,
                           std::span<const elf_symbol> symbols) {
    const uint64_t standard = elf_symbol_size(elf.elfbits);
    const uint64_t piece_count = piece_limit / standard;
    const gen_block piece =
        gen_new_block(standard * std::min<uint64_t>(piece_count, symbols.size()));
    const uint64_t value_mask = elf.is_64() ? UINT64_MAX : UINT32_MAX;
    for (uint64_t first = 0; first < symbols.size(); first += piece_count) {
        const uint64_t count = std::min<uint64_t>(piece_count, symbols.size() - first);
        for (uint64_t i = 0; i < count; ++i) {
            elf_symbol symbol = symbols[first + i];
            symbol.st_value &= value_mask;
            symbol.st_size &= value_mask;
            uint16_t shndx = static_cast<uint16_t>(
                needs_word(symbol) ? SHN_XINDEX : elf_index_out(symbol.st_shndx));
            elf_encoder fields = elf_encode_at(elf, piece.bytes.get() + i * standard);
            elf_layout_symbol(fields, symbol, shndx);
        }
        gen_safe_fwrite64(name, piece.bytes.get(), standard, count, &stream);
    }
    return symbols.size() * standard;
}

uint64_t elf_write_words(elf_access& elf, const char* name, gen_stream& stream,
                         std::span<const uint32_t> words) {
    constexpr uint64_t piece_count = piece_limit / 4;
    const gen_block piece = gen_new_block(4 * std::min<uint64_t>(piece_count, words.size()));
    for (uint64_t first = 0; first < words.size(); first += piece_count) {
        const uint64_t count = std::min<uint64_t>(piece_count, words.size() - first);
        elf_encoder fields = elf_encode_at(elf, piece.bytes.get());
        for (uint32_t word : words.subspan(first, count))
            fields.u32(word);
        gen_safe_fwrite64(name, piece.bytes.get(), 4, count, &stream);
    }
    return words.size() * 4;
}
