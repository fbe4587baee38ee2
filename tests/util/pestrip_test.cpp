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
    {0x107, 16, 24},
    {0x10B, 16, 0, false, {{0x1C, 0}}, 0x1C},
    {0x20B, 16, 0, false, {{0x1C, 0}, {0x20, 0x1C}}, 0x3C},
    {0x10B, 16, 0, true, {{0x21, 0x20}, {0, 8}, {0x1D, 0}}, 0x44}, // in any order, and rounded up
    {0x10B, 16, 0, false, {{0x1C, 0}}, 0x1C, true},                // which is the directory itself
};

// What becomes of one. The first section has a count of line numbers and no pointer to them.
std::string stripped(const pe_draft& draft, const built_file& file, std::string bytes) {
    const size_t second = file.sections_at + 40, head = file.header_at;
    bytes.resize(draft.debug.empty() ? number_at(bytes, head + 8, 4, draft.big_endian) : file.end);
    bytes.replace(head + 18, 2, number(0x20E, 2, draft.big_endian)).replace(head + 8, 8, 8, '\0');
    bytes.replace(second + 28, 4, 4, '\0').replace(second + 34, 2, 2, '\0');
    if (draft.directories >= 16 && !draft.optional_size)
        bytes.replace(file.directories_at + 48, 8, 8, '\0');
    return bytes;
}

TEST(pestrip, every_form) {
    for (const pe_draft& draft : drafts) {
        SCOPED_TRACE(&draft - drafts);
        const built_file file = build_pe(draft);
        expect_result(file.bytes, "", stripped(draft, file, file.bytes), "-o=out -a");
    }
}

TEST(pestrip, refusals) {
    const auto expect = [](const pe_draft& draft, const std::vector<wrong_numbers>& groups) {
        const built_file file = build_pe(draft);
        expect_results(file.bytes, groups,
                       [&](std::string bytes) { return stripped(draft, file, std::move(bytes)); });
    };
    const pe_draft draft = {0x10B, 16, 0, false, {{0x1C, 0}, {0x20, 0x1C}}, 0x3C};
    const built_file file = build_pe(draft);
    const size_t head = file.header_at, section = file.sections_at + 40, debug = file.debug_at;
    const size_t count = file.directories_at - 4, directory = file.directories_at + 48;
    expect(draft, {{bad, head + 2, 2, {0xFFFF}},
                   {bad, head + 16, 2, {0xFFFF, 27, 95}},
                   {bad, count, 4, {17, 0x20000010}},
                   {done, head + 8, 4, {0}},
                   {done, head + 12, 4, {0}},
                   {done, directory, 4, {0x2070, 0x1FFF, 0x80000000}},
                   {done, section + 16, 4, {0x20}},
                   {"", section + 16, 4, {0x21}, true},
                   {done, section + 20, 4, {0x80000000}},
                   {no, directory, 4, {0x2000, 0x206F}}, // others bytes than a directory's
                   {no, section + 20, 4, {file.bytes.size()}},
                   {no, head + 18, 2, {0x10C}}, // not executable
                   {no, directory + 4, 4, {0xFFFFFFFF, 27, 28}},
                   {no, debug + 24, 4, {file.end - 4, file.end + 4}}, // a gap, an overlap
                   {no, debug + 44, 4, {0x21, 0xFFFFFFFF}}});
    expect({0x20B}, {{bad, head + 16, 2, {23, 111}}});
    const size_t end = build_pe({}).bytes.size();
    expect({}, {{no, head + 8, 4, {end + 1, UINT32_MAX}}, {"", head + 8, 4, {end}, true}});
    expect({0x10B, 16, 0, false, {{0x1C, 0}}, 0x1C, true},
           {{no, directory + 4, 4, {56}}, {"", directory + 4, 4, {55}, true}});
    for (const auto& [size, said] : {std::pair(head + 19, no),
                                     {head + 20, bad},
                                     {section + 39, bad},
                                     {section + 40, no},
                                     {file.bytes.size() - 1, no}})
        expect_result(file.bytes.substr(0, size), said, file.bytes.substr(0, size));
    expect_result(file.bytes + "more", no, file.bytes + "more");
}

} // namespace
