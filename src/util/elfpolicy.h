// Section policy: which sections of an ELF file go, and how the others are numbered.
#pragma once

#include <cstdint>
#include <vector>

#include "util/elfimage.h"
#include "util/options.h"

// Names that the options add to the lists. Debug sections that are not named here stay; the second
// .debug_macinfo is deliberate and takes a place of the list.
constexpr const char* symbol_table_names[] = {".symtab", ".strtab"};
constexpr const char* orv_debug_names[] = {".linfix", ".rominfo"};
constexpr const char* line_number_names[] = {".line", ".debug_line"};
constexpr const char* debug_names[] = {
    ".debug",         ".debug_info",    ".debug_abbrev",      ".debug_macinfo",  ".debug_frame",
    ".debug_macinfo", ".debug_aranges", ".debug_ranges",      ".debug_pubnames", ".debug_loc",
    ".debug_str",     ".debug_sfnames", ".debug_srcinfo",     ".stab",           ".stabstr",
    ".stab.index",    ".stab.indexstr", ".debug_control_flow"};
constexpr const char* local_name_pattern = "*..*";

enum section_state : uint32_t { SECTION_REMOVED = 0, SECTION_KEPT = 1 };

struct strip_section_info {
    section_state state = SECTION_REMOVED;
    uint64_t old_offset = 0;  // sh_offset in the input
    uint64_t shift = 0;       // bytes by which its data moves down
    uint64_t shift_after = 0; // bytes by which data behind this section moves down
};

// The verdicts on one file. Indexes are input section indexes; 0 stands for no section.
struct section_plan {
    std::vector<strip_section_info> info;
    std::vector<uint32_t> new_section_index; // 0 for section 0 and for removed sections
    uint32_t kept_count = 0;                 // section 0 included
    uint32_t symtab_index = 0;               // the symbol table that stays
    uint32_t strtab_index = 0;               // its string table
    uint32_t shndx_index = 0;                // its extended index table
};

// Classifies and numbers the sections. The options are reconciled and the names sound.
section_plan plan_sections(const strip_options& options, const elf_image& image);

inline bool removes_sections(const section_plan& plan) {
    return plan.kept_count < plan.info.size();
}

// The new number of a section: -1 for -1, section 0, a removed section, or none at all.
int64_t map_section_index(const section_plan& plan, int64_t index);
