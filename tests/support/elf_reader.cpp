// The check builds the view that the result must have out of the view of the input, and compares.
//
// Its rule for offsets: whatever lies behind removed data moves down by the sizes of all that data,
// each rounded down to the word of the class.
#include "support/elf_reader.h"

#include <algorithm>

namespace {

bool has_data(const view_section& section) {
    return section.header[field::sh_type] != sht::nobits && section.header[field::sh_size] != 0;
}

field_values read_fields(const std::string& file, field first, field end, uint64_t index) {
    field_values result;
    for (auto i = static_cast<uint8_t>(first); i < static_cast<uint8_t>(end); ++i)
        result[static_cast<field>(i)] = get_field(file, static_cast<field>(i), index);
    return result;
}

void read_sections(const std::string& file, elf_view& view) {
    uint64_t count = view.header[field::e_shnum];
    if (count == 0)
        count = get_field(file, field::sh_size);
    for (uint64_t i = 0; i < count; ++i) {
        view_section section;
        section.header = read_fields(file, field::sh_type, field::end, i);
        uint64_t offset = section.header[field::sh_offset];
        if (i != 0 && has_data(section) && offset < file.size())
            section.content = file.substr(offset, section.header[field::sh_size]);
        view.sections.push_back(section);
    }
    for (uint64_t i = 1; i < count; ++i) {
        const std::string& table = view.sections[view.names_index].content;
        uint64_t at = get_field(file, field::sh_name, i);
        size_t end = table.find('\0', at);
        if (end == std::string::npos)
            view.problem = "section " + std::to_string(i) + " has a name outside the name table";
        else
            view.sections[i].name = table.substr(at, end - at);
    }
}

// Finds the end of what is used, and what lies outside it.
void measure(const std::string& file, elf_view& view) {
    const field_values& header = view.header;
    std::vector<std::pair<uint64_t, uint64_t>> parts = {
        {0, header[field::e_ehsize]},
        {header[field::e_phoff], view.segments.size() * header[field::e_phentsize]},
        {header[field::e_shoff], view.sections.size() * header[field::e_shentsize]}};
    for (const view_section& section : view.sections)
        parts.emplace_back(section.header[field::sh_offset], section.content.size());
    std::sort(parts.begin(), parts.end());
    for (const auto& [offset, size] : parts) {
        if (size == 0)
            continue;
        for (uint64_t at = view.used_size; at < std::min(offset, file.size()); ++at)
            view.stray += file[at] != 0;
        view.used_size = std::max(view.used_size, offset + size);
    }
}

// For each place in the input where something is removed, the bytes saved from the start to there.
struct cut {
    uint64_t offset, saved;
};

uint64_t moved(const std::vector<cut>& cuts, uint64_t offset) {
    auto behind = std::partition_point(cuts.begin(), cuts.end(),
                                       [&](const cut& one) { return one.offset < offset; });
    return behind == cuts.begin() ? offset : offset - std::prev(behind)->saved;
}

elf_view expect_stripped(const elf_view& before, const std::set<std::string>& removed) {
    bool is_64 = before.ident[4] == 2;
    std::vector<uint64_t> new_index(before.sections.size());
    std::vector<cut> cuts;
    elf_view after = before;
    after.sections.resize(1);
    for (size_t i = 1; i < before.sections.size(); ++i) {
        const view_section& section = before.sections[i];
        uint64_t size = section.header[field::sh_size];
        if ((section.header[field::sh_flags] & shf::alloc) != 0 || !removed.count(section.name)) {
            new_index[i] = after.sections.size();
            after.sections.push_back(section);
        } else if (has_data(section)) {
            cuts.push_back({section.header[field::sh_offset], size - size % (is_64 ? 8 : 4)});
        }
    }
    std::sort(cuts.begin(), cuts.end(), [](cut a, cut b) { return a.offset < b.offset; });
    for (size_t i = 1; i < cuts.size(); ++i)
        cuts[i].saved += cuts[i - 1].saved;

    auto renumber = [&](uint64_t& index) {
        index = index < new_index.size() ? new_index[index] : UINT64_MAX;
    };
    for (size_t i = 1; i < after.sections.size(); ++i) {
        field_values& header = after.sections[i].header;
        header[field::sh_offset] = moved(cuts, header[field::sh_offset]);
        renumber(header[field::sh_link]);
        if ((header[field::sh_type] & 15) == 4 || (header[field::sh_type] & 15) == 9)
            renumber(header[field::sh_info]);
    }
    for (field_values& segment : after.segments)
        segment[field::p_offset] = moved(cuts, segment[field::p_offset]);

    field_values& header = after.header;
    header[field::e_phoff] = moved(cuts, header[field::e_phoff]);
    header[field::e_shoff] = moved(cuts, header[field::e_shoff]);
    header[field::e_shentsize] = is_64 ? 64 : 40;
    header[field::e_phentsize] = is_64 ? 56 : 32;
    renumber(after.names_index);
    uint64_t count = after.sections.size();
    bool extended = count >= 0xFF00;
    bool names_extended = extended && after.names_index >= 0xFF00;
    after.sections[0].header[field::sh_size] = extended ? count : 0;
    after.sections[0].header[field::sh_link] = names_extended ? after.names_index : 0;
    header[field::e_shnum] = extended ? 0 : count;
    header[field::e_shstrndx] = names_extended ? 0xFFFF : after.names_index;
    return after;
}

// Says which field differs, by its place in `field`.
std::string compare(const field_values& expected, const field_values& actual) {
    for (size_t i = 0; i < expected.values.size(); ++i)
        if (expected.values[i] != actual.values[i])
            return "field " + std::to_string(i) + " is " + std::to_string(actual.values[i]) +
                   ", not " + std::to_string(expected.values[i]);
    return "";
}

} // namespace

uint64_t elf_view::index_of(const std::string& name) const {
    for (size_t i = 1; i < sections.size(); ++i)
        if (sections[i].name == name)
            return i;
    return 0;
}

std::vector<std::string> elf_view::names() const {
    std::vector<std::string> result;
    for (size_t i = 1; i < sections.size(); ++i)
        result.push_back(sections[i].name);
    return result;
}

elf_view read_elf(const std::string& file) {
    elf_view view;
    view.ident = file.substr(0, 16);
    view.header = read_fields(file, field::e_type, field::p_type, 0);
    view.names_index = view.header[field::e_shstrndx];
    if (view.names_index == 0xFFFF)
        view.names_index = get_field(file, field::sh_link);
    uint64_t count = view.header[field::e_shnum];
    count = count != 0 ? count : get_field(file, field::sh_size);
    uint64_t last = field_offset(file, field::sh_entsize, count - 1);
    if (count == 0 || count > file.size() || last > file.size() || view.names_index >= count) {
        view.problem = "no ELF file with sections and their names";
        return view;
    }
    for (uint64_t i = 0; i < view.header[field::e_phnum]; ++i)
        view.segments.push_back(read_fields(file, field::p_type, field::sh_name, i));
    read_sections(file, view);
    measure(file, view);
    return view;
}

std::string check_stripped(const std::string& before, const std::string& after,
                           const std::set<std::string>& removed) {
    elf_view input = read_elf(before);
    elf_view actual = read_elf(after);
    if (!input.problem.empty() || !actual.problem.empty())
        return "input: " + input.problem + "; result: " + actual.problem;
    elf_view expected = expect_stripped(input, removed);
    if (expected.ident != actual.ident || expected.header != actual.header)
        return "file header: " + compare(expected.header, actual.header);
    if (expected.names() != actual.names())
        return "other sections than expected";
    for (size_t i = 0; i < expected.sections.size(); ++i)
        if (expected.sections[i] != actual.sections[i])
            return "section " + expected.sections[i].name + ": " +
                   compare(expected.sections[i].header, actual.sections[i].header);
    if (expected.segments != actual.segments)
        return "program headers differ";
    if (actual.stray != 0)
        return std::to_string(actual.stray) + " bytes outside all sections are not 0";
    return after.size() == actual.used_size ? "" : "the file is longer than what it uses";
}
