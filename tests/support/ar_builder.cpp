// Archives are put together from front to back.
#include "support/ar_builder.h"

#include <algorithm>
#include <sstream>

#include "support/field_writer.h"

namespace {

constexpr size_t aix_global_size = 68, aix_header_size = 90;

size_t even(size_t size) {
    return size + size % 2;
}

} // namespace

std::string build_ar_member(obj_kind kind, const ar_draft& draft, size_t at) {
    const auto& [name, data, size_field, date, uid, gid, mode, end, next_field] = draft;
    const std::string size = size_field.empty() ? std::to_string(data.size()) : size_field;
    field_writer out;
    if (kind == OBJ_AIXARCHIVE) {
        const size_t behind = at + aix_header_size + even(name.size()) + even(data.size());
        const std::string next = next_field.empty() ? std::to_string(behind) : next_field;
        for (const std::string& field : {size, next, std::string("0"), date, uid, gid, mode})
            out.text(field, 12);
        out.text(std::to_string(name.size()), 4).text(name + end, even(name.size()) + 2, '\n');
    } else {
        const bool wide = kind == OBJ_ARCHIVE64;
        out.text(name, name.size() <= 16 ? 16 : (name.size() + 3) / 4 * 4);
        out.text(date, wide ? 20 : 12).text(uid, 6).text(gid, 6).text(mode, 8);
        out.text(size, wide ? 20 : 10).text(end, 2);
    }
    return out.text(data, even(data.size()), '\n').bytes;
}

std::string build_archive(obj_kind kind, const std::vector<ar_draft>& drafts) {
    const bool aix = kind == OBJ_AIXARCHIVE;
    field_writer out;
    out.text(aix                      ? "<aiaff>\n"
             : kind == OBJ_ELFARCHIVE ? "!<elfa>\n"
             : kind == OBJ_ARCHIVE64  ? "!<arch64>\n"
                                      : "!<arch>\n",
             0);
    std::string members;
    size_t last = 0;
    for (const ar_draft& draft : drafts) {
        last = aix_global_size + members.size();
        members += build_ar_member(kind, draft, last);
    }
    if (aix)
        for (size_t field :
             {aix_global_size + members.size(), size_t{0}, aix_global_size, last, size_t{0}})
            out.text(std::to_string(field), 12);
    return out.bytes + members;
}

std::vector<ar_draft> ar_members(const std::string& line) {
    std::vector<ar_draft> members;
    std::istringstream stream(line);
    for (std::string member; std::getline(stream, member, '|');) {
        const auto behind = [&member](char mark, const std::string& otherwise = "") {
            const size_t at = std::min(member.find(mark), member.size());
            const std::string rest = at < member.size() ? member.substr(at + 1) : otherwise;
            member.resize(at);
            return rest;
        };
        ar_draft draft;
        draft.data = behind('=');
        draft.end = behind('~', draft.end);
        draft.next = behind('^');
        draft.size = behind('#');
        draft.gid = behind(']', draft.gid);
        draft.uid = behind('[', draft.uid);
        draft.mode = behind('%', draft.mode);
        draft.date = behind('@', draft.date);
        draft.name = member;
        members.push_back(draft);
    }
    return members;
}

std::vector<ar_draft> with_long_names(std::vector<ar_draft> drafts) {
    std::string table;
    for (ar_draft& draft : drafts) {
        const std::string reference = "/" + std::to_string(table.size());
        draft.name += '/';
        if (draft.name.size() > 16 ||
            std::string("#<_A").find(draft.name[0]) != std::string::npos) {
            table += draft.name + "\n";
            draft.name = reference;
        }
    }
    table.resize(even(table.size()), '\n');
    if (!table.empty())
        drafts.insert(drafts.begin(), {.name = "//", .data = table});
    return drafts;
}

std::string ar_index(const std::vector<std::pair<std::string, uint64_t>>& symbols) {
    field_writer out = {.big_endian = true};
    out.numbers("4", {symbols.size()});
    for (const auto& [name, offset] : symbols)
        out.numbers("4", {offset});
    for (const auto& [name, offset] : symbols)
        out.text(name, name.size() + 1, '\0');
    return out.bytes;
}
