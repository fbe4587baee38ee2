// A name is in its field if it fits. If not, the field holds an offset into the table, or, in
// "<filenames>" archives, the first 15 characters, and names cut off like that stand in the table
// in the order of their members.
#include "objfile/arname.h"

#include <algorithm>
#include <utility>

#include "objfile/arfield.h"
#include "shared/genmessage.h"

namespace {

// No file is named at such a length; without a limit, a table of one endless name would be gone
// through for every member that refers to it.
constexpr size_t longest_name = 4096;
constexpr size_t cut_length = 15; // characters of a name that was cut off to fit its field

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Each entry that ends as it should ends in "/" and a new-line. A NUL right behind a name tells the
// other way of ending them, if it comes first.
bool has_nul_terminated_names(std::string_view text) {
    for (size_t i = 1; i < text.size(); ++i) {
        const char before = text[i - 1];
        const char here = text[i];
        if (before == '/' && (here == '\n' || here == '\0'))
            return false;
        if (here == '\0' && before != '\0' && before != '\n')
            return true;
    }
    return false;
}

void prepare_filenames(gen_block& block) {
    char* const text = reinterpret_cast<char*>(block.bytes.get());
    for (size_t i = 1; i < block.size; ++i)
        if (text[i] == '\n' && text[i - 1] == '/')
            text[i - 1] = '\0';
}

// Where the name at the offset ends; nothing if that is too far away.
std::optional<size_t> end_of_name(const ar_name_table& table, size_t offset) {
    static constexpr char ends[] = {'/', '\n', '\0'};
    std::string_view name = table.text().substr(offset, longest_name);
    for (size_t i = table.nul_terminated ? 2 : 0; i < sizeof ends; ++i)
        name = name.substr(0, name.find(ends[i]));
    if (name.size() == longest_name)
        return std::nullopt;
    return offset + name.size();
}

// "/" and the offset in digits; in one style of tables a blank also serves.
bool resolve_reference(const ar_name_table& table, ar_member& member, std::string_view field) {
    if (field.size() < 2 || !is_digit(field[1]))
        return false;
    if (field[0] != '/' && !(field[0] == ' ' && table.mark == AR_TABLE_ARFILENAMES))
        return false;
    const std::string_view text = table.text();
    const uint64_t offset = static_cast<uint64_t>(ar_decimal(field.substr(1)));
    if (offset >= text.size())
        return false;
    const std::optional<size_t> end = end_of_name(table, offset);
    if (!end)
        return false;
    member.name = text.substr(offset, *end - offset);
    member.slash_terminated = *end < text.size() && text[*end] == '/';
    return true;
}

// The next line of the table stands for the next name that was cut, whether it fits it or not.
void restore_cut_name(ar_name_table& table, ar_member& member) {
    const std::string_view text = table.text();
    const uint64_t start = std::min<uint64_t>(table.next_line, text.size());
    const std::string_view line = text.substr(start, text.find('\n', start) - start);
    table.next_line = start + line.size() + 1;
    const std::string_view name = ar_text(line);
    if (!name.starts_with(member.name))
        return;
    member.name = name;
    member.slash_terminated = member.slash_terminated || name.size() < line.size();
}

} // namespace

std::optional<ar_table_mark> ar_table_mark_of(std::string_view name_field) {
    if (name_field.starts_with("// "))
        return AR_TABLE_SLASHES;
    if (name_field.starts_with("ARFILENAMES/"))
        return AR_TABLE_ARFILENAMES;
    if (name_field.starts_with("<filenames>"))
        return AR_TABLE_FILENAMES;
    return std::nullopt;
}

bool ar_read_name_table(ar_reader& reader, ar_table_mark mark) {
    gen_stream& stream = reader.stream;
    ar_name_table& table = reader.names;
    // A negative size is far too large.
    const uint64_t length = static_cast<uint64_t>(reader.member.size);
    if (stream.position > stream.size || length > stream.size - stream.position) {
        ar_report_read_error(reader);
        return false;
    }
    table = ar_name_table(); // the old one goes before the new one comes
    gen_block block = gen_new_block(length + 1);
    if (!block.bytes) { // only a replaced allocator comes back with nothing
        gen_error("Out of memory while reading archive file '%s'", reader.archive_name);
        return false;
    }
    if (gen_read_stream(stream, block.bytes.get(), length) != length) {
        ar_report_read_error(reader);
        return false;
    }
    if (length % 2 != 0)
        gen_seek(stream, 1, GEN_SEEK_CUR);

    table.bytes = std::move(block);
    table.mark = mark;
    if (mark == AR_TABLE_FILENAMES) {
        prepare_filenames(table.bytes);
        table.next_line = table.text().starts_with('\n') ? 1 : 0;
    } else {
        table.nul_terminated = has_nul_terminated_names(table.text());
    }
    return true;
}

void ar_resolve_name(ar_name_table& names, ar_member& member, std::string_view name_field) {
    if (resolve_reference(names, member, name_field))
        return;
    std::string_view name = ar_without_trailing_space(name_field);
    if (name.ends_with('/')) {
        name.remove_suffix(1);
        member.slash_terminated = true;
    }
    member.name = name;
    if (names.mark == AR_TABLE_FILENAMES && name.size() == cut_length && !name.ends_with(".obj"))
        restore_cut_name(names, member);
}
