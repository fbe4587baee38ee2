// Which symbols stay, how they and their strings are renumbered, and what ends the program.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "support/runner.h"
#include "support/symbol_builder.h"

namespace {

TEST(symbols, options_lists_and_removed_sections_decide) {
    for (const elf_form& form : elf_forms)
        check_strips({.elf = base_draft(form)}, R"(
-x -wl=x | '' lS .line; x gF .line; '' lS .text; src.c lf ABS; l lF .text 4 8; '' lN .data 3;
           main gF .text 16 8; buf gC COM 4 64; weak wO .data 8 1; undef gN ''; abs gN ABS 5 0 2
         | '' lS .text; src.c lf ABS; l lF .text 4 8; '' lN .data 3; main gF .text 16 8;
           buf gC COM 4 64; weak wO .data 8 1; undef gN ''; abs gN ABS 5 0 2 |

-s -wl=x | '' lS .line; x gF .line; '' wS .data 1; src.c lf ABS; l lF .text 4; main gF .text 16;
           buf gC COM; undef gN ''; abs gN ABS | '' wS .data 1 |

-s -wl=main -wl=*.c -wl=abs -wl=no | src.c lf ABS; c lf ABS; f lF .text; main gF .text 16; abs gN ABS
         | src.c lf ABS; main gF .text 16; abs gN ABS |

-l -r=.text | a gF .text; b gF .line; c gF .debug_info | a gF .text; c gF .debug_info |

-l -bl=ma* -wl=main | main gF .text; mangle gF .text; ma gF .text; m gF .text; '' gS .line;
           '' gS .text | main gF .text; m gF .text; '' gS .text |

-r=.none --strip-symbol=*x -bl=*y* -bl=z*z -bl= --keep-symbol=y | x gN ABS; ax gN ABS; xa gN ABS;
           aya gN ABS; y gN ABS; z*z gN ABS; zaz gN ABS; X gN ABS; '' gN ABS; '' gS .text
         | xa gN ABS; y gN ABS; zaz gN ABS; X gN ABS; '' gS .text |

-r=.none -bl=* -wl=b | a gF .text; b gF .text; src.c lf ABS; '' lS .data | b gF .text; '' lS .data |

--strip-orv-debug | a..b lO .text; .. lO .data; a.b gO .text; ..x gF .text; x.. lN ABS | a.b gO .text |

--idll | _init gF .text; _fini gF .text; _ctors gO .data; __call_dtors__Fv gF .text; _init2 gF .text;
         ..orv.intsharedlib7 gO .data; ..orv.intshared gO .data
       | _init gF .text; _fini gF .text; _ctors gO .data; __call_dtors__Fv gF .text;
         ..orv.intsharedlib7 gO .data |

-r=.none -bl=none | a lF .text; b gF .line; @.rela.text 1 1 b | untouched |
-r=.none -bl=a -wl=** | a lF .text; b gF .line | untouched |
-r=.none -stripreloc | a lF .text; b gF .line | untouched |
-stripreloc | a lF .text; b gF .line; @.rela.text 1 1 a | a lF .text; @.rela.text 1 1 a |)");
}

TEST(symbols, strings_are_moved_whole_in_the_order_of_first_use) {
    const struct {
        std::string strings, entries, expected_entries, expected; // less the padding
    } cases[] = {
        {"|one|two|gone|three|", "three gN ABS; gone gN ABS; one gN ABS; two gN ABS; three gO ABS",
         "three gN ABS; one gN ABS; two gN ABS; three gO ABS", "|three|one|two|"},
        {"|gone|foobar|", "bar gN ABS; gone gN ABS; foobar gN ABS; r gN ABS",
         "bar gN ABS; foobar gN ABS; r gN ABS", "|foobar|"},
        {"head|gone|x|y|unused|", "y gN ABS; gone gN ABS; d gN ABS; x gN .line",
         "y gN ABS; d gN ABS; x gN .line", "head|y|x|"},
        {"|gone|main", "gone gN ABS; main gN ABS", "main gN ABS", "|main|"},
        {"|12345|gone|", "gone gN ABS; 12345 gN ABS", "12345 gN ABS", "|12345|"},
    };
    for (const auto& [strings, entries, expected_entries, expected] : cases)
        for (const elf_form& form : elf_forms)
            EXPECT_EQ(strip_symbols("-r=.none -bl=gone",
                                    {entries, strings, {}, 0, base_draft(form)}, expected_entries,
                                    expected + std::string(-expected.size() % form.word(), '|')),
                      "")
                << form.name << strings;
}

// More than one block of text, and a text larger than a block.
TEST(symbols, strings_of_any_length_are_written_in_order) {
    std::string entries, kept, strings = "|", expected = "|";
    for (const size_t length : {100'000, 200'000, 300'000}) {
        const std::string name(length, static_cast<char>('a' + length / 100'000));
        entries += name + " gN ABS; gone gN ABS; ";
        kept += name + " gN ABS; ";
        strings += name + "|gone|";
        expected += name + "|";
    }
    entries += "last gN ABS";
    kept += "last gN ABS";
    strings += "last|";
    expected += "last|";
    expected.resize((expected.size() + 7) / 8 * 8, '|');
    EXPECT_EQ(strip_symbols("-x -bl=gone", {entries, strings}, kept, expected), "");
}

TEST(symbols, an_empty_string_table_holds_the_empty_name) {
    for (const elf_form& form : elf_forms) {
        symbol_draft draft{.entries = "'' lN .line; '' lN .text; '' gN .data",
                           .changes = {{".strtab", field::sh_size, 0}},
                           .elf = base_draft(form)};
        work_place place;
        place.put("f", build_symbols(draft));
        const size_t size = section_content(place.get("f"), ".symtab").size();
        EXPECT_EQ(place.trim("-x -bl=a -wl=b* f").err, "");
        EXPECT_EQ(section_content(place.get("f"), ".symtab").size(), size / 4 * 3);
        EXPECT_EQ(section_content(place.get("f"), ".strtab"), "");
    }
}

TEST(symbols, section_names_that_share_their_strings_move_along) {
    for (const elf_form& form : elf_forms) {
        symbol_draft draft{".text lS .text; gone lN .line; .data gS .data; main gF .text",
                           "|.text|gone|.data|main|",
                           {},
                           0,
                           base_draft(form)};
        draft.elf.name_table = ".strtab";
        draft.elf.sections.push_back({.name = "", .content = "x"});
        EXPECT_EQ(strip_symbols("-stripreloc", draft,
                                ".text lS .text; .data gS .data; main gF .text",
                                "|.text|.data|main|"),
                  "");
    }
}

TEST(symbols, entries_of_other_sizes_become_standard) {
    for (const elf_form& form : elf_forms)
        for (uint64_t extra : {0u, 4u, 40u}) {
            symbol_draft draft{.extra_entsize = extra, .elf = base_draft(form)};
            if (extra == 0)
                draft.changes = {{".symtab", field::sh_entsize, 0}};
            check_strips(draft,
                         "-x | a lF .text 1 2 3; b gF .data 4 | a lF .text 1 2 3; b gF .data 4 |");
        }
}

TEST(symbols, assertions_end_the_program) {
    const std::string secrel = "-s --convert-to-secrel-reloc ";
    const std::string function = "T lS .text; f gF .text 4; @.rel.text 4 1 f";
    const struct {
        int line;
        std::string expression, options;
        symbol_draft draft;
        bool shared_names = false;
    } cases[] = {
        {867, "sym < symcnt", secrel, {"f gF .text; @.rel.text 4 1 #2"}},
        {880, "sym < symcnt", secrel, {"f gF .text; @.rela.text 4 1 #2"}},
        {911,
         "newstrsize + len <= sechead[stridx].sh_size",
         "-stripreloc -r=.none",
         {".text lS .text; @.rela.text 1 1 .text", "|.rela.text|"},
         true},
        {939, "newsymbols != ((void *)0)", "-x", {"", "", {{".symtab", field::sh_size, 0}}}},
        {991, "newstrsize <= sechead[idx].sh_size", "-x", {"main gF .text", "|main|"}},
        {1032, "elfhead->e_type != 1", "-stripreloc -X2 " + secrel, {function}},
        {1439, "sym->st_shndx < elfhead->e_shnum", "-x", {"bad lS ABS"}},
        {1532, "curr_off + len <= strsize", "-x", {"main gF .text", "|main"}},
        {1550, "strcmp(shstrtabname, name) == 0", "-stripreloc", {"'' lS .text"}, true},
        {1612, "elfhead->e_type != 1", "-stripreloc " + secrel, {function}},
    };
    for (const auto& [line, expression, options, draft, shared_names] : cases)
        for (const elf_form& form : elf_forms) {
            symbol_draft changed = draft;
            changed.elf = base_draft(form);
            changed.elf.type = options.find("-stripreloc") == 0 ? et::rel : et::exec;
            changed.elf.name_table = shared_names ? ".strtab" : ".shstrtab";
            EXPECT_EQ(strip_symbols(options, changed),
                      (line > 911 && line < 1100 ? "(left) Assertion (" : "Assertion (") +
                          expression + ") failed in 'src/util/elfstrip' on line " +
                          std::to_string(line) + " in objtrim")
                << form.name;
        }
}

TEST(symbols, damage_is_refused) {
    const header_change changes[] = {
        {".symtab", field::sh_link, 0},
        {".symtab", field::sh_link, 99},
        {".symtab", field::sh_entsize, 1},
        {".symtab", field::sh_entsize, 15},
        {".symtab", field::sh_size, UINT64_MAX},
        {".symtab", field::sh_offset, 0x100000},
        {".strtab", field::sh_size, 1},       // the name of f is outside
        {".symtab_shndx", field::sh_size, 4}, // too short for f
        {".symtab_shndx", field::sh_size, UINT64_MAX},
        {".rela.text", field::sh_entsize, 20},
        {".rela.text", field::sh_size, 0x100000},
        {".rela.text", field::sh_offset, UINT64_MAX},
        {".rela.text", field::sh_size, 0x60}, // its last entries name no symbol
    };
    for (const elf_form& form : elf_forms)
        for (const header_change& change : changes) {
            symbol_draft draft{"f gF #65535; @.rela.text 1 1 f", "", {change}, 0, base_draft(form)};
            draft.elf.sections.push_back(
                {".symtab_shndx", sht::shndx, 0, std::string(8, '\1'), 4, ".symtab"});
            const std::string said = strip_symbols("-x", draft);
            EXPECT_EQ(said.rfind("objtrim: error: file 'f' is damaged: ", 0), 0u)
                << form.name << change.section << change.value;
            EXPECT_EQ(said.find('\n'), std::string::npos);
        }
    EXPECT_EQ(strip_symbols("-x", {"f gF #65535"}),
              "objtrim: fatal: symbol requires SYMTAB_SHNDX mapping");
}

// In a file that is large enough to hold them.
TEST(symbols, more_entries_than_can_be_numbered_are_refused) {
    constexpr uint64_t begin = 1 << 20, size = 24 * uint64_t{UINT32_MAX};
    symbol_draft draft{
        .entries = "a lF .text",
        .changes = {{".symtab", field::sh_offset, begin}, {".symtab", field::sh_size, size}}};
    work_place place;
    place.put("f", build_symbols(draft));
    std::error_code failed;
    if (host_has_limits)
        std::filesystem::resize_file(place.path("f"), begin + size, failed);
    if (!host_has_limits || failed)
        GTEST_SKIP() << "this host has no files with holes of that size";
    EXPECT_NE(place.trim("-x f").err.find("more entries than the 4294967294"), std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(place.path("f")), begin + size);
}

// So many sections stay, with those that are added, beside 100 that go; all of these come first.
elf_draft big_draft(const elf_form& form, size_t kept) {
    elf_draft elf{.form = form, .sections = std::vector<draft_section>(kept + 94)};
    std::fill_n(elf.sections.begin(), 100, draft_section{.name = ".line", .content = "line"});
    return elf;
}

TEST(symbols, numbers_above_the_reserved_ones) {
    const std::string entries =
        "a gO #101; b gO #65300; x gO #7; c gO .symtab_shndx; d gO .strtab; @.rela.text 1 1 d";
    for (const elf_form& form : {elf_forms[0], elf_forms[3]})
        for (size_t kept : {65281u, 65282u, 70000u})
            EXPECT_EQ(strip_symbols("-l", {entries, "", {}, 0, big_draft(form, kept)},
                                    std::string("a gO #1; b gO #65200; ") +
                                        (kept == 65281 ? "" : "c gO .symtab_shndx; ") +
                                        "d gO .strtab; @.rela.text 1 1 d"),
                      "")
                << form.name << kept;
    symbol_draft draft{entries,
                       "",
                       {{".symtab_shndx", field::sh_name, 1}},
                       0,
                       big_draft(elf_forms[1], 65400)}; // a .line, too
    EXPECT_EQ(strip_symbols("-l", draft),
              "(left) objtrim: fatal: symbol requires SYMTAB_SHNDX section");
}

} // namespace
