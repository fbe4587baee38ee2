// Relocations that follow the new symbol numbers, or are made relative to a section.
#include <gtest/gtest.h>

#include "support/symbol_builder.h"

namespace {

TEST(relocs, are_renumbered_and_go_with_their_symbols) {
    check_strips(R"(
-x -bl=a | a lF .text; b gF .text; @.rel.text 3 255 b; @.rel.text 9 1 a; @.rela.data 4 1 a 7;
           @.rela.data 8 200 b 2147483647; @.rela.text 1 0 '' 9; @.rela.line 1 1 b
         | b gF .text; @.rel.text 3 255 b; @.rela.data 8 200 b 2147483647; @.rela.text 1 0 '' 9 |
-s -wl=b | T lS .text; a gF .text; L lS .line; b gF .text; @.rel.text 1 1 a; @.rel.text 2 2 b;
           @.rela.text 3 3 T 5; @.rela.text 5 3 L 1; @.rela.data 3 1 a 1
         | T lS .text; b gF .text; @.rel.text 2 2 b; @.rela.text 3 3 T 5 |)");
}

// Also those that count in another symbol table. Other entries than those of relocations are
// copied.
TEST(relocs, of_sections_with_other_types_tables_and_entry_sizes) {
    for (const draft_section& section :
         {draft_section{".rela.dyn", sht::rela, shf::alloc, "", 8, ".text", "", 3},
          draft_section{".rela.dyn", 0x70000014, 0, "", 1, ".symtab", ".data", 3},
          draft_section{".rela.dyn", sht::rela, 0, "", 8, "", "", 0}})
        check_strips(
            R"(
-x | a gF .line; b gF .text; @.rela.dyn 1 1 b 1; @.rela.dyn 2 2 a 2
   | b gF .text; @.rela.dyn 1 1 b 1 |)",
            [&section](const elf_form& form) {
                elf_draft elf = base_draft(form);
                elf.sections.push_back(section);
                elf.sections.back().entsize *= form.word();
                elf.sections.push_back({".odd", 0x70000014, 0, filler(48, 7), 1, "", "", 8});
                return elf;
            });
}

TEST(relocs, become_relative_to_the_section) {
    check_strips(R"(
--idll   | T lS .text 8; f gF .text 20; g gF .text; @.rela.text 4 77 f 3; @.rela.text 8 1 T 5
         | T lS .text 8; @.rela.text 4 77 T 15; @.rela.text 8 1 T 5 |
--idll   | f gF .text 20; T lS .text; g gF .text 8; @.rela.text 4 1 f 3; @.rela.text 8 1 g 3
         | T lS .text; @.rela.text 8 1 T 11 |
--idll   | T lS .text; f gF .text 20; U lS .text 4; g gF .text 20; @.rela.text 4 1 f 3;
           @.rela.text 8 1 g 3 | T lS .text; U lS .text 4; @.rela.text 8 1 U 19 |
-s --convert-to-secrel-reloc -bl=x | T lS .text; d gO .data; u gN ''; a gN ABS; n gN ABS;
           s.c lf .text; x gF .text; y..y lF .text; l lF .line; @.rela.text 1 1 d;
           @.rela.text 2 2 u 1; @.rela.text 3 3 a 1; @.rela.text 4 4 s.c; @.rela.text 5 1 x;
           @.rela.text 6 1 y..y; @.rela.text 7 1 l
         | T lS .text; d gO .data; u gN ''; a gN ABS; @.rela.text 1 1 d; @.rela.text 2 2 u 1;
           @.rela.text 3 3 a 1 |
--idll --no-keep-used-common | D lS .data; c gC .data 4; u gC COM 8; _init gF .data 4;
           @.rela.data 1 1 c; @.rela.data 2 1 u; @.rela.data 3 2 _init
         | D lS .data; u gC COM 8; _init gF .data 4; @.rela.data 1 1 D 4; @.rela.data 2 1 u;
           @.rela.data 3 2 _init |
--idll   | D lS .data; c gC .data 4; u gC COM 8; v gC COM; @.rela.data 1 1 c; @.rela.data 2 1 u
         | D lS .data; c gC .data 4; u gC COM 8; @.rela.data 1 1 c; @.rela.data 2 1 u |)");
}

// Without an addend there is no place for the distance, but in the bytes that are relocated.
TEST(relocs, without_addends_are_converted_where_their_type_allows) {
    check_strips(R"(
--idll -X2 | T lS .text 8; f gF .text 20; @.rel.text 4 250 f | T lS .text 8; @.rel.text 4 250 T |
--idll -X2 -X1 | T lS .text; f gF .text 2; g gF .text 2; @.rel.text 4 1 f; @.rela.text 4 9 g 1
         | T lS .text; f gF .text 2; @.rel.text 4 1 f; @.rela.text 4 9 T 3 |
?big --idll -X3 | T lS .text; f gF .text 4; @.rel.text 4 1 f
         | T lS .text; f gF .text 4; @.rel.text 4 1 f |
?little --idll -X3 | T lS .text; f gF .text 4; g gF .text; @.rel.text 4 0 f; @.rel.text 5 1 f;
           @.rel.text 6 2 g | T lS .text; @.rel.text 4 0 T; @.rel.text 5 1 T; @.rel.text 6 2 T |
?little --idll | T lS .text; f gF .text 4; g gF .text 4; @.rel.text 4 1 f; @.rel.data 8 3 f;
           @.rela.data 8 1 g 1
         | T lS .text; f gF .text 4; @.rel.data 8 3 f; @.rel.text 4 1 f; @.rela.data 8 1 T 5 |)");
}

TEST(relocs, addends_at_their_limits) {
    const std::string entries = " --idll | T lS .text 40; f gF .text 20; g gF .text 60; "
                                "@.rela.text 4 1 ",
                      kept = "| T lS .text 40; @.rela.text 4 1 T ",
                      overflow = "| ! (left) objtrim: fatal: ELF file overflow |";
    check_strips("?elf64" + entries + "f 5" + kept + "-15 |?elf32" + entries + "g 2147483627" +
                 kept + "2147483647 |?elf32" + entries + "f 2147483668" + kept +
                 "2147483648 |?elf32" + entries + "g 2147483628" + overflow + "?elf32" + entries +
                 "f 2147483667" + overflow);
}

TEST(relocs, of_thumb_functions_get_their_bit) {
    const std::string cases = R"(
--idll | T lS .text; f gF .text 4 2 1; g gF .text 4 0 1; h gF .text 4 2 2; o gO .text 4 2 1;
         @.rela.text 1 1 f 2; @.rela.text 2 1 g 2; @.rela.text 3 1 h 2; @.rela.text 4 1 o 2;
         @.rela.text 5 1 f 1 | T lS .text; @.rela.text 1 1 T )";
    const std::string rest =
        "; @.rela.text 2 1 T 6; @.rela.text 3 1 T 6; @.rela.text 4 1 T 6; @.rela.text 5 1 T 5 |";
    check_strips(cases + "6" + rest);
    check_strips(cases + "7" + rest, [](elf_form form) {
        form.machine = 40;
        return base_draft(form);
    });
}

} // namespace
