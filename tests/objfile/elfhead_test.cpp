// ELF headers that cannot be read or written, and names of sections.
#include "objfile/elfhead.h"
#include "support/child.h"
#include "support/elf_builder.h"

namespace {

using elfhead = placed_test;

constexpr int64_t base = 8; // every file here stands behind 8 bytes of something else
const std::string lead = "archive ";

// Two sections and two segments, their headers 8 bytes longer than need be.
std::string small_file(const elf_form& form) {
    return build_elf({.form = form,
                      .sections = {{.name = ".text", .content = "code"}},
                      .segments = {{.section = ".text"}, {.section = ".text"}},
                      .extra_entsize = 8});
}

TEST_F(elfhead, what_cannot_be_read_or_written_is_an_error) {
    elf_silence const silence;
    elf_file_header head;
    std::string file = small_file(elf_forms[0]);
    EXPECT_FALSE(genelf_readXheader(*stream_of("\177ELf" + file.substr(4)), 0, head, 64));
    set_field(file, field::e_shnum, 0);
    set_field(file, field::e_shentsize, elf_section_header_size(64) - 1);
    EXPECT_FALSE(genelf_readXheader(*stream_of(file), 0, head, 64));
    EXPECT_FALSE(genelf_writeXheader("f", *stream_of(""), {.e_shnum = 0xFF00}, nullptr, 64));
    genelf_writeXheader("f", *stream_of(""), {.e_shoff = uint64_t{1} << 32}, nullptr, 32);
    EXPECT_EQ(silence.errors(), 4U);
}

TEST_F(elfhead, names_of_sections_end_inside_the_file) {
    std::string file = build_elf({.sections = {{.name = ".one"},
                                               {.name = ".dup", .content = "first"},
                                               {.name = ".dup", .content = "second"}}});
    uint64_t const names = get_field(file, field::e_shstrndx);
    // The name of section 1 is the end of the file, and not terminated.
    set_field(file, field::sh_name, file.size() - get_field(file, field::sh_offset, names), 1);
    auto const stream = stream_of(lead + file + ".end");
    EXPECT_EQ(elf_find_section(*stream, ".dup", base).value().sh_size, 5U);
    for (const char* absent : {".du", ".dup2", ".end", ".one"})
        EXPECT_FALSE(elf_find_section(*stream, absent, base)) << absent;
    std::vector<elf_section_header> sections;
    elf_read_secheaders(*stream, sections, 5, base + get_field(file, field::e_shoff), 0, 64);
    EXPECT_EQ(elf_read_section_name(*stream, 4, sections, 2, base), ".dup");
    EXPECT_FALSE(elf_read_section_name(*stream, 4, sections, 1, base));
    EXPECT_FALSE(elf_read_section_name(*stream, 5, sections, 1, base));
}

} // namespace
