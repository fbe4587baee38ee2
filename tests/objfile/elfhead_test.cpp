// ELF headers against the tests' own table of field places, their limits, and names of sections.
#include <algorithm>

#include "objfile/elfhead.h"
#include "support/child.h"
#include "support/elf_builder.h"

namespace {

struct elfhead : placed_test {
    ~elfhead() override { elf_byte_order = ELF_ORDER_UNSET; }
};

constexpr int64_t base = 8; // every file here stands behind 8 bytes of something else
const std::string lead = "archive ";

std::string small_file(const elf_form& form, uint16_t extra_entsize = 0) {
    return build_elf({.form = form,
                      .sections = {{.name = ".text", .content = "code"}},
                      .segments = {{.section = ".text"}, {.section = ".text"}},
                      .extra_entsize = extra_entsize});
}

TEST_F(elfhead, layouts_of_both_classes_and_orders) {
    for (auto const& form : elf_forms)
        for (uint16_t extra : {uint16_t{0}, uint16_t{8}}) {
            SCOPED_TRACE(form.name);
            std::string file = small_file(form, extra);
            for (field which : {field::e_version, field::e_entry, field::e_flags})
                set_field(file, which, 0x0102030405060708 * (1 + static_cast<uint64_t>(which)));
            for (auto which = static_cast<uint8_t>(field::p_type);
                 which <= static_cast<uint8_t>(field::sh_entsize); ++which)
                set_field(file, field{which}, 0xF1E2D3C4B5A69788 - 0x0101010101010101 * which, 1);

            if (extra && !form.big_endian)
                file[EI_DATA] = 9; // whatever does not say big-endian is little-endian
            auto const stream = stream_of(lead + file, base);
            elf_byte_order = ELF_ORDER_UNSET; // the header itself says it
            elf_file_header h;
            std::vector<elf_section_header> sections;
            std::vector<elf_program_header> segments;
            int const bits = form.elfbits;
            EXPECT_EQ(elf_class_of(*stream, base, "f"), bits);
            EXPECT_TRUE(genelf_readXheader(*stream, base, h, bits));
            EXPECT_TRUE(elf_read_secheaders(*stream, sections, 2, base + h.e_shoff,
                                            extra ? h.e_shentsize : 0, bits));
            gen_seek(*stream, static_cast<int64_t>(base + h.e_phoff), GEN_SEEK_SET);
            EXPECT_TRUE(elf_read_progheaders(*stream, segments, 2, elf_here,
                                             extra ? h.e_phentsize : 0, bits));
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
            EXPECT_EQ(place.get("f"), lead + file.substr(0, elf_file_header_size(bits)) +
                                          file.substr(field_offset(file, field::sh_name, 1),
                                                      elf_section_header_size(bits)) +
                                          file.substr(field_offset(file, field::p_type, 1),
                                                      elf_program_header_size(bits)));
        }
}

TEST_F(elfhead, extended_numbering) {
    static const struct {
        uint32_t count, names;           // in memory
        uint64_t file_count, file_names; // in the file header
        uint64_t zero_size, zero_link;   // in section header 0
    } rows[] = {
        {0xFEFF, 0xFF05, 0xFEFF, 0xFF05, 0, 0}, // such an index alone is not escaped
        {0xFF00, 5, 0, 5, 0xFF00, 0},
        {70000, 0xFEFF, 0, 0xFEFF, 70000, 0},
        {70000, 0xFF00, 0, 0xFFFF, 70000, 0xFF00},
    };
    for (auto const& form : elf_forms)
        for (auto const& row : rows) {
            auto stream = stream_of(lead + small_file(form), base);
            elf_file_header head, again;
            EXPECT_TRUE(genelf_readXheader(*stream, base, head, form.elfbits));
            head.e_shnum = row.count;
            head.e_shstrndx = row.names;
            head.e_shoff = elf_file_header_size(form.elfbits);
            elf_section_header zero;
            stream = stream_of(lead, base);
            EXPECT_TRUE(genelf_writeXheader("f", *stream, head, &zero, form.elfbits));
            elf_write_secheaders("f", *stream, {&zero, 1}, form.elfbits);
            std::string const file = place.get("f").substr(base);
            EXPECT_EQ(get_field(file, field::e_shnum), row.file_count);
            EXPECT_EQ(get_field(file, field::e_shstrndx), row.file_names);
            EXPECT_EQ(get_field(file, field::sh_size), row.zero_size);
            EXPECT_EQ(get_field(file, field::sh_link), row.zero_link);

            gen_seek(*stream, base, GEN_SEEK_SET);
            EXPECT_TRUE(genelf_readXheader(*stream, base, again, form.elfbits));
            EXPECT_EQ(again.e_shnum, row.count);
            EXPECT_EQ(again.e_shstrndx, row.names);
        }
}

TEST_F(elfhead, errors) {
    auto read = [&](std::string bytes, int bits, field which, uint64_t value) {
        set_field(bytes, which, value);
        set_field(bytes, field::e_shnum, 0);
        elf_file_header head;
        auto const stream = stream_of(bytes);
        genelf_readXheader(*stream, 0, head, bits);
    };
    auto segments = [&](uint64_t offset, uint32_t entsize, int bits) {
        std::vector<elf_program_header> table;
        elf_read_progheaders(*stream_of("bytes"), table, 0, offset, entsize, bits);
    };
    auto write = [&](elf_file_header head, int bits) {
        genelf_writeXheader("f", *stream_of(""), head, nullptr, bits);
    };
    std::string const good = small_file(elf_forms[0]);
    expect_fatal({
        {[&] { read("\177ELf" + good.substr(4), 64, field::e_type, 2); }, "bad elf magic number"},
        {[&] { read("\177ELF", 64, field::e_type, 2); }, "read failed, unexpected EOF"},
        {[&] { read(good, 16, field::e_type, 2); }, "Unexpected elfbits"},
        {[&] { read(good, 64, field::e_shentsize, 63); },
         "genelf_readXheader: Unable to read section header"},
        {[&] { read(good, 64, field::sh_size, 0x100000000); }, "ELF file overflow"},
        {[&] { write({}, -1); }, "Unexpected elfbits"},
        {[&] { write({.e_shnum = 0xFF00}, 64); },
         "genelf_writeXheader: Unable to write ELF header"},
        {[&] { write({.e_shoff = 0x100000000}, 32); }, "ELF file overflow"},
        {[&] { segments(0, 31, 32); }, "elf_readprogheader(): phentsize"},
        {[&] { segments(elf_here, 40, 64); }, "elf64_readprogheader(): phentsize"},
        {[&] { segments(0x100000000, 0, 32); }, "ELF file overflow"},
        {[&] { segments(0, 0, 33); }, "Unexpected elfbits"},
    });
    elf_silence const silence;
    std::vector<elf_section_header> table;
    EXPECT_FALSE(elf_read_secheaders(*stream_of(good), table, 1, 0, 39, 32));
    EXPECT_FALSE(elf_read_secheaders(*stream_of(good), table, 1, 0, 63, 64));
    EXPECT_EQ(silence.errors(), 0U);
}

TEST_F(elfhead, fields_too_wide_for_their_file) {
    constexpr uint64_t wide = 0x1'8000'0000;
    elf_file_header const head = {.e_entry = wide, .e_phoff = wide, .e_shoff = wide};
    elf_section_header const section = {0, 0, wide, wide, wide, wide, 0, 0, wide, wide};
    elf_program_header const segment = {0, 0, wide, wide, wide, wide, wide, wide};
    elf_byte_order = ELF_ORDER_LITTLE;
    for (int bits : {32, 64}) {
        auto const stream = stream_of("");
        uint64_t const each = bits == 32 ? 1 : 0;
        elf_silence const silence;
        genelf_writeXheader("f", *stream, head, nullptr, bits);
        EXPECT_EQ(silence.errors(), 3 * each);
        elf_write_secheaders("f", *stream, {&section, 1}, bits);
        EXPECT_EQ(silence.errors(), 9 * each);
        elf_write_progheaders("f", *stream, {&segment, 1}, bits);
        EXPECT_EQ(silence.errors(), 15 * each);
        std::string const file = place.get("f"); // has the low halves, the high ones only if wide
        EXPECT_EQ(std::count(file.begin(), file.end(), '\x80'), 15);
        EXPECT_EQ(std::count(file.begin(), file.end(), '\1'), bits == 32 ? 0 : 15);
    }
}

TEST_F(elfhead, class_of_anything_else) {
    for (const char* bytes : {"\177ELF\3.............", "\177ELF", ""}) {
        auto const stream = stream_of(lead + bytes, 3);
        EXPECT_EQ(elf_class_of(*stream, base, "f"), -1);
        EXPECT_EQ(stream->position, 3U);
    }
}

TEST_F(elfhead, section_names) {
    std::string const name(1300, 'n');
    static const struct {
        uint32_t strings, index, sh_name;
        size_t length;
        bool found;
    } rows[] = {{1, 2, 0, 0, true},     {1, 2, 1, 1300, true}, {1, 2, 790, 511, true},
                {1, 2, 789, 512, true}, {1, 2, 1301, 0, true}, {1, 2, 1302, 0, false},
                {1, 2, 5000, 0, false}, {3, 2, 0, 0, false},   {1, 3, 0, 0, false}};
    auto const stream = stream_of(lead + "strings" + '\0' + name + '\0' + "not terminated", 5);
    for (auto const& row : rows) {
        std::vector<elf_section_header> sections(3);
        sections[1].sh_offset = 7;
        sections[2].sh_name = row.sh_name;
        auto const got = elf_read_section_name(*stream, row.strings, sections, row.index, base);
        EXPECT_EQ(got, row.found ? std::optional(name.substr(0, row.length)) : std::nullopt);
        EXPECT_EQ(stream->position, 5U);
    }
}

TEST_F(elfhead, find_section) {
    for (auto const& form : elf_forms) {
        SCOPED_TRACE(form.name);
        // The name of section 1 is the end of the file, and not terminated.
        std::string file = build_elf({.form = form,
                                      .sections = {{.name = ".one"},
                                                   {.name = ".dup", .content = "first"},
                                                   {.name = ".dup", .content = "second"}}});
        uint64_t const names = get_field(file, field::e_shstrndx);
        set_field(file, field::sh_name, file.size() - get_field(file, field::sh_offset, names), 1);
        file += ".end";
        auto find = [&](const char* name) {
            return elf_find_section(*stream_of(lead + file), name, base);
        };
        elf_silence const silence;
        ASSERT_TRUE(find(".dup"));
        EXPECT_EQ(find(".dup")->sh_size, 5U);
        for (const char* absent : {".du", ".dup2", ".end", ".en", ".one"})
            EXPECT_FALSE(find(absent)) << absent;
        EXPECT_EQ(silence.errors(), 0U);
        set_field(file, field::e_shoff, 0);
        EXPECT_FALSE(find(".dup"));
        EXPECT_EQ(silence.errors(), 1U);
    }
}

} // namespace
