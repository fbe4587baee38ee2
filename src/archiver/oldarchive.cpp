// The one walk over the old archive. Whatever is wrong with it is found here, before anything is
// written.
#include "archiver/oldarchive.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstring>

#include "objfile/arname.h"
#include "shared/genmessage.h"

const header_layout standard_layout = {60, {16, 12}, {28, 6}, {34, 6}, {40, 8}, {48, 10}};
const header_layout wide_layout = {78, {16, 20}, {36, 6}, {42, 6}, {48, 8}, {56, 20}};

namespace {

uint64_t largest_size(const header_layout& layout) {
    return &layout == &standard_layout ? INT32_MAX : INT64_MAX;
}

bool refuse(const old_archive& archive, const char* why) {
    gen_error("archive '%s': %s", archive.name, why);
    return false;
}

bool refuse_member(const old_archive& archive, const std::string& name, const char* why) {
    gen_error("archive '%s', member '%s': %s", archive.name, name.c_str(), why);
    return false;
}

bool refuse_size(const old_archive& archive, const ar_member& member, uint64_t data) {
    gen_error("archive '%s', member '%s': its size %" PRId64 ", at 0x%" PRIx64
              ", reaches past the end of the archive, 0x%" PRIx64,
              archive.name, member.name.c_str(), member.size, data, archive.stream->size);
    return false;
}

bool open_archive(old_archive& archive, const std::string& real_name) {
    archive.stream = gen_open(real_name.c_str(), "rb+"); // one that is protected is not replaced
    if (!archive.stream) {
        gen_system_error("can't open archive '%s'", archive.name);
        return false;
    }
    archive.status = archive.stream->opened;
    const obj_archive_magic magic = archive.status.is_regular
                                        ? archive_magic_kind(archive.stream.get(), archive.name)
                                        : OBJ_MAGIC_NONE;
    if (magic != OBJ_MAGIC_ARCH && magic != OBJ_MAGIC_ARCH64)
        return refuse(archive, "this is no archive of a form that can be rebuilt");
    archive.kind = magic == OBJ_MAGIC_ARCH ? OBJ_ARCHIVE : OBJ_ARCHIVE64;
    archive.layout = magic == OBJ_MAGIC_ARCH ? &standard_layout : &wide_layout;
    return true;
}

// The names of symbol indexes stand for themselves, or, in archives that keep names with the data,
// at the beginning of it.
bool is_strange_index(const ar_member& member, gen_stream& stream) {
    if (member.is_index)
        return !member.name.starts_with("/ ");
    if (!member.name.starts_with("#1/"))
        return member.name == "/SYM64";
    char start[9] = {};
    const uint64_t position = stream.position;
    gen_read_stream(stream, start, sizeof start);
    gen_seek(stream, static_cast<int64_t>(position), GEN_SEEK_SET);
    return memcmp(start, "__.SYMDEF", sizeof start) == 0;
}

bool note_change(old_archive& archive, const ar_member& member, const listed_file* file) {
    archive_change& change = archive.changes.emplace_back();
    change.member = static_cast<uint32_t>(archive.members.size() - 1);
    change.file = file;
    change.old_mode = member.mode;
    change.new_size = file ? file->size : 0;
    gen_stream& stream = *archive.stream;
    const uint64_t length = archive.layout->length;
    return gen_seek(stream, -static_cast<int64_t>(length), GEN_SEEK_CUR) == 0 &&
           gen_read_stream(stream, change.header, length) == length;
}

// The stream stands at the member's data.
bool note_member(old_archive& archive, const ar_member& member, partner_table& partners) {
    gen_stream& stream = *archive.stream;
    const uint64_t data = stream.position;
    if (member.size < 0 || data > stream.size ||
        static_cast<uint64_t>(member.size) > stream.size - data)
        return refuse_size(archive, member, data);
    if (is_strange_index(member, stream))
        return refuse_member(archive, member.name,
                             "a symbol index of this form cannot be brought up to date");
    if (archive.members.size() == UINT32_MAX)
        return refuse(archive, "it has too many members");
    archive.members.push_back(
        {data - archive.layout->length, data, static_cast<uint64_t>(member.size)});

    const listed_file* file = nullptr;
    if (!member.is_index) {
        file = take_partner(partners, member.name, stream);
        if (!file)
            return true;
    } else if (archive.index) {
        return refuse_member(archive, member.name, "there is a symbol index before this one");
    } else {
        archive.index = static_cast<uint32_t>(archive.members.size() - 1);
    }
    return note_change(archive, member, file) ||
           refuse_member(archive, member.name, "its header cannot be read");
}

bool walk(old_archive& archive, partner_table& partners) {
    gen_stream& stream = *archive.stream;
    ar_name_table names;
    ar_reader reader = {archive.name, stream, names, archive.kind, false};
    const uint32_t errors = gen_sink().gen_total_errors;
    uint64_t next = ar_magic_size(archive.kind);
    while (gen_seek(stream, static_cast<int64_t>(next), GEN_SEEK_SET) == 0) {
        const ar_member* const member = ar_read_member_header(reader);
        if (!member)
            break;
        if (!note_member(archive, *member, partners))
            return false;
        const archive_member& noted = archive.members.back();
        next = noted.data + padded_size(noted.size);
    }
    return gen_sink().gen_total_errors ==
           errors; // what is too short for a header is no member, but stays
}

bool all_have_members(const old_archive& archive, const std::vector<listed_file>& files) {
    size_t replaced = archive.changes.size() - (archive.index ? 1 : 0);
    if (replaced == files.size())
        return true;
    std::vector<bool> taken(files.size());
    for (const archive_change& change : archive.changes)
        if (change.file)
            taken[static_cast<size_t>(change.file - files.data())] = true;
    for (size_t i = 0; i < files.size(); ++i)
        if (!taken[i])
            gen_error("archive '%s', member '%s': no member has this name and is the kind of "
                      "object that file '%s' is",
                      archive.name, files[i].name.c_str(), files[i].path.c_str());
    return false;
}

} // namespace

bool put_header_field(char* header, const header_field& field, std::string_view text) {
    if (text.size() > field.width)
        return false;
    std::fill_n(std::copy(text.begin(), text.end(), header + field.at), field.width - text.size(),
                ' ');
    return true;
}

bool put_header_number(char* header, const header_field& field, int64_t number, int base) {
    char text[24];
    const char* const end = std::to_chars(std::begin(text), std::end(text), number, base).ptr;
    return put_header_field(header, field, {text, end});
}

bool put_header_size(char* header, const header_layout& layout, uint64_t size) {
    return size <= largest_size(layout) &&
           put_header_number(header, layout.size, static_cast<int64_t>(size));
}

void report_misfit(const char* archive_name, const char* member_name, const header_layout& layout,
                   uint64_t size, int64_t date) {
    gen_error(
        "archive '%s', member '%s': size %" PRIu64 " or date %" PRId64
        " does not fit its header, which takes sizes up to %" PRIu64 " and dates of %u digits",
        archive_name, member_name, size, date, largest_size(layout), unsigned{layout.date.width});
}

bool read_archive(old_archive& archive, obj_history& history, const std::string& real_name,
                  const std::vector<listed_file>& files) {
    partner_table partners = make_partner_table(history, files);
    return open_archive(archive, real_name) && walk(archive, partners) &&
           all_have_members(archive, files);
}
