// The assertions of the ELF stripper that a user can see. Their texts, file and lines are fixed:
// they are part of the messages, and do not follow the code. Conditions that cannot fail as the
// code stands have no row.
#pragma once

#include "shared/genexit.h"

struct elf_assert_site {
    const char* expression;
    int line;
};

constexpr elf_assert_site ASSERT_SCAN_REL_SYMBOL = {"sym < symcnt", 867};
constexpr elf_assert_site ASSERT_SCAN_RELA_SYMBOL = {"sym < symcnt", 880};
constexpr elf_assert_site ASSERT_SECTION_NAME_ROOM = {"newstrsize + len <= sechead[stridx].sh_size",
                                                      911};
constexpr elf_assert_site ASSERT_NEWSYMBOLS = {"newsymbols != ((void *)0)", 939};
constexpr elf_assert_site ASSERT_NEWSHNDX_SIZE = {"new_size <= sechead[idx].sh_size", 978};
constexpr elf_assert_site ASSERT_NEWSTRTAB_SIZE = {"newstrsize <= sechead[idx].sh_size", 991};
constexpr elf_assert_site ASSERT_REL_NOT_RELOCATABLE = {"elfhead->e_type != 1", 1032};
constexpr elf_assert_site ASSERT_REL_IS_SIMPLE = {
    "is_simple_rel_reloc(elfhead, ((rels[k].r_info)&0xffffffffL))", 1034};
constexpr elf_assert_site ASSERT_SECTION_SYMBOL_INDEX = {"sym->st_shndx < elfhead->e_shnum", 1439};
constexpr elf_assert_site ASSERT_STRING_ROOM = {"curr_off + len <= strsize", 1532};
constexpr elf_assert_site ASSERT_SECTION_SYMBOL_NAME = {"strcmp(shstrtabname, name) == 0", 1550};
constexpr elf_assert_site ASSERT_SIMPLE_NOT_RELOCATABLE = {"elfhead->e_type != 1", 1612};

inline void elf_assert(bool condition, const elf_assert_site& site) {
    gen_assert(condition, site.expression, "src/util/elfstrip", site.line);
}
