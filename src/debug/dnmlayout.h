// The layouts of a debug-name-map file, each once for reading and for writing: a template over
// dnm_reader or dnm_writer. A field that a version does not have is passed over.
#pragma once

#include <initializer_list>

#include "debug/dnmfile.h"

// The steps of reading, by the positions that failures report.
// clang-format off
enum dnm_position : int {
    DNM_NO_STEP = 0, DNM_READ_PROLOGUE = 1, DNM_READ_HEADER = 2, DNM_READ_STRINGS = 6,
    DNM_READ_SECTIONS = 7, DNM_READ_DLO_FILES = 8, DNM_READ_FILES = 9, DNM_READ_LABELS = 10,
    DNM_READ_TYPES = 11, DNM_READ_MEMBERS = 12, DNM_READ_LIBRARIES = 13, DNM_READ_UPDATES = 14,
    DNM_READ_AGAINSTS = 15, DNM_READ_STUBS = 16, DNM_READ_ATTRIBUTES = 17, DNM_READ_DEFINES = 18,
    DNM_READ_REGIONS = 19, DNM_READ_SYMBOLS = 20, DNM_READ_CHECK = 30
};
// clang-format on

// A family of tables, read in one step.
struct dnm_family {
    dnm_position position;
    std::initializer_list<dnm_table_id> tables;
};

// In the order in which tables are read and written. The last one is only written.
inline constexpr dnm_family dnm_families[] = {
    {DNM_READ_STRINGS, {DNM_STRINGS}},
    {DNM_READ_SECTIONS, {DNM_SECTIONS, DNM_SECTIONS_BY_ADR}},
    {DNM_READ_DLO_FILES, {DNM_DLO_FILES, DNM_DLO_FILES_BY_OFFSET, DNM_DLO_FILE_UPDATE_LINKS}},
    {DNM_READ_FILES,
     {DNM_FILES, DNM_FILES_BY_BASE_NAME, DNM_FILES_BY_REL_NAME, DNM_FILES_BY_FULL_NAME}},
    {DNM_READ_LABELS,
     {DNM_LABELS, DNM_LABELS_BY_ADR, DNM_LABELS_BY_USE_NAME, DNM_LABELS_BY_MANGLED_NAME,
      DNM_LABELS_BY_LINK_NAME, DNM_STATIC_LABELS, DNM_LABEL_UPDATE_LINKS, DNM_LABELS_BY_AGAINST_ADR,
      DNM_LABELS_BY_REG, DNM_LABELS_BY_REG_PLUS_OFFSET}},
    {DNM_READ_TYPES, {DNM_TYPES, DNM_TYPES_BY_MANGLED_NAME, DNM_TYPES_BY_USE_NAME}},
    {DNM_READ_MEMBERS, {DNM_UNQUALIFIED_MEMBERS}},
    {DNM_READ_LIBRARIES, {DNM_LIBRARIES}},
    {DNM_READ_UPDATES, {DNM_UPDATES}},
    {DNM_READ_AGAINSTS, {DNM_LINKED_AGAINSTS}},
    {DNM_READ_STUBS, {DNM_STUBS, DNM_STUBS_BY_ADR, DNM_STUBS_BY_LINK_NAME}},
    {DNM_READ_ATTRIBUTES, {DNM_ATTRIBUTES}},
    {DNM_READ_DEFINES, {DNM_HASH_DEFINE_HASHES, DNM_HASH_DEFINES}},
    {DNM_READ_REGIONS, {DNM_TRACE_REGIONS}},
    {DNM_READ_SYMBOLS, {DNM_HEADER_SYMBOLS}},
    {DNM_NO_STEP, {DNM_CPP_TYPES_BY_REV_USE_NAME}},
};

// Everything of the header between the version and the table directory.
template <class fields, class header>
void dnm_layout_header(fields& f, header& h) {
    const int32_t version = h.version;
    if (version >= 16)
        f.string(h.strings[0]);
    if (version >= 20)
        f.string(h.strings[1]);
    if (version >= 16)
        f.string(h.strings[2]);
    if (version >= 21)
        f.string(h.strings[3]);
    dnm_layout_address_mode(f, h);
    f.u8(h.endian_flag);
    for (auto& reserved : h.reserved_abc)
        f.u8(reserved);
    if (version >= 16)
        f.u8(h.reserved_d);
    f.address(h.address_a);
    if (version >= 13)
        f.address(h.address_b);
    if (version >= 19) {
        f.u8(h.reserved_e);
        f.u8(h.object_module_format);
        f.u8(h.object_module_type);
        f.u8(h.reserved_f);
    }
    if (version >= 25) {
        for (auto& reserved : h.reserved_ghij)
            f.u8(reserved);
        dnm_layout_address_units(f, h);
        for (auto& reserved : h.reserved_klm)
            f.u8(reserved);
    }
    if (version >= 29) {
        f.u8(h.reserved_n);
        f.u8(h.abi_style);
        f.u8(h.mangle_style);
        f.u8(h.reserved_o);
    }
    f.u32(h.word_1);
    if (version >= 22) {
        f.u32(h.word_2);
        f.u32(h.word_3);
    }
    if (version >= 31) {
        f.u32(h.word_4);
        f.u8(h.encoding_type);
        f.u8(h.header_flags);
        f.u8(h.reserved_p);
        f.u8(h.reserved_q);
        f.u32(h.word_5);
        f.u32(h.word_6);
    }
}

// One byte. From here on addresses are read in this mode.
inline void dnm_layout_address_mode(dnm_reader& f, dnm_header& h) {
    uint8_t encoding = 0;
    f.u8(encoding);
    if (!f.failed)
        h.address_mode = dnm_mode_from_encoding(encoding);
    f.coding.address_mode = h.address_mode;
}

inline void dnm_layout_address_mode(dnm_writer& f, const dnm_header& h) {
    f.u8(dnm_address_encoding(h.address_mode));
}

// Bytes of a text and of a data address unit: packed into one byte before version 32.
inline void dnm_layout_address_units(dnm_reader& f, dnm_header& h) {
    f.u8(h.bytes_per_text_unit);
    if (h.version >= 32) {
        f.u8(h.bytes_per_data_unit);
        return;
    }
    const uint8_t packed = h.bytes_per_text_unit;
    if (packed < 16) {
        h.bytes_per_text_unit = packed != 0 ? packed : 1;
        h.bytes_per_data_unit = h.bytes_per_text_unit;
    } else {
        h.bytes_per_text_unit = packed & 0xF;
        h.bytes_per_data_unit = packed >> 4;
    }
}

inline void dnm_layout_address_units(dnm_writer& f, const dnm_header& h) {
    if (h.version >= 32) {
        f.u8(h.bytes_per_text_unit);
        f.u8(h.bytes_per_data_unit);
    } else if (h.bytes_per_text_unit == h.bytes_per_data_unit) {
        f.u8(h.bytes_per_text_unit);
    } else {
        f.u8(static_cast<uint8_t>(h.bytes_per_text_unit + 16 * h.bytes_per_data_unit));
    }
}

// An offset in the executable: 4 bytes before version 40.
template <class fields, class integer>
void dnm_layout_file_offset(fields& f, int32_t version, integer& offset) {
    if (version >= 40)
        f.long_number(offset);
    else
        f.fixed(offset, 4);
}

// A record of the "Sections" table.
template <class fields, class section>
void dnm_layout_section(fields& f, int32_t version, section& s) {
    f.index_pair(s.first_index, s.second_index);
    f.address(s.addresses[0]);
    f.address(s.addresses[1]);
    dnm_layout_file_offset(f, version, s.file_offset);
    f.varint(s.section_number);
    f.u8(s.kind);
    if (version >= 24) {
        f.signed_number(s.section_indexes[0]);
        f.signed_number(s.section_indexes[1]);
    }
    if (version >= 30) {
        f.signed_number(s.section_indexes[2]);
        f.number(s.flags);
    } else {
        f.fixed(s.flags, 1);
    }
    if (version >= 34) {
        dnm_layout_file_offset(f, version, s.second_file_offset);
        f.u32(s.section_word);
    }
}
