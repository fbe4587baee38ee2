// COFF files: what is left of them, to the byte, and what is said of those that are left alone.
#include <algorithm>
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/coff_builder.h"
#include "util/coffstrip.h"

namespace {

constexpr auto NONE = coff_draft::NO_LINES;
constexpr auto BEFORE = coff_draft::LINES_BEFORE;
constexpr auto BEHIND = coff_draft::LINES_BEHIND;
const std::string zero(1, '\0'), zeros(4, '\0'), error = "objtrim: error: ";
const std::string damage = error + "file 'f' is damaged: ";
const std::string unread = error + "unable to read string table in f\n";
const std::string no_symbols = "objtrim: warning: f has no symbols\n";
const std::string referring = zeros + "\4\5\6\7";
const words inlined = {"12345678", ".text\1\2\3", ".bss\1\2\3\4"};
const words mixed = {".text\1\2\3", referring, "12345678", referring, referring, "abcdefgh"};

// Does on the bytes what is to be done to the file, each header where the one before then ends.
// The strings are those at the end of the symbols, as far as there are any.
std::string stripped(const coff_draft& draft, std::string bytes) {
    const bool big = draft.big_endian;
    const size_t width = draft.ti ? 4 : 2, header_size = draft.ti ? 48 : 40;
    const size_t count = number_at(bytes, 2, 2, big), symbols_at = number_at(bytes, 8, 4, big);
    const size_t strings_at = symbols_at + draft.entry_size * number_at(bytes, 12, 4, big);
    const auto header_at = [&](size_t i) { return (draft.ti ? 50 : 48) + i * header_size; };
    size_t lines_at = SIZE_MAX;
    for (size_t i = 0; i < count; ++i)
        if (number_at(bytes, header_at(i) + 32 + width, width, big) != 0)
            lines_at = std::min(lines_at, number_at(bytes, header_at(i) + 28, 4, big));
    const size_t cut_at = std::min(symbols_at, lines_at);
    bytes.replace(8, 8, number(cut_at, 4, big) + zeros);
    for (size_t i = 0, at = header_at(0); i < count && lines_at != SIZE_MAX; ++i) {
        std::string header = bytes.substr(at, header_size);
        header.replace(28, 4, zeros).replace(32 + width, width, zeros, 0, width);
        if (header.substr(0, 4) != zeros)
            header.insert(8, zero);
        bytes.replace(at, header.size(), header);
        at += header.size();
    }
    const bool has_strings = symbols_at != 0 && strings_at + 4 <= bytes.size();
    const size_t size = has_strings ? number_at(bytes, strings_at, 4, big) : 0;
    if (has_strings && size > bytes.size() - strings_at)
        return bytes;
    return bytes.substr(0, cut_at) + (has_strings ? bytes.substr(strings_at, size) : "");
}

const coff_draft drafts[] = {
    {"\xC2" + zero, 18, BEFORE, mixed, false, true},
    {"\x4C\x01", 18, NONE, mixed},
    {"\x4C\x01", 18, BEFORE, inlined},
    {"\x64\x86", 18, BEHIND, inlined},
    {"\x4C\x01", 18, BEFORE, words(3, referring), false, false, ""},
    {"\x01\x65", 18, BEFORE, mixed, true},
    {"\x01\xDF", 18, BEHIND, mixed, true},
    {"\x60\x01", 24, BEFORE, mixed},
    {"\x01\x60", 24, NONE, {}, true},
    {zero + "\xC2", 18, BEHIND, inlined, true, true},
    {"zz", 0, BEFORE, mixed},
    {"\x07\x01", 12},
};

TEST(coffstrip, every_form) {
    for (const coff_draft& draft : drafts) {
        SCOPED_TRACE(&draft - drafts);
        const std::string bytes = build_coff(draft).bytes;
        const bool forced = draft.entry_size < 18;
        expect_result(bytes, "", stripped(draft, bytes), forced ? "-F" : "-o=out -a");
    }
    const std::string bytes = build_coff({zero + "\x89", 18, NONE, mixed, true}).bytes;
    expect_result(bytes, "", stripped(drafts[5], bytes).replace(0, 2, zero + "\x88"));
}

// For COFF files: images do not know it.
TEST(coffstrip, the_ti_form_stays_for_the_run) {
    const coff_draft draft = {"\x4C\x01", 18, BEFORE, mixed, false, true};
    const std::string bytes = build_coff(draft).bytes;
    work_place place;
    place.put("ti", build_coff(drafts[0]).bytes);
    place.put("f", bytes);
    for (const char* image : {"image", "same"})
        place.put(image, build_pe({}).bytes);
    EXPECT_EQ(place.trim("ti f image").err + place.trim("same").err, "");
    EXPECT_EQ(place.get("f"), stripped(draft, bytes));
    EXPECT_EQ(place.get("image"), place.get("same"));
}

// No magic number leads to these forms: addresses with a high word, and counts of two halves. What
// was read wide is written at the usual width.
struct wide_coffstrip : placed_test {
    void check(objinfo info, const std::string& fields, const std::string& said) const {
        const auto begin = [](size_t symbols_at, size_t count) {
            return pack(false, "2244444", {0x14C, 1, 0, symbols_at, count, 0, 0x65646977}) + zeros;
        };
        const size_t lines_at = 28 + fields.size();
        const std::string strings = number(7, 4) + "abc";
        const std::string bytes = begin(lines_at + 6, 1) + fields + std::string(24, 'x') + strings;
        info.machine = 0x14C;
        info.sym_entry_size = 18;
        bool coff_wide_counts = false;
        expect_text([&] { coff_strip(stream_of(bytes), "f", info, false, coff_wide_counts); },
                    said);
        std::string expected = begin(lines_at, 0) + zero;
        expected += pack(false, "44444444", {1, 2, 0x80000000, 3, 4, 0, 5, 6});
        EXPECT_EQ(place.get("f"), expected + bytes.substr(61, lines_at - 61) + strings);
    }
};

TEST_F(wide_coffstrip, writes_the_usual_width) {
    const std::string warning = "objtrim: warning: 64-bit entries not supported!\n";
    objinfo info = {};
    info.kind = OBJ_COFF4;
    check(info,
          pack(false, "444444444444224",
               {1, 0, 2, 0, 0x80000000, UINT32_MAX, 3, 1, 4, 0, 84, 0, 5, 2, 6}),
          warning + warning);
    info.kind = OBJ_COFF;
    info.target = 20;
    check(info, pack(false, "44444422224", {1, 2, 0x80000000, 3, 4, 64, 7, 5, 7, 2, 6}), "");
}

TEST(coffstrip, wrong_numbers) {
    const built_file file = build_coff({"\x4C\x01", 18, BEFORE, inlined});
    const size_t size = file.bytes.size(), headers_end = file.sections_at + 120;
    const size_t lines = file.sections_at + 40 + 28, strings = file.strings_at;
    const auto strip = [](std::string bytes) { return stripped({}, std::move(bytes)); };
    const std::vector<wrong_numbers> groups = {
        {damage, 2, 2, {(size - 48) / 40 + 1}},
        {damage, 16, 2, {size - 139}},
        {damage + "f_symptr 0x", 8, 4, {0x80000000, headers_end - 1}},
        {damage + "f_nsyms 4294967295", 12, 4, {0xFFFFFFFF}},
        {damage + "s_lnnoptr 0x", lines, 4, {0xFFFFFFFF, 1}},
        {no_symbols, 12, 4, {0}},
        {unread, strings, 4, {14, 0xFFFFFFFF}, true},
        {"", 12, 4, {100}, true},
        {"", 8, 4, {size - 182, size + 1, 0}, true}, // strings that are less than a size, or none
        {"", strings, 4, {0}, true},
        {"", lines, 4, {headers_end}, true},
    };
    expect_results(file.bytes, groups, strip);
    for (size_t length : {2u, 19u, 167u})
        expect_result(file.bytes.substr(0, length), damage, file.bytes.substr(0, length));
    expect_result("", damage, "", "-F");
    // Symbols that begin where the file ends, or behind that.
    const built_file plain = build_coff({});
    const std::string bytes = plain.bytes.substr(0, plain.symbols_at);
    expect_result(bytes, "", stripped({}, bytes));
    const std::string shorter = bytes.substr(0, bytes.size() - 1);
    expect_result(shorter, damage, shorter);
}

} // namespace
