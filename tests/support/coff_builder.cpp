// COFF and PE files are put together from front to back.
#include "support/coff_builder.h"

#include "support/field_writer.h"

built_file build_coff(const coff_draft& draft) {
    const bool has_lines = draft.lines != coff_draft::NO_LINES;
    const bool before = draft.lines == coff_draft::LINES_BEFORE;
    const std::string lines(has_lines ? 36 : 0, 'l');
    const size_t count = draft.names.size(), sections_at = draft.ti ? 50 : 48;
    const size_t data_end = sections_at + (draft.ti ? 48 : 40) * count + 50;
    const size_t symbols_at = data_end + (before ? lines.size() : 0);
    const size_t strings_at = symbols_at + 10 * draft.entry_size;
    const size_t end = strings_at + 4 + draft.strings.size();
    field_writer out = {draft.big_endian, draft.magic};
    out.numbers("2444222", {count, 9, symbols_at, 10, 28, 4, 0x98});
    out.bytes.replace(draft.ti ? 22 : 20, 2, filler(28, 0));
    for (size_t i = 0; i < count; ++i) {
        const size_t pointer = (before ? data_end : end) + 6 * (count - 1 - i);
        out.text(draft.names[i], 8);
        out.numbers(draft.ti ? "44444444422" : "444444224",
                    {1, 2, i, 3, 4, pointer, 5, has_lines ? i : 0, 6});
        out.numbers("22", {7, 8});
        out.bytes.resize(sections_at + (draft.ti ? 48 : 40) * (i + 1));
    }
    out.text(filler(50, 1) + (before ? lines : ""), 0).text("", strings_at - symbols_at, 's');
    out.numbers("4", {4 + draft.strings.size()}).text(draft.strings + (before ? "" : lines), 0);
    return {out.bytes, sections_at, symbols_at, strings_at, end};
}

built_file build_pe(const pe_draft& draft) {
    const bool big = draft.big_endian;
    const size_t fields = draft.magic == 0x10B ? 96 : draft.magic == 0x20B ? 112 : 92;
    const size_t size = draft.optional_size ? draft.optional_size : fields + 8 * draft.directories;
    const size_t header_at = 76, directories_at = header_at + 20 + fields;
    const size_t sections_at = header_at + 20 + size, data_at = sections_at + 80;
    const size_t symbols_at = data_at + 0x100, end = symbols_at + 50;
    const size_t debug_size = 28 * draft.debug.size();
    const size_t debug_at =
        draft.directory_last ? end + draft.tail_size - debug_size : data_at + 0xA0;
    field_writer directory = {big}, optional = {big}, out = {false, "MZ" + filler(58, 1)};
    directory.numbers("44", {0x2020, debug_size});
    optional.numbers("2", {draft.magic}).text(filler(size, 0).substr(2), 0);
    if (!draft.optional_size)
        optional.bytes.replace(fields - 4, 4, number(draft.directories, 4, big));
    if (!draft.optional_size && draft.directories >= 16)
        optional.bytes.replace(fields + 48, 8, directory.bytes);
    out.numbers("484", {72, ~0ull, 0x4550}).big_endian = big;
    out.numbers("2244422", {big ? 0x160u : 0x14Cu, 2, 9, symbols_at, 2, size, 2});
    out.text(optional.bytes, 0);
    for (size_t i = 0; i < 2; ++i)
        out.text("section" + std::to_string(i), 8)
            .numbers("444444224", {0x70, 0x1000 + 0x1000 * i, 0x80,
                                   i == 1 ? debug_at - 0x20 : data_at, 7, 8 * i, 3, 5, 6});
    out.text(filler(0x100, 2), 0).text("", 50, 's').text("", draft.tail_size, 't');
    for (size_t i = 0; const auto& [debug_bytes, place] : draft.debug) {
        const std::string fields_of =
            field_writer{big}.numbers("444", {debug_bytes, 1, end + place}).bytes;
        out.bytes.replace(debug_at + 28 * i++ + 16, 12, fields_of);
    }
    return {out.bytes, sections_at, symbols_at,     symbols_at + 36,
            end,       header_at,   directories_at, debug_at};
}
