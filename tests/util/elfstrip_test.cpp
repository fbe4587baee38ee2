// What goes and what stays of an ELF file, and where the rest lies afterwards.
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <regex>

#include "support/symbol_builder.h"
#include "support/table.h"

namespace {

TEST(elfstrip, options_decide_which_sections_go) {
    std::string rows = R"(
> -wildcards_in_secnames | TOOLS DEBUG .strtab > -r= -r=.foo* | '' .rel .foo*
> -a -stripreloc | ALL > -r=** -wildcards_in_secnames | ALL .strtab
> --strip-orv-debug --remove-section=.stab | TOOLS .stab
> -r=.data -r=.debug_frame -r=.shstrtab -r=.COMMENT -r=.commen -r=.rela.foo.b |
> -r=.foo.b -r=oc -r=.text | .rela.foo.b .reloc .rela.text
> -r=.f* -r=*o -wildcards_in_secnames
| .foo.a .foo* .rela.foo.b .debug_info .rela.debug_info .rominfo
> -r=*debug* -r=.c*t -wildcards_in_secnames
| .debug_info .rela.debug_info .debug_line .debug_types)";
    for (const auto& [list, names] :
         {std::pair("ALL", "TOOLS DEBUG '' .comment .debug_types .foo.a .foo* .rel .rela.foo.b "
                           ".reloc .empty .custom4 .custom9 .rela.text"),
          {"DEBUG", ".debug_info .rela.debug_info .stab .debug_line .rel.line"},
          {"TOOLS", ".linfix .rominfo"}})
        rows = std::regex_replace(rows, std::regex(list), names);
    for (const elf_form& form : elf_forms)
        for (const words& row : rows_of(rows))
            EXPECT_EQ(trim_draft(row[0], sample_draft(form, false), split_set(row[1])), "")
                << form.name << " " << row[0];
}

// Each with its relocations; one letter more or less makes another name.
TEST(elfstrip, names_that_go_by_default) {
    std::map<std::string, std::string> lists = {{"symbols", ".symtab .strtab"},
                                                {"tools", ".linfix .rominfo"},
                                                {"lines", ".line .debug_line"}};
    lists["debug"] = ".debug .debug_info .debug_abbrev .debug_macinfo .debug_frame .debug_aranges "
                     ".debug_ranges .debug_pubnames .debug_loc .debug_str .debug_sfnames .stab "
                     ".debug_srcinfo .stabstr .stab.index .stab.indexstr .debug_control_flow";
    elf_draft draft;
    std::set<std::string> all;
    for (const auto& [list, names] : lists)
        for (const std::string& name : split(names))
            for (const std::string& known : {name, name + "s", name.substr(0, name.size() - 1)})
                for (const char* prefix : {"", ".rel", ".rela"})
                    if (all.insert(prefix + known).second)
                        draft.sections.push_back({.name = prefix + known, .content = filler(9, 1)});
    for (const words& row : rows_of(R"(
> | symbols tools lines debug > -stripreloc | tools lines debug > -x | lines debug > -l | lines
> -s | tools lines debug > --idll | tools lines debug > --strip-orv-debug | tools > -r=.none |
> -x --strip-orv-debug | tools lines debug)")) {
        std::set<std::string> removed;
        for (const std::string& list : split(row[1]))
            for (const std::string& name : split(lists[list]))
                removed.insert({name, ".rel" + name, ".rela" + name});
        EXPECT_EQ(trim_draft(row[0], draft, removed), "") << row[0];
    }
    EXPECT_EQ(trim_draft("-a", draft, all), "");
}

// Tables in front, between and behind, sections in any order, entries longer than they need be.
TEST(elfstrip, any_arrangement_is_laid_out_again) {
    std::string order = "12PS";
    do {
        for (const elf_form& form : elf_forms) {
            elf_draft draft = sample_draft(form);
            draft.order = order;
            draft.extra_entsize = order < "2" ? 12 : 0;
            draft.type = order < "P" ? et::exec : et::dyn;
            EXPECT_EQ(trim_draft("", draft, sample_removed), "") << form.name << " " << order;
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(elfstrip, extended_numbering_on_both_sides_of_its_limit) {
    for (const auto& [form, before, after] :
         {std::array<size_t, 3>{1, 70000, 0xFF00}, {2, 70000, 0xFEFF}, {3, 0xFEFF, 9}}) {
        elf_draft draft{.form = elf_forms[form]};
        draft.sections.resize(before - 2, {.name = ".comment"}); // beside section 0 and the names
        for (size_t i = 0; i < before - after; ++i)
            draft.sections[7 * i % (before - 2)] = {.name = ".debug_line", .content = "x"};
        draft.sections.back().content = filler(600'001, 1); // more than one block
        if (form == 1)
            draft.sections.insert(draft.sections.begin(),
                                  {.name = ".shstrtab", .type = sht::strtab});
        EXPECT_EQ(trim_draft("", draft, {".debug_line"}), "") << before << " to " << after;
    }
}

TEST(elfstrip, vxworks_mode_patches_one_header_in_place) {
    for (const elf_form& form : elf_forms) {
        elf_draft draft = sample_draft(form);
        draft.sections[5].name = draft.sections[7].name = ".debug";
        draft.extra_entsize = 4;
        std::string expected = build_elf(draft);
        work_place place;
        place.put("f", expected);
        const uint64_t inode = place.state("f").inode;
        EXPECT_EQ(place.trim("-vxworks -o=g f").err, "") << form.name;
        set_field(expected, field::sh_size, 0, 6);
        EXPECT_EQ(difference(place.get("f"), expected), "") << form.name;
        EXPECT_TRUE(place.state("f").inode == inode && place.list() == words{"f"}) << form.name;
    }
}

} // namespace
