// Names of archive members: the long-name table, and how a name field leads into it.
//
// A table, its style and the place reached in it stay in use until the next one is read, even in
// another archive.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "objfile/arformat.h"
#include "shared/genmem.h"

// The member whose name field marked the table says how fields lead into it.
enum ar_table_mark {
    AR_TABLE_SLASHES,     // "// "
    AR_TABLE_ARFILENAMES, // "ARFILENAMES/": references may also begin with a blank
    AR_TABLE_FILENAMES    // "<filenames>": names are looked up in the order of the members
};

struct ar_name_table {
    gen_block bytes; // a NUL follows the table's own
    ar_table_mark mark = AR_TABLE_SLASHES;
    bool nul_terminated = false; // "/" and new-line are part of a name
    uint64_t next_line = 0;      // of AR_TABLE_FILENAMES: where the next name that was cut begins

    std::string_view text() const {
        return bytes.size == 0 ? std::string_view()
                               : std::string_view(bytes.text(), bytes.size - 1);
    }
};

// The mark, if this is the name field of a long-name table.
std::optional<ar_table_mark> ar_table_mark_of(std::string_view name_field);

// Takes in the table at the stream's position, which has the size of the reader's member, and its
// padding. False after a report.
bool ar_read_name_table(ar_reader& reader, ar_table_mark mark);

// Sets name and slash_terminated from the name field of a member that is no symbol index.
void ar_resolve_name(ar_name_table& names, ar_member& member, std::string_view name_field);
