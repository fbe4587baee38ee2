// Reading the symbol table that is kept: every number in it is checked here.
#include <cinttypes>

#include "shared/genmessage.h"
#include "util/damage.h"
#include "util/elfsymbols.h"

namespace {

bool check_symbol_table(const elf_image& image, uint32_t index) {
    const elf_section_header& symtab = image.sechead[index];
    const uint64_t standard = elf_symbol_size(image.elf.elfbits);
    if (symtab.sh_link == 0 || symtab.sh_link >= image.sechead.size())
        return report_damage(image.name,
                             "sh_link %" PRIu32 " of symbol table section %" PRIu32
                             " names no string table among sections 1 to %zu",
                             symtab.sh_link, index, image.sechead.size() - 1);
    if (symtab.sh_entsize != 0 && symtab.sh_entsize < standard)
        return report_damage(image.name,
                             "sh_entsize %" PRIu64 " of symbol table section %" PRIu32
                             " is below %" PRIu64,
                             symtab.sh_entsize, index, standard);
    if (!holds_section(image, index))
        return false;
    if (symtab.sh_size / (symtab.sh_entsize != 0 ? symtab.sh_entsize : standard) >= symbol_gone)
        return report_damage(image.name,
                             "sh_size 0x%" PRIx64 " of symbol table section %" PRIu32
                             " holds more entries than the %" PRIu32 " that can be numbered",
                             symtab.sh_size, index, symbol_gone - 1);
    return true;
}

// The extended index table of the symbol table, wherever it stands; nothing when it has none.
std::optional<uint32_t> find_index_table(const elf_image& image, uint32_t symtab_index) {
    for (uint32_t i = 0; i < image.sechead.size(); ++i)
        if (image.sechead[i].sh_type == SHT_SYMTAB_SHNDX &&
            image.sechead[i].sh_link == symtab_index)
            return i;
    return std::nullopt;
}

bool read_symbol_table(elf_image& image, uint32_t symtab_index, symbol_plan& symbols) {
    std::vector<uint32_t> words;
    const std::optional<uint32_t> index_table = find_index_table(image, symtab_index);
    if (index_table && lies_in_file(image, image.sechead[*index_table]))
        words =
            elf_read_shndx(image.elf, image.name, *image.stream, 0, image.sechead[*index_table]);
    std::optional<std::vector<elf_symbol>> table =
        elf_read_symtab(image.elf, image.name, *image.stream, 0, image.sechead[symtab_index],
                        index_table ? &words : nullptr);
    if (!table)
        return report_damage(image.name,
                             "a symbol with st_shndx 0xffff lies behind the end of the extended "
                             "index table of %zu words",
                             words.size());
    symbols.symbols = std::move(*table);
    return true;
}

// The new string table is made from the old one, whose bytes are the section names at times.
void read_strings(elf_image& image, uint32_t strtab_index, symbol_plan& symbols) {
    const bool are_section_names = strtab_index == image.elfhead.e_shstrndx;
    if (!are_section_names)
        symbols.strtab = read_section_data(image, image.sechead[strtab_index]);
    const gen_block& strings = are_section_names ? image.shstrtab : symbols.strtab;
    symbols.strings = prepare_strings(strings.text(), strings.size);
}

bool symbol_names_are_sound(const elf_image& image, const symbol_plan& symbols) {
    const uint64_t size = symbols.strings.old.size;
    for (size_t i = 0; i < symbols.symbols.size(); ++i) {
        const uint32_t st_name = symbols.symbols[i].st_name;
        const bool empty_name_of_empty_table = st_name == 0 && size == 0;
        if (st_name >= size && !empty_name_of_empty_table)
            return report_damage(image.name,
                                 "st_name 0x%" PRIx32 " of symbol %zu is outside the string table "
                                 "of 0x%" PRIx64 " bytes",
                                 st_name, i, size);
    }
    return true;
}

} // namespace

bool read_symbols(elf_image& image, const section_plan& plan, symbol_plan& symbols) {
    if (plan.symtab_index == 0)
        return true;
    if (!check_symbol_table(image, plan.symtab_index))
        return false;
    read_strings(image, plan.strtab_index, symbols);
    if (!read_symbol_table(image, plan.symtab_index, symbols) ||
        !symbol_names_are_sound(image, symbols))
        return false;
    // Entries are written in the standard size.
    image.sechead[plan.symtab_index].sh_entsize = elf_symbol_size(image.elf.elfbits);
    symbols.new_index.assign(symbols.symbols.size(), symbol_gone);
    symbols.present = true;
    return true;
}
