// COFF files: what is left of them, to the byte, and what is said of those that are left alone.
#include <algorithm>
#include <gtest/gtest.h>

#include "support/coff_builder.h"

using namespace std::string_literals;

namespace {

constexpr auto NONE = coff_draft::NO_LINES;
constexpr auto BEFORE = coff_draft::LINES_BEFORE;
constexpr auto BEHIND = coff_draft::LINES_BEHIND;
const std::string zero(1, '\0'), zeros(4, '\0'), error = "objtrim: error: ";
const std::string damage = error + "file 'f' is damaged: ";
const std::string unread = error + "unable to read string table in f\n";
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
    {"\x4C\x01", 18, BEFORE, inlined, false, false, filler(600'000, 1)},
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
    expect_result(bytes, "", stripped(drafts[6], bytes).replace(0, 2, zero + "\x88"));
    // Behind a file of the TI form the others have it, too.
    const coff_draft draft = {"\x4C\x01", 18, BEFORE, mixed, false, true};
    work_place place;
    place.put("ti", build_coff(drafts[0]).bytes);
    place.put("f", build_coff(draft).bytes);
    EXPECT_EQ(place.trim("ti f").err, "");
    EXPECT_TRUE(place.get("f") == stripped(draft, build_coff(draft).bytes));
}

TEST(coffstrip, wrong_numbers) {
    const built_file file = build_coff({"\x4C\x01", 18, BEFORE, inlined});
    const size_t size = file.bytes.size(), headers_end = file.sections_at + 120; // 0x1bf, 0xa8
    const size_t lines = file.sections_at + 40 + 28, strings = file.strings_at;
    const auto strip = [](std::string bytes) { return stripped({}, std::move(bytes)); };
    const std::string past = ", past the end of the file, 0x1bf\n";
    const std::string outside = " is outside the file, which ends at 0x1bf\n";
    const std::string inside = " is inside the headers, which end at 0xa8\n";
    expect_results(
        file.bytes,
        {{damage + "f_opthdr 28 and f_nscns 10: the headers reach to 0x1c0" + past, 2, 2, {10}},
         {damage + "f_opthdr 308 and f_nscns 3: the headers reach to 0x1c0" + past, 16, 2, {308}},
         {damage + "f_symptr 0xfe is inside the headers, which end at 0x1bf\n", 16, 2, {307}},
         {damage + "f_symptr 0x80000000" + outside, 8, 4, {0x80000000}},
         {damage + "f_symptr 0xa7" + inside, 8, 4, {headers_end - 1}},
         {damage + "s_lnnoptr 0xffffffff" + outside, lines, 4, {UINT32_MAX}},
         {damage + "s_lnnoptr 0x1" + inside, lines, 4, {1}},
         {"objtrim: warning: f has no symbols\n", 12, 4, {0}},
         {unread, strings, 4, {14, UINT32_MAX}, true},
         {unread, 8, 4, {size - 184}, true},          // a size at the very end
         {"", 8, 4, {size - 183, size + 1, 0}, true}, // strings that are less than that, or none
         {"", 12, 4, {100}, true},
         {"", strings, 4, {0}, true},
         {"", lines, 4, {headers_end}, true}},
        strip);
    std::string many = file.bytes;
    many.replace(12, 4, number(238609282, 4));
    expect_results(many,
                   {{damage + "f_nsyms 238609282: the string table would begin at 0x100000000, "
                              "above 0xffffffff\n",
                     8,
                     4,
                     {220}},
                    {"", 8, 4, {219}, true}},
                   strip);
    // Headers that grow over the size of the strings, which is then what they say.
    const coff_draft unknown = {"zz", 0, BEFORE, words(6, ".text\1\2\3")};
    const std::string grown = build_coff(unknown).bytes.replace(289, 4, number(13, 4));
    expect_results(
        grown, {{"", 8, 4, {290}, true}, {unread, 8, 4, {289}, true}},
        [&](std::string bytes) { return stripped(unknown, std::move(bytes)); }, "-F");
}

TEST(coffstrip, the_least_that_a_file_needs) {
    const std::string plain = build_coff({}).bytes.substr(0, 98), header = "the file header of ";
    expect_result(plain, "", stripped({}, plain));
    const std::string past = " bytes reaches past the end of the file, ";
    for (const auto& [bytes, said] :
         {std::pair(plain.substr(0, 97), "f_symptr 0x62 is outside the file, which ends at 0x61"s),
          {plain.substr(0, 19), header + "20" + past + "0x13"},
          {build_coff(drafts[0]).bytes.substr(0, 21), header + "22" + past + "0x15"},
          {"", header + "20" + past + "0x0"}})
        expect_result(bytes, damage + said + "\n", bytes, bytes.empty() ? "-F" : "");
}

} // namespace
