// ELF fields and headers: order, the end of the file, what cannot be read or written, names of
// sections, and what an error does with and without a sink.
#include "objfile/elfhead.h"
#include "support/child.h"
#include "support/elf_builder.h"

namespace {

using elffield = placed_test;

TEST_F(elffield, fields_in_each_order) {
    for (bool big : {true, false}) {
        elf_access elf = {.elf_byte_order = big ? ELF_ORDER_BIG : ELF_ORDER_LITTLE};
        auto const stream = stream_of("");
        elf_write_u16(elf, *stream, 0x8102);
        elf_write_u32(elf, *stream, 0x83040506);
        elf_write_u64(elf, *stream, 0x8708090A0B0C0D0E);
        EXPECT_EQ(place.get("f"), big ? "\x81\x02\x83\4\5\6\x87\x08\x09\x0A\x0B\x0C\x0D\x0E"
                                      : "\2\x81\6\5\4\x83\x0E\x0D\x0C\x0B\x0A\x09\x08\x87");
        gen_seek(*stream, 0, GEN_SEEK_SET);
        EXPECT_EQ(elf_read_u16(elf, *stream), 0x8102);
        EXPECT_EQ(elf_read_u32(elf, *stream), 0x83040506);
        EXPECT_EQ(elf_read_u64(elf, *stream), 0x8708090A0B0C0D0E);
        gen_seek(*stream, -1, GEN_SEEK_CUR); // bytes past the end are 0xFF, and no error
        EXPECT_EQ(elf_read_u32(elf, *stream), big ? 0x0EFFFFFF : 0xFFFFFF87);
    }
}

TEST_F(elffield, errors_are_fatal_without_a_sink_and_counted_with_one) {
    auto const stream = stream_of("0123456789");
    elf_access elf;
    expect_fatal({
        {[&] { elf_read_u16(elf, *stream); }, "internal, endian not set"},
        {[&] { elf_narrow(elf, 0x100000000); }, "ELF file overflow"},
        {[&] { elf_read_bytes(elf, *stream, UINT64_MAX); }, "read failed, unexpected EOF"},
    });
    elf.elf_error_sink = true;
    EXPECT_EQ(elf_read_u64(elf, *stream), 0U);
    EXPECT_EQ(stream->position, 8U); // the bytes are taken all the same
    elf_write_u16(elf, *stream, 1);
    EXPECT_EQ(place.get("f"), "0123456789");
    EXPECT_EQ(elf.elf_error_count, 2U);
}

TEST_F(elffield, a_block_that_the_file_cannot_fill_is_not_allocated) {
    elf_access elf = {.elf_error_sink = true};
    auto const stream = stream_of("0123456789");
    EXPECT_STREQ(elf_read_bytes(elf, *stream, 4).text(), "0123"); // with a NUL behind it
    EXPECT_EQ(elf_read_bytes(elf, *stream, 0).size, 0U);
    for (uint64_t size : {uint64_t{7}, uint64_t{1} << 62, UINT64_MAX})
        EXPECT_EQ(elf_read_bytes(elf, *stream, size).bytes, nullptr) << size;
    EXPECT_EQ(elf.elf_error_count, 6U); // a failed read counts twice
}

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
    elf_access elf = {.elfbits = 64, .elf_error_sink = true};
    elf_file_header head;
    std::string file = small_file(elf_forms[0]);
    EXPECT_FALSE(genelf_readXheader(elf, *stream_of("\177ELf" + file.substr(4)), 0, head));
    set_field(file, field::e_shnum, 0);
    set_field(file, field::e_shentsize, elf_section_header_size(64) - 1);
    EXPECT_FALSE(genelf_readXheader(elf, *stream_of(file), 0, head));
    EXPECT_FALSE(genelf_writeXheader(elf, "f", *stream_of(""), {.e_shnum = 0xFF00}, nullptr));
    elf.elfbits = 32;
    genelf_writeXheader(elf, "f", *stream_of(""), {.e_shoff = uint64_t{1} << 32}, nullptr);
    EXPECT_EQ(elf.elf_error_count, 4U);
}

TEST_F(elfhead, names_of_sections_end_inside_the_file) {
    std::string file = build_elf({.sections = {{.name = ".one"},
                                               {.name = ".dup", .content = "first"},
                                               {.name = ".dup", .content = "second"}}});
    uint64_t const names = get_field(file, field::e_shstrndx);
    // The name of section 1 is the end of the file, and not terminated.
    set_field(file, field::sh_name, file.size() - get_field(file, field::sh_offset, names), 1);
    auto const stream = stream_of(lead + file + ".end");
    elf_access elf;
    EXPECT_EQ(elf_find_section(elf, *stream, ".dup", base).value().sh_size, 5U);
    for (const char* absent : {".du", ".dup2", ".end", ".one"})
        EXPECT_FALSE(elf_find_section(elf, *stream, absent, base)) << absent;
    std::vector<elf_section_header> sections;
    elf_read_secheaders(elf, *stream, sections, 5, base + get_field(file, field::e_shoff), 0);
    EXPECT_EQ(elf_read_section_name(*stream, 4, sections, 2, base), ".dup");
    EXPECT_FALSE(elf_read_section_name(*stream, 4, sections, 1, base));
    EXPECT_FALSE(elf_read_section_name(*stream, 5, sections, 1, base));
}

} // namespace
