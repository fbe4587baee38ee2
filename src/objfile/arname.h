// Names of archive members: the long-name table, and how a name field leads into it.
//
// There is one table. It, its style and the place reached in it stay until the next table is read,
// even into another archive.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "objfile/arformat.h"

// The member whose name field marked the table says how fields lead into it.
enum ar_table_mark {
    AR_TABLE_SLASHES,     // "// "
    AR_TABLE_ARFILENAMES, // "ARFILENAMES/": references may also begin with a blank
    AR_TABLE_FILENAMES    // "<filenames>": names are looked up in the order of the members
};

// The mark, if this is the name field of a long-name table.
std::optional<ar_table_mark> ar_table_mark_of(std::string_view name_field);

// Takes in the table of `size` bytes at the stream's position, and its padding. False after a
// report.
bool ar_read_name_table(gen_stream& stream, const char* archive_name, ar_table_mark mark,
                        int64_t size);

// Sets name and slash_terminated from the name field of a member that is no symbol index.
void ar_resolve_name(ar_member& member, std::string_view name_field);
