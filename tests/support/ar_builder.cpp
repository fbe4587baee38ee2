// Archives are put together from front to back.
#include "support/ar_builder.h"

#include "support/coff_builder.h"

using namespace std::string_literals;

namespace {

constexpr size_t aix_global_size = 68, aix_header_size = 90;

std::string padded(std::string text, size_t width, char with = ' ') {
    text.append(text.size() < width ? width - text.size() : 0, with);
    return text;
}

// Fields of twelve characters.
std::string twelves(const words& fields) {
    std::string text;
    for (const std::string& field : fields)
        text += padded(field, 12);
    return text;
}

size_t even(size_t size) {
    return size + size % 2;
}

std::string build_aix_member(const ar_draft& draft, const std::string& size, size_t at) {
    const size_t name_size = draft.name.size();
    const size_t behind = at + aix_header_size + even(name_size) + even(draft.data.size());
    const std::string next = draft.next.empty() ? std::to_string(behind) : draft.next;
    return twelves({size, next, "0", draft.date, draft.uid, draft.gid, draft.mode}) +
           padded(std::to_string(name_size), 4) + draft.name + draft.end +
           std::string(name_size % 2, '\n') + padded(draft.data, even(draft.data.size()), '\n');
}

} // namespace

std::string build_ar_member(obj_kind kind, const ar_draft& draft, size_t at) {
    const std::string size = draft.size.empty() ? std::to_string(draft.data.size()) : draft.size;
    if (kind == OBJ_AIXARCHIVE)
        return build_aix_member(draft, size, at);
    const size_t name_width = draft.name.size() <= 16 ? 16 : (draft.name.size() + 3) / 4 * 4;
    const bool wide = kind == OBJ_ARCHIVE64;
    return padded(draft.name, name_width) + padded(draft.date, wide ? 20 : 12) +
           padded(draft.uid, 6) + padded(draft.gid, 6) + padded(draft.mode, 8) +
           padded(size, wide ? 20 : 10) + draft.end +
           padded(draft.data, even(draft.data.size()), '\n');
}

std::string build_archive(obj_kind kind, const std::vector<ar_draft>& drafts) {
    std::string members;
    size_t last = 0;
    for (const ar_draft& draft : drafts) {
        last = aix_global_size + members.size();
        members += build_ar_member(kind, draft, last);
    }
    if (kind == OBJ_AIXARCHIVE)
        return "<aiaff>\n" +
               twelves({std::to_string(aix_global_size + members.size()), "0",
                        std::to_string(aix_global_size), std::to_string(last), "0"}) +
               members;
    const char* const word = kind == OBJ_ARCHIVE64 ? "arch64" : "arch";
    return "!<"s + (kind == OBJ_ELFARCHIVE ? "elfa" : word) + ">\n" + members;
}

std::vector<ar_draft> with_long_names(std::vector<ar_draft> drafts) {
    std::string table;
    for (ar_draft& draft : drafts) {
        const std::string reference = "/" + std::to_string(table.size());
        draft.name += '/';
        if (draft.name.size() > 16 || draft.name.starts_with("#1")) {
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
    std::string offsets = number(symbols.size(), 4, true), names;
    for (const auto& [name, offset] : symbols) {
        offsets += number(offset, 4, true);
        names += name + '\0';
    }
    return offsets + names;
}
