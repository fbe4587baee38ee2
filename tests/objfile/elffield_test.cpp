// What runs of the program cannot show of ELF fields and headers: the end of the file, what cannot
// be read or written, and what an error does with and without a sink.
#include "objfile/elfsym.h"
#include "support/child.h"
#include "support/elf_builder.h"

namespace {

using elffield = placed_test;

TEST_F(elffield, errors_are_fatal_without_a_sink_and_counted_with_one) {
    auto const stream = stream_of("0123456789", 7);
    elf_access elf, fatal = {.elfbits = 64};
    std::string file = build_elf({});
    set_field(file, field::e_shnum, 0);
    set_field(file, field::e_shentsize, 63);
    const auto read = [&](elf_access& access, const std::string& bytes) {
        elf_file_header head;
        return genelf_readXheader(access, *stream_of(bytes), 0, head);
    };
    const auto write = [&] {
        return genelf_writeXheader(fatal, "g", *stream_of(""), {.e_shnum = 0xFF00}, nullptr);
    };
    expect_fatal({{[&] { elf_read_u16(elf, *stream); }, "internal, endian not set"},
                  {[&] { elf_narrow(elf, 0x100000000); }, "ELF file overflow"},
                  {[&] { elf_read_bytes(elf, *stream, 4); }, "read failed, unexpected EOF"},
                  {[&] { read(elf, file); }, "Unexpected elfbits"},
                  {[&] { elf_index_in(0x10000); }, "Invalid section"},
                  {[&] { read(fatal, "\177ELf" + file); }, "bad elf magic number"},
                  {[&] { read(fatal, file); }, "genelf_readXheader: Unable to read section header"},
                  {[&] { write(); }, "genelf_writeXheader: Unable to write ELF header"}});
    fatal.elf_error_sink = true;
    EXPECT_FALSE(read(fatal, "\177ELf" + file) || read(fatal, file) || write());
    EXPECT_FALSE(elf_symbols_for_output(fatal, {{{.st_shndx = 0xFF00}}}, nullptr));
    fatal.elf_byte_order = ELF_ORDER_BIG;
    EXPECT_EQ(elf_read_u32(fatal, *stream_of("0123456789", 7)), 0x373839FF);
    auto const four = stream_of("0123");
    for (uint64_t size : {uint64_t{5}, uint64_t{1} << 62, UINT64_MAX})
        EXPECT_EQ(elf_read_bytes(fatal, *four, size).size, 0U) << size;
    EXPECT_STREQ(elf_read_bytes(fatal, *four, 4).text(), "0123"); // with a NUL behind it
    EXPECT_EQ(fatal.elf_error_count, 10U);
}

TEST_F(elffield, names_of_sections_end_inside_the_file) {
    const std::string file =
        "archive " + build_elf({.sections = {{.name = ".dup", .content = "it"}, {.name = ".dup"}}});
    auto const stream = stream_of(file + ".end");
    elf_access elf = {.elf_error_sink = true};
    EXPECT_EQ(elf_find_section(elf, *stream, ".dup", 8).value().sh_size, 2U);
    for (const char* absent : {".du", ".dup2", ".end"})
        EXPECT_FALSE(elf_find_section(elf, *stream, absent, 8)) << absent;
    EXPECT_FALSE(elf_find_section(elf, *stream_of(file.substr(0, file.size() - 1)), ".dup", 8));
    EXPECT_EQ(elf.elf_error_count, 1U);
    EXPECT_FALSE(elf_read_section_name(*stream, 5, std::vector<elf_section_header>(5), 1, 8));
    EXPECT_FALSE(elf_read_section_name(*stream, 1, std::vector<elf_section_header>(5), 5, 8));
}

TEST_F(elffield, index_tables_of_several_blocks) {
    const std::vector<uint32_t> list(600'001, 0x01010101);
    elf_access elf = {.elf_byte_order = ELF_ORDER_LITTLE};
    EXPECT_EQ(elf_write_words(elf, "f", *stream_of(""), list), 4 * list.size());
    EXPECT_EQ(difference(place.get("f"), std::string(4 * list.size(), 1)), "");
}

} // namespace
