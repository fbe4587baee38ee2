// What goes and what stays of an ELF file, where the rest lies afterwards, and how the result takes
// the place of the input.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "support/elf_builder.h"
#include "support/elf_reader.h"
#include "support/runner.h"

namespace {

// Runs quietly with the options on the file and checks every byte of the result.
void expect_removed(const std::string& file, const std::string& options,
                    const std::set<std::string>& removed, const run_limits& limits = {}) {
    work_place place;
    place.put("prog.elf", file);
    file_state before = place.state("prog.elf");
    run_result result = place.trim(options + " prog.elf", limits);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(place.list(), words{"prog.elf"});
    if (removed.empty())
        EXPECT_TRUE(place.state("prog.elf") == before);
    else
        EXPECT_EQ(check_stripped(file, place.get("prog.elf"), removed), "");
}

TEST(elfstrip, options_decide_which_sections_go) {
    const std::string lines = ".debug_line .rel.line";
    const std::string debug = ".debug_info .rela.debug_info .stab " + lines;
    const std::string tools = " .linfix .rominfo";
    const std::string all_but_strtab = "'' .comment .debug_types .foo.a .foo* .rel .rela.foo.b "
                                       ".reloc .empty .custom4 .custom5 .custom9 .rela.text " +
                                       debug + tools;
    const struct {
        const char* options;
        std::string removed;
    } cases[] = {
        {"", debug + tools + " .strtab"},
        {"-wildcards_in_secnames", debug + tools + " .strtab"},
        {"-stripreloc", debug + tools},
        {"-a", all_but_strtab + " .strtab"},
        {"-a -stripreloc", all_but_strtab},
        {"-x", debug},
        {"-s", debug + tools},
        {"--idll", debug + tools},
        {"-l", lines},
        {"--strip-orv-debug", tools},
        {"-l --strip-orv-debug -r=.comment", lines + tools + " .comment"},
        {"-r=.comment --remove-section=.stab", ".comment .stab"},
        {"-r=.data -r=.debug_frame -r=.shstrtab -r=.COMMENT -r=.commen -r=.rela.foo.b", ""},
        {"-r=.foo.b -r=oc -r=.text",
         ".rela.foo.b .reloc .rela.text"}, // relocation sections by what they apply to
        {"-r=", "'' .rel"},
        {"-r=.foo*", ".foo*"},
        {"-wildcards_in_secnames -r=.foo*", ".foo.a .foo* .rela.foo.b"},
        {"-r=*debug* -wildcards_in_secnames",
         ".debug_info .rela.debug_info .debug_line .debug_types"},
        {"-r=*o -wildcards_in_secnames", ".debug_info .rela.debug_info .rominfo"},
        {"-r= -r=.d*g_info -wildcards_in_secnames", "'' .rel"},
        {"-r=** -wildcards_in_secnames", all_but_strtab + " .strtab"},
    };
    for (const elf_form& form : elf_forms)
        for (const auto& [options, removed] : cases) {
            SCOPED_TRACE(form.name + std::string("; ") + options);
            expect_removed(build_elf(sample_draft(form, false)), options, split_set(removed));
        }
}

// Tables in front, between and behind, sections in either order, entries longer than they need be.
TEST(elfstrip, any_arrangement_is_laid_out_again) {
    for (unsigned i = 0; i < 4 * 3 * 3 * 2 * 2; ++i) {
        elf_draft draft = sample_draft(elf_forms[i % 4]);
        draft.program_table = static_cast<draft_place>(i / 4 % 3);
        draft.section_table = static_cast<draft_place>(i / 12 % 3);
        draft.reversed = i / 36 % 2 != 0;
        draft.extra_entsize = i / 72 != 0 ? 12 : 0;
        draft.type = draft.reversed ? et::dyn : et::exec;
        std::string file = build_elf(draft);
        set_field(file, field::e_flags, 0x12345678);
        SCOPED_TRACE(draft.form.name + (", arrangement " + std::to_string(i)));
        expect_removed(file, "", sample_removed);
    }
}

TEST(elfstrip, later_data_moves_down_by_the_size_rounded_down_to_the_word) {
    const struct {
        size_t form;
        uint64_t size, shift;
    } cases[] = {{1, 0x103, 0x100}, {0, 0x103, 0x100}, {1, 0x107, 0x104}, {2, 0x107, 0x100},
                 {3, 3, 0},         {0, 7, 0},         {0, 8, 8},         {3, 4, 4}};
    for (const auto& [form, size, shift] : cases) {
        elf_draft draft{.form = elf_forms[form]};
        draft.sections = {
            {.name = ".text", .flags = shf::alloc, .content = "code", .offset = 0x100},
            {.name = ".debug_info", .content = filler(size, 2), .offset = 0x140},
            {.name = ".comment", .content = "kept"}};
        std::string file = build_elf(draft);
        work_place place;
        place.put("prog.elf", file);
        EXPECT_EQ(place.trim("prog.elf").status, 0);
        std::string result = place.get("prog.elf");
        EXPECT_EQ(result.substr(0x100, 4), "code");
        EXPECT_EQ(result.substr(0x140 + size - shift, 4), "kept");
        EXPECT_EQ(result.size(), file.size() - shift - (draft.form.is_64() ? 64 : 40));
        EXPECT_EQ(get_field(result, field::sh_offset, 2), 0x140 + size - shift);
        EXPECT_EQ(get_field(result, field::e_shoff), get_field(file, field::e_shoff) - shift);
    }
}

TEST(elfstrip, links_follow_the_new_numbers) {
    work_place place;
    place.put("prog.elf", build_elf(sample_draft(elf_forms[0])));
    EXPECT_EQ(place.trim("prog.elf").status, 0);
    elf_view result = read_elf(place.get("prog.elf"));
    EXPECT_EQ(result.find(".rela.text").header[field::sh_link], 0u); // the symbol table is gone
    EXPECT_EQ(result.find(".rela.text").header[field::sh_info], 1u);
    EXPECT_EQ(result.find(".custom4").header[field::sh_link], result.index_of(".foo.a"));
    EXPECT_EQ(result.find(".custom9").header[field::sh_link], 0u);
    EXPECT_EQ(result.find(".custom9").header[field::sh_info], result.index_of(".debug_types"));
    EXPECT_EQ(result.find(".custom5").header[field::sh_info], 21u); // no relocations: as it was
}

// Removed sections that occupy nothing, and kept sections that share bytes.
TEST(elfstrip, data_that_is_nowhere_or_twice) {
    elf_draft draft;
    draft.sections = {{".text", sht::progbits, shf::alloc, filler(0x40, 1), 1, "", "", 0, 0, 0x100},
                      {".part", sht::progbits, shf::alloc, filler(0x10, 1), 1, "", "", 0, 0, 0x100},
                      {.name = ".debug_str", .type = sht::nobits, .nobits_size = 0x1000},
                      {.name = ".debug_loc", .offset = 0x120},
                      {.name = ".debug_info", .content = filler(0x31, 2), .offset = 0x140},
                      {.name = ".comment", .content = filler(0x31, 3)}};
    expect_removed(build_elf(draft), "", split_set(".debug_str .debug_loc .debug_info"));
}

TEST(elfstrip, extended_numbering_on_both_sides_of_its_limit) {
    const struct {
        size_t form, before, after;
        bool names_first;
    } cases[] = {{0, 70000, 69900, false}, {3, 70000, 69900, true},   {1, 70000, 0xFF00, false},
                 {0, 70000, 0xFF00, true}, {2, 70000, 0xFEFF, false}, {3, 0xFEFF, 9, true}};
    for (const auto& [form, before, after, names_first] : cases) {
        elf_draft draft{.form = elf_forms[form]};
        draft.sections.resize(before - 2, {.name = ".comment"}); // beside section 0 and the names
        for (size_t i = 0; i < before - after; ++i)
            draft.sections[7 * i % (before - 2)].name = ".debug_line";
        for (unsigned i : {100u, 101u, 5000u})
            draft.sections[i].content = filler(0x31, i);
        if (names_first)
            draft.sections.insert(draft.sections.begin(),
                                  {.name = ".shstrtab", .type = sht::strtab});
        std::string file = build_elf(draft);
        words all = read_elf(file).names();
        ASSERT_EQ(all.size() + 1, before);
        ASSERT_EQ(std::count(all.begin(), all.end(), ".debug_line"), before - after);
        SCOPED_TRACE(std::to_string(after) + " sections stay in " + draft.form.name);
        expect_removed(file, "", {".debug_line"});
    }
}

TEST(elfstrip, a_section_past_the_end_of_the_file_is_copied_as_far_as_it_goes) {
    elf_draft draft{.section_table = PLACE_FIRST};
    draft.sections = {{.name = ".debug_info", .content = filler(0x103, 1)},
                      {.name = ".shstrtab", .type = sht::strtab},
                      {.name = ".comment", .content = filler(0x40, 2)},
                      {.name = ".note", .content = filler(0x1000, 3)}};
    for (uint64_t missing : {0x800u, 0x1000u}) {
        std::string file = build_elf(draft);
        file.resize(file.size() - missing);
        work_place place;
        place.put("prog.elf", file);
        run_result result = place.trim("prog.elf");
        EXPECT_EQ(result.err, "objtrim: fatal: Error reading from 'prog.elf'\n");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(check_stripped(file, place.get("prog.elf"), {".debug_info"}), "");
        EXPECT_EQ(place.list(), words{"prog.elf"});
    }
}

TEST(elfstrip, memory_does_not_grow_with_section_data) {
    if (is_sanitized_build())
        GTEST_SKIP() << "an instrumented program takes more memory by itself";
    elf_draft draft = sample_draft(elf_forms[0]);
    draft.sections.insert(draft.sections.begin() + 5,
                          {".big", sht::progbits, shf::alloc, std::string(48u << 20, 'b'), 16});
    expect_removed(build_elf(draft), "", sample_removed, {.memory = 16u << 20});
}

TEST(elfstrip, vxworks_mode_patches_one_header_in_place) {
    for (const elf_form& form : elf_forms) {
        elf_draft draft = sample_draft(form);
        draft.sections.insert(draft.sections.begin() + 4,
                              {{.name = ".debug", .content = filler(0x51, 1)},
                               {.name = ".debug", .content = filler(0x52, 2)}});
        draft.extra_entsize = 4;
        std::string expected = build_elf(draft);
        work_place place;
        place.put("prog.elf", expected);
        ino_t inode = place.state("prog.elf").inode;
        EXPECT_EQ(place.trim("-vxworks prog.elf").err, "");
        set_field(expected, field::sh_size, 0, 5);
        EXPECT_TRUE(place.get("prog.elf") == expected) << form.name;
        EXPECT_EQ(place.state("prog.elf").inode, inode);
    }
}

// --- the output and its name -------------------------------------------------------------------

struct output_test : testing::Test {
    work_place place;
    std::string file = build_elf(sample_draft(elf_forms[0]));

    void SetUp() override { place.put("prog.elf", file, 0755); }
    // Runs quietly; `name` then holds the result.
    void trim(const std::string& line, const std::string& name) {
        SCOPED_TRACE(line);
        run_result result = place.trim(line);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(check_stripped(file, place.get(name), sample_removed), "");
    }
};

TEST_F(output_test, a_second_run_leaves_it_alone) {
    trim("prog.elf", "prog.elf");
    place.put("prog.elf", place.get("prog.elf")); // dated back
    file_state before = place.state("prog.elf");
    trim("prog.elf", "prog.elf");
    EXPECT_TRUE(place.state("prog.elf") == before);
}

TEST_F(output_test, goes_to_another_name_on_request) {
    file_state before = place.state("prog.elf");
    place.put("old", std::string(100000, 'x'));
    trim("-o=new prog.elf", "new");
    trim("-o=unused -o=old prog.elf", "old");
    EXPECT_TRUE(place.state("prog.elf") == before);
    EXPECT_EQ(place.list(), split("new old prog.elf"));
    place.put("other.elf", build_elf(sample_draft(elf_forms[3])));
    trim("-o=new other.elf prog.elf", "new"); // the last of them stays
}

TEST_F(output_test, a_name_of_the_input_means_the_input) {
    for (const char* name : {"prog.elf", "PROG.Elf", "./prog.elf", "hard", "soft"}) {
        work_place fresh;
        fresh.put("prog.elf", file);
        std::filesystem::create_hard_link(fresh.path("prog.elf"), fresh.path("hard"));
        std::filesystem::create_symlink("prog.elf", fresh.path("soft"));
        EXPECT_EQ(fresh.trim(std::string("-o=") + name + " prog.elf").status, 0);
        EXPECT_EQ(check_stripped(file, fresh.get("prog.elf"), sample_removed), "") << name;
        EXPECT_EQ(fresh.get("hard"), file) << name; // the other name keeps the old file
        EXPECT_EQ(fresh.list(), split("hard prog.elf soft"));
    }
}

TEST_F(output_test, an_operand_that_is_a_symbolic_link_stays_one) {
    place.put("sub/target.elf", file);
    std::filesystem::create_symlink("sub/target.elf", place.path("link"));
    trim("link", "sub/target.elf");
    EXPECT_TRUE(std::filesystem::is_symlink(place.path("link")));
    EXPECT_EQ(place.list("sub"), words{"target.elf"});
}

TEST_F(output_test, has_the_permission_mode_of_the_input) {
    for (mode_t mode : {0755u, 0640u, 04755u, 02711u, 0600u}) {
        place.put("prog.elf", file, mode);
        trim("prog.elf", "prog.elf");
        EXPECT_EQ(place.state("prog.elf").mode, mode) << std::oct << mode;
    }
}

TEST_F(output_test, is_made_in_the_directory_of_the_input) {
    place.put("sub/prog.elf", file);
    file_state here = place.state("");
    trim("sub/prog.elf", "sub/prog.elf");
    EXPECT_EQ(place.state("").modified, here.modified);
    EXPECT_EQ(place.list("sub"), words{"prog.elf"});
}

} // namespace
