// Places the parts of a draft in the file, then sets the header fields one by one. The table of
// field places here is the tests' own, so that a mistake in the program's shows.
#include "support/elf_builder.h"

#include <algorithm>
#include <cstddef>
#include <unordered_map>

const std::array<elf_form, 4> elf_forms = {{
    {"elf64_little", 64, false, 62},
    {"elf32_little", 32, false, 3},
    {"elf64_big", 64, true, 21},
    {"elf32_big", 32, true, 20},
}};

namespace {

struct field_place {
    uint8_t offset32, width32, offset64, width64;
};

// In the order of `field`.
// clang-format off
constexpr field_place field_places[] = {
    {16, 2, 16, 2}, {18, 2, 18, 2}, {20, 4, 20, 4}, {24, 4, 24, 8}, {28, 4, 32, 8}, {32, 4, 40, 8},
    {36, 4, 48, 4}, {40, 2, 52, 2}, {42, 2, 54, 2}, {44, 2, 56, 2}, {46, 2, 58, 2}, {48, 2, 60, 2},
    {50, 2, 62, 2},
    {0, 4, 0, 4},   {24, 4, 4, 4},  {4, 4, 8, 8},   {8, 4, 16, 8},  {12, 4, 24, 8}, {16, 4, 32, 8},
    {20, 4, 40, 8}, {28, 4, 48, 8},
    {0, 4, 0, 4},   {4, 4, 4, 4},   {8, 4, 8, 8},   {12, 4, 16, 8}, {16, 4, 24, 8}, {20, 4, 32, 8},
    {24, 4, 40, 4}, {28, 4, 44, 4}, {32, 4, 48, 8}, {36, 4, 56, 8},
};
// clang-format on

bool file_is_64(const std::string& file) {
    return file.size() > 4 && file[4] == 2;
}
bool file_is_big(const std::string& file) {
    return file.size() > 5 && file[5] == 2;
}

unsigned field_width(const std::string& file, field which) {
    const field_place& place = field_places[static_cast<size_t>(which)];
    return file_is_64(file) ? place.width64 : place.width32;
}

// The bytes of the file that are taken, and the next free place.
struct placement {
    const elf_draft& draft;
    std::vector<draft_section> sections;
    std::string file = {};
    std::vector<uint64_t> offsets = {};
    uint64_t phoff = 0;
    uint64_t shoff = 0;

    uint64_t word() const { return draft.form.is_64() ? 8 : 4; }
    uint64_t phentsize() const { return (draft.form.is_64() ? 56u : 32u) + draft.extra_entsize; }
    uint64_t shentsize() const { return (draft.form.is_64() ? 64u : 40u) + draft.extra_entsize; }

    uint64_t place(uint64_t size, uint64_t align) {
        uint64_t offset = (file.size() + align - 1) / align * align;
        file.resize(offset + size);
        return offset;
    }
    void place_tables(draft_place where) {
        if (draft.program_table == where && !draft.segments.empty())
            phoff = place(draft.segments.size() * phentsize(), word());
        if (draft.section_table == where)
            shoff = place((sections.size() + 1) * shentsize(), word());
    }
    void place_section(size_t index) {
        const draft_section& section = sections[index];
        if (section.offset == 0) {
            file.resize(file.size() + section.gap, '\xEE'); // to be seen when carried over
            offsets[index] = place(section.content.size(), std::max<uint64_t>(section.align, 1));
        } else {
            offsets[index] = section.offset;
            file.resize(std::max<uint64_t>(file.size(), section.offset + section.content.size()));
        }
        std::copy(section.content.begin(), section.content.end(),
                  file.begin() + static_cast<std::ptrdiff_t>(offsets[index]));
    }
    uint32_t index_of(const std::string& name) const {
        for (size_t i = 0; i < sections.size() && !name.empty(); ++i)
            if (sections[i].name == name)
                return static_cast<uint32_t>(i + 1);
        return 0;
    }
};

// One name for all sections of that name, so that tens of thousands stay small.
std::vector<uint32_t> fill_name_table(std::vector<draft_section>& sections) {
    auto is_name_table = [](const draft_section& section) { return section.name == ".shstrtab"; };
    if (std::none_of(sections.begin(), sections.end(), is_name_table))
        sections.push_back({.name = ".shstrtab", .type = sht::strtab});
    std::string names(1, '\0');
    std::unordered_map<std::string, uint32_t> known = {{"", 0}};
    std::vector<uint32_t> result;
    for (const draft_section& section : sections) {
        auto [found, added] = known.try_emplace(section.name, static_cast<uint32_t>(names.size()));
        if (added)
            names += section.name + '\0';
        result.push_back(found->second);
    }
    std::find_if(sections.begin(), sections.end(), is_name_table)->content = names;
    return result;
}

// Sets fields that follow each other in `field`.
void set_fields(std::string& file, field first, const std::vector<uint64_t>& values,
                uint64_t index = 0) {
    for (size_t i = 0; i < values.size(); ++i)
        set_field(file, static_cast<field>(static_cast<size_t>(first) + i), values[i], index);
}

void set_file_header(placement& parts) {
    uint64_t count = parts.sections.size() + 1;
    uint32_t names = parts.index_of(".shstrtab");
    set_fields(parts.file, field::e_type,
               {parts.draft.type, parts.draft.form.machine, 1, 0x1000, parts.phoff, parts.shoff, 0,
                parts.draft.form.is_64() ? 64u : 52u, parts.phentsize(),
                parts.draft.segments.size(), parts.shentsize(), count < 0xFF00 ? count : 0,
                names < 0xFF00 ? names : 0xFFFF});
    if (count >= 0xFF00)
        set_field(parts.file, field::sh_size, count);
    if (names >= 0xFF00)
        set_field(parts.file, field::sh_link, names);
}

void set_section_headers(placement& parts, const std::vector<uint32_t>& names) {
    for (size_t i = 0; i < parts.sections.size(); ++i) {
        const draft_section& section = parts.sections[i];
        uint64_t size = section.nobits_size != 0 ? section.nobits_size : section.content.size();
        set_fields(parts.file, field::sh_name,
                   {names[i], section.type, section.flags,
                    (section.flags & shf::alloc) != 0 ? 0x10000 + parts.offsets[i] : 0,
                    parts.offsets[i], size, parts.index_of(section.link),
                    parts.index_of(section.info), section.align, section.entsize},
                   i + 1);
    }
}

void set_program_headers(placement& parts) {
    for (size_t i = 0; i < parts.draft.segments.size(); ++i) {
        const draft_segment& segment = parts.draft.segments[i];
        size_t section = parts.index_of(segment.section) - 1;
        uint64_t offset = parts.offsets[section] + segment.skip;
        uint64_t size = parts.sections[section].content.size() - segment.skip;
        set_fields(parts.file, field::p_type,
                   {1, 5, offset, 0x10000 + offset, 0x10000 + offset, size, size + 16, 4}, i);
    }
}

} // namespace

std::string filler(size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(1 + (seed * 37 + i * 11 + i / 251) % 255);
    return bytes;
}

std::string build_elf(const elf_draft& draft) {
    placement parts{draft, draft.sections};
    std::vector<uint32_t> names = fill_name_table(parts.sections);
    size_t count = parts.sections.size();
    parts.offsets.resize(count);
    parts.file = {
        0x7f, 'E', 'L', 'F', draft.form.is_64() ? '\2' : '\1', draft.form.big_endian ? '\2' : '\1',
        '\1'};
    parts.file.resize(draft.form.is_64() ? 64 : 52);
    parts.place_tables(PLACE_FIRST);
    for (size_t i = 0; i < count; ++i) {
        if (i == count / 2)
            parts.place_tables(PLACE_MIDDLE);
        parts.place_section(draft.reversed ? count - 1 - i : i);
    }
    parts.place_tables(PLACE_LAST);
    set_file_header(parts);
    set_section_headers(parts, names);
    set_program_headers(parts);
    return parts.file;
}

const std::set<std::string> sample_removed = {
    ".symtab",     ".strtab",   ".symtab_shndx", ".debug_info", ".rela.debug_info",
    ".debug_line", ".rel.line", ".linfix",       ".rominfo",    ".stab"};

elf_draft sample_draft(const elf_form& form, bool with_symbols) {
    elf_draft draft{.form = form};
    uint64_t rela = form.is_64() ? 24 : 12;
    draft.sections = {
        {".text", sht::progbits, shf::alloc | shf::exec, filler(0x40, 1), 16},
        {".data", sht::progbits, shf::alloc | shf::write, filler(0x21, 2), 8},
        {".bss", sht::nobits, shf::alloc, "", 8, "", "", 0, 0, 0, 0x800},
        {".debug_frame", sht::progbits, shf::alloc, filler(0x13, 3)},
        {.name = ".comment", .content = filler(0x1d, 4), .gap = 5},
        {.name = ".debug_info", .content = filler(0x103, 5)},
        {".rela.debug_info", sht::rela, 0, filler(rela, 6), 4, ".symtab", ".debug_info", rela},
        {.name = ".debug_line", .content = filler(0x35, 7), .gap = 3},
        {".rel.line", sht::rel, 0, filler(16, 8), 1, ".symtab", ".debug_line", rela / 3 * 2},
        {.name = ".debug_types", .content = filler(0x11, 9), .gap = 1},
        {.name = ".linfix", .content = filler(9, 10)},
        {.name = ".rominfo", .content = filler(5, 11)},
        {.name = ".stab", .content = filler(0x4c, 12), .align = 4, .gap = 2},
        {.name = ".foo.a", .content = filler(7, 13)},
        {.name = ".foo*", .content = filler(6, 14)},
        {.name = ".rela.foo.b", .content = filler(3, 15)},
        {.name = ".reloc", .content = filler(10, 16)},
        {.name = ".rel", .content = filler(11, 17)},
        {.name = "", .content = filler(12, 18)},
        {.name = ".empty", .content = ""},
        {".rela.text", sht::rela, 0, filler(2 * rela, 19), 8, ".symtab", ".text", rela},
        {".custom4", 0x70000004, 0, filler(1, 20), 1, ".foo.a", ".data"},
        {".custom9", 0x60000019, 0, filler(1, 21), 1, ".stab", ".debug_types"},
        {".custom5", 0x70000005, 0, filler(1, 22), 1, ".rel", ".rela.text"},
    };
    if (with_symbols)
        draft.sections.insert(
            draft.sections.end(),
            {{".symtab", sht::symtab, 0, filler(3 * rela, 23), 8, ".strtab", "", rela},
             {".symtab_shndx", sht::shndx, 0, filler(12, 24), 4, ".symtab", "", 4}});
    draft.sections.push_back({".strtab", sht::strtab, 0, filler(0x27, 25)});
    draft.segments = {{".text"},     {".data", 1},      {".comment"}, {".debug_info"},
                      {".foo.a", 2}, {".rela.text", 4}, {".custom5"}};
    return draft;
}

uint64_t field_offset(const std::string& file, field which, uint64_t index) {
    const field_place& place = field_places[static_cast<size_t>(which)];
    uint64_t offset = file_is_64(file) ? place.offset64 : place.offset32;
    if (which >= field::sh_name)
        return get_field(file, field::e_shoff) + index * get_field(file, field::e_shentsize) +
               offset;
    if (which >= field::p_type)
        return get_field(file, field::e_phoff) + index * get_field(file, field::e_phentsize) +
               offset;
    return offset;
}

uint64_t get_field(const std::string& file, field which, uint64_t index) {
    uint64_t offset = field_offset(file, which, index);
    unsigned width = field_width(file, which);
    uint64_t value = 0;
    if (offset > file.size() || width > file.size() - offset)
        return 0;
    for (unsigned i = 0; i < width; ++i) {
        unsigned shift = 8 * (file_is_big(file) ? width - 1 - i : i);
        value |= static_cast<uint64_t>(static_cast<uint8_t>(file[offset + i])) << shift;
    }
    return value;
}

void set_field(std::string& file, field which, uint64_t value, uint64_t index) {
    uint64_t offset = field_offset(file, which, index);
    unsigned width = field_width(file, which);
    if (offset > file.size() || width > file.size() - offset)
        return;
    for (unsigned i = 0; i < width; ++i)
        file[offset + i] =
            static_cast<char>(value >> (8 * (file_is_big(file) ? width - 1 - i : i)));
}
