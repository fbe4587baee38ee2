// Member headers of the three archive formats that are a chain without links: the next header
// follows the data. They differ in the length of the name field and in two widths.
#include "objfile/arformat.h"

#include <algorithm>

#include "objfile/arfield.h"
#include "objfile/arname.h"

namespace {

constexpr size_t name_width = 16;
// Names of OBJ_ELFARCHIVE go on by so many bytes until their "/" is found, but not for ever.
constexpr size_t name_step = 4;
constexpr size_t longest_name_field = 512;

struct header_layout {
    size_t date_width, size_width;

    size_t size_without_name() const { return date_width + 6 + 6 + 8 + size_width + 2; }
};
constexpr header_layout standard = {12, 10};
constexpr header_layout wide = {20, 20};

const header_layout& layout_of(obj_kind kind) {
    return kind == OBJ_ARCHIVE64 ? wide : standard;
}

bool ends_in_slash(std::string_view field) {
    return ar_without_trailing_space(field).ends_with('/');
}

// One header as it stands in the file.
struct raw_header {
    char bytes[longest_name_field + 64];
    size_t name_size = name_width;

    std::string_view name_field() const { return {bytes, name_size}; }
};

bool read_raw_header(ar_reader& reader, raw_header& raw) {
    const size_t fields_size = layout_of(reader.variant).size_without_name();
    if (reader.variant != OBJ_ELFARCHIVE)
        return ar_read_header_bytes(reader, raw.bytes, name_width + fields_size);
    if (!ar_read_header_bytes(reader, raw.bytes, name_width))
        return false;
    while (raw.name_size < longest_name_field && !ends_in_slash(raw.name_field())) {
        if (!ar_read_header_bytes(reader, raw.bytes + raw.name_size, name_step))
            return false;
        raw.name_size += name_step;
    }
    return ar_read_header_bytes(reader, raw.bytes + raw.name_size, fields_size);
}

// A 32-bit field wraps at its width.
int64_t decimal_of_width(std::string_view field, const header_layout& layout) {
    const int64_t value = ar_decimal(field);
    return &layout == &wide ? value : int64_t{static_cast<int32_t>(value)};
}

bool decode_fields(ar_reader& reader, const raw_header& raw) {
    const header_layout& layout = layout_of(reader.variant);
    ar_member& record = reader.member;
    ar_field_cursor fields = {{raw.bytes + raw.name_size, layout.size_without_name()}};
    if (!ar_check_terminator(reader, fields.rest.substr(fields.rest.size() - 2)))
        return false;
    record.date = decimal_of_width(fields.take(layout.date_width), layout);
    record.uid = static_cast<uint32_t>(ar_decimal(fields.take(6)));
    record.gid = static_cast<uint32_t>(ar_decimal(fields.take(6)));
    record.mode = ar_octal(fields.take(8));
    record.size = decimal_of_width(fields.take(layout.size_width), layout);
    record.is_index = false;
    record.slash_terminated = false;
    return true;
}

// The name field as text. The "/" that ends one of variable length only delimits it.
std::string_view name_text(ar_reader& reader, const raw_header& raw) {
    std::string_view field = raw.name_field();
    if (reader.variant == OBJ_ELFARCHIVE && ends_in_slash(field)) {
        field = ar_without_trailing_space(field);
        field.remove_suffix(1);
        reader.member.slash_terminated = true;
    }
    return ar_text(field);
}

bool names_an_index(const ar_reader& reader, std::string_view name) {
    static constexpr std::string_view beginnings[] = {"/ ", "__________EL", "__.SYMDEF",
                                                      "________64EL"};
    if (reader.variant == OBJ_ELFARCHIVE && name.empty())
        return true;
    return std::any_of(std::begin(beginnings), std::end(beginnings),
                       [name](std::string_view beginning) { return name.starts_with(beginning); });
}

} // namespace

uint32_t ar_magic_size(obj_kind kind) {
    return kind == OBJ_ARCHIVE64 ? 10 : 8;
}

uint32_t ar_header_size(obj_kind kind) {
    constexpr uint32_t aix_size = 90;
    if (kind == OBJ_AIXARCHIVE)
        return aix_size;
    return static_cast<uint32_t>(name_width + layout_of(kind).size_without_name());
}

const ar_member* ar_read_member_header(ar_reader& reader) {
    ar_member& record = reader.member;
    for (;;) {
        raw_header raw;
        if (!read_raw_header(reader, raw) || !decode_fields(reader, raw))
            return nullptr;
        const std::string_view name = name_text(reader, raw);
        if (const std::optional<ar_table_mark> mark = ar_table_mark_of(name)) {
            if (!ar_read_name_table(reader, *mark))
                return nullptr;
            continue;
        }
        record.is_index = names_an_index(reader, name);
        if (record.is_index)
            record.name = name;
        else
            ar_resolve_name(reader.names, record, name);
        return ar_check_size(reader, record.name.c_str(), record.size) ? &record : nullptr;
    }
}
