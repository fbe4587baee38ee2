// Relocations: reading, the scan for section-relative conversion, the rewrite.
#include "util/elfreloc.h"

#include <algorithm>
#include <cinttypes>

#include "objfile/elfrel.h"
#include "util/damage.h"
#include "util/elfassert.h"

namespace {

constexpr uint32_t type_kind_mask = 0xF;
constexpr uint64_t piece_limit = 1024 * 1024; // bytes of entries that are held at a time
constexpr uint64_t small_table_limit = 64 * 1024;

uint64_t entry_size(const elf_image& image, const elf_section_header& section) {
    return (section.sh_type & type_kind_mask) == SHT_RELA ? elf_rela_size(image.elf.elfbits)
                                                          : elf_rel_size(image.elf.elfbits);
}

bool is_exactly_relocation(const elf_section_header& section) {
    return section.sh_type == SHT_REL || section.sh_type == SHT_RELA;
}

elf_relocation decode(const elf_image& image, const relocation_table& table,
                      const std::byte* entry) {
    return table.has_addend ? elf_decode_rela(image.elf, entry) : elf_decode_rel(image.elf, entry);
}

// Some entries of a table, in the plan's block.
struct relocation_piece {
    std::byte* entries;
    uint64_t first; // the number of the first one in its table
    uint64_t count;
};

// No more than the table needs: memory comes cleared, and most files have small tables. A block
// that grows grows by half at least, however many tables are each a little larger than the one
// before.
void make_room(gen_block& piece, const relocation_table& table) {
    constexpr uint64_t least = 4096;
    const uint64_t needed = std::min(piece_limit, table.count * table.entry_size);
    if (piece.size < std::max(needed, least))
        piece = gen_new_block(std::min(piece_limit, std::max(needed + needed / 2, least)));
}

// Hands the entries of a table to `look` in pieces, until it answers false.
template <class routine>
bool look_at_table(elf_image& image, relocation_plan& relocations, const relocation_table& table,
                   routine look) {
    make_room(relocations.piece, table);
    std::byte* block = relocations.piece.bytes.get();
    const uint64_t most = piece_limit / table.entry_size;
    elf_seek(image.name, *image.stream, image.sechead[table.section].sh_offset);
    for (uint64_t first = 0; first < table.count; first += most) {
        const uint64_t count = std::min(most, table.count - first);
        if (!elf_read_into(image.elf, *image.stream, block, count * table.entry_size) ||
            !look(relocation_piece{block, first, count}))
            return false;
    }
    return true;
}

// Where an entry keeps the number of its symbol: in the upper bits of a 32-bit field.
struct symbol_field {
    uint64_t at;
    unsigned shift;
};

symbol_field symbol_field_of(const elf_access& elf) {
    if (!elf.is_64())
        return {4, 8};
    return {elf.is_big_endian() ? uint64_t{8} : uint64_t{12}, 0};
}

// Whether a REL entry of this type can be made relative to its section without a change of the
// bytes that it relocates.
bool is_simple_rel_reloc(const conversion_rules& rules, const elf_file_header& elfhead,
                         uint32_t type) {
    constexpr uint32_t highest_simple_type = 2; // none, absolute, PC-relative
    if (rules.is_never)
        return false;
    if (rules.is_always)
        return true;
    elf_assert(elfhead.e_type != ET_REL, ASSERT_SIMPLE_NOT_RELOCATABLE);
    return (elfhead.e_machine == EM_386 || elfhead.e_machine == EM_X86_64) &&
           type <= highest_simple_type;
}

void scan(const conversion_rules& rules, const elf_image& image, const relocation_table& table,
          const relocation_piece& piece, symbol_plan& symbols) {
    const elf_assert_site& site =
        table.has_addend ? ASSERT_SCAN_RELA_SYMBOL : ASSERT_SCAN_REL_SYMBOL;
    for (uint64_t k = 0; k < piece.count; ++k) {
        const elf_relocation relocation =
            decode(image, table, piece.entries + k * table.entry_size);
        const uint32_t symbol = elf_relocation_symbol(relocation);
        elf_assert(symbol < symbols.usage.size(), site);
        symbols.usage[symbol].referenced = true;
        if (!table.has_addend &&
            !is_simple_rel_reloc(rules, image.elfhead, elf_relocation_type(relocation)))
            symbols.usage[symbol].nonsimple_reloc = true;
    }
}

// Makes the relocation name what its symbol has become.
void redirect(elf_relocation& relocation, uint32_t new_index, const symbol_usage& usage,
              const conversion_rules& rules, const elf_image& image, bool has_addend) {
    const uint32_t type = elf_relocation_type(relocation);
    relocation.r_info = uint64_t{new_index} << 32 | type;
    if (has_addend) {
        relocation.r_addend = static_cast<int64_t>(static_cast<uint64_t>(relocation.r_addend) +
                                                   static_cast<uint64_t>(usage.value_delta));
        if (usage.thumb_function)
            relocation.r_addend |= 1;
    } else if (usage.value_delta != 0) {
        elf_assert(image.elfhead.e_type != ET_REL, ASSERT_REL_NOT_RELOCATABLE);
        elf_assert(is_simple_rel_reloc(rules, image.elfhead, type), ASSERT_REL_IS_SIMPLE);
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

// The highest symbol that the piece names.
template <bool big_endian>
uint32_t highest_symbol(const relocation_table& table, const relocation_piece& piece,
                        symbol_field field) {
    uint32_t highest = 0;
    const std::byte* at = piece.entries + field.at;
    for (uint64_t k = 0; k < piece.count; ++k, at += table.entry_size)
        highest = std::max(highest, gen_load<uint32_t>(at, big_endian) >> field.shift);
    return highest;
}

// False after a report of damage.
bool names_symbols(const elf_image& image, const symbol_plan& symbols,
                   const relocation_table& table, const relocation_piece& piece) {
    const symbol_field field = symbol_field_of(image.elf);
    const size_t symbol_count = symbols.new_index.size();
    const uint32_t highest = image.elf.is_big_endian() ? highest_symbol<true>(table, piece, field)
                                                       : highest_symbol<false>(table, piece, field);
    if (highest < symbol_count)
        return true;
    uint64_t k = 0;
    uint32_t symbol = 0;
    for (; k < piece.count; ++k) {
        symbol = elf_relocation_symbol(decode(image, table, piece.entries + k * table.entry_size));
        if (symbol >= symbol_count)
            break;
    }
    return report_damage(image.name,
                         "r_info of relocation %" PRIu64 " of section %" PRIu32
                         " names symbol %" PRIu32 ", but there are only %zu",
                         piece.first + k, table.section, symbol, symbol_count);
}

// The new number of a symbol. The table was checked, but may be another one by now.
uint32_t new_index_of(const symbol_plan& symbols, uint32_t symbol) {
    return symbol < symbols.new_index.size() ? symbols.new_index[symbol] : symbol_gone;
}

// Renumbers the entries of a piece, and moves the kept ones together. Bytes kept. Nothing but the
// number changes: it becomes no larger, so it has room where it was.
template <bool big_endian>
uint64_t renumber(const symbol_plan& symbols, const relocation_table& table,
                  const relocation_piece& piece, symbol_field field) {
    const uint64_t size = table.entry_size;
    const uint32_t rest_mask = (uint32_t{1} << field.shift) - 1;
    std::byte* const end = piece.entries + piece.count * size;
    std::byte* to = piece.entries;
    std::byte* run = piece.entries; // kept entries from here on are not moved yet
    for (std::byte* from = piece.entries; from != end; from += size) {
        const uint32_t old = gen_load<uint32_t>(from + field.at, big_endian);
        const uint32_t index = new_index_of(symbols, old >> field.shift);
        if (index != symbol_gone) {
            gen_store(from + field.at, index << field.shift | (old & rest_mask), big_endian);
            continue;
        }
        to = std::copy(run, from, to);
        run = from + size;
    }
    to = run == to ? end : std::copy(run, end, to);
    return static_cast<uint64_t>(to - piece.entries);
}

// The same where symbols may have been replaced by their section's.
uint64_t renumber_and_redirect(const conversion_rules& rules, elf_image& image,
                               const symbol_plan& symbols, const relocation_table& table,
                               const relocation_piece& piece) {
    std::byte* to = piece.entries;
    for (uint64_t k = 0; k < piece.count; ++k) {
        elf_relocation relocation = decode(image, table, piece.entries + k * table.entry_size);
        const uint32_t symbol = elf_relocation_symbol(relocation);
        const uint32_t index = new_index_of(symbols, symbol);
        if (index == symbol_gone)
            continue;
        redirect(relocation, index, symbols.usage[symbol], rules, image, table.has_addend);
        if (table.has_addend)
            elf_encode_rela(image.elf, to, relocation);
        else
            elf_encode_rel(image.elf, to, relocation);
        to += table.entry_size;
    }
    return static_cast<uint64_t>(to - piece.entries);
}

uint64_t rewrite_piece(const conversion_rules& rules, elf_image& image, const symbol_plan& symbols,
                       const relocation_table& table, const relocation_piece& piece) {
    if (!symbols.usage.empty())
        return renumber_and_redirect(rules, image, symbols, table, piece);
    const symbol_field field = symbol_field_of(image.elf);
    return image.elf.is_big_endian() ? renumber<true>(symbols, table, piece, field)
                                     : renumber<false>(symbols, table, piece, field);
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

bool read_relocations(const option_flags& flags, elf_image& image, const section_plan& plan,
                      symbol_plan& symbols, relocation_plan& relocations) {
    relocations.conversion = {flags.secrel_reloc, flags.reloc_kind_never, flags.reloc_kind_always};
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
        relocations.tables.push_back(table);
        relocations.table_of[i] = static_cast<uint32_t>(relocations.tables.size());
    }
    if (!relocations.conversion.is_wanted)
        return true;
    symbols.usage.resize(symbols.symbols.size());
    for (const relocation_table& table : relocations.tables)
        look_at_table(image, relocations, table, [&](const relocation_piece& piece) {
            scan(relocations.conversion, image, table, piece, symbols);
            return true;
        });
    return true;
}

bool relocations_are_sound(elf_image& image, const symbol_plan& symbols,
                           relocation_plan& relocations) {
    if (relocations.conversion.is_wanted)
        return true; // the scan has asserted it
    const auto check = [&](const relocation_table& table) {
        return look_at_table(image, relocations, table, [&](const relocation_piece& piece) {
            return names_symbols(image, symbols, table, piece);
        });
    };
    return std::all_of(relocations.tables.begin(), relocations.tables.end(), check);
}

bool is_small_table(const relocation_table& table) {
    return table.count * table.entry_size <= small_table_limit;
}

std::span<const std::byte> rewritten_table(elf_image& image, const symbol_plan& symbols,
                                           relocation_plan& relocations, uint32_t number) {
    const relocation_table& table = relocations.tables[number];
    std::span<const std::byte> rewritten;
    look_at_table(image, relocations, table, [&](const relocation_piece& piece) {
        rewritten = {piece.entries,
                     rewrite_piece(relocations.conversion, image, symbols, table, piece)};
        return true;
    });
    return rewritten;
}

uint64_t write_relocations(const char* name, gen_stream& output, elf_image& image,
                           const symbol_plan& symbols, relocation_plan& relocations,
                           uint32_t number) {
    const relocation_table& table = relocations.tables[number];
    uint64_t written = 0;
    look_at_table(image, relocations, table, [&](const relocation_piece& piece) {
        const uint64_t size = rewrite_piece(relocations.conversion, image, symbols, table, piece);
        written += size;
        return size == 0 || gen_safe_fwrite64(name, piece.entries, 1, size, &output) ==
                                static_cast<int64_t>(size);
    });
    return written;
}
