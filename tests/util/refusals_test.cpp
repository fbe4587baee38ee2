// Files that are refused or damaged: they keep every byte, nothing is left beside them, and what is
// said has the field, its value and the bound. Of each bound the last good value is there, too.
#include <gtest/gtest.h>
#include <regex>

#include "support/symbol_builder.h"
#include "support/table.h"

namespace {

// Its numbers are the same for all forms, as far as they can be. .debug_info (1) and .line (3) go;
// .symtab (9) is the end of the file, at 0x1020 or 0x1030.
elf_draft ten_sections(const elf_form& form) {
    elf_draft draft = base_draft(form);
    const draft_section tables[] = {
        {".strtab", sht::strtab},
        {".shstrtab", sht::strtab},
        {".rela.text", sht::rela, 0, "", 8, ".symtab", ".text", form.word() * 3},
        {".symtab", sht::symtab, 0, "", 8, ".strtab", "", 8 + form.word() * 2},
        {".symtab_shndx", sht::shndx, 0, "", 4, ".symtab"}};
    draft.sections.insert(draft.sections.end(), std::begin(tables), std::end(tables));
    for (size_t i = 0; i < 10; ++i)
        draft.sections[i].offset = i == 8 ? 0x1000 : 0x100 * (i + 1);
    draft.segments = {{".text"}};
    draft.phoff = 0x80;
    draft.shoff = 0xA40;
    return draft;
}

// What is said, less the beginning of what is said of damage; or "~" for nothing. Some need other
// symbols than the rest.
const char* const refusals = R"(
> #:e_shnum={37/23}    | sh_name 0xeeeeeeee of section 11 OUTSIDE
> #:e_shnum={38/24}    | section HEADERS e_shoff 0xa40 with e_shnum {38/24} PAST
> #:e_shoff=-63        | section HEADERS e_shoff 0x{/ffffffff}ffffffc1 with e_shnum 11 PAST
> #:e_shnum=7          | e_shstrndx 7 is not below the section count 7
> #:e_shstrndx=0xFFFF  | e_shstrndx 65535 is not below the section count 11
> #:e_shnum=0 #0:sh_size=11 #0:sh_link=7 #:e_shstrndx=0xFFFF | ~ > #:e_shnum=8 | ~
> #:e_shnum=0 #0:sh_size=0xFFFFFFFF | section HEADERS e_shoff 0xa40 with e_shnum 4294967295 PAST
> #:e_shentsize={39/63} | e_shentsize {39/63} is below {40/64} > #:e_shentsize=0 | ~
> #:e_phoff={0x1001/0xFF9} | program HEADERS e_phoff {0x1001/0xff9} with e_phnum 1 PAST
> #:e_phoff=-55        | program HEADERS e_phoff 0x{/ffffffff}ffffffc9 with e_phnum 1 PAST
> #:e_phnum=0x7FFF     | program HEADERS e_phoff 0x80 with e_phnum 32767 PAST
> #:e_phnum=0xFFFF     | e_phnum 0xFFFF (extended numbering) is not supported
> #:e_phoff={0x1000/0xFF8} | ~ > #:e_phentsize=0 | ~
> #0:sh_size=9 #0:sh_link=9 #0:sh_info=9 | ~ > #4:sh_name=0x5A | ~
> #0:sh_addralign=9 | sh_addralign ZERO > #4:sh_name=0x5B | sh_name 0x5b of section 4 OUTSIDE
> #1:sh_offset=0x33    | GONE 0x33 SIZED 0x15 SHARES a header at 0x0 with size {0x34/0x40}
> #1:sh_offset=0xA44   | GONE 0xa44 SIZED 0x15 SHARES a header at 0xa40 with size {0x1b8/0x2c0}
> #1:sh_offset=0x84    | GONE 0x84 SIZED 0x15 SHARES a header at 0x80 with size {0x20/0x38}
> #1:sh_offset=0x200   | GONE 0x200 SIZED 0x15 SHARES section 2 at 0x200 with size 0x30
> #1:sh_size=0x101     | GONE 0x100 SIZED 0x101 SHARES section 2 at 0x200 with size 0x30
> #1:sh_size=-8 | GONE 0x100 SIZED 0x{/ffffffff}fffffff8 SHARES section 2 at 0x200 with size 0x30
> #1:sh_offset={0x34/0x40} | ~ > #1:sh_size=0x100 | ~
> #9:sh_link=0 | sh_link 0 NOWHERE > #9:sh_link=11 | sh_link 11 NOWHERE
> #9:sh_entsize={15/23} | sh_entsize {15/23} of symbol table section 9 is below {16/24}
> #9:sh_size=-1        | section 9 at sh_offset 0x1000 with sh_size 0x{/ffffffff}ffffffff PAST
> #9:sh_offset=0x1001  | section 9 at sh_offset 0x1001 with sh_size {0x20/0x30} PAST
> #6:sh_size=1         | st_name 0x1 of symbol 1 is outside the string table of 0x1 bytes
> #8:sh_entsize=20     | sh_entsize 20 of relocation section 8 is not {12/24}
> #8:sh_offset=0x2000  | section 8 at sh_offset 0x2000 with sh_size {0xc/0x18} PAST
> #0:sh_name=9 | sh_name ZERO > #0:sh_type=9 | sh_type ZERO > #0:sh_flags=9 | sh_flags ZERO
> #0:sh_addr=9 | sh_addr ZERO > #0:sh_offset=9 | sh_offset ZERO > #0:sh_entsize=9 | sh_entsize ZERO
> #10:sh_size=4        | a symbol with st_shndx 0xffff UNTOLD 1 words | f gF #65535
> #10:sh_offset=0x1031 | a symbol with st_shndx 0xffff UNTOLD 0 words | f gF #65535
> #10:sh_link=1 | WITHOUT mapping | f gF #65535 > #10:sh_type=1 | WITHOUT mapping | f gF #65535
>                      | (left) WITHOUT section | f gF #65535
>                      | r_info of relocation 2 of section 8 names symbol 2, but there are only 2
                       | f; @.rela.text 1 1 f; @.rela.text 1 1 #1; @.rela.text 1 1 #2
> #:e_shnum=0 | NONE > #:e_type=1 | objtrim: error: Unable to strip relocatable ELF file 'f'
> #:e_shstrndx=0 | EMPTY > #7:sh_size=0 | EMPTY > #:e_shnum=0 #:e_shoff=0 | NONE
> #7:sh_size=0x7FFFFFFF | objtrim: fatal: read failed, unexpected EOF
> #:e_phentsize={31/55} | objtrim: fatal: elf{/64}_readprogheader(): phentsize)";

TEST(refusals, tell_the_field_its_value_and_the_bound) {
    std::string table = refusals, cases;
    for (const auto& [shorter, text] :
         {std::pair("PAST", "reaches past the end of the file, {0x1020/0x1030}"),
          {"GONE", "section 1, which is to be removed, at sh_offset"},
          {"SIZED", "with sh_size"},
          {"SHARES", "shares bytes with"},
          {"HEADERS", "header table at"},
          {"OUTSIDE", "is outside the section-name string table of 0x5b bytes"},
          {"NOWHERE", "of symbol table section 9 names no string table among sections 1 to 10"},
          {"WITHOUT", "objtrim: fatal: symbol requires SYMTAB_SHNDX"},
          {"EMPTY", "objtrim: error: string table empty for 'f'"},
          {"NONE", "objtrim: error: file 'f' has no sections"},
          {"UNTOLD", "lies behind the end of the extended index table of"},
          {"ZERO", "0x9 of section header 0 is not 0"}})
        table = std::regex_replace(table, std::regex(shorter), text);
    for (const words& row : rows_of(table)) {
        const bool is_damage = row[1] != "~" && row[1].find("objtrim: ") == std::string::npos;
        cases += "-x " + row[0] + "|" + (row[2].empty() ? "f; @.rela.text 1 1 f" : row[2]) + "|" +
                 (row[1] == "~" ? "" : "! ") +
                 (is_damage ? "objtrim: error: file 'f' is damaged: " : "") + row[1] + "|";
    }
    check_strips(cases, ten_sections);
}

} // namespace
