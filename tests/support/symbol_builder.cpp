// The file that must come out is built like the one that goes in, and compared as a whole.
#include "support/symbol_builder.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace {

const std::string bindings = "lgw", types = "NOFSfC";

// What stands before each `end`, and behind the last.
words pieces(const std::string& text, char end) {
    std::istringstream stream(text);
    words result;
    for (std::string piece; std::getline(stream, piece, end);)
        result.push_back(piece);
    return result;
}

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
    draft_section& table = table_of(elf, {".symtab"});
    append_entry(table.content, elf.form, table.entsize,
                 {{field::st_name, name},
                  {field::st_info, bindings.find(symbol[1][0]) << 4 | types.find(symbol[1][1])},
                  {field::st_shndx, is_wide ? 0xFFFF : section + reserved},
                  {field::st_value, std::stoull(symbol[3])},
                  {field::st_size, std::stoull(symbol[4])},
                  {field::st_other, std::stoull(symbol[5])}});
    if (symbol[1][0] == 'l')
        table.info = "#" + std::to_string(table.content.size() / table.entsize);
    if (words_at != 0)
        append_entry(elf.sections[words_at - 1].content, elf.form, 4,
                     {{field::word, is_wide ? section : 0}});
}

void add_relocation(elf_draft& elf, const words& entry, uint64_t symbol) {
    const elf_form& form = elf.form;
    const bool is_rela = entry[0].starts_with("@.rela");
    const uint64_t size = form.word() * (is_rela ? 3 : 2);
    draft_section& table =
        table_of(elf, {entry[0].substr(1), is_rela ? sht::rela : sht::rel, 0, "", form.word(),
                       ".symtab", entry[0].substr(is_rela ? 6 : 5), size});
    append_entry(table.content, form, size,
                 {{field::r_offset, std::stoull(entry[1])},
                  {field::r_info, (symbol << (form.is_64() ? 32 : 8)) + std::stoull(entry[2])},
                  {field::r_addend, std::stoull(entry[4])}}); // a REL entry has no room for it
}

// Makes these entries and strings the contents of the tables.
void fill_tables(elf_draft& elf, const std::string& entries, std::string given) {
    for (draft_section& section : elf.sections)
        if (section.name.starts_with(".symtab") || section.name.starts_with(".rel"))
            section.content.clear();
    std::replace(given.begin(), given.end(), '^', '\0');
    const bool is_given = given.size() > 1; // "-" is the empty one
    std::string strings = is_given ? given + '\0' : std::string(1, '\0');
    words symbols;
    for (const std::string& text : pieces("'' lN '';" + entries, ';')) {
        words entry = split(text);
        entry.resize(6, "0");
        if (entry[0][0] == '@') {
            const auto named = std::ranges::find(symbols, entry[3]) - symbols.begin();
            add_relocation(elf, entry,
                           entry[3][0] == '#' ? index_of(elf, entry[3])
                                              : static_cast<uint64_t>(named));
            continue;
        }
        const bool is_sought = is_given || entry[0].empty();
        size_t at = strings.find((is_sought ? "" : std::string(1, '\0')) + entry[0] + '\0');
        if (at == std::string::npos) {
            strings += entry[0] + '\0';
            at = strings.size() - entry[0].size() - 2;
        }
        add_symbol(elf, entry, at + !is_sought);
        symbols.push_back(entry[0]);
    }
    strings.append(-strings.size() % elf.form.word(), '\0');
    table_of(elf, {".strtab"}).content = given.empty() ? strings : is_given ? given : "";
}

// What is wrong with `after` as the result for these entries and strings.
std::string check_result(const elf_draft& before, const std::string& after,
                         const std::string& entries, const std::string& strings) {
    elf_draft expected = complete(before);
    const words names = section_names(after);
    std::erase_if(expected.sections, [&names](const draft_section& section) {
        return std::ranges::find(names, section.name) == names.end();
    });
    table_of(expected, {".symtab"}).entsize = 8 + 2 * before.form.word();
    fill_tables(expected, entries, strings);
    return difference(after, build_moved(before, expected));
}

// Decides for one of the texts in "{one/other}".
std::string of_class(std::string text, const elf_form& form) {
    for (size_t at; (at = text.find('{')) != std::string::npos;) {
        const size_t slash = text.find('/', at), end = text.find('}', at);
        text.replace(at, end + 1 - at,
                     form.is_64() ? text.substr(slash + 1, end - slash - 1)
                                  : text.substr(at + 1, slash - at - 1));
    }
    return text;
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
    table_of(elf, {".symtab", sht::symtab, 0, "", word, ".strtab", "", 8 + 2 * word}).entsize +=
        draft.extra_entsize;
    table_of(elf, {".strtab", sht::strtab});
    fill_tables(elf, draft.entries, draft.strings);
    return build_elf(elf);
}

std::string trim_file(const std::string& options, std::string& file, const run_limits& limits) {
    work_place place;
    place.put("f", file, 02711);
    const file_state before = place.state("f");
    const run_result result = place.trim(options + " f", limits);
    const file_state after = place.state("f");
    const words files = place.list();
    const bool is_left = files.size() == 2 && files[1].starts_with("ov_");
    std::string said = (is_left ? "(left) " : "") + result.out + result.err;
    const bool is_good = said.empty() || said.find("warning: ") != std::string::npos;
    if (said.ends_with('\n'))
        said.pop_back();
    for (const auto& [is_wrong, what] :
         {std::pair(files.size() != 1 && !is_left, " (other files)"),
          {result.status != (is_good ? 0 : 1), " (another status)"},
          {after.mode != before.mode, " (another mode)"},
          {after.bytes == before.bytes && !(after == before), " (another file of these bytes)"}})
        said += is_wrong ? what : "";
    file = after.bytes;
    return said;
}

std::string trim_draft(const std::string& options, const elf_draft& draft,
                       const std::set<std::string>& removed, const run_limits& limits) {
    const std::string before = build_elf(draft);
    std::string file = before;
    const std::string said = trim_file(options, file, limits);
    return said + difference(file, removed.empty() ? before : build_stripped(draft, removed));
}

void check_strips(const std::string& cases, const draft_maker& make) {
    for (const elf_form& form : elf_forms) {
        const words columns = pieces(of_class(cases, form), '|');
        for (size_t i = 0; i + 2 < columns.size(); i += 3) {
            std::map<std::string, std::string> own = {{"+names", ".shstrtab"}, {"+wide", "0"}};
            std::string options, expected;
            for (const std::string& word : split(columns[i]))
                if (const size_t end = word.find('='); word[0] == '-')
                    options += word + " ";
                else
                    own[word.substr(0, end)] = word.substr(end + 1);
            if (std::ranges::any_of(own, [&form](const auto& option) {
                    return option.first[0] == '?' && !strstr(form.name, &option.first[1]);
                }))
                continue;
            symbol_draft draft{columns[i + 1], own["+in"], std::stoull(own["+wide"]), make(form)};
            draft.elf.name_table = own["+names"];
            draft.elf.type = options.find("-stripreloc") != std::string::npos ? et::rel : et::exec;
            std::string file = build_symbols(draft);
            for (const auto& [place, value] : own) // those of the file header at last
                if (place[0] == '#')
                    set_field(file, field_called(place.substr(place.find(':') + 1)),
                              std::stoull(value, nullptr, 0), strtoull(&place[1], nullptr, 10));
            const std::string before = file;
            std::string said = trim_file(options, file);
            for (const std::string& word : split(columns[i + 2]))
                expected += (expected.empty() ? "" : " ") + word;
            if (expected[0] == '!')
                said = (said.empty() ? "!" : "! ") + said + (file == before ? "" : " (changed)");
            else if (expected != "~" && said.empty())
                said = check_result(draft.elf, file, columns[i + 2], own["+out"]);
            EXPECT_EQ(said, expected[0] == '!' ? expected : "")
                << form.name << ": " << columns[i] << columns[i + 1].substr(0, 500);
        }
    }
}
