// The file that must come out is built like the one that goes in, and compared as a whole.
#include "support/symbol_builder.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>

#include "support/runner.h"

namespace {

const std::string bindings = "lgw", types = "NOFSfC";

bool is_rela(const std::string& section) {
    return section.rfind(".rela", 0) == 0;
}

uint64_t entry_size(const elf_form& form, const std::string& section) {
    return section == ".symtab" ? 8 + 2 * form.word() : form.word() * (is_rela(section) ? 3 : 2);
}

draft_section& section_of(elf_draft& elf, const std::string& name) {
    return elf.sections.at(index_of(elf, name) - 1);
}

// With symbol 0.
std::vector<words> split_entries(const std::string& entries) {
    std::vector<words> result = {{"", "lN", "", "0", "0", "0"}};
    std::istringstream text(entries);
    for (std::string entry; std::getline(text, entry, ';'); result.back().resize(6, "0"))
        result.push_back(split(entry));
    return result;
}

// The tables that the entries want, empty.
void add_tables(symbol_draft& draft) {
    elf_draft& elf = draft.elf;
    const bool is_big = elf.sections.size() >= 0xFF00;
    for (const words& entry : split_entries(draft.entries)) {
        const std::string name = entry[0].substr(std::min<size_t>(entry[0].size(), 1));
        if (entry[0][0] == '@' && index_of(elf, name) == 0)
            elf.sections.push_back({name, is_rela(name) ? sht::rela : sht::rel, 0, "",
                                    elf.form.word(), ".symtab", name.substr(is_rela(name) ? 5 : 4),
                                    entry_size(elf.form, name)});
    }
    elf.sections.push_back({".symtab", sht::symtab, 0, "", elf.form.word(), ".strtab", "",
                            entry_size(elf.form, ".symtab") + draft.extra_entsize});
    if (is_big)
        elf.sections.push_back({".symtab_shndx", sht::shndx, 0, "", 4, ".symtab"});
    elf.sections.push_back({".strtab", sht::strtab});
}

// "#n", or the place that the word has otherwise.
uint64_t number_of(const std::string& word, uint64_t place) {
    return word[0] == '#' ? std::stoull(word.substr(1)) : place;
}

void add_symbol(elf_draft& elf, const words& symbol) {
    const bool has_words = index_of(elf, ".symtab_shndx") != 0;
    const uint64_t reserved = symbol[2] == "ABS" ? 0xFFF1 : symbol[2] == "COM" ? 0xFFF2 : 0;
    const uint64_t section = number_of(symbol[2], index_of(elf, symbol[2]) + reserved);
    const bool is_wide = has_words && section >= 0xFF00;
    draft_section& table = section_of(elf, ".symtab");
    const std::string strings = section_of(elf, ".strtab").content + '\0';
    append_entry(table.content, elf.form, table.entsize,
                 {{field::st_name, strings.find(symbol[0] + '\0')},
                  {field::st_info, bindings.find(symbol[1][0]) << 4 | types.find(symbol[1][1])},
                  {field::st_shndx, is_wide ? 0xFFFF : section},
                  {field::st_value, std::stoull(symbol[3])},
                  {field::st_size, std::stoull(symbol[4])},
                  {field::st_other, std::stoull(symbol[5])}});
    if (has_words)
        append_entry(section_of(elf, ".symtab_shndx").content, elf.form, 4,
                     {{field::word, is_wide ? section : 0}});
}

void add_relocation(elf_draft& elf, const words& entry, uint64_t symbol) {
    const std::string section = entry[0].substr(1);
    field_values values = {
        {field::r_offset, std::stoull(entry[1])},
        {field::r_info, (symbol << (elf.form.is_64() ? 32 : 8)) + std::stoull(entry[2])}};
    if (is_rela(section))
        values.emplace_back(field::r_addend, std::stoull(entry[4]));
    append_entry(section_of(elf, section).content, elf.form, entry_size(elf.form, section), values);
}

// The file of `elf` with these entries in its tables, as `build` makes it.
template <class routine>
std::string build_with(elf_draft& elf, const std::string& entries, std::string strings,
                       routine build) {
    for (draft_section& section : elf.sections)
        if (section.name == ".symtab" || section.link == ".symtab")
            section.content.clear();
    words symbols;
    uint64_t locals = 0;
    std::string names = "|";
    const std::vector<words> list = split_entries(entries);
    for (const words& entry : list) {
        if (entry[0][0] == '@') {
            section_of(elf, entry[0].substr(1)).content.clear();
            continue;
        }
        symbols.push_back(entry[0]);
        locals = entry[1][0] == 'l' ? symbols.size() : locals;
        if (!entry[0].empty() && names.find("|" + entry[0] + "|") == std::string::npos)
            names += entry[0] + "|";
    }
    names.resize((names.size() + elf.form.word() - 1) / elf.form.word() * elf.form.word(), '|');
    strings = strings.empty() ? names : strings;
    std::replace(strings.begin(), strings.end(), '|', '\0');
    section_of(elf, ".strtab").content = strings;
    for (const words& entry : list) {
        const auto named = std::find(symbols.begin(), symbols.end(), entry[3]);
        if (entry[0][0] == '@')
            add_relocation(elf, entry,
                           number_of(entry[3], static_cast<uint64_t>(named - symbols.begin())));
        else
            add_symbol(elf, entry);
    }
    std::string file = build(elf);
    set_field(file, field::sh_info, locals, index_of(elf, ".symtab"));
    return file;
}

// What is wrong with `after` as the result for these entries and strings.
std::string check_result(const elf_draft& before, const std::string& after,
                         const std::string& entries, const std::string& strings) {
    elf_draft expected = complete(before);
    const words names = section_names(after);
    const std::set<std::string> kept(names.begin(), names.end());
    std::erase_if(expected.sections,
                  [&](const draft_section& one) { return kept.count(one.name) == 0; });
    section_of(expected, ".symtab").entsize = entry_size(before.form, ".symtab");
    return difference(after, build_with(expected, entries, strings, [&](const elf_draft& elf) {
                          return build_moved(before, elf);
                      }));
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
    add_tables(draft);
    std::string file = build_with(draft.elf, draft.entries, draft.strings, build_elf);
    for (const auto& [section, which, value] : draft.changes)
        set_field(file, which, value, index_of(complete(draft.elf), section));
    return file;
}

std::string strip_symbols(const std::string& options, symbol_draft draft,
                          const std::string& entries, const std::string& strings) {
    work_place place;
    place.put("f", build_symbols(draft));
    const file_state before = place.state("f");
    const run_result result = place.trim(options + " f");
    const words files = place.list();
    const bool is_left = files.size() == 2 && files[1].rfind("ov_", 0) == 0;
    EXPECT_EQ(result.status, result.err.empty() ? 0 : 1);
    EXPECT_EQ(files.size(), is_left ? 2u : 1u);
    const std::string said = (is_left ? "(left) " : "") + result.err;
    if (place.state("f") == before)
        return said.empty() ? "untouched" : said.substr(0, said.size() - 1);
    return said + check_result(draft.elf, place.get("f"), entries, strings);
}

void check_strips(symbol_draft draft, std::string cases) {
    std::replace(cases.begin(), cases.end(), '\n', ' ');
    std::istringstream text(cases);
    std::string options, expected;
    while (std::getline(text, options, '|') && std::getline(text, draft.entries, '|') &&
           std::getline(text, expected, '|')) {
        const bool is_outcome =
            expected.find(" untouched") == 0 || expected.find("objtrim") != std::string::npos;
        draft.elf.type = options.find("-stripreloc") == std::string::npos ? et::exec : et::rel;
        EXPECT_EQ(" " + strip_symbols(options, draft, is_outcome ? "" : expected) + " ",
                  is_outcome ? expected : "  ")
            << draft.elf.form.name << ": " << options << draft.entries;
    }
}
