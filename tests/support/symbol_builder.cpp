// The file that must come out is built like the one that goes in, and compared as a whole.
#include "support/symbol_builder.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <regex>

#include "support/table.h"

namespace {

// The section of that name, which is added when there is none.
draft_section& table_of(elf_draft& elf, const draft_section& table) {
    if (index_of(elf, table.name) == 0)
        elf.sections.push_back(table);
    return elf.sections[index_of(elf, table.name) - 1];
}

void add_symbol(elf_draft& elf, const words& symbol, uint64_t name) {
    const uint64_t reserved = symbol[2] == "ABS" ? 0xFFF1 : symbol[2] == "COM" ? 0xFFF2 : 0;
    const uint64_t section = index_of(elf, symbol[2]), words_at = index_of(elf, ".symtab_shndx");
    const bool is_wide = words_at != 0 && section >= 0xFF00;
    const uint64_t info =
        std::string("lgw").find(symbol[1][0]) << 4 | std::string("NOFSfC").find(symbol[1][1]);
    draft_section& table = table_of(elf, {".symtab"});
    table.content.resize(table.content.size() + table.entsize);
    put_fields(table.content, elf.form, table.content.size() - table.entsize, field::st_name,
               {name, info, std::stoull(symbol[5]), is_wide ? 0xFFFF : section + reserved,
                std::stoull(symbol[3]), std::stoull(symbol[4])});
    if (symbol[1][0] == 'l')
        table.info = "#" + std::to_string(table.content.size() / table.entsize);
    if (words_at != 0)
        elf.sections[words_at - 1].content += number(is_wide ? section : 0, 4, elf.form.big_endian);
}

void add_relocation(elf_draft& elf, const words& entry, uint64_t symbol) {
    const bool is_rela = entry[0].starts_with("@.rela");
    const uint64_t word = elf.form.word(), size = word * (is_rela ? 3 : 2);
    draft_section& table = table_of(elf, {entry[0].substr(1), is_rela ? sht::rela : sht::rel, 0, "",
                                          word, ".symtab", entry[0].substr(is_rela ? 6 : 5), size});
    table.content.resize(table.content.size() + size);
    put_fields(table.content, elf.form, table.content.size() - size, field::r_offset,
               {std::stoull(entry[1]), (symbol << (word == 8 ? 32 : 8)) + std::stoull(entry[2]),
                std::stoull(entry[4])}); // a REL entry has no room for the last
}

// Makes these entries and strings the contents of the tables.
void fill_tables(elf_draft& elf, const std::string& entries, std::string given) {
    for (draft_section& section : elf.sections)
        if (section.name.starts_with(".symtab") || section.name.starts_with(".rel"))
            section.content.clear();
    std::ranges::replace(given, '^', '\0');
    const bool is_given = given.size() > 1; // "-" is the empty one
    std::string strings = is_given ? given + '\0' : std::string(1, '\0');
    words symbols;
    for (const std::string& text : parts_of("'' lN '';" + entries, ';')) {
        words entry = split(text);
        const words rest = {"", "gF", ".text", "0", "0", "0"};
        entry.insert(entry.end(), rest.begin() + static_cast<int>(entry.size()), rest.end());
        if (entry[0][0] == '@') {
            const auto named = std::ranges::find(symbols, entry[3]) - symbols.begin();
            add_relocation(elf, entry,
                           entry[3][0] == '#' ? index_of(elf, entry[3]) : size_t(named));
            continue;
        }
        const std::string front(is_given || entry[0].empty() ? 0 : 1, '\0');
        if (strings.find(front + entry[0] + '\0') == std::string::npos)
            strings += entry[0] + '\0';
        add_symbol(elf, entry, strings.find(front + entry[0] + '\0') + front.size());
        symbols.push_back(entry[0]);
    }
    strings.append(-strings.size() % elf.form.word(), '\0');
    table_of(elf, {".strtab"}).content = given.empty() ? strings : is_given ? given : "";
}

// How `after` differs from what has to come of it, with these entries and strings.
std::string result_difference(const elf_draft& before, const std::string& after,
                              const std::string& entries, const std::string& strings) {
    elf_draft kept = complete(before);
    const words names = section_names(after);
    std::erase_if(kept.sections, [&](const draft_section& section) {
        return std::ranges::find(names, section.name) == names.end();
    });
    table_of(kept, {".symtab"}).entsize = 8 + 2 * before.form.word();
    fill_tables(kept, entries, strings);
    return difference(after, build_moved(before, kept));
}

} // namespace

elf_draft base_draft(const elf_form& form) {
    return {.form = form,
            .sections = {{.name = ".debug_info", .content = filler(0x15, 1)},
                         {".text", sht::progbits, shf::alloc, filler(0x30, 2), 8},
                         {.name = ".line", .content = filler(0x13, 3)},
                         {".data", sht::progbits, shf::alloc, filler(0x20, 4), 8},
                         {.name = ".comment", .content = filler(7, 5)}}};
}

std::string build_symbols(symbol_draft& draft) {
    elf_draft& elf = draft.elf;
    const uint64_t word = elf.form.word();
    if (elf.sections.size() >= 0xFF00)
        table_of(elf, {".symtab_shndx", sht::shndx, 0, "", 4, ".symtab"});
    table_of(elf, {".symtab", sht::symtab, 0, "", word, ".strtab", "", 8 + 2 * word});
    table_of(elf, {".strtab", sht::strtab});
    fill_tables(elf, draft.entries, draft.strings);
    return build_elf(elf);
}

std::string trim_file(const std::string& options, std::string& file) {
    work_place place;
    place.put("f", file, 02711);
    const file_state before = place.state("f");
    const run_result result = place.trim(options + " f");
    const file_state after = place.state("f");
    const words files = place.list();
    const bool is_left = files.size() == 2 && files[1].starts_with("ov_");
    std::string said = (is_left ? "(left) " : "") + result.out + result.err;
    const int status = said.empty() || said.find("warning: ") != std::string::npos ? 0 : 1;
    said.resize(said.size() - said.ends_with('\n'));
    if (files.size() != (is_left ? 2 : 1) || result.status != status || after.mode != before.mode ||
        (after.bytes == before.bytes && !(after == before)))
        said += " (wrong status, mode, time or other files)";
    file = after.bytes;
    return said;
}

std::string trim_draft(const std::string& options, const elf_draft& draft,
                       const std::set<std::string>& removed) {
    std::string file = build_elf(draft);
    const std::string expected = removed.empty() ? file : build_stripped(draft, removed);
    const std::string said = trim_file(options, file);
    return said + difference(file, expected);
}

void check_strips(const std::string& cases, const draft_maker& make) {
    const words columns = parts_of(cases, '|');
    for (const elf_form& form : elf_forms)
        for (size_t i = 0; i + 2 < columns.size(); i += 3) {
            const auto of_class = [&form](const std::string& text) {
                return std::regex_replace(text, std::regex(R"(\{([^/}]*)/([^}]*)\})"),
                                          form.is_64() ? "$2" : "$1");
            };
            std::map<std::string, std::string> own = {{"+names", ".shstrtab"}, {"+machine", "0"}};
            const std::string& expected = columns[i + 2];
            std::string options;
            for (const std::string& word : split(of_class(columns[i])))
                if (const size_t end = word.find('='); word[0] == '-')
                    options += word + " ";
                else
                    own[word.substr(0, end)] = word.substr(end + 1);
            if (!strstr(form.name, own["?"].c_str()))
                continue;
            symbol_draft draft{columns[i + 1], own["+in"], make(form)};
            draft.elf.name_table = own["+names"];
            draft.elf.form.machine += static_cast<uint16_t>(std::stoul(own["+machine"]));
            draft.elf.type = options.find("-stripreloc") != std::string::npos ? et::rel : et::exec;
            std::string file = build_symbols(draft);
            for (const auto& [place, value] : own) // those of the file header at last
                if (place[0] == '#')
                    set_field(file, field_called(place.substr(place.find(':') + 1)),
                              std::stoull(value, nullptr, 0), strtoull(&place[1], nullptr, 10));
            const std::string before = file;
            std::string said = trim_file(options, file);
            if (expected[0] == '!')
                said = (said.empty() ? "!" : "! ") + said + (file == before ? "" : " (changed)");
            else if (said.empty())
                said = expected == "~" ? ""
                                       : result_difference(draft.elf, file, expected, own["+out"]);
            EXPECT_EQ(said, expected[0] == '!' ? of_class(expected) : "")
                << form.name << ": " << columns[i] << " | " << columns[i + 1].substr(0, 500);
        }
}
