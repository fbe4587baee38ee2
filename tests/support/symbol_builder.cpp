// The file that must come out is built like the one that goes in, and compared as a whole.
#include "support/symbol_builder.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace {

const std::string bindings = "lgw", types = "NOFSfC";

uint64_t entry_size(const elf_form& form, const std::string& section) {
    return section == ".symtab" ? 8 + 2 * form.word()
                                : form.word() * (section.starts_with(".rela") ? 3 : 2);
}

draft_section& section_of(elf_draft& elf, const std::string& name) {
    return elf.sections.at(index_of(elf, name) - 1);
}

// What stands before each `end`, and behind the last.
words pieces(const std::string& text, char end) {
    std::istringstream stream(text);
    words result;
    for (std::string piece; std::getline(stream, piece, end);)
        result.push_back(piece);
    return result;
}

// With symbol 0.
std::vector<words> split_entries(const std::string& entries) {
    std::vector<words> result = {split("'' lN ''")};
    for (const std::string& entry : pieces(entries, ';'))
        result.push_back(split(entry));
    for (words& entry : result)
        entry.resize(6, "0");
    return result;
}

// The tables that the entries want, empty.
void add_tables(symbol_draft& draft) {
    elf_draft& elf = draft.elf;
    const elf_form& form = elf.form;
    const bool is_big = elf.sections.size() >= 0xFF00;
    const auto add = [&elf](const draft_section& section) {
        if (index_of(elf, section.name) == 0)
            elf.sections.push_back(section);
    };
    for (const words& entry : split_entries(draft.entries))
        if (const bool is_rela = entry[0].starts_with("@.rela"); entry[0].starts_with("@"))
            add({entry[0].substr(1), is_rela ? sht::rela : sht::rel, 0, "", form.word(), ".symtab",
                 entry[0].substr(is_rela ? 6 : 5), entry_size(form, entry[0].substr(1))});
    add({".symtab", sht::symtab, 0, "", form.word(), ".strtab", "",
         entry_size(form, ".symtab") + draft.extra_entsize});
    if (is_big)
        add({".symtab_shndx", sht::shndx, 0, "", 4, ".symtab"});
    add({".strtab", sht::strtab});
}

void add_symbol(elf_draft& elf, const words& symbol, uint64_t name) {
    const bool has_words = index_of(elf, ".symtab_shndx") != 0;
    const uint64_t reserved = symbol[2] == "ABS" ? 0xFFF1 : symbol[2] == "COM" ? 0xFFF2 : 0;
    const uint64_t section = index_of(elf, symbol[2]);
    const bool is_wide = has_words && section >= 0xFF00;
    draft_section& table = section_of(elf, ".symtab");
    append_entry(table.content, elf.form, table.entsize,
                 {{field::st_name, name},
                  {field::st_info, bindings.find(symbol[1][0]) << 4 | types.find(symbol[1][1])},
                  {field::st_shndx, is_wide ? 0xFFFF : section + reserved},
                  {field::st_value, std::stoull(symbol[3])},
                  {field::st_size, std::stoull(symbol[4])},
                  {field::st_other, std::stoull(symbol[5])}});
    if (symbol[1][0] == 'l')
        table.info = "#" + std::to_string(table.content.size() / table.entsize);
    if (has_words)
        append_entry(section_of(elf, ".symtab_shndx").content, elf.form, 4,
                     {{field::word, is_wide ? section : 0}});
}

// The place of a name in strings that are given, or in those that grow.
uint64_t place_of(std::string& strings, const std::string& name, bool is_given) {
    if (is_given || name.empty())
        return strings.find(name + '\0');
    const size_t known = strings.find('\0' + name + '\0');
    if (known == std::string::npos)
        strings += name + '\0';
    return known == std::string::npos ? strings.size() - name.size() - 1 : known + 1;
}

// Makes these entries and strings the contents of the tables.
void fill_tables(elf_draft& elf, const std::string& entries, std::string given) {
    const elf_form& form = elf.form;
    for (draft_section& section : elf.sections)
        if (section.name.starts_with(".symtab") || section.name.starts_with(".rel"))
            section.content.clear();
    std::replace(given.begin(), given.end(), '^', '\0');
    const bool is_given = given.size() > 1; // "-" is the empty one
    std::string strings = is_given ? given + '\0' : std::string(1, '\0');
    words symbols;
    for (const words& entry : split_entries(entries)) {
        if (entry[0][0] != '@') {
            symbols.push_back(entry[0]);
            add_symbol(elf, entry, place_of(strings, entry[0], is_given));
            continue;
        }
        const uint64_t symbol =
            entry[3][0] == '#'
                ? index_of(elf, entry[3])
                : static_cast<uint64_t>(std::ranges::find(symbols, entry[3]) - symbols.begin());
        const std::string section = entry[0].substr(1);
        append_entry(section_of(elf, section).content, form, entry_size(form, section),
                     {{field::r_offset, std::stoull(entry[1])},
                      {field::r_info, (symbol << (form.is_64() ? 32 : 8)) + std::stoull(entry[2])},
                      {field::r_addend, std::stoull(entry[4])}}); // a REL entry has no room for it
    }
    strings.append(-strings.size() % form.word(), '\0');
    section_of(elf, ".strtab").content = given.empty() ? strings : is_given ? given : "";
}

// What is wrong with `after` as the result for these entries and strings.
std::string check_result(const elf_draft& before, const std::string& after,
                         const std::string& entries, const std::string& strings) {
    elf_draft expected = complete(before);
    const words names = section_names(after);
    std::erase_if(expected.sections, [&names](const draft_section& section) {
        return std::ranges::find(names, section.name) == names.end();
    });
    section_of(expected, ".symtab").entsize = entry_size(before.form, ".symtab");
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
    add_tables(draft);
    fill_tables(draft.elf, draft.entries, draft.strings);
    return build_elf(draft.elf);
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
            std::map<std::string, std::string> own = {{"?", form.name}, {"+names", ".shstrtab"}};
            std::vector<std::pair<std::string, std::string>> changes;
            std::string options;
            for (const std::string& word : split(columns[i])) {
                const size_t end = word.find('=');
                if (word[0] == '-')
                    options += word + " ";
                else if (word[0] == '#')
                    changes.emplace_back(word.substr(1, end - 1), word.substr(end + 1));
                else
                    own[word[0] == '?' ? "?" : word.substr(0, end)] = word.substr(end + 1);
            }
            if (!strstr(form.name, own["?"].c_str() + own["?"].starts_with('?')))
                continue;
            symbol_draft draft{columns[i + 1], own["+in"], 0, make(form)};
            draft.extra_entsize = std::stoull("0" + own["+wide"]);
            draft.elf.name_table = own["+names"];
            draft.elf.type = options.find("-stripreloc") != std::string::npos ? et::rel : et::exec;
            std::string file = build_symbols(draft), expected;
            for (const auto& [place, value] : changes) {
                const size_t colon = place.find(':');
                set_field(file, field_called(place.substr(colon + 1)),
                          std::stoull(value, nullptr, 0),
                          std::stoull("0" + place.substr(0, colon)));
            }
            const std::string before = file;
            std::string said = trim_file(options, file);
            for (const std::string& word : split(columns[i + 2]))
                expected += (expected.empty() ? "" : " ") + word;
            if (expected[0] == '!')
                said = said.empty() ? "!" : "! " + said;
            if (expected[0] == '!' && file != before)
                said += " (the file changed)";
            else if (expected == "~")
                expected.clear();
            else if (expected[0] != '!' && said.empty())
                expected = check_result(draft.elf, file, columns[i + 2], own["+out"]);
            EXPECT_EQ(said, expected) << form.name << ": " << columns[i] << columns[i + 1];
        }
    }
}
