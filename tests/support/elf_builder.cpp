// Finds a place for each part of a draft, then sets the header fields one by one. The table of
// field places here is the tests' own, so that a mistake in the program's shows.
#include "support/elf_builder.h"

#include <algorithm>
#include <map>

const std::array<elf_form, 4> elf_forms = {{
    {"elf64_little", 64, false, 62},
    {"elf32_little", 32, false, 3},
    {"elf64_big", 64, true, 21},
    {"elf32_big", 32, true, 20},
}};

namespace {

struct field_place {
    const char* name;
    uint8_t offset32, width32, offset64, width64;
};

// In the order of `field`.
constexpr field_place field_places[] = {
    {"e_type", 16, 2, 16, 2},     {"e_machine", 18, 2, 18, 2},   {"e_version", 20, 4, 20, 4},
    {"e_entry", 24, 4, 24, 8},    {"e_phoff", 28, 4, 32, 8},     {"e_shoff", 32, 4, 40, 8},
    {"e_flags", 36, 4, 48, 4},    {"e_ehsize", 40, 2, 52, 2},    {"e_phentsize", 42, 2, 54, 2},
    {"e_phnum", 44, 2, 56, 2},    {"e_shentsize", 46, 2, 58, 2}, {"e_shnum", 48, 2, 60, 2},
    {"e_shstrndx", 50, 2, 62, 2}, {"p_type", 0, 4, 0, 4},        {"p_flags", 24, 4, 4, 4},
    {"p_offset", 4, 4, 8, 8},     {"p_vaddr", 8, 4, 16, 8},      {"p_paddr", 12, 4, 24, 8},
    {"p_filesz", 16, 4, 32, 8},   {"p_memsz", 20, 4, 40, 8},     {"p_align", 28, 4, 48, 8},
    {"sh_name", 0, 4, 0, 4},      {"sh_type", 4, 4, 4, 4},       {"sh_flags", 8, 4, 8, 8},
    {"sh_addr", 12, 4, 16, 8},    {"sh_offset", 16, 4, 24, 8},   {"sh_size", 20, 4, 32, 8},
    {"sh_link", 24, 4, 40, 4},    {"sh_info", 28, 4, 44, 4},     {"sh_addralign", 32, 4, 48, 8},
    {"sh_entsize", 36, 4, 56, 8}, {"st_name", 0, 4, 0, 4},       {"st_info", 12, 1, 4, 1},
    {"st_other", 13, 1, 5, 1},    {"st_shndx", 14, 2, 6, 2},     {"st_value", 4, 4, 8, 8},
    {"st_size", 8, 4, 16, 8},     {"r_offset", 0, 4, 0, 8},      {"r_info", 4, 4, 8, 8},
    {"r_addend", 8, 4, 16, 8},    {"word", 0, 4, 0, 4}};

elf_form form_of(const std::string& file) {
    return {"", file.at(4) == 2 ? 64 : 32, file.at(5) == 2, 0};
}

// Where a field of the entry at `offset` is in these bytes, and its width; 0 if it is not inside.
std::pair<size_t, size_t> place_of(const std::string& bytes, const elf_form& form, field which,
                                   uint64_t offset) {
    const field_place& place = field_places[static_cast<size_t>(which)];
    const uint64_t at = offset + (form.is_64() ? place.offset64 : place.offset32);
    const size_t width = form.is_64() ? place.width64 : place.width32;
    return {at, at <= bytes.size() && width <= bytes.size() - at ? width : 0};
}

void put_field(std::string& bytes, const elf_form& form, field which, uint64_t offset,
               uint64_t value) {
    if (const auto [at, width] = place_of(bytes, form, which, offset); width != 0)
        bytes.replace(at, width, number(value, width, form.big_endian));
}

uint64_t entry_offset(const std::string& file, field which, uint64_t index) {
    if (which < field::p_type)
        return 0;
    const bool is_segment = which < field::sh_name;
    return get_field(file, is_segment ? field::e_phoff : field::e_shoff) +
           index * get_field(file, is_segment ? field::e_phentsize : field::e_shentsize);
}

// Sets fields that follow each other in `field`.
void set_fields(std::string& file, field first, uint64_t index,
                std::initializer_list<uint64_t> values) {
    const uint64_t offset = entry_offset(file, first, index);
    auto which = static_cast<uint8_t>(first);
    for (const uint64_t value : values)
        put_field(file, form_of(file), field{which++}, offset, value);
}

uint64_t round_up(uint64_t value, uint64_t unit) {
    return (value + unit - 1) / unit * unit;
}
uint64_t data_size(const draft_section& section) {
    return section.type == sht::nobits ? 0 : section.content.size();
}

// Finds a place for everything that has none yet.
void lay_out(elf_draft& draft) {
    const size_t count = draft.sections.size();
    uint64_t end = draft.form.head_size();
    const auto put = [&end](uint64_t& place, uint64_t align, uint64_t size) {
        place = place != 0 ? place : round_up(end, std::max<uint64_t>(align, 1));
        end = std::max(end, place + size);
    };
    for (const char part : draft.order) {
        if (part == 'P' && !draft.segments.empty())
            put(draft.phoff, draft.form.word(), draft.segments.size() * draft.segment_size());
        if (part == 'S')
            put(draft.shoff, draft.form.word(), (count + 1) * draft.section_size());
        for (size_t i = 0; i < count; ++i)
            if (part == (i < count / 2 ? '1' : '2')) {
                end += draft.sections[i].gap;
                put(draft.sections[i].offset, draft.sections[i].align,
                    data_size(draft.sections[i]));
            }
    }
    for (draft_segment& segment : draft.segments) {
        const draft_section& section = draft.sections[index_of(draft, segment.section) - 1];
        segment.offset = section.offset + segment.skip;
        segment.size = section.content.size() - segment.skip;
    }
}

// Gives sections their names: one for all sections of that name.
std::vector<uint64_t> fill_name_table(elf_draft& draft) {
    if (index_of(draft, draft.name_table) == 0)
        draft.sections.push_back({.name = draft.name_table, .type = sht::strtab});
    std::string& names = draft.sections[index_of(draft, draft.name_table) - 1].content;
    names.resize(std::max<size_t>(names.size(), 1));
    std::vector<uint64_t> places;
    for (const draft_section& section : draft.sections) {
        if (names.find(section.name + '\0') == std::string::npos)
            names += section.name + '\0';
        places.push_back(names.find(section.name + '\0'));
    }
    return places;
}

// What belongs to no part of the draft is filled with `fill`.
std::string write(elf_draft draft, char fill) {
    const std::vector<uint64_t> names = fill_name_table(draft);
    const elf_form& form = draft.form;
    const uint64_t count = names.size() + 1, size = form.head_size();
    const uint32_t table = index_of(draft, draft.name_table);
    std::string file = {
        0x7f, 'E', 'L', 'F', form.is_64() ? '\2' : '\1', form.big_endian ? '\2' : '\1', '\1'};
    file.resize(size);
    const auto reach = [&](uint64_t end) { file.resize(std::max(file.size(), end), fill); };
    reach(draft.phoff + draft.segments.size() * draft.segment_size());
    reach(draft.shoff + count * draft.section_size());
    set_fields(file, field::e_type, 0,
               {draft.type, form.machine, 1, 0x1000, draft.phoff, draft.shoff, 0x01020304, size,
                draft.segment_size(), draft.segments.size(), draft.section_size(),
                count < 0xFF00 ? count : 0, table < 0xFF00 ? table : 0xFFFF});
    set_fields(file, field::sh_name, 0,
               {0, 0, 0, 0, 0, count < 0xFF00 ? 0 : count, table < 0xFF00 ? 0 : table, 0, 0, 0});
    for (size_t i = 0; i < names.size(); ++i) {
        const draft_section& section = draft.sections[i];
        if (data_size(section) != 0) {
            reach(section.offset + section.content.size());
            file.replace(section.offset, section.content.size(), section.content);
        }
        set_fields(file, field::sh_name, i + 1,
                   {names[i], section.type, section.flags, section.flags * 0x1000, section.offset,
                    section.content.size(), index_of(draft, section.link),
                    index_of(draft, section.info), section.align, section.entsize});
    }
    for (size_t i = 0; i < draft.segments.size(); ++i) {
        const auto& [section, skip, offset, bytes] = draft.segments[i];
        set_fields(file, field::p_type, i,
                   {1, 5, offset, 0x20000 + i, 0x30000 + i, bytes, bytes + 16, 4});
    }
    return file;
}

} // namespace

std::string number(uint64_t value, size_t width, bool big_endian) {
    std::string bytes;
    for (size_t i = 0; i < width; ++i)
        bytes += static_cast<char>(value >> 8 * (big_endian ? width - 1 - i : i));
    return bytes;
}

uint64_t number_at(const std::string& bytes, size_t at, size_t width, bool big_endian) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i)
        value = value << 8 | static_cast<uint8_t>(bytes.at(at + (big_endian ? i : width - 1 - i)));
    return value;
}

uint32_t index_of(const elf_draft& draft, const std::string& name) {
    if (name[0] == '#')
        return static_cast<uint32_t>(std::stoul(name.substr(1)));
    for (size_t i = 0; i < draft.sections.size() && !name.empty(); ++i)
        if (draft.sections[i].name == name)
            return static_cast<uint32_t>(i + 1);
    return 0;
}

elf_draft complete(elf_draft draft) {
    fill_name_table(draft);
    return draft;
}

std::string build_elf(const elf_draft& draft) {
    elf_draft whole = complete(draft);
    lay_out(whole);
    return write(whole, '\xEE'); // to be seen when carried over
}

std::string build_moved(elf_draft before, elf_draft after) {
    fill_name_table(before);
    fill_name_table(after);
    lay_out(before);
    after.phoff = before.phoff;
    after.shoff = before.shoff;
    after.segments = before.segments;
    const uint64_t word = before.form.word();
    std::map<uint64_t, uint64_t> saved; // by the offset of what shrinks or goes
    auto kept = after.sections.begin();
    for (const draft_section& section : before.sections) {
        uint64_t left = 0;
        if (kept != after.sections.end() && kept->name == section.name) {
            if (kept->content.size() != section.content.size())
                kept->content.resize(round_up(kept->content.size(), word));
            kept->offset = section.offset;
            left = data_size(*kept++);
        }
        if (left != data_size(section))
            saved[section.offset] += data_size(section) / word * word - left;
    }
    const auto move = [&saved](uint64_t& offset) {
        uint64_t less = 0;
        for (auto cut = saved.begin(); cut != saved.end() && cut->first < offset; ++cut)
            less += cut->second;
        offset -= less;
    };
    move(after.phoff);
    move(after.shoff);
    for (draft_section& section : after.sections)
        move(section.offset);
    for (draft_segment& segment : after.segments)
        move(segment.offset);
    after.extra_entsize = 0;
    return write(after, '\0');
}

std::string build_stripped(const elf_draft& before, const std::set<std::string>& removed) {
    elf_draft after = complete(before);
    std::erase_if(after.sections, [&](const draft_section& section) {
        return (section.flags & shf::alloc) == 0 && removed.contains(section.name);
    });
    return build_moved(before, after);
}

std::string difference(const std::string& actual, const std::string& expected) {
    if (actual == expected)
        return "";
    const auto end = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    const auto at = static_cast<uint64_t>(end.first - actual.begin());
    std::string text = "byte " + std::to_string(at) + " of " + std::to_string(actual.size()) +
                       "; expected: " + std::to_string(expected.size());
    for (uint64_t i = 1; i < get_field(expected, field::e_shnum); ++i)
        if (at - get_field(expected, field::sh_offset, i) < get_field(expected, field::sh_size, i))
            text += ", in section " + std::to_string(i);
    return text;
}

std::string filler(size_t size, size_t seed) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(1 + (seed * 37 + i * 11 + i / 251) % 255);
    return bytes;
}

const std::set<std::string> sample_removed = {
    ".symtab",     ".strtab",   ".symtab_shndx", ".debug_info", ".rela.debug_info",
    ".debug_line", ".rel.line", ".linfix",       ".rominfo",    ".stab"};

elf_draft sample_draft(const elf_form& form, bool with_symbols) {
    const uint64_t rela = form.word() * 3, rel = form.word() * 2;
    elf_draft draft{.form = form};
    std::vector<draft_section>& sections = draft.sections;
    sections = {
        {".text", sht::progbits, shf::alloc | shf::exec, filler(0x40, 1), 16},
        {".data", sht::progbits, shf::alloc | shf::write, filler(0x21, 2), 8},
        {".bss", sht::nobits, shf::alloc, filler(0x800, 3), 8},
        {".debug_frame", sht::progbits, shf::alloc, filler(0x13, 3)},
        {.name = ".debug_info", .content = filler(0x103, 4), .gap = 5},
        {".rela.debug_info", sht::rela, 0, filler(rela, 5), 4, ".symtab", ".debug_info", rela},
        {".rela.text", sht::rela, 0, filler(2 * rela, 6), 8, ".symtab", ".text", rela},
        {".debug_line", sht::progbits, 0, filler(0x35, 7)},
        {".rel.line", sht::rel, 0, filler(rel, 8), 1, ".symtab", ".debug_line", rel},
        {".custom4", 0x70000004, 0, filler(1, 9), 1, ".foo.a", ".data"},
        {".custom9", 0x60000019, 0, filler(1, 10), 1, ".stab", ".debug_types"},
        {".empty", sht::progbits, 0, ""}};
    for (const char* name : {".comment", ".linfix", ".debug_types", ".rominfo", ".foo.a", ".stab",
                             ".foo*", ".rela.foo.b", ".reloc", ".rel", ""})
        sections.push_back({.name = name,
                            .content = filler(5 + 7 * sections.size() % 26, sections.size()),
                            .gap = sections.size() % 4});
    if (with_symbols)
        sections.insert(sections.end(),
                        {{".symtab", sht::symtab, 0, filler(3 * rela, 23), 8, ".strtab", "", rela},
                         {".symtab_shndx", sht::shndx, 0, filler(12, 24), 4, ".symtab"}});
    sections.push_back({".strtab", sht::strtab, 0, filler(0x27, 25)});
    draft.segments = {{".text"},     {".data", 1},      {".comment"}, {".debug_info"},
                      {".foo.a", 2}, {".rela.text", 4}, {".custom4"}};
    return draft;
}

field field_called(const std::string& name) {
    const auto* found = std::ranges::find(field_places, name, &field_place::name);
    return static_cast<field>(found - std::begin(field_places));
}

uint64_t get_field(const std::string& file, field which, uint64_t index) {
    const elf_form form = form_of(file);
    const auto [at, width] = place_of(file, form, which, entry_offset(file, which, index));
    return number_at(file, at, width, form.big_endian);
}

void set_field(std::string& file, field which, uint64_t value, uint64_t index) {
    put_field(file, form_of(file), which, entry_offset(file, which, index), value);
}

void append_entry(std::string& table, const elf_form& form, uint64_t size,
                  const field_values& values) {
    const uint64_t at = table.size();
    table.resize(at + size);
    for (const auto& [which, value] : values)
        put_field(table, form, which, at, value);
}

std::vector<std::string> section_names(const std::string& file) {
    const uint64_t count = get_field(file, field::e_shnum),
                   names = get_field(file, field::e_shstrndx),
                   table = get_field(file, field::sh_offset,
                                     names == 0xFFFF ? get_field(file, field::sh_link) : names);
    std::vector<std::string> result;
    for (uint64_t i = 0; i < (count != 0 ? count : get_field(file, field::sh_size)); ++i)
        result.push_back(
            file.c_str() +
            std::min<uint64_t>(file.size(), table + get_field(file, field::sh_name, i)));
    return result;
}
