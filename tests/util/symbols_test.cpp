// Which symbols stay, how they and their strings are renumbered, and what ends the program.
#include <algorithm>
#include <gtest/gtest.h>
#include <regex>

#include "support/symbol_builder.h"

namespace {

TEST(symbols, options_lists_and_removed_sections_decide) {
    check_strips(R"(
-x -wl=x | '' lS .line; x gF .line; '' lS .text; src.c lf ABS; l lF .text 4 8; '' lN .data 3;
           main gF .text 16 8; buf gC COM 4 64; weak wO .data 8 1; undef gN ''; abs gN ABS 5 0 2
         | '' lS .text; src.c lf ABS; l lF .text 4 8; '' lN .data 3; main gF .text 16 8;
           buf gC COM 4 64; weak wO .data 8 1; undef gN ''; abs gN ABS 5 0 2 |
-s -wl=x | '' lS .line; x gF .line; '' wS .data 1; src.c lf ABS; l lF .text 4; main gF .text 16;
           buf gC COM; undef gN ''; abs gN ABS | '' wS .data 1 |
-s -wl=main -wl=*.c -wl=abs -wl=no | src.c lf ABS; c lf ABS; f lF .text; main gF .text 16;
           abs gN ABS | src.c lf ABS; main gF .text 16; abs gN ABS |
-l -r=.text | a gF .text; b gF .line; c gF .debug_info | a gF .text; c gF .debug_info |
-l -bl=ma* -wl=main | main gF .text; mangle gF .text; ma gF .text; m gF .text; mma gF .text;
           xma gF .text; '' gS .line; '' gS .text
         | main gF .text; m gF .text; mma gF .text; xma gF .text; '' gS .text |
-r=.none --strip-symbol=*x -bl=*y* -bl=z*z -bl= --keep-symbol=y | x gN ABS; ax gN ABS; xa gN ABS;
           aya gN ABS; y gN ABS; z*z gN ABS; zaz gN ABS; X gN ABS; '' gN ABS; '' gS .text
         | xa gN ABS; y gN ABS; zaz gN ABS; X gN ABS; '' gS .text |
-r=.none -bl=* -wl=b | a gF .text; b gF .text; s.c lf ABS; '' lS .data | b gF .text; '' lS .data |
--strip-orv-debug | a..b lO .text; .. lO .data; a.b gO .text; ..x gF .text; x.. lN ABS
         | a.b gO .text |
--idll   | _init gF .text; _fini gF .text; _ctors gO .data; __call_dtors__Fv gF .text;
           _init2 gF .text; ..orv.intsharedlib7 gO .data; ..orv.intshared gO .data
         | _init gF .text; _fini gF .text; _ctors gO .data; __call_dtors__Fv gF .text;
           ..orv.intsharedlib7 gO .data |
-r=.none -bl=none | a lF .text; b gF .line; @.rela.text 1 1 b | ! |
-r=.none -bl=a -wl=** | a lF .text; b gF .line | ! |
-r=.none -stripreloc | a lF .text; b gF .line | ! |
-stripreloc | a lF .text; b gF .line; @.rela.text 1 1 a | a lF .text; @.rela.text 1 1 a |)");
}

// Many patterns are sought at once: their beginnings, ends and middles lie in each other.
TEST(symbols, patterns_that_overlap_match_as_each_would_alone) {
    check_strips(R"(
-r=.none -bl=*abac* -bl=*bcd* -bl=*cx* | ababac gN ABS; abcd gN ABS; abacus gN ABS; abab gN ABS;
           abc gN ABS; abcx gN ABS; xabcdx gN ABS; acbacb gN ABS; '' gN ABS
         | abab gN ABS; abc gN ABS; acbacb gN ABS; '' gN ABS |
-r=.none -bl=*ab -bl=*bab -bl=*tail -bl=q* -bl=qu* | bab gN ABS; ab gN ABS; ba gN ABS; aab gN ABS;
           aba gN ABS; b gN ABS; tail gN ABS; ail gN ABS; a_tail gN ABS; tail_ gN ABS; quit gN ABS;
           aq gN ABS | ba gN ABS; aba gN ABS; b gN ABS; ail gN ABS; tail_ gN ABS; aq gN ABS |
-r=.none -bl=*needle* -bl=*haystack* | a_needle_in_a_hay_stack gN ABS; needl gN ABS; eneedl gN ABS;
           nneedle gN ABS; needle gN ABS; haystacks gN ABS; the_needl_and_the_haystac gN ABS
         | needl gN ABS; eneedl gN ABS; the_needl_and_the_haystac gN ABS |)");
}

TEST(symbols, strings_move_whole_in_the_order_of_first_use_and_entries_become_standard) {
    check_strips(R"(
-r=.none -bl=gone +in=^one^two^gone^three^ +out=^three^one^two^
         | three gN ABS; gone gN ABS; one gN ABS; two gN ABS; three gO ABS
         | three gN ABS; one gN ABS; two gN ABS; three gO ABS |
-r=.none -bl=gone +in=^gone^foobar^ +out=^foobar^
         | bar gN ABS; gone gN ABS; foobar gN ABS; r gN ABS | bar gN ABS; foobar gN ABS; r gN ABS |
-r=.none -bl=gone +in=head^gone^x^y^unused^ +out=head^y^x^
         | y gN ABS; gone gN ABS; d gN ABS; x gN .line | y gN ABS; d gN ABS; x gN .line |
-r=.none -bl=gone +in=^gone^main +out=^main^ | gone gN ABS; main gN ABS | main gN ABS |
-r=.none -bl=gone +in=^12345^gone^ +out=^12345^ | 12345 gN ABS; gone gN ABS | 12345 gN ABS |
-x -bl=a -wl=b* +in=- +out=- | '' lN .line; '' lN .text; '' gN .data | '' lN .text; '' gN .data |
-x #6:sh_entsize=0 | a lF .text 1 2 3; b gF .data 4 | a lF .text 1 2 3; b gF .data 4 |
-x +wide=4 | a lF .text 1 2 3; b gF .data 4 | a lF .text 1 2 3; b gF .data 4 |
-x +wide=40 | a lF .text 1 2 3; b gF .data 4 | a lF .text 1 2 3; b gF .data 4 |
-stripreloc +names=.strtab +in=^.text^gone^.data^main^ +out=^.text^.data^main^
         | .text lS .text; gone lN .line; .data gS .data; main gF .text
         | .text lS .text; .data gS .data; main gF .text |)");
}

// More of all than a block of memory holds; and one wrong relocation at the end.
TEST(symbols, tables_of_any_length_are_written_in_order) {
    const std::string part(300, 'x'), shorter = " gN ABS; _" + part.substr(1) + "_ gN ABS;";
    std::string entries = "last gN ABS; gone gN ABS; a" + part + "b" + shorter,
                kept = "last" + shorter, relocs, kept_relocs;
    for (const size_t length : {100'000, 262'143, 300'000}) {
        const std::string name =
            std::string(length, static_cast<char>('a' + length % 7)) + " gN ABS;";
        entries += name + "gone" + std::to_string(length) + " gN ABS;";
        kept += name;
    }
    for (int i = 0; i < 90'000; ++i) {
        const std::string number = std::to_string(i);
        entries += "'' gN ABS " + number + ";";
        kept += "'' gN ABS " + number + ";";
        relocs += "@.rela.text " + number + (i % 3 == 0 ? " 1 gone;" : " 1 last 7;");
        kept_relocs += i % 3 == 0 ? "" : "@.rela.text " + number + " 1 last 7;";
    }
    entries += relocs;
    for (const char* only : {"?elf64_little |", "?elf32_big |"}) {
        const std::string form = "-x -bl=gone* -bl=*" + part + "* " + only;
        check_strips(
            form + entries + "|" + kept + kept_relocs + "|" + form + entries +
            "@.rela.text 1 1 #90011 | ! objtrim: error: file 'f' is damaged: r_info of "
            "relocation 90000 of section 8 names symbol 90011, but there are only 90011 |");
    }
}

TEST(symbols, assertions_end_the_program) {
    check_strips(std::regex_replace(R"(
--idll | f gF .text; @.rel.text 4 1 #2 | ! Assertion (sym < symcnt) AT 867 in objtrim |
--idll | f gF .text; @.rela.text 4 1 #2 | ! Assertion (sym < symcnt) AT 880 in objtrim |
-stripreloc -r=.none +names=.strtab +in=^.rela.text^ | .text lS .text; @.rela.text 1 1 .text
       | ! Assertion (newstrsize + len <= sechead[stridx].sh_size) AT 911 in objtrim |
-x #6:sh_size=0 | | ! (left) Assertion (newsymbols != ((void *)0)) AT 939 in objtrim |
-x +in=^main^ | main gF .text
       | ! (left) Assertion (newstrsize <= sechead[idx].sh_size) AT 991 in objtrim |
-stripreloc -X2 --idll | T lS .text; f gF .text 4; @.rel.text 4 1 f
       | ! (left) Assertion (elfhead->e_type != 1) AT 1032 in objtrim |
-x | bad lS ABS | ! Assertion (sym->st_shndx < elfhead->e_shnum) AT 1439 in objtrim |
-x +in=^main | main gF .text | ! Assertion (curr_off + len <= strsize) AT 1532 in objtrim |
-stripreloc +names=.strtab | '' lS .text
       | ! Assertion (strcmp(shstrtabname, name) == 0) AT 1550 in objtrim |
-stripreloc --idll | T lS .text; f gF .text 4; @.rel.text 4 1 f
       | ! Assertion (elfhead->e_type != 1) AT 1612 in objtrim |)",
                                    std::regex("AT"), "failed in 'src/util/elfstrip' on line"));
}

// So many sections stay, with those that are added, beside 100 that go; all of these come first.
draft_maker big_draft(size_t kept) {
    return [kept](const elf_form& form) {
        elf_draft elf{.form = form, .sections = std::vector<draft_section>(kept + 94)};
        std::fill_n(elf.sections.begin(), 100, draft_section{.name = ".line", .content = "line"});
        return elf;
    };
}

TEST(symbols, numbers_above_the_reserved_ones) {
    const std::string entries =
        "a gO #101; b gO #65300; x gO #7; c gO .symtab_shndx; d gO .strtab; @.rela.text 1 1 d |";
    for (const size_t kept : {65281u, 65282u, 70000u})
        for (const char* form : {"?elf64_little", "?elf32_big"})
            check_strips(std::string("-l -r=.symtab_shndx ") + form + "|" + entries +
                             "a gO #1; b gO #65200; " +
                             (kept == 65281 ? "" : "c gO .symtab_shndx; ") +
                             "d gO .strtab; @.rela.text 1 1 d |",
                         big_draft(kept));
    check_strips("-l ?elf32_little #65495:sh_name=1 |" + entries + // a .line, too
                     R"(! (left) objtrim: fatal: symbol requires SYMTAB_SHNDX section |
-l ?elf32_little #65495:sh_size=4 | a gO #1; b gO .text | ! (left) Assertion (new_size <=
sechead[idx].sh_size) failed in 'src/util/elfstrip' on line 978 in objtrim |)",
                 big_draft(65400));
}

} // namespace
