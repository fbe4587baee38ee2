// The search for shared bytes: one sweep over all ranges in the order of their starts.
#include "util/elfoverlap.h"

#include <algorithm>
#include <cinttypes>
#include <string>

#include "util/damage.h"

namespace {

// A range of the file and who claims it.
struct claimed_range {
    uint64_t start = 0;
    uint64_t end = 0;
    uint32_t section = 0; // 0 for a header
    bool removed = false;
};

claimed_range claim(uint64_t start, uint64_t size, uint32_t section, bool removed) {
    return {start, size > UINT64_MAX - start ? UINT64_MAX : start + size, section, removed};
}

std::vector<claimed_range> claimed_ranges(const elf_image& image, const section_plan& plan) {
    const elf_file_header& head = image.elfhead;
    const uint64_t section_headers = uint64_t{head.e_shnum} * section_header_stride(image);
    const uint64_t program_headers = uint64_t{head.e_phnum} * program_header_stride(image);
    std::vector<claimed_range> ranges;
    ranges.reserve(image.sechead.size() + 3);
    ranges.push_back(claim(0, elf_file_header_size(image.elf.elfbits), 0, false));
    ranges.push_back(claim(head.e_shoff, section_headers, 0, false));
    if (head.e_phnum != 0)
        ranges.push_back(claim(head.e_phoff, program_headers, 0, false));
    for (uint32_t i = 0; i < image.sechead.size(); ++i) {
        const elf_section_header& section = image.sechead[i];
        const bool removed = plan.info[i].state == SECTION_REMOVED;
        if (has_data(section))
            ranges.push_back(claim(section.sh_offset, section.sh_size, i, removed));
    }
    std::ranges::sort(ranges, {}, &claimed_range::start);
    return ranges;
}

bool report_shared(const elf_image& image, const claimed_range& removed,
                   const claimed_range& other) {
    std::string owner = "a header";
    uint64_t size = other.end - other.start;
    if (other.section != 0) {
        owner = "section " + std::to_string(other.section);
        size = image.sechead[other.section].sh_size;
    }
    return report_damage(image.name,
                         "section %" PRIu32 ", which is to be removed, at sh_offset 0x%" PRIx64
                         " with sh_size 0x%" PRIx64 " shares bytes with %s at 0x%" PRIx64
                         " with size 0x%" PRIx64,
                         removed.section, removed.start, image.sechead[removed.section].sh_size,
                         owner.c_str(), other.start, size);
}

} // namespace

bool removal_is_safe(const elf_image& image, const section_plan& plan) {
    // In order of their starts, a range meets an earlier one if it starts before that one's end.
    claimed_range furthest;
    claimed_range furthest_removed;
    for (const claimed_range& range : claimed_ranges(image, plan)) {
        const bool removed_meets_earlier = range.removed && range.start < furthest.end;
        const bool meets_earlier_removed = range.start < furthest_removed.end;
        if (removed_meets_earlier)
            return report_shared(image, range, furthest);
        if (meets_earlier_removed)
            return report_shared(image, furthest_removed, range);
        if (range.end > furthest.end)
            furthest = range;
        if (range.removed && range.end > furthest_removed.end)
            furthest_removed = range;
    }
    return true;
}
