// What goes and what stays of an ELF file, where the rest lies afterwards, and how the result takes
// the place of the input.
#include <filesystem>
#include <gtest/gtest.h>

#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

// Runs quietly with the options on the file and checks every byte of the result.
void expect_removed(const elf_draft& draft, const std::string& options,
                    const std::set<std::string>& removed, const run_limits& limits = {}) {
    work_place place;
    place.put("prog.elf", build_elf(draft), 02711);
    const file_state before = place.state("prog.elf");
    const run_result result = place.trim(options + " prog.elf", limits);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(place.list(), words{"prog.elf"});
    EXPECT_EQ(place.state("prog.elf") == before, removed.empty());
    EXPECT_EQ(place.state("prog.elf").mode, before.mode);
    if (!removed.empty())
        EXPECT_EQ(difference(place.get("prog.elf"), build_stripped(draft, removed)), "");
}

TEST(elfstrip, options_decide_which_sections_go) {
    const std::string lines = ".debug_line .rel.line ", tools = ".linfix .rominfo ";
    const std::string debug = ".debug_info .rela.debug_info .stab " + lines;
    const std::string unallocated = debug + tools +
                                    "'' .comment .debug_types .foo.a .foo* .rel .rela.foo.b .reloc "
                                    ".empty .custom4 .custom5 .custom9 .rela.text ";
    const std::pair<const char*, std::string> cases[] = {
        {"-wildcards_in_secnames", debug + tools + ".strtab"},
        {"-stripreloc", debug + tools},
        {"-a", unallocated + ".strtab"},
        {"-a -stripreloc", unallocated},
        {"-x", debug},
        {"-s", debug + tools},
        {"-l", lines},
        {"--strip-orv-debug --remove-section=.stab", tools + ".stab"},
        {"-r=.data -r=.debug_frame -r=.shstrtab -r=.COMMENT -r=.commen -r=.rela.foo.b", ""},
        {"-r=.foo.b -r=oc -r=.text", ".rela.foo.b .reloc .rela.text"}, // by what they apply to
        {"-r= -r=.foo*", "'' .rel .foo*"},
        {"-r=.f* -r=*o -wildcards_in_secnames", ".foo.a .foo* .rela.foo.b .debug_info "
                                                ".rela.debug_info .rominfo"},
        {"-r=*debug* -r=.c*t -wildcards_in_secnames", ".debug_info .rela.debug_info .debug_line "
                                                      ".debug_types"},
        {"-r=** -wildcards_in_secnames", unallocated + ".strtab"},
    };
    for (const elf_form& form : elf_forms)
        for (const auto& [options, removed] : cases) {
            SCOPED_TRACE(form.name + std::string("; ") + options);
            expect_removed(sample_draft(form, false), options, split_set(removed));
        }
}

// Tables in front, between and behind, sections in any order, entries longer than they need be.
TEST(elfstrip, any_arrangement_is_laid_out_again) {
    std::string order = "12PS";
    do {
        for (size_t i = 0; i < elf_forms.size(); ++i) {
            elf_draft draft = sample_draft(elf_forms[i]);
            draft.order = order;
            draft.extra_entsize = order < "2" ? 12 : 0;
            draft.type = order < "P" ? et::exec : et::dyn;
            SCOPED_TRACE(draft.form.name + (", " + order));
            expect_removed(draft, "", sample_removed);
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

// Removed sections that occupy nothing, and kept sections that share bytes.
TEST(elfstrip, data_that_is_nowhere_or_twice) {
    elf_draft draft{.form = elf_forms[1]};
    draft.sections = {{".text", sht::progbits, shf::alloc, filler(0x40, 1), 1, "", "", 0, 0, 0x100},
                      {".part", sht::progbits, shf::alloc, filler(0x10, 1), 1, "", "", 0, 0, 0x100},
                      {.name = ".debug_str", .type = sht::nobits, .content = filler(0x1000, 1)},
                      {.name = ".debug_loc", .offset = 0x120},
                      {.name = ".debug_info", .content = filler(0x107, 2), .offset = 0x140},
                      {.name = ".comment", .content = "kept"}};
    expect_removed(draft, "", split_set(".debug_str .debug_loc .debug_info"));
    work_place place;
    place.put("prog.elf", build_elf(draft));
    place.trim("prog.elf");
    EXPECT_EQ(place.get("prog.elf").substr(0x140 + 3, 4), "kept"); // 0x107 less 0x104
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
        SCOPED_TRACE(after);
        expect_removed(draft, "", {".debug_line"});
    }
}

TEST(elfstrip, a_section_past_the_end_of_the_file_is_copied_as_far_as_it_goes) {
    elf_draft draft{.order = "PS12"};
    draft.sections = {{.name = ".debug_info", .content = filler(0x103, 1)},
                      {.name = ".shstrtab", .type = sht::strtab},
                      {.name = ".note", .content = filler(0x1000, 3)}};
    std::string expected = build_stripped(draft, {".debug_info"});
    for (uint64_t missing : {0x800u, 0x1000u}) {
        work_place place;
        const std::string file = build_elf(draft);
        place.put("prog.elf", file.substr(0, file.size() - missing));
        EXPECT_EQ(place.trim("prog.elf").err, "objtrim: fatal: Error reading from 'prog.elf'\n");
        EXPECT_EQ(difference(place.get("prog.elf"), expected.substr(0, expected.size() - missing)),
                  "");
    }
}

TEST(elfstrip, memory_does_not_grow_with_section_data) {
    if (!host_has_limits)
        GTEST_SKIP() << "the host does not limit a program's memory";
    if (is_sanitized_build())
        GTEST_SKIP() << "an instrumented program takes more memory by itself";
    elf_draft draft = sample_draft(elf_forms[0]);
    draft.sections.push_back({".big", sht::progbits, shf::alloc, std::string(48u << 20, 'b'), 16});
    expect_removed(draft, "", sample_removed, {.memory = 16u << 20});
}

TEST(elfstrip, vxworks_mode_patches_one_header_in_place) {
    for (const elf_form& form : elf_forms) {
        elf_draft draft = sample_draft(form);
        draft.sections[5].name = draft.sections[7].name = ".debug";
        draft.extra_entsize = 4;
        std::string expected = build_elf(draft);
        work_place place;
        place.put("prog.elf", expected);
        const uint64_t inode = place.state("prog.elf").inode;
        EXPECT_EQ(place.trim("-vxworks prog.elf").err, "");
        set_field(expected, field::sh_size, 0, 6);
        EXPECT_TRUE(place.get("prog.elf") == expected) << form.name;
        EXPECT_EQ(place.state("prog.elf").inode, inode);
    }
}

struct output : testing::Test {
    const std::string file = build_elf(sample_draft(elf_forms[0]));
    const std::string stripped = build_stripped(sample_draft(elf_forms[0]), sample_removed);
    work_place place;

    void SetUp() override { place.put("prog.elf", file); }
    // Runs quietly; `name` then holds the result.
    void trim(const std::string& line, const std::string& name) {
        EXPECT_EQ(place.trim(line).err, "");
        EXPECT_EQ(difference(place.get(name), stripped), "") << line;
    }
};

TEST_F(output, goes_to_another_name_on_request) {
    const file_state before = place.state("prog.elf");
    place.put("old", std::string(100000, 'x'));
    place.put("other", build_elf(sample_draft(elf_forms[3])));
    trim("-o=unused -o=old prog.elf", "old");
    trim("-o=new other prog.elf", "new"); // the last of them stays
    EXPECT_TRUE(place.state("prog.elf") == before);
    EXPECT_EQ(place.list(), split("new old other prog.elf"));
}

// Links stay: symbolic ones as such, hard ones with the old bytes. Only the input's directory is
// used.
TEST_F(output, takes_the_place_of_the_input_by_whatever_name) {
    for (const char* line : {"-o=sub/PROG sub/prog", "-o=sub/./prog sub/prog", "-o=hard sub/prog",
                             "-o=soft sub/prog", "soft"}) {
        work_place fresh;
        fresh.put("sub/prog", file);
        std::filesystem::create_hard_link(fresh.path("sub/prog"), fresh.path("hard"));
        const bool linked = make_link("sub/prog", fresh.path("soft"));
        if (!linked && std::string(line).find("soft") != std::string::npos)
            continue;
        const file_state here = fresh.state("");
        EXPECT_EQ(fresh.trim(line).err, "");
        EXPECT_EQ(difference(fresh.get("sub/prog"), stripped), "") << line;
        EXPECT_EQ(fresh.get("hard"), file) << line;
        EXPECT_EQ(std::filesystem::is_symlink(fresh.path("soft")), linked);
        EXPECT_TRUE(fresh.state("") == here) << line;
        EXPECT_EQ(fresh.list("sub"), words{"prog"});
    }
}

} // namespace
