// An archive that is rebuilt: its members, and those of them that change.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archiver/listfile.h"
#include "objfile/arformat.h"
#include "shared/host.h"

constexpr uint32_t widest_header = 78;

// Where a member header has its texts; each is filled up with blanks.
struct header_field {
    uint32_t at, width;
};
struct header_layout {
    uint32_t length;
    header_field date, uid, gid, mode, size;
};
extern const header_layout standard_layout, wide_layout;

// False when the text does not fit.
bool put_header_field(char* header, const header_field& field, std::string_view text);
bool put_header_number(char* header, const header_field& field, int64_t number, int base = 10);
// In a standard header sizes from 2 GiB on count as negative when they are read: they do not fit.
bool put_header_size(char* header, const header_layout& layout, uint64_t size);
// Says that one of them does not fit.
void report_misfit(const char* archive_name, const char* member_name, const header_layout& layout,
                   uint64_t size, int64_t date);

// Bytes that `size` bytes of data take up: members begin at even distances.
constexpr uint64_t padded_size(uint64_t size) {
    return size + size % 2;
}

struct archive_member {
    uint64_t header = 0; // positions in the old archive
    uint64_t data = 0;
    uint64_t size = 0;
};

// A member that gets new contents. The header is the old one until the writer patches it.
struct archive_change {
    uint32_t member = 0;
    const listed_file* file = nullptr; // null: the symbol index
    char header[widest_header] = {};
    uint32_t old_mode = 0;
    uint64_t new_size = 0;
};

struct old_archive {
    const char* name = nullptr; // as typed, for messages
    gen_stream_ptr stream;
    host_status status;
    obj_kind kind = OBJ_NONE;
    const header_layout* layout = nullptr;
    std::vector<archive_member> members;
    std::vector<archive_change> changes; // in the order of the members
    std::optional<uint32_t> index;       // which member is the symbol index
};

// Opens the archive, notes all members and gives each listed file its member. False after a report:
// damage, an index that cannot be renumbered, a file without a member.
bool read_archive(old_archive& archive, obj_history& history, const std::string& real_name,
                  const std::vector<listed_file>& files);
