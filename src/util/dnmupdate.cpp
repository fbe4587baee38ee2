// The companion's update: record by record, through the maps of the strip.
#include "util/dnmupdate.h"

#include <memory>
#include <string>

#include "debug/dnmfile.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/host.h"

namespace {

std::string companion_name(const std::string& name) {
    const std::string_view component = gen_last_component(name);
    const size_t dot = component.rfind('.');
    const size_t cut = dot == std::string_view::npos ? 0 : component.size() - dot;
    return name.substr(0, name.size() - cut) + ".dnm";
}

bool is_removed(const section_plan& plan, int32_t index) {
    return index >= 0 && static_cast<size_t>(index) < plan.info.size() &&
           plan.info[static_cast<size_t>(index)].state == SECTION_REMOVED;
}

void clear_record(dnm_section& record) {
    record.file_offset = 0;
    record.second_file_offset = 0;
    for (int32_t& index : record.section_indexes)
        index = -1;
}

void update_record(dnm_section& record, const section_plan& plan, const elf_layout_plan& layout) {
    if (record.section_indexes[0] == -1)
        return;
    if (is_removed(plan, record.section_indexes[0]))
        return clear_record(record);
    record.file_offset = translate_offset(layout, plan, record.file_offset);
    if (record.second_file_offset != 0)
        record.second_file_offset = translate_offset(layout, plan, record.second_file_offset);
    for (int32_t& index : record.section_indexes)
        index = static_cast<int32_t>(map_section_index(plan, index));
}

} // namespace

void update_dnm(gen_temp_space& temp, const elf_image& image, const section_plan& plan,
                const elf_layout_plan& layout) {
    if (image.elfhead.e_type != ET_EXEC)
        return;
    const std::string name = companion_name(image.name);
    if (!host_readable(name.c_str()))
        return;
    const std::unique_ptr<dnm_map> map = STDnm_Read(name.c_str());
    if (!map) {
        gen_warning("failed to read %s\n", name.c_str());
        return;
    }
    for (dnm_section& record : map->sections)
        update_record(record, plan, layout);
    STDnm_Write(*map, temp); // a failure has been reported; the strip goes on
}
