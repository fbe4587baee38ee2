// What goes and what stays of an ELF file, where the rest lies afterwards, and how the result takes
// the place of the input.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>

#include "support/symbol_builder.h"

namespace {

TEST(elfstrip, options_decide_which_sections_go) {
    const std::string lines = ".debug_line .rel.line ", tools = ".linfix .rominfo ";
    const std::string debug = ".debug_info .rela.debug_info .stab " + lines;
    const std::string unallocated = debug + tools +
                                    "'' .comment .debug_types .foo.a .foo* .rel .rela.foo.b .reloc "
                                    ".empty .custom4 .custom5 .custom9 .rela.text ";
    const std::pair<const char*, std::string> cases[] = {
        {"-wildcards_in_secnames", debug + tools + ".strtab"},
        {"-a -stripreloc", unallocated},
        {"--strip-orv-debug --remove-section=.stab", tools + ".stab"},
        {"-r=.data -r=.debug_frame -r=.shstrtab -r=.COMMENT -r=.commen -r=.rela.foo.b", ""},
        {"-r=.foo.b -r=oc -r=.text", ".rela.foo.b .reloc .rela.text"}, // by what they apply to
        {"-r= -r=.foo*", "'' .rel .foo*"},
        {"-r=.f* -r=*o -wildcards_in_secnames",
         ".foo.a .foo* .rela.foo.b .debug_info .rela.debug_info .rominfo"},
        {"-r=*debug* -r=.c*t -wildcards_in_secnames",
         ".debug_info .rela.debug_info .debug_line .debug_types"},
        {"-r=** -wildcards_in_secnames", unallocated + ".strtab"},
    };
    for (const elf_form& form : elf_forms)
        for (const auto& [options, removed] : cases)
            EXPECT_EQ(trim_draft(options, sample_draft(form, false), split_set(removed)), "")
                << form.name << " " << options;
}

// Each with its relocations; one letter more or less makes another name.
TEST(elfstrip, names_that_go_by_default) {
    const std::string symbols = ".symtab .strtab ", tools = ".linfix .rominfo ",
                      lines = ".line .debug_line ",
                      debug = ".debug .debug_info .debug_abbrev .debug_macinfo .debug_frame "
                              ".debug_aranges .debug_ranges .debug_pubnames .debug_loc .debug_str "
                              ".debug_sfnames .debug_srcinfo .stab .stabstr .stab.index "
                              ".stab.indexstr .debug_control_flow ";
    elf_draft draft;
    std::set<std::string> all;
    for (const std::string& name : split(symbols + tools + lines + debug))
        for (const std::string& known : {name, name + "s", name.substr(0, name.size() - 1)})
            for (const char* prefix : {"", ".rel", ".rela"})
                if (all.insert(prefix + known).second)
                    draft.sections.push_back({.name = prefix + known, .content = filler(9, 1)});
    const std::pair<const char*, std::string> modes[] = {
        {"", symbols + tools + lines + debug},
        {"-stripreloc", tools + lines + debug},
        {"-x", lines + debug},
        {"-s", tools + lines + debug},
        {"--idll", tools + lines + debug},
        {"-l", lines},
        {"--strip-orv-debug", tools},
        {"-x --strip-orv-debug", tools + lines + debug},
        {"-r=.none", ""}};
    for (const auto& [options, names] : modes) {
        std::set<std::string> removed;
        for (const std::string& name : split(names))
            removed.insert({name, ".rel" + name, ".rela" + name});
        EXPECT_EQ(trim_draft(options, draft, removed), "") << options;
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

// Sections that share bytes, removed ones that occupy nothing, and sizes for each way of copying;
// one is larger than the memory that there is.
TEST(elfstrip, data_of_any_size_nowhere_or_twice) {
    elf_draft draft{.form = elf_forms[1]};
    draft.sections = {{".text", sht::progbits, shf::alloc, filler(0x40, 1), 1, "", "", 0, 0, 0x100},
                      {".part", sht::progbits, shf::alloc, filler(0x10, 1), 1, "", "", 0, 0, 0x100},
                      {.name = ".debug_str", .type = sht::nobits, .content = filler(0x1000, 1)},
                      {.name = ".stab", .offset = 0x120},
                      {.name = ".debug_info", .content = filler(0x107, 2), .offset = 0x140},
                      {.name = ".comment", .content = "kept"}}; // 0x107 less 0x104 further on
    for (const size_t size : {9, 65536, 65537, 5, 300000, 1, 65530, 8, 262144, 262136, 4})
        for (const char* name : {".comment", ".comment", ".debug_loc"})
            draft.sections.push_back({.name = name,
                                      .content = filler(size, draft.sections.size()),
                                      .gap = draft.sections.size() % 5});
    draft.sections.push_back({.name = ".comment", .content = filler(48 << 20, 1)});
    const bool is_limited = host_has_limits && !is_sanitized_build();
    EXPECT_EQ(trim_draft("", draft, split_set(".debug_str .stab .debug_info .debug_loc"),
                         {.memory = is_limited ? 16u << 20 : 0u}),
              "");
}

TEST(elfstrip, extended_numbering_on_both_sides_of_its_limit) {
    for (const auto& [form, before, after] :
         {std::array<size_t, 3>{1, 70000, 0xFF00}, {2, 70000, 0xFEFF}, {3, 0xFEFF, 9}}) {
        elf_draft draft{.form = elf_forms[form]};
        draft.sections.resize(before - 2, {.name = ".comment"}); // beside section 0 and the names
        for (size_t i = 0; i < before - after; ++i)
            draft.sections[7 * i % (before - 2)] = {.name = ".debug_line", .content = "x"};
        if (form == 1)
            draft.sections.insert(draft.sections.begin(),
                                  {.name = ".shstrtab", .type = sht::strtab});
        EXPECT_EQ(trim_draft("", draft, {".debug_line"}), "") << before << " to " << after;
    }
}

TEST(elfstrip, a_section_past_the_end_of_the_file_is_copied_as_far_as_it_goes) {
    const elf_draft draft{.sections = {{.name = ".debug_info", .content = filler(0x103, 1)},
                                       {.name = ".shstrtab", .type = sht::strtab},
                                       {.name = ".note", .content = filler(0x1000, 3)}},
                          .order = "PS12"};
    const std::string whole = build_elf(draft), expected = build_stripped(draft, {".debug_info"});
    for (const size_t missing : {0x1u, 0x800u, 0x1000u}) {
        std::string file = whole.substr(0, whole.size() - missing);
        EXPECT_EQ(trim_file("", file), "objtrim: fatal: Error reading from 'f'") << missing;
        EXPECT_EQ(difference(file, expected.substr(0, expected.size() - missing)), "") << missing;
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

// Links stay: symbolic ones as such, hard ones with the old bytes. Only the input's directory is
// used.
TEST(elfstrip, the_result_takes_the_place_of_the_input_by_whatever_name) {
    const std::string file = build_elf(sample_draft(elf_forms[0]));
    const std::string stripped = build_stripped(sample_draft(elf_forms[0]), sample_removed);
    for (const char* line : {"-o=sub/PROG sub/prog", "-o=sub/./prog sub/prog", "-o=hard sub/prog",
                             "-o=soft sub/prog", "soft", "-o=unused -o=old sub/prog"}) {
        work_place place;
        place.put("sub/prog", file);
        place.put("old", std::string(100000, 'x'));
        std::filesystem::create_hard_link(place.path("sub/prog"), place.path("hard"));
        const bool linked = make_link("sub/prog", place.path("soft"));
        if (!linked && strstr(line, "soft"))
            continue;
        const bool is_other = strstr(line, "old");
        const file_state here = place.state("");
        EXPECT_EQ(place.trim(line).err, "") << line;
        EXPECT_EQ(difference(place.get(is_other ? "old" : "sub/prog"), stripped), "") << line;
        EXPECT_EQ(difference(place.get(is_other ? "sub/prog" : "hard"), file), "") << line;
        EXPECT_EQ(std::filesystem::is_symlink(place.path("soft")), linked) << line;
        EXPECT_TRUE(place.state("") == here && place.list("sub") == words{"prog"}) << line;
    }
}

} // namespace
