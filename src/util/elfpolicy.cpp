// Section policy: the removal test, classification and numbering.
#include "util/elfpolicy.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>

#include "util/options.h"

namespace {

bool is_one_of(const char* name, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(),
                       [name](const char* other) { return strcmp(name, other) == 0; });
}

// A relocation section is judged by the name of the section that it applies to. The prefix alone
// decides: ".reloc" is judged as "oc".
const char* without_relocation_prefix(const char* name) {
    for (const char* prefix : {".rela", ".rel"})
        if (strncmp(name, prefix, strlen(prefix)) == 0)
            return name + strlen(prefix);
    return name;
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

bool section_is_removed(const elf_image& image, uint32_t index) {
    const elf_section_header& section = image.sechead[index];
    const char* name = section_name(image, section);
    if (index == 0 && section.sh_name == 0 && section.sh_type == 0 && section.sh_offset == 0)
        return false;
    if (section.sh_flags & SHF_ALLOC)
        return false;
    if (is_one_of(name, {".shstrtab", ".symtab_shndx"}))
        return false;
    if (strip_flags.strip_reloc && is_one_of(name, {".symtab", ".strtab"}))
        return false;
    name = without_relocation_prefix(name);
    const bool named = strip_flags.wildcards ? match_name_list(remove_section_list, name)
                                             : match_exact_name(remove_section_list, name);
    return named || strip_flags.all_unallocated;
}

section_plan plan_sections(const elf_image& image) {
    section_plan plan;
    plan.info.resize(image.sechead.size());
    plan.new_section_index.resize(image.sechead.size());
    for (uint32_t i = 0; i < image.sechead.size(); ++i) {
        plan.info[i].old_offset = image.sechead[i].sh_offset;
        if (!section_is_removed(image, i))
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

namespace {

// A range of the file and who claims it.
struct claimed_range {
    uint64_t start;
    uint64_t end;
    size_t section; // 0 for a header
    bool removed;
};

void claim(std::vector<claimed_range>& ranges, uint64_t start, uint64_t size, size_t section,
           bool removed) {
    const uint64_t end = size > UINT64_MAX - start ? UINT64_MAX : start + size;
    ranges.push_back({start, end, section, removed});
}

std::vector<claimed_range> claimed_ranges(const elf_image& image, const section_plan& plan) {
    const elf_file_header& head = image.elfhead;
    std::vector<claimed_range> ranges;
    ranges.reserve(image.sechead.size() + 3);
    claim(ranges, 0, elf_file_header_size(image.elfbits), 0, false);
    claim(ranges, head.e_shoff, uint64_t{head.e_shnum} * section_header_stride(image), 0, false);
    if (head.e_phnum != 0)
        claim(ranges, head.e_phoff, uint64_t{head.e_phnum} * program_header_stride(image), 0,
              false);
    for (size_t i = 0; i < image.sechead.size(); ++i)
        if (has_data(image.sechead[i]))
            claim(ranges, image.sechead[i].sh_offset, image.sechead[i].sh_size, i,
                  plan.info[i].state == SECTION_REMOVED);
    std::sort(ranges.begin(), ranges.end(),
              [](const claimed_range& a, const claimed_range& b) { return a.start < b.start; });
    return ranges;
}

} // namespace

bool removal_is_safe(const elf_image& image, const section_plan& plan) {
    // In order of their starts, a range meets an earlier one if it starts before that one's end.
    claimed_range reaching_furthest = {0, 0, 0, false};
    claimed_range removed_reaching_furthest = {0, 0, 0, true};
    for (const claimed_range& range : claimed_ranges(image, plan)) {
        const bool removed_meets_earlier = range.removed && range.start < reaching_furthest.end;
        const bool meets_earlier_removed = range.start < removed_reaching_furthest.end;
        if (removed_meets_earlier || meets_earlier_removed) {
            const size_t section =
                removed_meets_earlier ? range.section : removed_reaching_furthest.section;
            return report_damage(image.name,
                                 "section %zu, which is to be removed, shares bytes with another "
                                 "section or a header near offset 0x%" PRIx64,
                                 section, range.start);
        }
        if (range.end > reaching_furthest.end)
            reaching_furthest = range;
        if (range.removed && range.end > removed_reaching_furthest.end)
            removed_reaching_furthest = range;
    }
    return true;
}
