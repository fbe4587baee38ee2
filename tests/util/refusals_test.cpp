// Files that are refused or damaged: they keep every byte, nothing is left beside them, and what is
// said has the field, its value and the bound. Of each bound the last good value is there, too.
#include <filesystem>
#include <gtest/gtest.h>

#include "support/symbol_builder.h"

namespace {

// Its numbers are the same for all forms, as far as they can be. .debug_info (1) and .line (3) go;
// .symtab (9) is the end of the file, at 0x1020 or 0x1030.
elf_draft ten_sections(const elf_form& form) {
    elf_draft draft = base_draft(form);
    const uint64_t word = form.word();
    for (const draft_section& section :
         {draft_section{".strtab", sht::strtab}, draft_section{".shstrtab", sht::strtab},
          draft_section{".rela.text", sht::rela, 0, "", 8, ".symtab", ".text", word * 3},
          draft_section{".symtab", sht::symtab, 0, "", 8, ".strtab", "", 8 + word * 2},
          draft_section{".symtab_shndx", sht::shndx, 0, "", 4, ".symtab"}})
        draft.sections.push_back(section);
    for (size_t i = 0; i < 10; ++i)
        draft.sections[i].offset = i == 8 ? 0x1000 : 0x100 * (i + 1);
    draft.segments = {{".text"}};
    draft.phoff = 0x80;
    draft.shoff = 0xA40;
    return draft;
}

// What is said of damage, less its beginning; or "~" for nothing. PAST stands for where a table
// reaches.
const char* const wrong_numbers = R"(
#:e_shnum={37/23}     | sh_name 0xeeeeeeee of section 11 is outside the section-name string table
                        of 0x5b bytes |
#:e_shnum={38/24}     | section header table at e_shoff 0xa40 with e_shnum {38/24} PAST |
#:e_shoff=-63         | section header table at e_shoff 0x{/ffffffff}ffffffc1 with e_shnum 11 PAST |
#:e_shnum=8           | ~ |
#:e_shnum=7           | e_shstrndx 7 is not below the section count 7 |
#:e_shstrndx=0xFFFF   | e_shstrndx 65535 is not below the section count 11 |
#:e_shnum=0 #0:sh_size=11 #0:sh_link=7 #:e_shstrndx=0xFFFF | ~ |
#:e_shnum=0 #0:sh_size=0xFFFFFFFF | section header table at e_shoff 0xa40 with e_shnum 4294967295
                        PAST |
#:e_shentsize={39/63} | e_shentsize {39/63} is below {40/64} |
#:e_shentsize=0       | ~ |
#:e_phoff={0x1000/0xFF8} | ~ |
#:e_phoff={0x1001/0xFF9} | program header table at e_phoff {0x1001/0xff9} with e_phnum 1 PAST |
#:e_phoff=-55         | program header table at e_phoff 0x{/ffffffff}ffffffc9 with e_phnum 1 PAST |
#:e_phnum=0x7FFF      | program header table at e_phoff 0x80 with e_phnum 32767 PAST |
#:e_phnum=0xFFFF      | e_phnum 0xFFFF (extended numbering) is not supported |
#:e_phentsize=0       | ~ |
#0:sh_size=9 #0:sh_link=9 #0:sh_info=9 | ~ |
#4:sh_name=0x5A       | ~ |
#4:sh_name=0x5B       | sh_name 0x5b of section 4 is outside the section-name string table
                        of 0x5b bytes |
#1:sh_offset={0x34/0x40} | ~ |
#1:sh_offset=0x33     | REMOVED 0x33 with sh_size 0x15 shares bytes with a header at 0x0
                        with size {0x34/0x40} |
#1:sh_offset=0xA44    | REMOVED 0xa44 with sh_size 0x15 shares bytes with a header at 0xa40
                        with size {0x1b8/0x2c0} |
#1:sh_offset=0x84     | REMOVED 0x84 with sh_size 0x15 shares bytes with a header at 0x80
                        with size {0x20/0x38} |
#1:sh_offset=0x200    | REMOVED 0x200 with sh_size 0x15 shares bytes with section 2 at 0x200
                        with size 0x30 |
#1:sh_size=0x100      | ~ |
#1:sh_size=0x101      | REMOVED 0x100 with sh_size 0x101 shares bytes with section 2 at 0x200
                        with size 0x30 |
#1:sh_size=-8         | REMOVED 0x100 with sh_size 0x{/ffffffff}fffffff8 shares bytes with section 2
                        at 0x200 with size 0x30 |
#9:sh_link=0          | sh_link 0 of symbol table section 9 names no string table among sections
                        1 to 10 |
#9:sh_link=11         | sh_link 11 of symbol table section 9 names no string table among sections
                        1 to 10 |
#9:sh_entsize={15/23} | sh_entsize {15/23} of symbol table section 9 is below {16/24} |
#9:sh_size=-1         | section 9 at sh_offset 0x1000 with sh_size 0x{/ffffffff}ffffffff PAST |
#9:sh_offset=0x1001   | section 9 at sh_offset 0x1001 with sh_size {0x20/0x30} PAST |
#6:sh_size=1          | st_name 0x1 of symbol 1 is outside the string table of 0x1 bytes |
#8:sh_entsize=20      | sh_entsize 20 of relocation section 8 is not {12/24} |
#8:sh_offset=0x2000   | section 8 at sh_offset 0x2000 with sh_size {0xc/0x18} PAST |)";

TEST(refusals, wrong_numbers_are_told_with_their_bounds) {
    const std::string damaged = "! objtrim: error: file 'f' is damaged: ";
    std::istringstream rows(wrong_numbers);
    std::string cases, changes, said;
    while (std::getline(rows, changes, '|') && std::getline(rows, said, '|')) {
        if (const size_t at = said.find("PAST"); at != std::string::npos)
            said.replace(at, 4, "reaches past the end of the file, {0x1020/0x1030}");
        if (const size_t at = said.find("REMOVED"); at != std::string::npos)
            said.replace(at, 7, "section 1, which is to be removed, at sh_offset");
        cases += "-x " + changes + "| f gF .text; @.rela.text 1 1 f |" +
                 (said == " ~ " ? said : damaged + said) + "|";
    }
    for (const char* name :
         {"sh_name", "sh_type", "sh_flags", "sh_addr", "sh_offset", "sh_addralign", "sh_entsize"})
        cases += std::string("#0:") + name + "=9 | |" + damaged + name +
                 " 0x9 of section header 0 is not 0 |";
    check_strips(cases, ten_sections);
}

TEST(refusals, files_wrong_in_other_ways) {
    check_strips(R"(
-x #10:sh_size=4 | f gF #65535 | ! objtrim: error: file 'f' is damaged: a symbol with st_shndx
     0xffff lies behind the end of the extended index table of 1 words |
-x #10:sh_offset=0x1031 | f gF #65535 | ! objtrim: error: file 'f' is damaged: a symbol with
     st_shndx 0xffff lies behind the end of the extended index table of 0 words |
-x #10:sh_link=1 | f gF #65535 | ! objtrim: fatal: symbol requires SYMTAB_SHNDX mapping |
-x #10:sh_type=1 | f gF #65535 | ! objtrim: fatal: symbol requires SYMTAB_SHNDX mapping |
-x | f gF #65535 | ! (left) objtrim: fatal: symbol requires SYMTAB_SHNDX section |
-x | f gF .text; @.rela.text 1 1 f; @.rela.text 1 1 #1; @.rela.text 1 1 #2; @.rela.text 1 1 #9
   | ! objtrim: error: file 'f' is damaged: r_info of relocation 2 of section 8 names symbol 2, but
     there are only 2 |
#:e_type=1 | | ! objtrim: error: Unable to strip relocatable ELF file 'f' |
#:e_shstrndx=0 | | ! objtrim: error: string table empty for 'f' |
#7:sh_size=0 | | ! objtrim: error: string table empty for 'f' |
#7:sh_size=0x7FFFFFFF | | ! objtrim: fatal: read failed, unexpected EOF |
#:e_shnum=0 | | ! objtrim: error: file 'f' has no sections |
#:e_shnum=0 #:e_shoff=0 | | ! objtrim: error: file 'f' has no sections |
#:e_phentsize={31/55} | | ! objtrim: fatal: elf{/64}_readprogheader(): phentsize |)",
                 ten_sections);
    std::string file = build_elf(ten_sections(elf_forms[0])).substr(0, 20);
    EXPECT_EQ(trim_file("", file), "objtrim: error: file 'f' is damaged: e_phnum 0xFFFF (extended "
                                   "numbering) is not supported");
}

// In a file that is large enough to hold them.
TEST(refusals, more_symbols_than_can_be_numbered) {
    constexpr uint64_t begin = 1 << 20, size = 24 * uint64_t{UINT32_MAX};
    symbol_draft draft;
    work_place place;
    std::string file = build_symbols(draft);
    set_field(file, field::sh_offset, begin, 6);
    set_field(file, field::sh_size, size, 6);
    place.put("f", file);
    std::error_code failed;
    if (host_has_limits)
        std::filesystem::resize_file(place.path("f"), begin + size, failed);
    if (!host_has_limits || failed)
        GTEST_SKIP() << "this host has no files with holes of that size";
    EXPECT_EQ(place.trim("-x f").err,
              "objtrim: error: file 'f' is damaged: sh_size 0x17ffffffe8 of symbol table section 6 "
              "holds more entries than the 4294967294 that can be numbered\n");
    EXPECT_EQ(std::filesystem::file_size(place.path("f")), begin + size);
}

} // namespace
