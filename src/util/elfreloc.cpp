// Relocations: reading, the scan for section-relative conversion, the rewrite.
#include "util/elfreloc.h"

#include <cinttypes>

#include "util/elfassert.h"
#include "util/options.h"

namespace {

constexpr uint32_t type_kind_mask = 0xF;

uint64_t entry_size(const elf_image& image, const elf_section_header& section) {
    return (section.sh_type & type_kind_mask) == SHT_RELA ? elf_rela_size(image.elfbits)
                                                          : elf_rel_size(image.elfbits);
}

bool is_exactly_relocation(const elf_section_header& section) {
    return section.sh_type == SHT_REL || section.sh_type == SHT_RELA;
}

elf_relocation entry_at(const relocation_table& table, uint64_t number, int elfbits) {
    const std::byte* entries = table.entries.bytes.get();
    return table.has_addend ? elf_decode_rela(entries + number * elf_rela_size(elfbits), elfbits)
                            : elf_decode_rel(entries + number * elf_rel_size(elfbits), elfbits);
}

// Whether a REL entry of this type can be made relative to its section without a change of the
// bytes that it relocates.
bool is_simple_rel_reloc(const elf_file_header& elfhead, uint32_t type) {
    constexpr uint32_t highest_simple_type = 2; // none, absolute, PC-relative
    if (strip_flags.reloc_kind_never)
        return false;
    if (strip_flags.reloc_kind_always)
        return true;
    elf_assert(elfhead.e_type != ET_REL, ASSERT_SIMPLE_NOT_RELOCATABLE);
    return (elfhead.e_machine == EM_386 || elfhead.e_machine == EM_X86_64) &&
           type <= highest_simple_type;
}

void scan(const elf_image& image, const relocation_table& table, symbol_plan& symbols) {
    const elf_assert_site& site =
        table.has_addend ? ASSERT_SCAN_RELA_SYMBOL : ASSERT_SCAN_REL_SYMBOL;
    for (uint64_t k = 0; k < table.count; ++k) {
        const elf_relocation relocation = entry_at(table, k, image.elfbits);
        const uint32_t symbol = elf_relocation_symbol(relocation);
        elf_assert(symbol < symbols.fate.size(), site);
        symbols.fate[symbol].referenced = true;
        if (!table.has_addend &&
            !is_simple_rel_reloc(image.elfhead, elf_relocation_type(relocation)))
            symbols.fate[symbol].nonsimple_reloc = true;
    }
}

bool read_table(const elf_image& image, uint32_t index, relocation_table& table) {
    const elf_section_header& section = image.sechead[index];
    const uint64_t size = entry_size(image, section);
    if (section.sh_entsize != 0 && section.sh_entsize != size)
        return report_damage(
            image.name, "sh_entsize %" PRIu64 " of relocation section %" PRIu32 " is not %" PRIu64,
            section.sh_entsize, index, size);
    if (!holds_section(image, index))
        return false;
    table.has_addend = (section.sh_type & type_kind_mask) == SHT_RELA;
    table.count = section.sh_size / size;
    gen_safe_fseek64(image.name, image.stream, static_cast<int64_t>(section.sh_offset),
                     GEN_SEEK_SET);
    table.entries = elf_read_bytes(*image.stream, table.count * size);
    return true;
}

} // namespace

bool is_relocation_section(const elf_section_header& section) {
    const uint32_t kind = section.sh_type & type_kind_mask;
    return kind == SHT_REL || kind == SHT_RELA;
}

bool relocations_are_rewritten(const elf_image& image, const elf_section_header& section) {
    return is_relocation_section(section) && has_data(section) &&
           (is_exactly_relocation(section) || section.sh_entsize == entry_size(image, section));
}

bool read_relocations(const elf_image& image, const section_plan& plan, symbol_plan& symbols,
                      relocation_plan& relocations) {
    if (!symbols.present)
        return true;
    relocations.table_of.resize(image.sechead.size());
    uint64_t bytes_left = image.stream->size; // sections that overlap could ask for any amount
    for (uint32_t i = 0; i < image.sechead.size(); ++i) {
        const elf_section_header& section = image.sechead[i];
        if (plan.info[i].state == SECTION_REMOVED || !relocations_are_rewritten(image, section))
            continue;
        if (section.sh_size > bytes_left)
            return report_damage(image.name,
                                 "relocation section %" PRIu32 " of 0x%" PRIx64
                                 " bytes: the file does not hold so many relocations",
                                 i, section.sh_size);
        bytes_left -= section.sh_size;
        relocation_table table;
        if (!read_table(image, i, table))
            return false;
        if (strip_flags.secrel_reloc)
            scan(image, table, symbols);
        relocations.tables.push_back(std::move(table));
        relocations.table_of[i] = static_cast<uint32_t>(relocations.tables.size());
    }
    return true;
}

bool relocations_are_sound(const elf_image& image, const symbol_plan& symbols,
                           const relocation_plan& relocations) {
    for (size_t i = 0; i < relocations.table_of.size(); ++i) {
        if (relocations.table_of[i] == 0)
            continue;
        const relocation_table& table = relocations.tables[relocations.table_of[i] - 1];
        for (uint64_t k = 0; k < table.count; ++k) {
            const uint32_t symbol = elf_relocation_symbol(entry_at(table, k, image.elfbits));
            if (symbol >= symbols.fate.size())
                return report_damage(image.name,
                                     "relocation %" PRIu64 " of section %zu names symbol %" PRIu32
                                     ", but there are only %zu",
                                     k, i, symbol, symbols.fate.size());
        }
    }
    return true;
}

uint64_t write_relocations(const char* name, gen_stream& output, const elf_image& image,
                           const symbol_plan& symbols, relocation_table& table) {
    const uint64_t size =
        table.has_addend ? elf_rela_size(image.elfbits) : elf_rel_size(image.elfbits);
    std::byte* to = table.entries.bytes.get();
    for (uint64_t k = 0; k < table.count; ++k) {
        elf_relocation relocation = entry_at(table, k, image.elfbits);
        const symbol_fate& fate = symbols.fate[elf_relocation_symbol(relocation)];
        if (fate.new_index == symbol_gone)
            continue;
        const uint32_t type = elf_relocation_type(relocation);
        relocation.r_info = uint64_t{fate.new_index} << 32 | type;
        if (table.has_addend) {
            relocation.r_addend = static_cast<int64_t>(static_cast<uint64_t>(relocation.r_addend) +
                                                       static_cast<uint64_t>(fate.value_delta));
            if (fate.thumb_function)
                relocation.r_addend |= 1;
            elf_encode_rela(to, relocation, image.elfbits);
        } else {
            if (fate.value_delta != 0) {
                elf_assert(image.elfhead.e_type != ET_REL, ASSERT_REL_NOT_RELOCATABLE);
                elf_assert(is_simple_rel_reloc(image.elfhead, type), ASSERT_REL_IS_SIMPLE);
            }
            elf_encode_rel(to, relocation, image.elfbits);
        }
        to += size;
    }
    const uint64_t written = static_cast<uint64_t>(to - table.entries.bytes.get());
    if (written != 0)
        gen_safe_fwrite64(name, table.entries.bytes.get(), 1, written, &output);
    return written;
}
