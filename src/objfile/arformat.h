// Archive libraries: member headers, names and the walk over all members.
//
// An archive is a magic and a chain of members, each a text header and its data. Two kinds of
// special members serve the others: symbol indexes and long-name tables. The layouts are those of
// the System V and BSD ar formats, a wide variant with 20-digit dates and sizes, one with name
// fields of any length, and the small AIX format.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "objfile/objident.h"
#include "shared/genfile.h"

// What a member's header says.
struct ar_member {
    std::string name; // resolved; of a symbol index, the name field as it is
    int64_t date = 0; // seconds since 1970
    uint32_t uid = 0;
    uint32_t gid = 0;
    uint32_t mode = 0; // as the header has it: permission bits, perhaps with the type of the file
    int64_t size = 0;  // bytes of data
    bool is_index = false;
    bool slash_terminated = false; // the name ended with "/", in the header or in the table
};

struct ar_name_table; // objfile/arname.h

// An archive that is read header by header.
struct ar_reader {
    const char* archive_name;
    gen_stream& stream;
    // The long names that were read last. They outlive the archive: the next one may refer to them.
    ar_name_table& names;
    obj_kind variant = OBJ_ARCHIVE; // or OBJ_ELFARCHIVE or OBJ_ARCHIVE64
    bool ar_damage_is_fatal = true; // if not, damage is an error, and the archive ends
    ar_member member = {};          // whose header was read last
};

// Bytes of the magic, and of the fixed part of a member header.
uint32_t ar_magic_size(obj_kind kind);
uint32_t ar_header_size(obj_kind kind);

// Reads the header at the stream's position and leaves the stream at the member's data. Long-name
// tables on the way are taken in. Null at the end of the archive, which is also where a header is
// cut off by the end of the file, and after reported damage. The size is never negative: such a
// member is damage, but it may lead out of the file.
const ar_member* ar_read_member_header(ar_reader& reader);

// What a handler is told of the member beside its data.
struct ar_member_context {
    const char* archive_name = nullptr;
    const ar_member* member = nullptr; // null for a file that is no archive
    std::string display_name;          // "archive(member)", or the archive's for a whole file
};

// 0 for success. `headers` stands at the member's data, as `data` does; both may be moved.
using ar_handler =
    std::function<int32_t(gen_stream& headers, gen_stream& data, const ar_member_context& context)>;

struct ar_handler_table {
    ar_handler by_kind[OBJ_UNKNOWN + 1]; // empty: members of the kind have the result -1
    ar_handler symbol_index;             // optional; called "archive(table of contents)", no result
    bool ar_damage_is_fatal = true;
};

// Visits every member in order, and hands each to the handler of its kind. A file that is no
// archive is handed over as a whole. The result of the last member dispatched, 0 when there was
// none: members that cannot be identified do not count. A file that cannot be opened ends the
// program. Members are identified by their own names, after the files in `history`.
int32_t ar_walk(const char* archive_name, obj_history& history, ar_name_table& names,
                const ar_handler_table& handlers);
