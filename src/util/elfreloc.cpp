// Relocations: reading, the scan for section-relative conversion, the rewrite.
#include "util/elfreloc.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

#include "util/elfassert.h"
#include "util/options.h"
#include "util/report.h"

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
    const std::byte* entry = table.entries.bytes.get() + number * table.entry_size;
    return table.has_addend ? elf_decode_rela(entry, elfbits) : elf_decode_rel(entry, elfbits);
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

// Makes the relocation name what its symbol has become.
void redirect(elf_relocation& relocation, const symbol_fate& fate, const elf_image& image,
              bool has_addend) {
    const uint32_t type = elf_relocation_type(relocation);
    relocation.r_info = uint64_t{fate.new_index} << 32 | type;
    if (has_addend) {
        relocation.r_addend = static_cast<int64_t>(static_cast<uint64_t>(relocation.r_addend) +
                                                   static_cast<uint64_t>(fate.value_delta));
        if (fate.thumb_function)
            relocation.r_addend |= 1;
    } else if (fate.value_delta != 0) {
        elf_assert(image.elfhead.e_type != ET_REL, ASSERT_REL_NOT_RELOCATABLE);
        elf_assert(is_simple_rel_reloc(image.elfhead, type), ASSERT_REL_IS_SIMPLE);
    }
}

// Describes the table in section `index`. False after a report of damage.
bool describe_table(const elf_image& image, uint32_t index, relocation_table& table) {
    const elf_section_header& section = image.sechead[index];
    table.section = index;
    table.has_addend = (section.sh_type & type_kind_mask) == SHT_RELA;
    table.entry_size = entry_size(image, section);
    table.count = section.sh_size / table.entry_size;
    if (section.sh_entsize != 0 && section.sh_entsize != table.entry_size)
        return report_damage(
            image.name, "sh_entsize %" PRIu64 " of relocation section %" PRIu32 " is not %" PRIu64,
            section.sh_entsize, index, table.entry_size);
    return holds_section(image, index);
}

void load_entries(const elf_image& image, relocation_table& table) {
    if (table.entries.bytes)
        return;
    gen_safe_fseek64(image.name, image.stream,
                     static_cast<int64_t>(image.sechead[table.section].sh_offset), GEN_SEEK_SET);
    table.entries = elf_read_bytes(*image.stream, table.count * table.entry_size);
}

// Calls `look` for each table, with its entries loaded, until it answers false.
template <class routine>
bool look_at_tables(const elf_image& image, relocation_plan& relocations, routine look) {
    uint64_t largest = 0;
    uint64_t kept = 0;
    for (const relocation_table& table : relocations.tables) {
        largest = std::max(largest, table.count * table.entry_size);
        kept += table.entries.size;
    }
    for (relocation_table& table : relocations.tables) {
        const bool was_kept = table.entries.size != 0;
        load_entries(image, table);
        if (!look(table))
            return false;
        if (was_kept)
            continue;
        if (table.entries.size > largest - std::min(kept, largest))
            table.entries = gen_block();
        else
            kept += table.entries.size;
    }
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
    for (uint32_t i = 0; i < image.sechead.size(); ++i) {
        const elf_section_header& section = image.sechead[i];
        if (plan.info[i].state == SECTION_REMOVED || !relocations_are_rewritten(image, section))
            continue;
        relocation_table table;
        if (!describe_table(image, i, table))
            return false;
        relocations.tables.push_back(std::move(table));
        relocations.table_of[i] = static_cast<uint32_t>(relocations.tables.size());
    }
    if (strip_flags.secrel_reloc)
        look_at_tables(image, relocations, [&](const relocation_table& table) {
            scan(image, table, symbols);
            return true;
        });
    return true;
}

bool relocations_are_sound(const elf_image& image, const symbol_plan& symbols,
                           relocation_plan& relocations) {
    if (strip_flags.secrel_reloc)
        return true; // the scan has asserted it
    return look_at_tables(image, relocations, [&](const relocation_table& table) {
        for (uint64_t k = 0; k < table.count; ++k) {
            const uint32_t symbol = elf_relocation_symbol(entry_at(table, k, image.elfbits));
            if (symbol >= symbols.fate.size())
                return report_damage(image.name,
                                     "relocation %" PRIu64 " of section %" PRIu32
                                     " names symbol %" PRIu32 ", but there are only %zu",
                                     k, table.section, symbol, symbols.fate.size());
        }
        return true;
    });
}

uint64_t write_relocations(const char* name, gen_stream& output, const elf_image& image,
                           const symbol_plan& symbols, relocation_table& table) {
    load_entries(image, table);
    const gen_block entries = std::move(table.entries);
    std::byte* to = entries.bytes.get();
    for (uint64_t k = 0; k < table.count; ++k) {
        const std::byte* from = entries.bytes.get() + k * table.entry_size;
        elf_relocation relocation = table.has_addend ? elf_decode_rela(from, image.elfbits)
                                                     : elf_decode_rel(from, image.elfbits);
        const symbol_fate& fate = symbols.fate[elf_relocation_symbol(relocation)];
        if (fate.new_index == symbol_gone)
            continue;
        redirect(relocation, fate, image, table.has_addend);
        if (table.has_addend)
            elf_encode_rela(to, relocation, image.elfbits);
        else
            elf_encode_rel(to, relocation, image.elfbits);
        to += table.entry_size;
    }
    const uint64_t written = static_cast<uint64_t>(to - entries.bytes.get());
    if (written != 0)
        gen_safe_fwrite64(name, entries.bytes.get(), 1, written, &output);
    return written;
}
