// PE images: what is cut off, what changes in the headers, and which are left alone.
#include <gtest/gtest.h>

#include "support/coff_builder.h"

namespace {

const std::string no = "objtrim: error: f not stripped\n";
const std::string bad = "objtrim: error: f not stripped, bad file format\n";
const std::string done = "objtrim: warning: f already stripped\n";

const pe_draft drafts[] = {
    {},
    {0x20B, 19},
    {0x107, 16, 0, true, {}, 100}, // another magic, and something behind the strings
    {0x10B, 15},
    {0x20B, 0},
    {0x10B, 16, 91}, // only the standard fields
    {0x10B, 16, 28},
    {0x20B, 16, 24},
    {0x10B, 16, 0, false, {{0x1C, 0}}, 0x1C},
    {0x20B, 16, 0, false, {{0x1C, 0}, {0x20, 0x1C}}, 0x3C},
    {0x10B, 16, 0, true, {{0x21, 0x20}, {0, 8}, {0x1D, 0}}, 0x44}, // in any order, and rounded up
};

TEST(pestrip, every_form) {
    for (const pe_draft& draft : drafts) {
        SCOPED_TRACE(&draft - drafts);
        const built_file file = build_pe(draft);
        const size_t second = file.sections_at + 40; // the first has a count and no pointer
        std::string expected =
            file.bytes.substr(0, draft.debug.empty() ? file.symbols_at : file.end);
        expected.replace(file.header_at + 18, 2, number(0x20E, 2, draft.big_endian));
        expected.replace(file.header_at + 8, 8, 8, '\0');
        expected.replace(second + 28, 4, 4, '\0').replace(second + 34, 2, 2, '\0');
        if (draft.directories >= 16 && !draft.optional_size)
            expected.replace(file.directories_at + 48, 8, 8, '\0');
        expect_result(file.bytes, "", expected, "-o=out -a");
    }
}

TEST(pestrip, refusals) {
    const pe_draft draft = {0x10B, 16, 0, false, {{0x1C, 0}, {0x20, 0x1C}}, 0x3C};
    const built_file file = build_pe(draft), plain = build_pe({});
    const size_t head = file.header_at, section = file.sections_at + 40, debug = file.debug_at;
    const size_t count = file.directories_at - 4, directory = file.directories_at + 48;
    const std::vector<wrong_numbers> groups = {
        {bad, head + 2, 2, {0xFFFF}},
        {bad, head + 16, 2, {0xFFFF, 27, 95}},
        {bad, count, 4, {17, 0x20000010}},
        {done, head + 8, 4, {0}},
        {done, head + 12, 4, {0}},
        {done, directory, 4, {0x2070, 0x1FFF, 0x80000000}},
        {done, section + 16, 4, {0x20}},
        {done, section + 20, 4, {0x80000000}},
        {no, section + 20, 4, {file.bytes.size()}},
        {no, head + 18, 2, {0x10C}}, // not executable
        {no, directory + 4, 4, {0xFFFFFFFF, 27, 28}},
        {no, debug + 24, 4, {file.end - 4, file.end + 4}}, // a gap, an overlap
        {no, debug + 44, 4, {0x21, 0xFFFFFFFF}},
    };
    expect_results(file.bytes, groups, nullptr);
    const size_t beyond = plain.bytes.size() + 1;
    expect_results(plain.bytes, {{no, head + 8, 4, {beyond, UINT32_MAX}}}, nullptr);
    const std::string longer = file.bytes + "more", shorter = file.bytes.substr(0, head + 19);
    expect_result(longer, no, longer);
    expect_result(shorter, no, shorter);
}

} // namespace
