// What runs of the program cannot show of ELF fields and headers: the end of the file, what cannot
// be read or written, and what an error does with and without a sink.
#include <cstring>

#include "objfile/elfsym.h"
#include "support/child.h"
#include "support/elf_builder.h"

namespace {

using elffield = placed_test;

TEST_F(elffield, errors_are_fatal_without_a_sink_and_counted_with_one) {
    auto const stream = stream_of("0123456789");
    elf_access elf;
    expect_fatal({
        {[&] { elf_read_u16(elf, *stream); }, "internal, endian not set"},
        {[&] { elf_narrow(elf, 0x100000000); }, "ELF file overflow"},
        {[&] { elf_read_bytes(elf, *stream, UINT64_MAX); }, "read failed, unexpected EOF"},
        {[&] { elf_bad_class(elf); }, "Unexpected elfbits"},
    });
    elf.elf_error_sink = true;
    EXPECT_EQ(elf_read_u64(elf, *stream), 0U);
    EXPECT_EQ(stream->position, 8U); // the bytes are taken all the same
    elf_write_u16(elf, *stream, 1);
    EXPECT_EQ(elf.elf_error_count, 2U);
    for (const uint32_t order : {ELF_ORDER_BIG, ELF_ORDER_LITTLE}) {
        elf.elf_byte_order = order;
        gen_seek(*stream, 7, GEN_SEEK_SET); // 0xFF stands behind the end
        EXPECT_EQ(elf_read_u32(elf, *stream), order == ELF_ORDER_BIG ? 0x373839FF : 0xFF393837);
    }
    EXPECT_EQ(place.get("f"), "0123456789");
}

TEST_F(elffield, a_block_that_the_file_cannot_fill_is_not_allocated) {
    elf_access elf = {.elf_error_sink = true};
    auto const stream = stream_of("0123456789");
    EXPECT_STREQ(elf_read_bytes(elf, *stream, 4).text(), "0123"); // with a NUL behind it
    for (uint64_t size : {uint64_t{7}, uint64_t{1} << 62, UINT64_MAX})
        EXPECT_EQ(elf_read_bytes(elf, *stream, size).bytes, nullptr) << size;
    EXPECT_EQ(elf.elf_error_count, 6U); // a failed read counts twice
    EXPECT_EQ(elf_read_bytes(elf, *stream, 6).size, 6U);
    EXPECT_EQ(elf_read_bytes(elf, *stream, 0).size, 0U);
    gen_calloc_slot = [](uint64_t, uint64_t) -> void* { return nullptr; };
    const uint64_t size = elf_malloc(elf, 5).size;
    gen_calloc_slot = gen_calloc;
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(elf.elf_error_count, 7U);
}

TEST_F(elffield, what_cannot_be_read_or_written_is_an_error) {
    elf_access elf = {.elfbits = 64, .elf_error_sink = true};
    elf_file_header head;
    std::string file = build_elf({.sections = {{.name = ".text", .content = "code"}}});
    EXPECT_FALSE(genelf_readXheader(elf, *stream_of("\177ELf" + file.substr(4)), 0, head));
    set_field(file, field::e_shnum, 0);
    set_field(file, field::e_shentsize, elf_section_header_size(64) - 1);
    EXPECT_FALSE(genelf_readXheader(elf, *stream_of(file), 0, head));
    EXPECT_FALSE(genelf_writeXheader(elf, "f", *stream_of(""), {.e_shnum = 0xFF00}, nullptr));
    EXPECT_FALSE(elf_symbols_for_output(elf, {{{.st_shndx = 0xFF00}}}, nullptr));
    elf.elfbits = 32;
    genelf_writeXheader(elf, "f", *stream_of(""), {.e_shoff = uint64_t{1} << 32}, nullptr);
    EXPECT_EQ(elf.elf_error_count, 5U);
    elf.elf_error_sink = false;
    elf.elfbits = 64;
    expect_fatal(
        {{[&] { genelf_readXheader(elf, *stream_of(file), 0, head); },
          "genelf_readXheader: Unable to read section header"},
         {[&] { genelf_readXheader(elf, *stream_of("\177ELf"), 0, head); },
          "read failed, unexpected EOF"},
         {[&] { genelf_writeXheader(elf, "f", *stream_of(""), {.e_shnum = 0xFF00}, nullptr); },
          "genelf_writeXheader: Unable to write ELF header"}});
}

TEST_F(elffield, names_of_sections_end_inside_the_file) {
    const std::string lead = "archive ",
                      file = build_elf({.sections = {{.name = ".one"},
                                                     {.name = ".dup", .content = "first"},
                                                     {.name = ".dup", .content = "second"}}});
    auto const stream = stream_of(lead + file + ".end");
    elf_access elf = {.elf_error_sink = true};
    EXPECT_EQ(elf_find_section(elf, *stream, ".dup", 8).value().sh_size, 5U);
    for (const char* absent : {".du", ".dup2", ".end"})
        EXPECT_FALSE(elf_find_section(elf, *stream, absent, 8)) << absent;
    std::vector<elf_section_header> sections;
    elf_read_secheaders(elf, *stream, sections, 5, 8 + get_field(file, field::e_shoff), 0);
    EXPECT_EQ(elf_read_section_name(*stream, 4, sections, 2, 8), ".dup");
    EXPECT_FALSE(elf_read_section_name(*stream, 4, sections, 5, 8));
    EXPECT_FALSE(elf_read_section_name(*stream, 5, sections, 1, 8));
    EXPECT_EQ(elf.elf_error_count, 0U);
    EXPECT_FALSE(
        elf_find_section(elf, *stream_of(lead + file.substr(0, file.size() - 1)), ".dup", 8));
    EXPECT_EQ(elf.elf_error_count, 1U);
}

TEST_F(elffield, index_tables_of_several_blocks) {
    elf_access elf = {.elfbits = 64, .elf_byte_order = ELF_ORDER_LITTLE};
    std::vector<uint32_t> list(600'001);
    std::string expected;
    for (uint32_t i = 0; i < list.size(); ++i)
        expected += number(list[i] = i * 7919, 4);
    EXPECT_EQ(elf_write_words(elf, "f", *stream_of(""), list), expected.size());
    EXPECT_EQ(difference(place.get("f"), expected), "");
}

} // namespace
