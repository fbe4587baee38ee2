// COFF files and PE images: what is left of them, to the byte, and what is said of those that are
// left alone.
#include <algorithm>
#include <gtest/gtest.h>

#include "support/coff_builder.h"
#include "support/symbol_builder.h"

using namespace std::string_literals;

namespace {

void expect_result(std::string bytes, const std::string& said, const std::string& expected,
                   const std::string& options = "") {
    EXPECT_EQ(trim_file(options, bytes), said);
    EXPECT_EQ(difference(bytes, expected), "");
}

// What is said when each of these numbers stands at a place of so many bytes. A file whose strings
// cannot be read is stripped so far.
using wrong_numbers = std::tuple<std::string, size_t, size_t, std::vector<size_t>>;
void expect_results(const std::string& bytes, const std::vector<wrong_numbers>& rows,
                    const auto& stripped) {
    for (const auto& [said, at, width, values] : rows)
        for (const size_t value : values) {
            SCOPED_TRACE(testing::Message() << "at " << at << ": " << value);
            std::string changed = bytes;
            changed.replace(at, width, number(value, width));
            const bool goes_on = said.empty() || said.find("unable") != std::string::npos;
            expect_result(changed, said, goes_on ? stripped(changed) : changed);
        }
}

constexpr auto NONE = coff_draft::NO_LINES, BEFORE = coff_draft::LINES_BEFORE,
               BEHIND = coff_draft::LINES_BEHIND;
const std::string zero(1, '\0'), zeros(4, '\0'), error = "objtrim: error: ";
const std::string damage = error + "file 'f' is damaged: ";
const std::string unread = error + "unable to read string table in f";
const std::string referring = zeros + "\4\5\6\7";
const words inlined = {"12345678", ".text\1\2\3", ".bss\1\2\3\4"};
const words mixed = {".text\1\2\3", referring, "12345678", referring, referring, "abcdefgh"};

const coff_draft drafts[] = {
    {"\xC2" + zero, 18, BEFORE, mixed, false, true},
    {"\x4C\x01", 18, BEFORE, inlined},
    {"\x4C\x01", 18, BEFORE, inlined, false, false, filler(600'000, 1)},
    {"\x01\x65", 18, BEFORE, mixed, true},
    {"\x60\x01", 24, BEFORE, mixed},
    {"\x01\x60", 24, NONE, {}, true},
    {zero + "\xC2", 18, BEHIND, inlined, true, true},
    {"zz", 0, BEFORE, mixed},
    {"\x07\x01", 12},
};

// Does on the bytes what is to be done to the file, each header where the one before then ends.
// The strings are those at the end of the symbols, as far as there are any.
std::string stripped(const coff_draft& draft, std::string bytes) {
    const size_t width = draft.ti ? 4 : 2, size = draft.ti ? 48 : 40, first = draft.ti ? 50 : 48;
    const auto value = [&](size_t at, size_t bits) {
        return number_at(bytes, at, bits, draft.big_endian);
    };
    const size_t symbols_at = value(8, 4),
                 strings_at = symbols_at + draft.entry_size * value(12, 4);
    const size_t count = draft.lines == NONE ? 0 : value(2, 2);
    size_t cut_at = symbols_at;
    for (size_t at = first; at < first + count * size; at += size)
        if (value(at + 32 + width, width) != 0)
            cut_at = std::min(cut_at, value(at + 28, 4));
    bytes.replace(8, 8, number(cut_at, 4, draft.big_endian) + zeros);
    for (size_t i = 0, at = first; i < count; ++i, at += size) {
        bytes.replace(at + 28, 4, zeros).replace(at + 32 + width, width, zeros, 0, width);
        const std::string moved = zero + bytes.substr(at + 8, size - 8);
        if (bytes.compare(at, 4, zeros) != 0) // the zero behind the name takes a byte more
            bytes.replace(at++ + 8, moved.size(), moved);
    }
    if (symbols_at == 0 || strings_at + 4 > bytes.size())
        return bytes.substr(0, cut_at);
    const size_t length = value(strings_at, 4);
    return length > bytes.size() - strings_at
               ? bytes
               : bytes.substr(0, cut_at) + bytes.substr(strings_at, length);
}

TEST(coffstrip, every_form) {
    for (const coff_draft& draft : drafts) {
        SCOPED_TRACE(&draft - drafts);
        const std::string bytes = build_coff(draft).bytes;
        expect_result(bytes, "", stripped(draft, bytes), draft.entry_size < 18 ? "-F" : "-o=o -a");
    }
}

TEST(coffstrip, wrong_numbers) {
    const built_file file = build_coff(drafts[1]);
    const size_t size = file.bytes.size(), headers_end = file.sections_at + 120; // 0x1bf, 0xa8
    const size_t lines = file.sections_at + 40 + 28, strings = file.strings_at;
    const std::string past = "the headers reach to 0x1c0, past the end of the file, 0x1bf";
    const std::string outside = " is outside the file, which ends at 0x1bf";
    const std::string inside = " is inside the headers, which end at 0xa8";
    const std::string above = ": the string table would begin at 0x100000010, above 0xffffffff";
    expect_results(
        file.bytes,
        {{damage + "f_opthdr 28 and f_nscns 10: " + past, 2, 2, {10}},
         {damage + "f_opthdr 308 and f_nscns 3: " + past, 16, 2, {308}},
         {damage + "f_symptr 0xfe is inside the headers, which end at 0x1bf", 16, 2, {307}},
         {damage + "f_symptr 0x80000000" + outside, 8, 4, {0x80000000}},
         {damage + "f_symptr 0xa7" + inside, 8, 4, {headers_end - 1}},
         {damage + "s_lnnoptr 0xffffffff" + outside, lines, 4, {UINT32_MAX}},
         {damage + "s_lnnoptr 0x1" + inside, lines, 4, {1}},
         {damage + "f_nsyms 238609281" + above, 12, 4, {238609281}},
         {"objtrim: warning: f has no symbols", 12, 4, {0}},
         {unread, strings, 4, {14, UINT32_MAX}},
         {unread, 8, 4, {size - 184}}, // a size at the very end, and less than that, or none
         {"", 8, 4, {size - 183, size + 1, 0}},
         {"", 12, 4, {100, 238609280}},
         {"", strings, 4, {0}},
         {"", lines, 4, {headers_end}}},
        [](const std::string& bytes) { return stripped(drafts[1], bytes); });
}

const std::string no = error + "f not stripped", bad = no + ", bad file format";
const std::string done = "objtrim: warning: f already stripped";

const std::vector<pe_draft> images = {
    {},
    {0x20B, 19},
    {0x107, 16, 0, true, {}, 100}, // another magic, and something behind the strings
    {0x10B, 16, 91},               // only the standard fields
    {0x20B, 16, 24},
    {0x10B, 16, 0, false, {{0x1C, 0}, {0x20, 0x1C}}, 0x3C},
    {0x10B, 16, 0, true, {{0x21, 0x20}, {0, 8}, {0x1D, 0}}, 0x44}, // in any order, and rounded up
    {0x10B, 16, 0, false, {{0x1C, 0}}, 0x1C, true},                // which is the directory itself
};

// What becomes of one. The first section has a count of line numbers and no pointer to them.
std::string stripped_image(const pe_draft& draft, const built_file& file, std::string bytes) {
    const size_t second = file.sections_at + 40, head = file.header_at;
    bytes.resize(draft.debug.empty() ? number_at(bytes, head + 8, 4, draft.big_endian) : file.end);
    bytes.replace(head + 18, 2, number(0x20E, 2, draft.big_endian)).replace(head + 8, 8, 8, '\0');
    bytes.replace(second + 28, 4, 4, '\0').replace(second + 34, 2, 2, '\0');
    if (draft.directories >= 16 && !draft.optional_size)
        bytes.replace(file.directories_at + 48, 8, 8, '\0');
    return bytes;
}

TEST(pestrip, every_form_and_wrong_numbers) {
    const auto expect = [](const pe_draft& draft, const std::vector<wrong_numbers>& rows) {
        const built_file file = build_pe(draft);
        expect_results(file.bytes, rows, [&](auto b) { return stripped_image(draft, file, b); });
    };
    for (const pe_draft& draft : images)
        expect(draft, {{"", 0, 0, {0}}}); // as it is
    const built_file file = build_pe(images[5]);
    const size_t head = file.header_at, section = file.sections_at + 40, debug = file.debug_at;
    const size_t directory = file.directories_at + 48, end = build_pe({}).bytes.size();
    // Too many directories, others bytes than a directory's, no executable, a gap and an overlap.
    expect(images[5], {{bad, head + 2, 2, {0xFFFF}},
                       {bad, head + 16, 2, {0xFFFF, 27, 95}},
                       {bad, directory - 52, 4, {17, 0x20000010}},
                       {no, directory, 4, {0x2000, 0x206F}},
                       {no, head + 18, 2, {0x10C}},
                       {no, debug + 24, 4, {file.end - 4, file.end + 4}},
                       {done, head + 8, 4, {0}},
                       {done, head + 12, 4, {0}},
                       {done, directory, 4, {0x2070, 0x1FFF, 0x80000000}},
                       {done, section + 16, 4, {0x20}},
                       {"", section + 16, 4, {0x21}},
                       {done, section + 20, 4, {0x80000000}},
                       {no, section + 20, 4, {file.bytes.size()}},
                       {no, directory + 4, 4, {0xFFFFFFFF, 27, 28}},
                       {no, debug + 44, 4, {0x21, 0xFFFFFFFF}}});
    expect({}, {{no, head + 8, 4, {end + 1, UINT32_MAX}}, {"", head + 8, 4, {end}}});
    expect(images.back(), {{no, directory + 4, 4, {56}}, {"", directory + 4, 4, {55}}});
    expect_result(file.bytes + "more", no, file.bytes + "more");
}

} // namespace
