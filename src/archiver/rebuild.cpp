// An archive rebuilt: the old one with other bytes in some places. What stays is copied in ranges
// as long as they come.
#include "archiver/rebuild.h"

#include <algorithm>

#include "archiver/newarchive.h"
#include "archiver/oldarchive.h"
#include "archiver/symindex.h"
#include "shared/genmessage.h"

namespace {

const char* member_name(const archive_change& change) {
    return change.file ? change.file->name.c_str() : "/";
}

// Patches what the file says; the symbol index gets another size only.
bool patch_header(const old_archive& archive, archive_change& change) {
    const header_layout& layout = *archive.layout;
    bool fits = put_header_size(change.header, layout, change.new_size);
    if (const listed_file* const file = change.file) {
        const uint32_t mode = (change.old_mode & ~host_mode_bits) | (file->mode & host_mode_bits);
        fits = fits && put_header_number(change.header, layout.date, file->modified) &&
               put_header_number(change.header, layout.mode, mode, 8);
    }
    if (!fits)
        report_misfit(archive.name, member_name(change), layout, change.new_size,
                      change.file ? change.file->modified : 0);
    return fits;
}

uint64_t end_of(const old_archive& archive, const archive_member& member) {
    return std::min(member.data + padded_size(member.size), archive.stream->size);
}

// Where the headers of all members come to stand.
std::vector<uint64_t> new_positions(const old_archive& archive) {
    std::vector<uint64_t> positions;
    positions.reserve(archive.members.size());
    uint64_t shift = 0; // modulo 2^64, for members that shrink
    auto change = archive.changes.begin();
    for (uint32_t i = 0; i < archive.members.size(); ++i) {
        positions.push_back(archive.members[i].header + shift);
        if (change == archive.changes.end() || change->member != i)
            continue;
        shift += padded_size(change->new_size) - padded_size(archive.members[i].size);
        ++change;
    }
    return positions;
}

bool make_index(old_archive& archive, std::string& bytes) {
    symbol_index index;
    if (!read_index(archive, index) || !renew_index(archive, index))
        return false;
    for (archive_change& change : archive.changes)
        if (!change.file)
            change.new_size = index_size(index);
    return encode_index(archive.name, index, new_positions(archive), bytes);
}

bool copy_old(const old_archive& archive, archive_output& output, uint64_t from, uint64_t to) {
    if (from == to || (gen_seek(*archive.stream, static_cast<int64_t>(from), GEN_SEEK_SET) == 0 &&
                       put_range(output, *archive.stream, to - from)))
        return true;
    gen_error("archive '%s': it cannot be copied", archive.name);
    return false;
}

bool write_archive(const old_archive& archive, archive_output& output, const std::string& index) {
    uint64_t at = 0;
    for (const archive_change& change : archive.changes) {
        const archive_member& member = archive.members[change.member];
        if (!copy_old(archive, output, at, member.header))
            return false;
        put_bytes(output, {change.header, archive.layout->length});
        if (!change.file)
            put_bytes(output, index);
        else if (!put_file(output, *change.file))
            return false;
        at = end_of(archive, member);
    }
    return copy_old(archive, output, at, archive.stream->size);
}

} // namespace

bool rebuild_archive(obj_history& history, gen_temp_space& temp, const char* name,
                     const std::string& real_name, const std::vector<listed_file>& files) {
    old_archive archive;
    archive.name = name;
    if (!read_archive(archive, history, real_name, files))
        return false;
    if (files.empty())
        return true;
    std::string index;
    if (archive.index && !make_index(archive, index))
        return false;
    for (archive_change& change : archive.changes)
        if (!patch_header(archive, change))
            return false;
    archive_output output;
    if (!open_output(output, temp, name, real_name, &archive.status) ||
        !write_archive(archive, output, index))
        return false;
    archive.stream.reset(); // some hosts replace no file that is open
    return finish_output(output, &archive.status);
}
