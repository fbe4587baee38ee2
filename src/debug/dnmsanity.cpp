// The rules, as tables.
#include "debug/dnmsanity.h"

#include <algorithm>
#include <cinttypes>

#include "shared/genmessage.h"

namespace {

// A header value and the range that it has to lie in.
struct range_rule {
    int64_t value, lowest, highest;
    const char* name;
};

// An index table holds no more entries than the table that it indexes.
struct index_rule {
    dnm_table_id index_table, base_table;
    const char* index_name;
    const char* base_name;
};

constexpr index_rule index_rules[] = {
    {DNM_FILES_BY_BASE_NAME, DNM_FILES, "SourceFileByBaseNames", "SourceFiles"},
    {DNM_FILES_BY_REL_NAME, DNM_FILES, "SourceFileByRelNames", "SourceFiles"},
    {DNM_FILES_BY_FULL_NAME, DNM_FILES, "SourceFileByFullNames", "SourceFiles"},
    {DNM_DLO_FILES_BY_OFFSET, DNM_DLO_FILES, "DloFileByOffsets", "DloFiles"},
    {DNM_DLO_FILE_UPDATE_LINKS, DNM_DLO_FILES, "DloFileUpdateLinks", "DloFiles"},
    {DNM_LABELS_BY_ADR, DNM_LABELS, "LinkLabelByAdrs", "LinkLabel"},
    {DNM_LABELS_BY_USE_NAME, DNM_LABELS, "LinkLabelByUseNames", "LinkLabel"},
    {DNM_LABELS_BY_MANGLED_NAME, DNM_LABELS, "LinkLabelByMangledNames", "LinkLabel"},
    {DNM_LABELS_BY_LINK_NAME, DNM_LABELS, "LinkLabelByLinkNames", "LinkLabel"},
    {DNM_STATIC_LABELS, DNM_LABELS, "LinkLabelByStaticIDbgSyms", "LinkLabel"},
    {DNM_LABEL_UPDATE_LINKS, DNM_LABELS, "LinkLabelUpdateLinks", "LinkLabel"},
    {DNM_LABELS_BY_AGAINST_ADR, DNM_LABELS, "LinkLabelByAdrAgainsts", "LinkLabel"},
    {DNM_LABELS_BY_REG, DNM_LABELS, "LinkLabelByRegs", "LinkLabel"},
    {DNM_LABELS_BY_REG_PLUS_OFFSET, DNM_LABELS, "LinkLabelByRegPlusOffsets", "LinkLabel"},
    {DNM_TYPES_BY_MANGLED_NAME, DNM_TYPES, "TypeByMangledNames", "Types"},
    {DNM_TYPES_BY_USE_NAME, DNM_TYPES, "TypeByUseNames", "Types"},
    {DNM_CPP_TYPES_BY_REV_USE_NAME, DNM_TYPES, "CppTypesByRevUseName", "Types"},
    {DNM_SECTIONS_BY_ADR, DNM_SECTIONS, "SectionByAdr", "Section"},
    {DNM_STUBS_BY_LINK_NAME, DNM_STUBS, "LinkageStubByLinkNames", "LinkageStubs"},
    {DNM_STUBS_BY_ADR, DNM_STUBS, "LinkageStubByAdrs", "LinkageStubs"},
};

constexpr int64_t highest_version = 94;      // reading refuses those above the newest one before
constexpr int64_t highest_address_unit = 32; // bytes
constexpr uint32_t highest_table_parameter = 20;
constexpr uint8_t section_kind_count = 43;

int check_directory(const dnm_header& header) {
    for (size_t i = 0; i < header.tables.size(); ++i) {
        const dnm_table& table = header.tables[i];
        if (table.offset < 0) {
            gen_error("<libst>: [STDnm_CheckHeadSanity] Invalid offset 0x%" PRIx64
                      " for table with index %d",
                      static_cast<uint64_t>(table.offset), static_cast<int>(i));
            return 1;
        }
        if (table.max < 0 || table.parameter > highest_table_parameter) {
            gen_error("<libst>: [STDnm_CheckHeadSanity] Invalid max %d for table with index %d",
                      table.max, static_cast<int>(i));
            return 1;
        }
    }
    return 0;
}

int32_t max_of(const dnm_header& header, dnm_table_id table) {
    return table < header.tables.size() ? header.tables[table].max : 0;
}

} // namespace

int STDnm_CheckHeadSanity(const dnm_header& header) {
    // Formats, types and styles are numbers of what there is, from 0 on.
    const range_rule range_rules[] = {
        {header.version, dnm_oldest_version, highest_version, "dnm version"},
        {header.address_mode, DNM_ADDRESS_16, DNM_ADDRESS_64, "address mode"},
        {header.endian_flag, 0, 1, "endian flag"},
        {header.object_module_format, 0, 3, "object module format"},
        {header.object_module_type, 0, 3, "object module type"},
        {header.bytes_per_text_unit, 1, highest_address_unit, "bytes per text address unit"},
        {header.bytes_per_data_unit, 1, highest_address_unit, "bytes per data address unit"},
        {header.abi_style, 0, 7, "C++ ABI style"},
        {header.mangle_style, 0, 6, "C++ mangle style"},
        {header.encoding_type, 0, 1, "encodingType"},
        {static_cast<int64_t>(header.tables.size()), 0, dnm_max_tables, "numTables"},
    };
    for (const range_rule& rule : range_rules)
        if (rule.value < rule.lowest || rule.value > rule.highest) {
            gen_error("<libst>: [STDnm_CheckHeadSanity] Invalid %s (%d)", rule.name,
                      static_cast<int>(rule.value));
            return 1;
        }
    if (check_directory(header) != 0)
        return 1;
    for (const index_rule& rule : index_rules) {
        const int32_t index_max = max_of(header, rule.index_table);
        const int32_t base_max = max_of(header, rule.base_table);
        if (index_max > base_max) {
            gen_error("<libst>: [STDnm_CheckHeadSanity] Invalid %s max %d > %s max %d",
                      rule.index_name, index_max, rule.base_name, base_max);
            return 1;
        }
    }
    return 0;
}

int STDnm_CheckSectionSanity(const dnm_section& section) {
    if (section.kind < section_kind_count)
        return 0;
    gen_error("<libst>: [STDnm_CheckSectionSanity] Invalid link label sc (%d)",
              static_cast<int>(section.kind));
    return 1;
}

int STDnm_CheckSanity(const dnm_map& map) {
    for (size_t i = 0; i < map.header.tables.size() && i < map.held.size(); ++i) {
        const dnm_held& held = map.held[i];
        const int32_t expected = held.loaded ? map.header.tables[i].max : 0;
        if (expected == held.entries)
            continue;
        gen_error("<libst>: [STDnm_CheckSanity] max %d for table with index %d (%s) != table "
                  "size %d",
                  expected, static_cast<int>(i), held.loaded ? "loaded" : "not loaded",
                  held.entries);
        return 1;
    }
    return 0;
}

void dnm_note_corruption(dnm_map& map) {
    map.last_error = "Corruption in symbol file is detected:\n" + map.name;
}
