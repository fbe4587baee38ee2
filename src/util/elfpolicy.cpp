// Section policy: the removal test, classification and numbering.
#include "util/elfpolicy.h"

#include <algorithm>
#include <cstring>

namespace {

bool is_one_of(const char* name, std::initializer_list<const char*> names) {
    return std::ranges::any_of(names, [=](const char* other) { return strcmp(name, other) == 0; });
}

// How much of the name does not count. A relocation section is judged by the name of the section
// that it applies to; the prefix alone decides, so ".reloc" is judged as "oc".
uint32_t relocation_prefix_length(const char* name) {
    for (const char* prefix : {".rela", ".rel"})
        if (strncmp(name, prefix, strlen(prefix)) == 0)
            return static_cast<uint32_t>(strlen(prefix));
    return 0;
}

// What is to be removed: the options, and their names as patterns where these are asked for.
struct removal_rules {
    const strip_options& options;
    string_index strings;
    name_judge judge;
};

bool is_named_for_removal(const elf_image& image, const elf_section_header& section,
                          removal_rules& rules) {
    const uint32_t skipped = relocation_prefix_length(section_name(image, section));
    if (rules.options.strip_flags.wildcards)
        return is_named(rules.judge, section.sh_name + skipped);
    return match_exact_name(rules.options.remove_section_list,
                            section_name(image, section) + skipped);
}

// The first rule that applies decides.
bool section_is_removed(const elf_image& image, uint32_t index, removal_rules& rules) {
    const elf_section_header& section = image.sechead[index];
    const option_flags& flags = rules.options.strip_flags;
    const char* name = section_name(image, section);
    if (index == 0 || section.sh_flags & SHF_ALLOC)
        return false;
    if (is_one_of(name, {".shstrtab", ".symtab_shndx"}))
        return false;
    if (flags.strip_reloc && is_one_of(name, {".symtab", ".strtab"}))
        return false;
    return is_named_for_removal(image, section, rules) || flags.all_unallocated;
}

void keep_section(section_plan& plan, const elf_image& image, uint32_t index) {
    plan.info[index].state = SECTION_KEPT;
    ++plan.kept_count;
    if (image.sechead[index].sh_type == SHT_SYMTAB) {
        plan.symtab_index = index;
        plan.strtab_index = image.sechead[index].sh_link;
    } else if (image.sechead[index].sh_type == SHT_SYMTAB_SHNDX) {
        plan.shndx_index = index;
    }
}

// The extended index table serves a symbol table, and only while some section's new index does not
// fit below the reserved ones.
void drop_idle_index_table(section_plan& plan) {
    const bool needed = plan.symtab_index != 0 && plan.kept_count - 1 > SHN_LORESERVE;
    if (plan.shndx_index == 0 || needed)
        return;
    plan.info[plan.shndx_index].state = SECTION_REMOVED;
    --plan.kept_count;
    plan.shndx_index = 0;
}

void number_sections(section_plan& plan) {
    uint32_t next = 1;
    for (size_t i = 1; i < plan.info.size(); ++i)
        plan.new_section_index[i] = plan.info[i].state == SECTION_REMOVED ? 0 : next++;
}

} // namespace

section_plan plan_sections(const strip_options& options, const elf_image& image) {
    removal_rules rules = {options, {}, {}};
    if (options.strip_flags.wildcards) {
        rules.strings = index_strings(image.shstrtab.text(), image.shstrtab.size + 1);
        rules.judge = make_judge(options.remove_section_list, rules.strings);
    }
    section_plan plan;
    plan.info.resize(image.sechead.size());
    plan.new_section_index.resize(image.sechead.size());
    for (uint32_t i = 0; i < image.sechead.size(); ++i) {
        plan.info[i].old_offset = image.sechead[i].sh_offset;
        if (!section_is_removed(image, i, rules))
            keep_section(plan, image, i);
    }
    drop_idle_index_table(plan);
    number_sections(plan);
    return plan;
}

int64_t map_section_index(const section_plan& plan, int64_t index) {
    if (index < 0 || static_cast<uint64_t>(index) >= plan.new_section_index.size())
        return -1;
    const uint32_t mapped = plan.new_section_index[static_cast<size_t>(index)];
    return mapped != 0 ? int64_t{mapped} : -1;
}
