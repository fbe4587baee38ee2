// The rules, as tables.
#include "debug/dnmsanity.h"

#include <algorithm>
#include <cinttypes>

#include "shared/genmessage.h"

namespace {

// A header value and the range that it has to lie in.
struct range_rule {
    int64_t (*value)(const dnm_header& header);
    int64_t lowest;
    int64_t highest;
    const char* complaint; // with the value as %d
};

constexpr range_rule range_rules[] = {
    {[](const dnm_header& h) -> int64_t { return h.version; }, 10, 94,
     "<libst>: [STDnm_CheckHeadSanity] Invalid dnm version (%d)"},
    {[](const dnm_header& h) -> int64_t { return h.address_mode; }, 0, 3,
     "<libst>: [STDnm_CheckHeadSanity] Invalid address mode (%d)"},
    {[](const dnm_header& h) -> int64_t { return h.endian_flag; }, 0, 1,
     "<libst>: [STDnm_CheckHeadSanity] Invalid endian flag (%d)"},
    {[](const dnm_header& h) -> int64_t { return h.object_module_format; }, 0, 3,
     "<libst>: [STDnm_CheckHeadSanity] Invalid object module format (%d)"},
    {[](const dnm_header& h) -> int64_t { return h.object_module_type; }, 0, 3,
     "<libst>: [STDnm_CheckHeadSanity] Invalid object module type (%d)"},
    {[](const dnm_header& h) -> int64_t { return h.bytes_per_text_unit; }, 1, 32,
     "<libst>: [STDnm_CheckHeadSanity] Invalid bytes per text address unit (%d)"},
    {[](const dnm_header& h) -> int64_t { return h.bytes_per_data_unit; }, 1, 32,
     "<libst>: [STDnm_CheckHeadSanity] Invalid bytes per data address unit (%d)"},
    {[](const dnm_header& h) -> int64_t { return h.abi_style; }, 0, 7,
     "<libst>: [STDnm_CheckHeadSanity] Invalid C++ ABI style (%d)"},
    {[](const dnm_header& h) -> int64_t { return h.mangle_style; }, 0, 6,
     "<libst>: [STDnm_CheckHeadSanity] Invalid C++ mangle style (%d)"},
    {[](const dnm_header& h) -> int64_t { return h.encoding_type; }, 0, 1,
     "<libst>: [STDnm_CheckHeadSanity] Invalid encodingType (%d)"},
    {[](const dnm_header& h) { return static_cast<int64_t>(h.tables.size()); }, 0, dnm_max_tables,
     "<libst>: [STDnm_CheckHeadSanity] Invalid numTables (%d)"},
};

// An index table holds no more entries than the table that it indexes.
struct index_rule {
    uint8_t index_table;
    uint8_t base_table;
    const char* index_name;
    const char* base_name;
};

constexpr index_rule index_rules[] = {
    {4, 3, "SourceFileByBaseNames", "SourceFiles"},
    {5, 3, "SourceFileByRelNames", "SourceFiles"},
    {6, 3, "SourceFileByFullNames", "SourceFiles"},
    {17, 2, "DloFileByOffsets", "DloFiles"},
    {18, 2, "DloFileUpdateLinks", "DloFiles"},
    {8, 7, "LinkLabelByAdrs", "LinkLabel"},
    {9, 7, "LinkLabelByUseNames", "LinkLabel"},
    {10, 7, "LinkLabelByMangledNames", "LinkLabel"},
    {11, 7, "LinkLabelByLinkNames", "LinkLabel"},
    {16, 7, "LinkLabelByStaticIDbgSyms", "LinkLabel"},
    {19, 7, "LinkLabelUpdateLinks", "LinkLabel"},
    {21, 7, "LinkLabelByAdrAgainsts", "LinkLabel"},
    {22, 7, "LinkLabelByRegs", "LinkLabel"},
    {23, 7, "LinkLabelByRegPlusOffsets", "LinkLabel"},
    {13, 12, "TypeByMangledNames", "Types"},
    {28, 12, "TypeByUseNames", "Types"},
    {33, 12, "CppTypesByRevUseName", "Types"},
    {29, 1, "SectionByAdr", "Section"},
    {25, 24, "LinkageStubByLinkNames", "LinkageStubs"},
    {26, 24, "LinkageStubByAdrs", "LinkageStubs"},
};

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

int32_t max_of(const dnm_header& header, uint8_t table) {
    return table < header.tables.size() ? header.tables[table].max : 0;
}

} // namespace

int STDnm_CheckHeadSanity(const dnm_header& header) {
    for (const range_rule& rule : range_rules) {
        const int64_t value = rule.value(header);
        if (value < rule.lowest || value > rule.highest) {
            gen_error(rule.complaint, static_cast<int>(value));
            return 1;
        }
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
