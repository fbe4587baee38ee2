// Names from the symbol table of an ELF file. Every number is checked against the file first.
#include "archiver/elfnames.h"

#include <cstring>
#include <vector>

#include "objfile/elfhead.h"
#include "objfile/elfsym.h"

namespace {

constexpr uint8_t STB_GLOBAL = 1, STB_WEAK = 2, STB_GNU_UNIQUE = 10;
constexpr uint32_t SHN_UNDEF = 0;

struct elf_object {
    gen_stream& stream;
    elf_access elf = {.elf_error_sink = true};
    elf_file_header head = {};
    std::vector<elf_section_header> sections = {};
};

bool read_sections(elf_object& object) {
    gen_stream& stream = object.stream;
    if (gen_seek(stream, 0, GEN_SEEK_SET) != 0)
        return false;
    object.elf.elfbits = elf_class_of(stream, 0, nullptr);
    elf_file_header& head = object.head;
    if (!genelf_readXheader(object.elf, stream, 0, head))
        return false;
    if (head.e_shnum == 0)
        return true;
    const uint32_t standard = elf_section_header_size(object.elf.elfbits);
    const uint64_t stride = head.e_shentsize != 0 ? head.e_shentsize : standard;
    return stride >= standard && head.e_shoff <= stream.size &&
           head.e_shnum <= (stream.size - head.e_shoff) / stride &&
           elf_read_secheaders(object.elf, stream, object.sections, head.e_shnum, head.e_shoff,
                               head.e_shentsize);
}

bool lies_in_file(const elf_object& object, const elf_section_header& section) {
    const uint64_t size = object.stream.size;
    return section.sh_offset <= size && section.sh_size <= size - section.sh_offset;
}

// The extended section indexes of the table at `symtab`; none when it has no such table.
std::optional<std::vector<uint32_t>> read_index_words(elf_object& object, uint32_t symtab) {
    for (const elf_section_header& section : object.sections) {
        if (section.sh_type != SHT_SYMTAB_SHNDX || section.sh_link != symtab)
            continue;
        if (!lies_in_file(object, section))
            return std::nullopt;
        return elf_read_shndx(object.elf, nullptr, object.stream, 0, section);
    }
    return std::vector<uint32_t>();
}

std::optional<std::vector<elf_symbol>> read_symbols(elf_object& object, uint32_t index) {
    const elf_section_header& symtab = object.sections[index];
    if (!lies_in_file(object, symtab) ||
        (symtab.sh_entsize != 0 && symtab.sh_entsize < elf_symbol_size(object.elf.elfbits)))
        return std::nullopt;
    const std::optional<std::vector<uint32_t>> words = read_index_words(object, index);
    if (!words)
        return std::nullopt;
    return elf_read_symtab(object.elf, nullptr, object.stream, 0, symtab, &*words);
}

std::optional<gen_block> read_strings(elf_object& object, uint32_t index) {
    if (index == SHN_UNDEF || index >= object.sections.size())
        return std::nullopt;
    const elf_section_header& strtab = object.sections[index];
    if (!lies_in_file(object, strtab) ||
        gen_seek(object.stream, static_cast<int64_t>(strtab.sh_offset), GEN_SEEK_SET) != 0)
        return std::nullopt;
    return elf_read_bytes(object.elf, object.stream, strtab.sh_size);
}

bool is_defined_for_others(const elf_symbol& symbol) {
    const uint8_t binding = elf_symbol_binding(symbol);
    const uint8_t type = elf_symbol_type(symbol);
    return symbol.st_shndx != SHN_UNDEF && type != STT_SECTION && type != STT_FILE &&
           (binding == STB_GLOBAL || binding == STB_WEAK || binding == STB_GNU_UNIQUE);
}

bool add_name(defined_names& names, const gen_block& strings, uint32_t st_name, uint64_t limit) {
    if (st_name >= strings.size)
        return false;
    const char* const name = strings.text() + st_name; // the block ends in a NUL
    const size_t length = strlen(name);
    if (length == 0)
        return true;
    if (length >= limit - names.text.size())
        return false;
    names.text.append(name, length + 1);
    ++names.count;
    names.is_intermediate = names.is_intermediate || strcmp(name, "__gnu_lto_slim") == 0;
    return true;
}

} // namespace

std::optional<defined_names> find_defined_names(gen_stream& stream, uint64_t limit) {
    elf_object object = {stream};
    if (!read_sections(object))
        return std::nullopt;
    uint32_t symtab = 0;
    while (symtab < object.sections.size() && object.sections[symtab].sh_type != SHT_SYMTAB)
        ++symtab;
    defined_names names;
    if (symtab == object.sections.size())
        return names;

    const std::optional<std::vector<elf_symbol>> symbols = read_symbols(object, symtab);
    const std::optional<gen_block> strings = read_strings(object, object.sections[symtab].sh_link);
    if (!symbols || !strings || object.elf.elf_error_count != 0)
        return std::nullopt;
    for (const elf_symbol& symbol : *symbols)
        if (is_defined_for_others(symbol) && !add_name(names, *strings, symbol.st_name, limit))
            return std::nullopt;
    return names;
}
