// Archives are put together from front to back.
#include "support/ar_builder.h"

#include <sstream>

#include "support/field_writer.h"

namespace {

size_t even(size_t size) {
    return size + size % 2;
}

} // namespace

std::string build_archive(obj_kind kind, const std::vector<ar_draft>& drafts) {
    const bool aix = kind == OBJ_AIXARCHIVE, wide = kind == OBJ_ARCHIVE64;
    const char* const magic = aix ? "<aiaff>" : wide ? "!<arch64>" : "!<arch>";
    field_writer out = {.bytes = kind == OBJ_ELFARCHIVE ? "!<elfa>" : magic};
    const size_t first = out.text("\n", aix ? 61 : 1).bytes.size();
    size_t last = 0;
    for (const auto& [name, data, size_field, date, uid, gid, mode, end, next_field] : drafts) {
        const std::string size = size_field.empty() ? std::to_string(data.size()) : size_field;
        last = out.bytes.size();
        if (aix) {
            const size_t behind = last + 90 + even(name.size()) + even(data.size());
            const std::string next = next_field.empty() ? std::to_string(behind) : next_field;
            for (const std::string& field : {size, next, std::string("0"), date, uid, gid, mode})
                out.text(field, 12);
            out.text(std::to_string(name.size()), 4).text(name + end, even(name.size()) + 2, '\n');
        } else {
            out.text(name, name.size() <= 16 ? 16 : (name.size() + 3) / 4 * 4);
            out.text(date, wide ? 20 : 12).text(uid, 6).text(gid, 6).text(mode, 8);
            out.text(size, wide ? 20 : 10).text(end, 2);
        }
        out.text(data, even(data.size()), '\n');
    }
    field_writer places;
    for (const size_t place : {out.bytes.size(), size_t{0}, first, last, size_t{0}})
        places.text(std::to_string(place), 12);
    return aix ? out.bytes.replace(8, 60, places.bytes) : out.bytes;
}

std::vector<ar_draft> ar_members(const std::string& line) {
    static constexpr std::pair<char, std::string ar_draft::*> fields[] = {
        {'=', &ar_draft::data}, {'~', &ar_draft::end}, {'^', &ar_draft::next},
        {'#', &ar_draft::size}, {']', &ar_draft::gid}, {'[', &ar_draft::uid},
        {'%', &ar_draft::mode}, {'@', &ar_draft::date}};
    std::vector<ar_draft> members;
    std::istringstream stream(line);
    for (std::string name; std::getline(stream, name, '|'); members.back().name = name) {
        members.emplace_back();
        for (const auto& [mark, field] : fields)
            if (const size_t at = name.find(mark); at != std::string::npos) {
                members.back().*field = name.substr(at + 1);
                name.resize(at);
            }
    }
    return members;
}

std::vector<ar_draft> with_long_names(std::vector<ar_draft> drafts) {
    std::string table;
    for (ar_draft& draft : drafts) {
        const std::string reference = "/" + std::to_string(table.size());
        draft.name += '/';
        if (draft.name.size() > 16 || draft.name.find_first_of("#<_A") == 0) {
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
