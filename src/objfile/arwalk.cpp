// The walk over an archive: from header to header, or along the links of an AIX archive, each
// member to the handler of its kind.
//
// Headers and members are looked at through one stream, whose window mostly holds both; the other
// one is the handlers'. Either may be moved by them: positions are kept here.
#include <algorithm>

#include "objfile/arfield.h"
#include "objfile/arformat.h"
#include "shared/genexit.h"

namespace {

struct archive_walk {
    const ar_handler_table& handlers;
    obj_history& history;
    ar_reader reader; // of the headers
    gen_stream& data;
    ar_member_context context;
    int32_t result = 0;
};

void seek_both(archive_walk& walk, uint64_t position) {
    const int64_t target = static_cast<int64_t>(position);
    gen_safe_fseek64(walk.context.archive_name, &walk.reader.stream, target, GEN_SEEK_SET);
    gen_safe_fseek64(walk.context.archive_name, &walk.data, target, GEN_SEEK_SET);
}

int32_t call(archive_walk& walk, const ar_handler& handler) {
    return handler ? handler(walk.reader.stream, walk.data, walk.context) : -1;
}

void dispatch(archive_walk& walk, obj_kind kind) {
    walk.result = call(walk, walk.handlers.by_kind[kind]);
}

// What cannot be identified leaves the result as it was.
void visit(archive_walk& walk, const ar_member& member) {
    const char* const shown = member.is_index ? "table of contents" : member.name.c_str();
    std::string& display_name = walk.context.display_name;
    display_name.assign(walk.context.archive_name).append("(").append(shown).append(")");
    walk.context.member = &member;
    seek_both(walk, walk.reader.stream.position);
    if (member.is_index)
        call(walk, walk.handlers.symbol_index);
    else if (const objinfo* const info =
                 obj_identify(walk.history, &walk.reader.stream, member.name.c_str()))
        dispatch(walk, info->kind);
    walk.context.member = nullptr;
}

void walk_chain(archive_walk& walk, obj_kind kind) {
    walk.reader.variant = kind;
    seek_both(walk, ar_magic_size(kind));
    while (const ar_member* const member = ar_read_member_header(walk.reader)) {
        const uint64_t start = walk.reader.stream.position;
        const uint64_t size = static_cast<uint64_t>(member->size);
        const uint64_t end = walk.reader.stream.size;
        visit(walk, *member);
        // A size that leads out of the file leads to its end.
        const bool fits = start <= end && size <= end - start;
        seek_both(walk, fits ? start + size + size % 2 : end);
    }
}

struct aix_member {
    ar_member member;
    std::string next_offset;
};

bool read_aix_header(ar_reader& reader, aix_member& aix) {
    constexpr int64_t longest_name = 9999;
    char bytes[88];
    if (!ar_read_header_bytes(reader, bytes, sizeof bytes))
        return false;
    ar_field_cursor fields = {{bytes, sizeof bytes}};
    ar_member& member = aix.member;
    member.size = ar_decimal(fields.take(12));
    aix.next_offset = fields.take(12);
    fields.take(12); // of the previous member
    member.date = ar_decimal(fields.take(12));
    member.uid = static_cast<uint32_t>(ar_decimal(fields.take(12)));
    member.gid = static_cast<uint32_t>(ar_decimal(fields.take(12)));
    member.mode = ar_octal(fields.take(12));
    const int64_t name_size = ar_decimal(fields.take(4));
    if (name_size < 0 || name_size > longest_name) {
        ar_report_read_error(reader);
        return false;
    }

    char name[longest_name + 2];
    const size_t name_length = static_cast<size_t>(name_size);
    if (!ar_read_header_bytes(reader, name, name_length + 2) ||
        !ar_check_terminator(reader, {name + name_length, 2}))
        return false;
    if (name_length % 2 != 0)
        gen_getc(reader.stream);
    member.name = ar_text({name, name_length});
    return ar_check_size(reader, member.name.c_str(), member.size);
}

// A chain with a loop in it ends when it has more members than the file has room for.
void walk_aix(archive_walk& walk) {
    gen_stream& stream = walk.reader.stream;
    char global[68];
    if (gen_read_stream(stream, global, sizeof global) != sizeof global)
        gen_fatal(status_failure, "failed reading the header of AIX format library '%s'",
                  walk.context.archive_name);
    const std::string_view member_table(global + 8, 12);
    const std::string_view last(global + 44, 12);
    if (ar_decimal(last) == 0)
        return;

    const uint64_t end = stream.size;
    int64_t offset = ar_decimal({global + 32, 12});
    aix_member aix;
    for (uint64_t room = end / ar_header_size(OBJ_AIXARCHIVE); room != 0; --room) {
        if (offset == 0)
            return;
        if (offset < 0)
            return ar_report_read_error(walk.reader);
        seek_both(walk, std::min(static_cast<uint64_t>(offset), end));
        if (!read_aix_header(walk.reader, aix))
            return;
        visit(walk, aix.member);
        if (aix.next_offset == member_table)
            return;
        offset = ar_decimal(aix.next_offset);
    }
}

gen_stream_ptr open_archive(const char* name) {
    gen_stream_ptr stream = gen_open(name, "rb");
    if (!stream)
        gen_fatal(status_failure, "unable to open input file '%s'", name);
    return stream;
}

} // namespace

int32_t ar_walk(const char* archive_name, obj_history& history, ar_name_table& names,
                const ar_handler_table& handlers) {
    const gen_stream_ptr headers = open_archive(archive_name);
    const gen_stream_ptr data = open_archive(archive_name);
    archive_walk walk = {handlers,
                         history,
                         {archive_name, *headers, names},
                         *data,
                         {archive_name, nullptr, archive_name}};
    walk.reader.ar_damage_is_fatal = handlers.ar_damage_is_fatal;
    const objinfo* const info = obj_identify(history, headers.get(), archive_name);
    if (!info)
        return walk.result;
    switch (info->kind) {
    case OBJ_ARCHIVE:
    case OBJ_ELFARCHIVE:
    case OBJ_ARCHIVE64:
        walk_chain(walk, info->kind);
        break;
    case OBJ_AIXARCHIVE:
        walk_aix(walk);
        break;
    default:
        dispatch(walk, info->kind);
    }
    return walk.result;
}
