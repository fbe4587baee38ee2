// Finds a place for each part of a draft, then sets the header fields one by one.
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

#define ELF_FIELD_PLACE(name, ...)                                                                 \
    { #name, __VA_ARGS__ }
constexpr struct {
    const char* name;
    size_t in32, in64;
} field_places[] = {ELF_FIELDS(ELF_FIELD_PLACE)};

elf_form form_of(const std::string& file) {
    return {"", file.at(4) == 2 ? 64 : 32, file.at(5) == 2, 0};
}

// Where a field of the entry at `offset` is in these bytes, and its width; 0 if it is not inside.
std::pair<size_t, size_t> place_of(const std::string& bytes, const elf_form& form, field which,
                                   uint64_t offset) {
    const auto& [name, in32, in64] = field_places[static_cast<size_t>(which)];
    const size_t place = form.is_64() ? in64 : in32, at = offset + place / 10, width = place % 10;
    return {at, at <= bytes.size() && width <= bytes.size() - at ? width : 0};
}

uint64_t entry_offset(const std::string& file, field which, uint64_t index) {
    if (which < field::p_type)
        return 0;
    const bool is_segment = which < field::sh_name;
    return get_field(file, is_segment ? field::e_phoff : field::e_shoff) +
           index * get_field(file, is_segment ? field::e_phentsize : field::e_shentsize);
}

void set_fields(std::string& file, uint64_t index, field first,
                std::initializer_list<uint64_t> values) {
    put_fields(file, form_of(file), entry_offset(file, first, index), first, values);
}

uint64_t round_up(uint64_t value, uint64_t unit) {
    return (value + unit - 1) / unit * unit;
}
uint64_t data_size(const draft_section& section) {
    return section.type == sht::nobits ? 0 : section.content.size();
}

// Finds a place for everything that has none yet.
elf_draft lay_out(elf_draft draft) {
    draft = complete(draft);
    const draft_section* const half = draft.sections.data() + draft.sections.size() / 2;
    uint64_t end = draft.form.head_size();
    const auto put = [&end](uint64_t& place, uint64_t align, uint64_t size) {
        place = place != 0 ? place : round_up(end, align);
        end = std::max(end, place + size);
    };
    for (const char part : draft.order) {
        if (part == 'P' && !draft.segments.empty())
            put(draft.phoff, draft.form.word(), draft.segments.size() * draft.segment_size());
        if (part == 'S')
            put(draft.shoff, draft.form.word(), (draft.sections.size() + 1) * draft.section_size());
        for (draft_section& section : draft.sections)
            if (part == (&section < half ? '1' : '2')) {
                end += section.gap;
                put(section.offset, section.align, data_size(section));
            }
    }
    for (draft_segment& segment : draft.segments) {
        const draft_section& section = draft.sections[index_of(draft, segment.section) - 1];
        segment.offset = section.offset + segment.skip;
        segment.size = section.content.size() - segment.skip;
    }
    return draft;
}

// What belongs to no part of the draft, whose names are in their table, is filled with `fill`.
std::string write(const elf_draft& draft, char fill) {
    const elf_form& form = draft.form;
    const uint64_t count = draft.sections.size() + 1, size = form.head_size();
    const uint32_t table = index_of(draft, draft.name_table);
    const std::string& names = draft.sections[table - 1].content;
    std::string file = {
        0x7f, 'E', 'L', 'F', form.is_64() ? '\2' : '\1', form.big_endian ? '\2' : '\1', '\1'};
    file.resize(size);
    const auto reach = [&](uint64_t end) { file.resize(std::max(file.size(), end), fill); };
    reach(draft.phoff + draft.segments.size() * draft.segment_size());
    reach(draft.shoff + count * draft.section_size());
    set_fields(file, 0, field::e_type,
               {draft.type, form.machine, 1, 0x1000, draft.phoff, draft.shoff, 0x01020304, size,
                draft.segment_size(), draft.segments.size(), draft.section_size(),
                count < 0xFF00 ? count : 0, table < 0xFF00 ? table : 0xFFFF});
    set_fields(file, 0, field::sh_name,
               {0, 0, 0, 0, 0, count < 0xFF00 ? 0 : count, table < 0xFF00 ? 0 : table, 0, 0, 0});
    for (uint64_t index = 0; const draft_section& section : draft.sections) {
        if (data_size(section) != 0) {
            reach(section.offset + section.content.size());
            file.replace(section.offset, section.content.size(), section.content);
        }
        set_fields(file, ++index, field::sh_name,
                   {names.find(section.name + '\0'), section.type, section.flags,
                    section.flags * 0x1000, section.offset, section.content.size(),
                    index_of(draft, section.link), index_of(draft, section.info), section.align,
                    section.entsize});
    }
    for (uint64_t index = 0; const auto& [section, skip, offset, bytes] : draft.segments)
        set_fields(file, index++, field::p_type,
                   {1, 5, offset, 0x20000, 0x30000, bytes, bytes + 16, 4});
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
    if (name.empty() || name[0] == '#')
        return name.empty() ? 0 : static_cast<uint32_t>(std::stoul(name.substr(1)));
    const auto found = std::ranges::find(draft.sections, name, &draft_section::name);
    const auto index = static_cast<uint32_t>(found - draft.sections.begin());
    return found == draft.sections.end() ? 0 : index + 1;
}

elf_draft complete(elf_draft draft) {
    if (index_of(draft, draft.name_table) == 0)
        draft.sections.push_back({.name = draft.name_table, .type = sht::strtab});
    std::string& names = draft.sections[index_of(draft, draft.name_table) - 1].content;
    names.resize(std::max<size_t>(names.size(), 1));
    for (const draft_section& section : draft.sections)
        if (names.find(section.name + '\0') == std::string::npos)
            names += section.name + '\0';
    return draft;
}

std::string build_elf(const elf_draft& draft) {
    return write(lay_out(draft), '\xEE'); // to be seen when carried over
}

std::string build_moved(elf_draft before, elf_draft after) {
    before = lay_out(before);
    after = complete(after);
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
    const auto moved = [&saved](uint64_t offset) {
        uint64_t less = 0;
        for (auto cut = saved.begin(); cut != saved.end() && cut->first < offset; ++cut)
            less += cut->second;
        return offset - less;
    };
    after.phoff = moved(before.phoff);
    after.shoff = moved(before.shoff);
    for (draft_section& section : after.sections)
        section.offset = moved(section.offset);
    after.segments = before.segments;
    for (draft_segment& segment : after.segments)
        segment.offset = moved(segment.offset);
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
    return "byte " + std::to_string(end.first - actual.begin()) + " of " +
           std::to_string(actual.size()) + "; expected: " + std::to_string(expected.size());
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
        {".empty"}};
    for (const char* name : {".comment", ".linfix", ".debug_types", ".rominfo", ".foo.a", ".stab",
                             ".foo*", ".rela.foo.b", ".reloc", ".rel", ""})
        sections.push_back({.name = name,
                            .content = filler(5 + 7 * sections.size() % 26, sections.size()),
                            .gap = sections.size() % 4});
    if (with_symbols) {
        sections.push_back(
            {".symtab", sht::symtab, 0, filler(3 * rela, 23), 8, ".strtab", "", rela});
        sections.push_back({".symtab_shndx", sht::shndx, 0, filler(12, 24), 4, ".symtab"});
    }
    sections.push_back({".strtab", sht::strtab, 0, filler(0x27, 25)});
    draft.segments = {{".text"},     {".data", 1},      {".comment"}, {".debug_info"},
                      {".foo.a", 2}, {".rela.text", 4}, {".custom4"}};
    return draft;
}

field field_called(const std::string& name) {
    const auto is_it = [&name](const auto& one) { return name == one.name; };
    return static_cast<field>(std::ranges::find_if(field_places, is_it) - field_places);
}

uint64_t get_field(const std::string& file, field which, uint64_t index) {
    const elf_form form = form_of(file);
    const auto [at, width] = place_of(file, form, which, entry_offset(file, which, index));
    return number_at(file, at, width, form.big_endian);
}

void set_field(std::string& file, field which, uint64_t value, uint64_t index) {
    set_fields(file, index, which, {value});
}

void put_fields(std::string& bytes, const elf_form& form, uint64_t offset, field first,
                std::initializer_list<uint64_t> values) {
    auto which = static_cast<uint8_t>(first);
    for (const uint64_t value : values)
        if (const auto [at, width] = place_of(bytes, form, field{which++}, offset); width != 0)
            bytes.replace(at, width, number(value, width, form.big_endian));
}

void append_entry(std::string& table, const elf_form& form, uint64_t size,
                  const std::vector<std::pair<field, uint64_t>>& values) {
    table.resize(table.size() + size);
    for (const auto& [which, value] : values)
        put_fields(table, form, table.size() - size, which, {value});
}

std::vector<std::string> section_names(const std::string& file) {
    const uint64_t count = get_field(file, field::e_shnum),
                   names = get_field(file, field::e_shstrndx),
                   table = get_field(file, field::sh_offset,
                                     names == 0xFFFF ? get_field(file, field::sh_link) : names);
    std::vector<std::string> result;
    for (uint64_t i = 0; i < (count != 0 ? count : get_field(file, field::sh_size)); ++i)
        result.push_back(
            &file[std::min<size_t>(file.size(), table + get_field(file, field::sh_name, i))]);
    return result;
}

std::string section_content(const std::string& file, const std::string& name) {
    const std::vector<std::string> names = section_names(file);
    const size_t index = static_cast<size_t>(std::ranges::find(names, name) - names.begin());
    return file.substr(get_field(file, field::sh_offset, index % names.size()),
                       get_field(file, field::sh_size, index % names.size()));
}
