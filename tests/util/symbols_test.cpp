// Which symbols stay, how they, their strings and the relocations are renumbered, which relocations
// are made relative to a section, and what ends the program.
#include <gtest/gtest.h>
#include <regex>

#include "support/symbol_builder.h"

namespace {

TEST(symbols, options_lists_and_removed_sections_decide) {
    check_strips(R"(
-x -wl=x | '' lS .line; x gF .line; '' lS; s.c lf ABS; l lF .text 4 8; '' lN .data 3; b gC COM 4 64;
           weak wO .data 8 1; undef gN ''; abs gN ABS 5 0 2
         | '' lS; s.c lf ABS; l lF .text 4 8; '' lN .data 3; b gC COM 4 64; weak wO .data 8 1;
           undef gN ''; abs gN ABS 5 0 2 |
-s -wl=x | '' lS .line; x gF .line; '' wS .data 1; s.c lf ABS; l lF; main; buf gC COM; undef gN '';
           abs gN ABS | '' wS .data 1 |
-s -wl=main -wl=*.c -wl=abs | s.c lf; c lf; f lF; main; abs gN ABS | s.c lf; main; abs gN ABS |
-l -r=.text | a; b gF .line; c gF .debug_info | a; c gF .debug_info |
-l -bl=ma* -wl=main | main; mangle; ma; m; mma; xma; '' gS .line; '' gS
         | main; m; mma; xma; '' gS |
-r=.none --strip-symbol=*x -bl=*y* -bl=z*z -bl= --keep-symbol=y
         | x; ax; xa; aya; y; z*z; zaz; X; ''; '' gS | xa; y; zaz; X; '' gS |
-r=.none -bl=* -wl=b | a; b; s.c lf ABS; '' lS .data | b; '' lS .data |
--strip-orv-debug | a..b lO; .. lO .data; a.b gO; ..x; x.. lN ABS | a.b gO |
--idll   | _init; _fini; _ctors gO; __call_dtors__Fv; _init2; ..orv.intsharedlib7; ..orv.intshared
         | _init; _fini; _ctors gO; __call_dtors__Fv; ..orv.intsharedlib7 |
-r=.none -bl=none | a lF; b gF .line; @.rela.text 1 1 b | ! |
-r=.none -bl=a -wl=** | a lF; b gF .line | ! |
-r=.none -stripreloc | a lF; b gF .line | ! |
-stripreloc | a lF; b gF .line; @.rela.text 1 1 a | a lF; @.rela.text 1 1 a |)");
}

// Many patterns are sought at once: their beginnings, ends and middles lie in each other.
TEST(symbols, patterns_that_overlap_match_as_each_would_alone) {
    check_strips(R"(
-r=.none -bl=*abac* -bl=*bcd* -bl=*cx*
         | ababac; abcd; abacus; abab; abc; abcx; xabcdx; acbacb; '' | abab; abc; acbacb; '' |
-r=.none -bl=*ab -bl=*bab -bl=*tail -bl=q* -bl=qu*
         | bab; ab; ba; aab; aba; b; tail; ail; a_tail; tail_; quit; aq
         | ba; aba; b; ail; tail_; aq |
-r=.none -bl=*needle* -bl=*haystack*
         | a_needle_in_a_hay_stack; needl; eneedl; nneedle; needle; haystacks; a_needl_haystac
         | needl; eneedl; a_needl_haystac |)");
}

TEST(symbols, strings_move_whole_in_the_order_of_first_use) {
    check_strips(R"(
-r=.none -bl=gone +in=^one^two^gone^three^ +out=^three^one^two^
         | three; gone; one; two; three gO | three; one; two; three gO |
-r=.none -bl=gone +in=^gone^foobar^ +out=^foobar^ | bar; gone; foobar; r | bar; foobar; r |
-r=.none -bl=gone +in=head^gone^x^y^unused^ +out=head^y^x^
         | y; gone; d; x gN .line | y; d; x gN .line |
-r=.none -bl=gone +in=^gone^main +out=^main^ | gone; main | main |
-x -bl=a -wl=b* +in=- +out=- | '' lN .line; '' lN; '' gN .data | '' lN; '' gN .data |
-x #6:sh_entsize=0 | a lF .text 1 2 3; b gF .data 4 | a lF .text 1 2 3; b gF .data 4 |
-stripreloc +names=.strtab +in=^.text^gone^.data^main^ +out=^.text^.data^main^
         | .text lS; gone lN .line; .data gS .data; main | .text lS; .data gS .data; main |)");
}

// More of all than a block of memory holds.
TEST(symbols, tables_of_any_length_are_written_in_order) {
    std::string entries = std::string(300'000, 'l') + "; gone", kept = entries.substr(0, 300'000);
    for (int i = 0; i < 90'000; ++i) {
        const std::string at = std::to_string(i), symbol = ";'' gN ABS " + at,
                          reloc = symbol + ";@.rela.text " + at + " 1 ";
        entries += reloc + (i % 3 == 0 ? "gone" : "#1 7");
        kept += i % 3 == 0 ? symbol : reloc + "#1 7";
    }
    check_strips("?=elf64_little -x -bl=gone |" + entries + "|" + kept + "|");
}

TEST(symbols, assertions_end_the_program) {
    check_strips(std::regex_replace(
        R"(
--idll | f; @.rel.text 4 1 #2 | ! (sym < symcnt) 867 |
--idll | f; @.rela.text 4 1 #2 | ! (sym < symcnt) 880 |
-stripreloc -r=.none +names=.strtab +in=^.rela.text^ | .text lS; @.rela.text 1 1 .text
       | ! (newstrsize + len <= sechead[stridx].sh_size) 911 |
-x #6:sh_size=0 | | ! (left) (newsymbols != ((void *)0)) 939 |
-x +in=^main^ | main | ! (left) (newstrsize <= sechead[idx].sh_size) 991 |
-stripreloc -X2 --idll | T lS; f gF .text 4; @.rel.text 4 1 f
       | ! (left) (elfhead->e_type != 1) 1032 |
-x | bad lS ABS | ! (sym->st_shndx < elfhead->e_shnum) 1439 |
-x +in=^main | main | ! (curr_off + len <= strsize) 1532 |
-stripreloc +names=.strtab | '' lS | ! (strcmp(shstrtabname, name) == 0) 1550 |
-stripreloc --idll | T lS; f gF .text 4; @.rel.text 4 1 f | ! (elfhead->e_type != 1) 1612 |)",
        std::regex(R"(! (\(left\) )?(.*) (\d+) \|)"),
        "! $1Assertion $2 failed in 'src/util/elfstrip' on line $3 in objtrim |"));
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
    const std::string entries = "a gO #101; b gO #65300; x gO #7; c gO .symtab_shndx; "
                                "d gO .strtab; @.rela.text 1 1 d |";
    for (const size_t kept : {65281u, 65282u, 70000u})
        check_strips((kept == 70000 ? "?=elf64_little" : "?=elf32_big") +
                         (" -l -r=.symtab_shndx |" + entries + "a gO #1; b gO #65200; ") +
                         (kept == 65281 ? "" : "c gO .symtab_shndx; ") +
                         "d gO .strtab; @.rela.text 1 1 d |",
                     big_draft(kept));
    check_strips(R"(
-l ?=elf32_little #65495:sh_size=4 | a gO #1; b | ! (left) Assertion (new_size <=
sechead[idx].sh_size) failed in 'src/util/elfstrip' on line 978 in objtrim |)",
                 big_draft(65400));
}

TEST(relocs, are_renumbered_and_go_with_their_symbols) {
    check_strips(R"(
-x -bl=a | a lF; b; @.rel.text 3 255 b; @.rel.text 9 1 a; @.rela.data 4 1 a 7; @.rela.line 1 1 b;
           @.rela.data 8 200 b 2147483647; @.rela.text 1 0 '' 9
         | b; @.rel.text 3 255 b; @.rela.data 8 200 b 2147483647; @.rela.text 1 0 '' 9 |
-s -wl=b | T lS; a; L lS .line; b; @.rel.text 1 1 a; @.rel.text 2 2 b; @.rela.text 3 3 T 5;
           @.rela.text 5 3 L 1; @.rela.data 3 1 a 1
         | T lS; b; @.rel.text 2 2 b; @.rela.text 3 3 T 5 |)");
}

// Without an addend there is no place for the distance, but in the bytes that are relocated.
TEST(relocs, become_relative_to_the_section) {
    check_strips(R"(
--idll   | T lS .text 8; f gF .text 20; g; @.rela.text 4 77 f 3; @.rela.text 8 1 T 5
         | T lS .text 8; @.rela.text 4 77 T 15; @.rela.text 8 1 T 5 |
--idll   | f gF .text 20; T lS; g gF .text 8; @.rela.text 4 1 f 3; @.rela.text 8 1 g 3
         | T lS; @.rela.text 8 1 T 11 |
--idll   | T lS; f gF .text 20; U lS .text 4; g gF .text 20; @.rela.text 4 1 f 3;
           @.rela.text 8 1 g 3 | T lS; U lS .text 4; @.rela.text 8 1 U 19 |
-s --convert-to-secrel-reloc -bl=x | T lS; d gO .data; u gN ''; a gN ABS; n gN ABS; s.c lf; x;
           y..y lF; l lF .line; @.rela.text 1 1 d; @.rela.text 2 2 u 1; @.rela.text 3 3 a 1;
           @.rela.text 4 4 s.c; @.rela.text 5 1 x; @.rela.text 6 1 y..y; @.rela.text 7 1 l
         | T lS; d gO .data; u gN ''; a gN ABS; @.rela.text 1 1 d; @.rela.text 2 2 u 1;
           @.rela.text 3 3 a 1 |
--idll --no-keep-used-common | D lS .data; c gC .data 4; u gC COM 8; _init gF .data 4;
           @.rela.data 1 1 c; @.rela.data 2 1 u; @.rela.data 3 2 _init
         | D lS .data; u gC COM 8; _init gF .data 4; @.rela.data 1 1 D 4; @.rela.data 2 1 u;
           @.rela.data 3 2 _init |
--idll   | D lS .data; c gC .data 4; u gC COM 8; v gC COM; @.rela.data 1 1 c; @.rela.data 2 1 u
         | D lS .data; c gC .data 4; u gC COM 8; @.rela.data 1 1 c; @.rela.data 2 1 u |
--idll -X2 | T lS .text 8; f gF .text 20; @.rel.text 4 250 f | T lS .text 8; @.rel.text 4 250 T |
--idll -X2 -X1 | T lS; f gF .text 2; g gF .text 2; @.rel.text 4 1 f; @.rela.text 4 9 g 1
         | T lS; f gF .text 2; @.rel.text 4 1 f; @.rela.text 4 9 T 3 |
?=big --idll -X3 | T lS; f gF .text 4; @.rel.text 4 1 f | T lS; f gF .text 4; @.rel.text 4 1 f |
?=little --idll -X3 | T lS; f gF .text 4; g; @.rel.text 4 0 f; @.rel.text 5 1 f; @.rel.text 6 2 g
         | T lS; @.rel.text 4 0 T; @.rel.text 5 1 T; @.rel.text 6 2 T |
?=little --idll | T lS; f gF .text 4; g gF .text 4; @.rel.text 4 1 f; @.rel.data 8 3 f;
           @.rela.data 8 1 g 1
         | T lS; f gF .text 4; @.rel.data 8 3 f; @.rel.text 4 1 f; @.rela.data 8 1 T 5 |
?=elf64 --idll | T lS .text 9; f; @.rela.text 4 1 f 5 | T lS .text 9; @.rela.text 4 1 T -4 |
?=elf32 --idll | T lS; f gF .text 9; @.rela.text 4 1 f 2147483638
         | T lS; @.rela.text 4 1 T 2147483647 |
?=elf32 --idll | T lS .text 9; f; @.rela.text 4 1 f 2147483657
         | T lS .text 9; @.rela.text 4 1 T 2147483648 |
?=elf32 --idll | T lS; f gF .text 9; @.rela.text 4 1 f 2147483639
         | ! (left) objtrim: fatal: ELF file overflow |
?=elf32 --idll | T lS .text 9; f; @.rela.text 4 1 f 2147483656
         | ! (left) objtrim: fatal: ELF file overflow |)");
}

TEST(relocs, of_thumb_functions_get_their_bit) {
    const std::string entries =
        R"(--idll | T lS; f gF .text 4 2 1; g gF .text 4 0 1; h gF .text 4 2 2;
        o gO .text 4 2 1; @.rela.text 2 1 g 2; @.rela.text 3 1 h 2; @.rela.text 4 1 o 2;
        @.rela.text 1 1 f 2 | T lS; @.rela.text 2 1 T 6; @.rela.text 3 1 T 6; @.rela.text 4 1 T 6;
        @.rela.text 1 1 T )";
    check_strips("?=elf32_little " + entries + "6 | ?=elf32_little +machine=37 " + entries + "7 |");
}

} // namespace
