// ELF headers against the tests' own table of field places, their limits, and names of sections.
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

TEST_F(elfhead, layouts_of_both_classes_and_orders) {
    for (auto const& form : elf_forms) {
        SCOPED_TRACE(form.name);
        std::string file = small_file(form);
        // Each byte of each field is to differ from its neighbours.
        for (field which : {field::e_version, field::e_entry, field::e_flags})
            set_field(file, which, 0x0102030405060708 * (1 + static_cast<uint64_t>(which)));
        for (auto which = static_cast<uint8_t>(field::p_type);
             which <= static_cast<uint8_t>(field::sh_entsize); ++which)
            set_field(file, field{which}, 0xF1E2D3C4B5A69788 - 0x0101010101010101 * which, 1);
        auto const stream = stream_of(lead + file, base);
        elf_file_header h;
        std::vector<elf_section_header> sections;
        std::vector<elf_program_header> segments;
        int const bits = elf_class_of(*stream, base, "f");
        EXPECT_TRUE(genelf_readXheader(*stream, base, h, bits));
        elf_read_secheaders(*stream, sections, 2, base + h.e_shoff, h.e_shentsize, bits);
        elf_read_progheaders(*stream, segments, 2, base + h.e_phoff, h.e_phentsize, bits);
        auto const& p = segments.at(1);
        auto const& s = sections.at(1);
        uint64_t const in_memory[] = {
            h.e_type,     h.e_machine, h.e_version,   h.e_entry,  h.e_phoff,     h.e_shoff,
            h.e_flags,    h.e_ehsize,  h.e_phentsize, h.e_phnum,  h.e_shentsize, h.e_shnum,
            h.e_shstrndx, p.p_type,    p.p_flags,     p.p_offset, p.p_vaddr,     p.p_paddr,
            p.p_filesz,   p.p_memsz,   p.p_align,     s.sh_name,  s.sh_type,     s.sh_flags,
            s.sh_addr,    s.sh_offset, s.sh_size,     s.sh_link,  s.sh_info,     s.sh_addralign,
            s.sh_entsize};
        for (uint8_t which = 0; which < std::size(in_memory); ++which)
            EXPECT_EQ(in_memory[which], get_field(file, field{which}, 1)) << int{which};

        auto const out = stream_of(lead, base);
        EXPECT_TRUE(genelf_writeXheader("f", *out, h, nullptr, bits));
        elf_write_secheaders("f", *out, {&s, 1}, bits);
        elf_write_progheaders("f", *out, {&p, 1}, bits);
        uint64_t const section = field_offset(file, field::sh_name, 1);
        uint64_t const segment = field_offset(file, field::p_type, 1);
        EXPECT_EQ(place.get("f"), lead + file.substr(0, elf_file_header_size(bits)) +
                                      file.substr(section, elf_section_header_size(bits)) +
                                      file.substr(segment, elf_program_header_size(bits)));
    }
}

TEST_F(elfhead, counts_beyond_16_bits_stand_in_section_header_0) {
    static const struct {
        uint32_t count, names;                                 // in memory
        uint64_t file_count, file_names, zero_size, zero_link; // in the file
    } rows[] = {{0xFEFF, 0xFF05, 0xFEFF, 0xFF05, 0, 0},        // such an index alone is not escaped
                {0xFF00, 5, 0, 5, 0xFF00, 0},
                {70000, 0xFF00, 0, 0xFFFF, 70000, 0xFF00}};
    for (auto const& row : rows) {
        auto const stream = stream_of(small_file(elf_forms[0]));
        elf_file_header head, again;
        elf_section_header zero;
        EXPECT_TRUE(genelf_readXheader(*stream, 0, head, 64));
        head.e_shoff = elf_file_header_size(64);
        head.e_shnum = row.count;
        head.e_shstrndx = row.names;
        gen_seek(*stream, 0, GEN_SEEK_SET);
        EXPECT_TRUE(genelf_writeXheader("f", *stream, head, &zero, 64));
        elf_write_secheaders("f", *stream, {&zero, 1}, 64);
        std::string const file = place.get("f");
        EXPECT_EQ(get_field(file, field::e_shnum), row.file_count);
        EXPECT_EQ(get_field(file, field::e_shstrndx), row.file_names);
        EXPECT_EQ(get_field(file, field::sh_size), row.zero_size);
        EXPECT_EQ(get_field(file, field::sh_link), row.zero_link);
        gen_seek(*stream, 0, GEN_SEEK_SET);
        EXPECT_TRUE(genelf_readXheader(*stream, 0, again, 64));
        EXPECT_EQ(again.e_shnum, row.count);
        EXPECT_EQ(again.e_shstrndx, row.names);
    }
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
