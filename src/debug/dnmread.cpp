// Reading a debug-name-map. Every number is checked against the file before it is used; a failure
// is told with the position of the step that met it, and leaves nothing behind.
#include <algorithm>
#include <cerrno>

#include "debug/dnmlayout.h"
#include "debug/dnmsanity.h"
#include "shared/genmessage.h"

namespace {

bool read_prologue(dnm_reader& reader, dnm_map& map) {
    uint32_t found_magic = 0;
    uint32_t version = 0;
    uint32_t kind = 0;
    uint32_t compressed = 0;
    uint8_t encoding = 0;
    uint8_t descriptors = 0;
    uint8_t extension_level = 0;
    uint8_t reserved = 0;
    reader.u32(found_magic);
    reader.u32(version);
    reader.u32(kind);
    reader.u32(compressed);
    reader.u8(encoding);
    reader.u8(descriptors);
    reader.u8(extension_level);
    reader.u8(reserved);
    if (reader.failed || found_magic != dnm_magic || version > dnm_newest_prologue)
        return false;
    map.compressed = compressed != 0;
    reader.coding.compressed = map.compressed;
    reader.coding.address_mode = dnm_mode_from_encoding(encoding);
    if (descriptors != dnm_no_descriptors) {
        gen_error("GFile desciptors not supported");
        return false;
    }
    return extension_level <= dnm_newest_extension && reserved == 0;
}

// Judged as soon as it is read: what follows differs by version.
bool version_is_supported(const dnm_map& map) {
    const int32_t version = map.header.version;
    const char* name = map.name.c_str();
    if (version < dnm_oldest_version) {
        gen_error("<libst>: \"%s\" has version %d, which is no longer supported", name, version);
        return false;
    }
    if (version > dnm_newest_version) {
        const char* program = *gen_program_name() ? gen_program_name() : "this utility";
        gen_error("<libst>: \"%s\" has version %d, %s only supports up to version %d", name,
                  version, program, dnm_named_version);
        return false;
    }
    if (version == dnm_newest_version)
        gen_warning("<libst>: \"%s\" has version %d, which is the development version", name,
                    version);
    return true;
}

void supply_defaults(dnm_header& header) {
    if (header.version < 20)
        header.strings[1] = header.strings[0];
    if (header.version < 21)
        header.strings[3] = header.strings[2];
    if (header.version < 29)
        header.reserved_n = header.bytes_per_text_unit == 2 ? 1 : 0;
    // Early writers filled the unused flags with ones.
    if (header.version < 43 && (header.header_flags & 0xFE) == 0xFE)
        header.header_flags = static_cast<uint8_t>((header.header_flags & 1) | 2);
}

void read_directory(dnm_reader& reader, dnm_header& header) {
    uint8_t count = 0;
    reader.u8(count);
    header.tables.resize(count);
    for (dnm_table& table : header.tables)
        table.offset = header.version >= 40 ? static_cast<int64_t>(reader.fixed(8))
                                            : int64_t{static_cast<int32_t>(reader.fixed(4))};
    for (dnm_table& table : header.tables) {
        uint32_t max = 0;
        reader.number(max);
        table.max = static_cast<int32_t>(max);
        reader.number(table.parameter);
        reader.u8(table.flags[0]);
        reader.u8(table.flags[1]);
    }
}

bool read_header(dnm_reader& reader, dnm_map& map) {
    uint32_t version = 0;
    reader.u32(version);
    map.header.version = static_cast<int32_t>(version);
    if (!reader.failed && !version_is_supported(map))
        return false;
    if (!reader.failed) {
        dnm_layout_header(reader, map.header);
        read_directory(reader, map.header);
    }
    if (reader.failed) {
        gen_system_error("<libst>: while %s in \"%s\"", "reading .dnm header", map.name.c_str());
        return false;
    }
    supply_defaults(map.header);
    if (STDnm_CheckHeadSanity(map.header) != 0) {
        dnm_note_corruption(map);
        return false;
    }
    return true;
}

// A table has the bytes from its offset to the next table's, or to the end of the file. What a
// table of no entries says of its place means nothing.
void find_extents(dnm_map& map) {
    map.header.tables.resize(DNM_TABLE_COUNT);
    std::vector<uint64_t> starts;
    for (dnm_table& table : map.header.tables) {
        table.start = static_cast<uint64_t>(table.offset);
        if (table.max > 0)
            starts.push_back(table.start);
    }
    std::sort(starts.begin(), starts.end());
    for (dnm_table& table : map.header.tables) {
        if (table.max <= 0)
            continue;
        const auto next = std::upper_bound(starts.begin(), starts.end(), table.start);
        const uint64_t end =
            std::min(next != starts.end() ? *next : map.input->size, map.input->size);
        table.size = end > table.start ? end - table.start : 0;
    }
}

bool read_sections(dnm_reader& reader, dnm_map& map) {
    const dnm_table& table = map.header.tables[DNM_SECTIONS];
    if (gen_seek(*map.input, static_cast<int64_t>(table.start), GEN_SEEK_SET) != 0)
        return false;
    reader.end = table.start + table.size;
    for (int32_t i = 0; i < table.max; ++i) {
        dnm_section section;
        dnm_layout_section(reader, map.header.version, section);
        if (reader.failed)
            return false;
        if (STDnm_CheckSectionSanity(section) != 0) {
            dnm_note_corruption(map);
            return false;
        }
        map.sections.push_back(section);
    }
    map.sections_tail = map.input->position;
    return true;
}

// Loads "Sections"; of the others it makes sure that they lie in the file.
bool read_table(dnm_reader& reader, dnm_map& map, dnm_table_id index) {
    const dnm_table& table = map.header.tables[index];
    if (index == DNM_SECTIONS_BY_ADR && map.header.version < 30)
        return true;
    map.held[index].loaded = true;
    if (table.max == 0)
        return true;
    if (table.start >= map.input->size)
        return false;
    if (index == DNM_SECTIONS && !read_sections(reader, map))
        return false;
    map.held[index].entries =
        index == DNM_SECTIONS ? static_cast<int32_t>(map.sections.size()) : table.max;
    return true;
}

// The position of the step that failed, or DNM_NO_STEP.
dnm_position read_map(dnm_map& map) {
    map.input = gen_open(map.name.c_str(), "rb");
    if (!map.input)
        return DNM_READ_PROLOGUE;
    dnm_reader reader = {map.input.get(), map.input->size, {}};
    if (!read_prologue(reader, map))
        return DNM_READ_PROLOGUE;
    if (!read_header(reader, map))
        return DNM_READ_HEADER;
    find_extents(map);
    map.held.resize(DNM_TABLE_COUNT);
    for (const dnm_family& family : dnm_families)
        for (dnm_table_id index : family.tables)
            if (family.position != DNM_NO_STEP && !read_table(reader, map, index))
                return family.position;
    if (STDnm_CheckSanity(map) != 0) {
        dnm_note_corruption(map);
        return DNM_READ_CHECK;
    }
    return DNM_NO_STEP;
}

} // namespace

std::unique_ptr<dnm_map> STDnm_Read(const char* name) {
    std::unique_ptr<dnm_map> map = std::make_unique<dnm_map>();
    map->name = name;
    errno = 0;
    const dnm_position position = read_map(*map);
    if (position == DNM_NO_STEP)
        return map;
    const int reason = errno;
    gen_error("<libst>: failed while reading \"%s\" (pos %d, errno %d)", name, position, reason);
    return nullptr;
}
