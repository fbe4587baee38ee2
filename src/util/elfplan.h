// All that is decided about one ELF file before its output is opened.
#pragma once

#include "util/elfpolicy.h"
#include "util/elfreloc.h"
#include "util/elfsymbols.h"

struct strip_plan {
    section_plan sections;
    symbol_plan symbols;
    relocation_plan relocations;
};

// Whether section `index`, which is kept, gets new contents instead of its old bytes.
inline bool is_rewritten(const strip_plan& plan, uint32_t index) {
    const section_plan& sections = plan.sections;
    return plan.symbols.present &&
           (index == sections.symtab_index || index == sections.strtab_index ||
            index == sections.shndx_index || plan.relocations.table_of[index] != 0);
}
