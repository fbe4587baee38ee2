// COFF and PE files are put together from front to back.
#include "support/coff_builder.h"

#include <gtest/gtest.h>

namespace {

// None of the bytes is 0.
std::string filler(size_t size) {
    std::string bytes;
    while (bytes.size() < size)
        bytes += static_cast<char>(1 + bytes.size() % 251);
    return bytes;
}

} // namespace

std::string pack(bool big_endian, const char* widths, std::initializer_list<uint64_t> values) {
    std::string bytes;
    for (uint64_t value : values)
        bytes += number(value, static_cast<size_t>(*widths++ - '0'), big_endian);
    return bytes;
}

built_file build_coff(const coff_draft& draft) {
    const bool big = draft.big_endian, has_lines = draft.lines != coff_draft::NO_LINES;
    const bool before = draft.lines == coff_draft::LINES_BEFORE;
    const std::string data = filler(50), lines(has_lines ? 36 : 0, 'l');
    const std::string text = number(4 + draft.strings.size(), 4, big) + draft.strings;
    const size_t count = draft.names.size(), sections_at = draft.ti ? 50 : 48;
    const size_t data_end = sections_at + (draft.ti ? 48 : 40) * count + data.size();
    const size_t symbols_at = data_end + (before ? lines.size() : 0);
    const size_t strings_at = symbols_at + 10 * draft.entry_size, end = strings_at + text.size();
    std::string bytes = draft.magic + pack(big, "2444222", {count, 9, symbols_at, 10, 28, 4, 0x98});
    bytes = bytes.substr(0, draft.ti ? 22 : 20) + filler(28);
    for (size_t i = 0; i < count; ++i) {
        const size_t pointer = (before ? data_end : end) + 6 * (count - 1 - i);
        bytes += draft.names[i] + pack(big, draft.ti ? "44444444422" : "44444422400",
                                       {1, 2, i, 3, 4, pointer, 5, has_lines ? i : 0, 6, 7, 8});
    }
    bytes += data + (before ? lines : "") + std::string(strings_at - symbols_at, 's') + text;
    return {bytes + (before ? "" : lines), sections_at, symbols_at, strings_at, end};
}

built_file build_pe(const pe_draft& draft) {
    const bool big = draft.big_endian;
    const size_t fields = draft.magic == 0x10B ? 96 : draft.magic == 0x20B ? 112 : 92;
    const size_t size = draft.optional_size ? draft.optional_size : fields + 8 * draft.directories;
    const size_t header_at = 76, directories_at = header_at + 20 + fields;
    const size_t sections_at = header_at + 20 + size, data_at = sections_at + 80;
    const size_t debug_at = data_at + 0xA0, symbols_at = data_at + 0x100, end = symbols_at + 50;
    std::string optional = filler(size).replace(0, 2, number(draft.magic, 2, big));
    if (!draft.optional_size)
        optional.replace(fields - 4, 4, number(draft.directories, 4, big));
    if (!draft.optional_size && draft.directories >= 16)
        optional.replace(fields + 48, 8, pack(big, "44", {0x2020, 28 * draft.debug.size()}));
    std::string bytes = "MZ" + filler(58) + pack(false, "484", {72, ~0ull, 0x4550});
    bytes += pack(big, "2244422", {big ? 0x160u : 0x14Cu, 2, 9, symbols_at, 2, size, 2}) + optional;
    for (size_t i = 0; i < 2; ++i)
        bytes += "section" + std::to_string(i) +
                 pack(big, "444444224",
                      {0x70, 0x1000 + 0x1000 * i, 0x80, data_at + 0x80 * i, 7, 8 * i, 3, 5, 6});
    bytes += filler(0x100) + std::string(50, 's') + std::string(draft.tail_size, 't');
    for (size_t i = 0; i < draft.debug.size(); ++i)
        bytes.replace(debug_at + 28 * i + 16, 12,
                      pack(big, "444", {draft.debug[i].first, 1, end + draft.debug[i].second}));
    return {bytes, sections_at, symbols_at,     symbols_at + 36,
            end,   header_at,   directories_at, debug_at};
}

void expect_result(const std::string& bytes, const std::string& said, const std::string& expected,
                   const std::string& options) {
    work_place place;
    place.put("f", bytes);
    const file_state before = place.state("f");
    const run_result result = place.trim(options + " f");
    EXPECT_EQ(result.err.substr(0, said.empty() ? SIZE_MAX : said.size()), said);
    EXPECT_EQ(result.err.find('\n') + 1, result.err.size());
    EXPECT_EQ(result.status, said.find("error: ") != std::string::npos);
    EXPECT_EQ(place.get("f"), expected);
    EXPECT_EQ(place.state("f") == before, expected == bytes);
    EXPECT_EQ(place.state("f").inode, before.inode);
    EXPECT_EQ(place.list(), words{"f"});
}

void expect_results(const std::string& bytes, const std::vector<wrong_numbers>& groups,
                    std::string (*stripped)(std::string bytes)) {
    for (const auto& [said, at, width, values, goes_on] : groups)
        for (size_t value : values) {
            SCOPED_TRACE(testing::Message() << at << ": " << value);
            std::string changed = bytes;
            changed.replace(at, width, number(value, width));
            expect_result(changed, said, goes_on ? stripped(changed) : changed);
        }
}
