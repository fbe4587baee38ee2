// Finds a place for each part of a draft, then sets the header fields one by one. The table of
// field places here is the tests' own, so that a mistake in the program's shows.
#include "support/elf_builder.h"

#include <algorithm>
#include <map>
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
    {0, 4, 0, 4},   {12, 1, 4, 1},  {13, 1, 5, 1},  {14, 2, 6, 2},  {4, 4, 8, 8},   {8, 4, 16, 8},
    {0, 4, 0, 8},   {4, 4, 8, 8},   {8, 4, 16, 8},  {0, 4, 0, 4},
};
// clang-format on

elf_form form_of(const std::string& file) {
    return {"", file.at(4) == 2 ? 64 : 32, file.at(5) == 2, 0};
}

struct byte_range {
    uint64_t at, width;
    bool is_in(const std::string& bytes) const {
        return bytes.size() >= width && at <= bytes.size() - width;
    }
};

// Of a field of the entry at `offset`.
byte_range range_of(const elf_form& form, field which, uint64_t offset) {
    const field_place& place = field_places[static_cast<size_t>(which)];
    return form.is_64() ? byte_range{offset + place.offset64, place.width64}
                        : byte_range{offset + place.offset32, place.width32};
}

void put_field(std::string& bytes, const elf_form& form, field which, uint64_t offset,
               uint64_t value) {
    if (const byte_range range = range_of(form, which, offset); range.is_in(bytes))
        bytes.replace(range.at, range.width, number(value, range.width, form.big_endian));
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
                const std::vector<uint64_t>& values) {
    for (size_t i = 0; i < values.size(); ++i)
        set_field(file, static_cast<field>(static_cast<size_t>(first) + i), values[i], index);
}

struct layout {
    uint64_t phoff = 0, shoff = 0, phentsize = 0, shentsize = 0;
    std::vector<uint64_t> offsets = {};                       // of the sections
    std::vector<std::pair<uint64_t, uint64_t>> segments = {}; // offsets and sizes
};

uint64_t round_up(uint64_t value, uint64_t unit) {
    return (value + unit - 1) / unit * unit;
}
uint64_t data_size(const draft_section& section) {
    return section.type == sht::nobits ? 0 : section.content.size();
}

layout lay_out(const elf_draft& draft) {
    layout result;
    const elf_form& form = draft.form;
    const size_t count = draft.sections.size();
    result.phentsize = (form.is_64() ? 56 : 32) + draft.extra_entsize;
    result.shentsize = (form.is_64() ? 64 : 40) + draft.extra_entsize;
    result.offsets.resize(count);
    uint64_t end = form.is_64() ? 64 : 52;
    for (char part : draft.order) {
        if (part == 'P' && !draft.segments.empty()) {
            result.phoff = round_up(end, form.word());
            end = result.phoff + draft.segments.size() * result.phentsize;
        } else if (part == 'S') {
            result.shoff = round_up(end, form.word());
            end = result.shoff + (count + 1) * result.shentsize;
        }
        for (size_t i = 0; i < count; ++i) {
            if (part != (i < count / 2 ? '1' : '2'))
                continue;
            const draft_section& section = draft.sections[i];
            const uint64_t next = round_up(end + section.gap, std::max<uint64_t>(section.align, 1));
            result.offsets[i] = section.offset != 0 ? section.offset : next;
            end = std::max(end, result.offsets[i] + data_size(section));
        }
    }
    for (const draft_segment& segment : draft.segments) {
        const size_t section = index_of(draft, segment.section) - 1;
        result.segments.emplace_back(result.offsets[section] + segment.skip,
                                     draft.sections[section].content.size() - segment.skip);
    }
    return result;
}

// Gives sections their names. One name for all sections of that name, so that tens of thousands
// stay small.
std::vector<size_t> fill_name_table(elf_draft& draft) {
    if (index_of(draft, draft.name_table) == 0)
        draft.sections.push_back({.name = draft.name_table, .type = sht::strtab});
    std::string& names = draft.sections[index_of(draft, draft.name_table) - 1].content;
    if (names.empty())
        names = std::string(1, '\0');
    std::unordered_map<std::string, size_t> known;
    std::vector<size_t> result;
    for (const draft_section& section : draft.sections) {
        auto [found, added] = known.try_emplace(section.name, names.find(section.name + '\0'));
        if (found->second == std::string::npos) {
            found->second = names.size();
            names += section.name + '\0';
        }
        result.push_back(found->second);
    }
    return result;
}

// What belongs to no part of the draft is filled with `fill`.
std::string write(elf_draft draft, const layout& at, char fill) {
    const std::vector<size_t> names = fill_name_table(draft);
    const elf_form& form = draft.form;
    const uint64_t count = names.size() + 1, phnum = draft.segments.size();
    std::string file = {
        0x7f, 'E', 'L', 'F', form.is_64() ? '\2' : '\1', form.big_endian ? '\2' : '\1', '\1'};
    file.resize(form.is_64() ? 64 : 52);
    file.resize(
        std::max({file.size(), at.phoff + phnum * at.phentsize, at.shoff + count * at.shentsize}),
        fill);
    for (size_t i = 0; i < draft.sections.size(); ++i)
        if (const uint64_t size = data_size(draft.sections[i]); size != 0) {
            file.resize(std::max(file.size(), at.offsets[i] + size), fill);
            file.replace(at.offsets[i], size, draft.sections[i].content);
        }
    const uint32_t table = index_of(draft, draft.name_table);
    set_fields(file, field::e_type, 0,
               {draft.type, form.machine, 1, 0x1000, at.phoff, at.shoff, 0x01020304,
                form.is_64() ? 64u : 52u, at.phentsize, phnum, at.shentsize,
                count < 0xFF00 ? count : 0, table < 0xFF00 ? table : 0xFFFF});
    set_fields(file, field::sh_name, 0,
               {0, 0, 0, 0, 0, count < 0xFF00 ? 0 : count, table < 0xFF00 ? 0 : table, 0, 0, 0});
    for (size_t i = 0; i < names.size(); ++i) {
        const draft_section& section = draft.sections[i];
        const bool has_target = (section.type & 15) == sht::rela || (section.type & 15) == sht::rel;
        set_fields(file, field::sh_name, i + 1,
                   {names[i], section.type, section.flags, section.flags * 0x1000, at.offsets[i],
                    section.content.size(), index_of(draft, section.link),
                    has_target ? index_of(draft, section.info) : 21, section.align,
                    section.entsize});
    }
    for (size_t i = 0; i < phnum; ++i) {
        const auto& [offset, size] = at.segments[i];
        set_fields(file, field::p_type, i,
                   {1, 5, offset, 0x20000 + i, 0x30000 + i, size, size + 16, 4});
    }
    return file;
}

std::string content_at(const std::string& file, uint64_t index) {
    return file.substr(std::min<uint64_t>(file.size(), get_field(file, field::sh_offset, index)),
                       get_field(file, field::sh_size, index));
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
    const elf_draft whole = complete(draft);
    return write(whole, lay_out(whole), '\xEE'); // to be seen when carried over
}

std::string build_moved(const elf_draft& before, elf_draft after) {
    const elf_draft old = complete(before);
    fill_name_table(after);
    const uint64_t word = old.form.word();
    const layout was = lay_out(old);
    layout now = was;
    now.offsets.clear();
    std::map<uint64_t, uint64_t> saved; // by the offset of what shrinks or goes
    for (size_t i = 0; i < old.sections.size(); ++i) {
        const draft_section& section = old.sections[i];
        const size_t next = now.offsets.size();
        uint64_t left = 0;
        if (next < after.sections.size() && after.sections[next].name == section.name) {
            std::string& content = after.sections[next].content;
            if (content.size() != section.content.size())
                content.resize(round_up(content.size(), word));
            left = data_size(after.sections[next]);
            now.offsets.push_back(was.offsets[i]);
        }
        if (left != data_size(section))
            saved[was.offsets[i]] += data_size(section) / word * word - left;
    }
    const auto move = [&saved](uint64_t& offset) {
        uint64_t less = 0;
        for (auto cut = saved.begin(); cut != saved.end() && cut->first < offset; ++cut)
            less += cut->second;
        offset -= less;
    };
    move(now.phoff);
    move(now.shoff);
    std::for_each(now.offsets.begin(), now.offsets.end(), move);
    for (auto& [offset, size] : now.segments)
        move(offset);
    now.phentsize -= before.extra_entsize;
    now.shentsize -= before.extra_entsize;
    return write(after, now, '\0');
}

std::string build_stripped(const elf_draft& before, const std::set<std::string>& removed) {
    elf_draft after = complete(before);
    std::erase_if(after.sections, [&](const draft_section& section) {
        return (section.flags & shf::alloc) == 0 && removed.count(section.name) != 0;
    });
    return build_moved(before, after);
}

std::string difference(const std::string& actual, const std::string& expected) {
    const auto [one, other] =
        std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    const auto at = static_cast<uint64_t>(one - actual.begin());
    std::string text = actual == expected
                           ? ""
                           : "byte " + std::to_string(at) + " of " + std::to_string(actual.size()) +
                                 "; expected: " + std::to_string(expected.size());
    for (uint64_t i = 1; i < get_field(expected, field::e_shnum) && !text.empty(); ++i)
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

uint64_t get_field(const std::string& file, field which, uint64_t index) {
    const elf_form form = form_of(file);
    const byte_range range = range_of(form, which, entry_offset(file, which, index));
    return range.is_in(file) ? number_at(file, range.at, range.width, form.big_endian) : 0;
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
                   names = get_field(file, field::e_shstrndx);
    const std::string table =
        content_at(file, names == 0xFFFF ? get_field(file, field::sh_link) : names);
    std::vector<std::string> result;
    for (uint64_t i = 0; i < (count != 0 ? count : get_field(file, field::sh_size)); ++i)
        result.push_back(table.c_str() +
                         std::min<uint64_t>(get_field(file, field::sh_name, i), table.size()));
    return result;
}

uint64_t section_index(const std::string& file, const std::string& name) {
    const std::vector<std::string> names = section_names(file);
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? 0 : static_cast<uint64_t>(found - names.begin());
}

std::string section_content(const std::string& file, const std::string& name) {
    return content_at(file, section_index(file, name));
}
