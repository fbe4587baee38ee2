// Reading an ELF file's headers. A table is read only once it is known to lie inside the file, so
// that no number of the file decides how much memory is asked for.
#include "util/elfimage.h"

#include <algorithm>
#include <cinttypes>

#include "shared/genmessage.h"
#include "util/damage.h"

namespace {

// Whether the file holds `count` entries of `stride` bytes at `offset`.
bool holds_table(const elf_image& image, uint64_t offset, uint64_t count, uint64_t stride) {
    const uint64_t size = image.stream->size;
    return offset <= size && count <= (size - offset) / stride;
}

bool read_program_headers(elf_image& image) {
    const elf_file_header& head = image.elfhead;
    if (head.e_phnum == PN_XNUM)
        return report_damage(image.name, "e_phnum 0xFFFF (extended numbering) is not supported");
    // An entry size that is too small is the reader's error, not damage of the table.
    const bool readable =
        head.e_phentsize == 0 || head.e_phentsize >= elf_program_header_size(image.elf.elfbits);
    if (readable && head.e_phnum != 0 &&
        !holds_table(image, head.e_phoff, head.e_phnum, program_header_stride(image)))
        return report_damage(image.name,
                             "program header table at e_phoff 0x%" PRIx64
                             " with e_phnum %u reaches past the end of the file, 0x%" PRIx64,
                             head.e_phoff, unsigned{head.e_phnum}, image.stream->size);
    return elf_read_progheaders(image.elf, *image.stream, image.proghead, head.e_phnum,
                                head.e_phoff, head.e_phentsize);
}

bool read_section_headers(elf_image& image) {
    const elf_file_header& head = image.elfhead;
    if (head.e_shnum == 0)
        return true;
    if (head.e_shentsize != 0 && head.e_shentsize < elf_section_header_size(image.elf.elfbits))
        return report_damage(image.name, "e_shentsize %u is below %u", unsigned{head.e_shentsize},
                             unsigned{elf_section_header_size(image.elf.elfbits)});
    if (!holds_table(image, head.e_shoff, head.e_shnum, section_header_stride(image)))
        return report_damage(image.name,
                             "section header table at e_shoff 0x%" PRIx64 " with e_shnum %" PRIu32
                             " reaches past the end of the file, 0x%" PRIx64,
                             head.e_shoff, head.e_shnum, image.stream->size);
    return elf_read_secheaders(image.elf, *image.stream, image.sechead, head.e_shnum, head.e_shoff,
                               head.e_shentsize);
}

// Section 0 stands for no section: but for the fields of extended numbering it is all zero.
bool section_zero_is_sound(const elf_image& image) {
    const elf_section_header& zero = image.sechead[0];
    const struct {
        const char* name;
        uint64_t value;
    } fields[] = {{"sh_name", zero.sh_name},      {"sh_type", zero.sh_type},
                  {"sh_flags", zero.sh_flags},    {"sh_addr", zero.sh_addr},
                  {"sh_offset", zero.sh_offset},  {"sh_addralign", zero.sh_addralign},
                  {"sh_entsize", zero.sh_entsize}};
    for (const auto& field : fields)
        if (field.value != 0)
            return report_damage(image.name, "%s 0x%" PRIx64 " of section header 0 is not 0",
                                 field.name, field.value);
    return true;
}

} // namespace

uint32_t section_header_stride(const elf_image& image) {
    return std::max(image.elfhead.e_shentsize, elf_section_header_size(image.elf.elfbits));
}

uint32_t program_header_stride(const elf_image& image) {
    return std::max(image.elfhead.e_phentsize, elf_program_header_size(image.elf.elfbits));
}

gen_block read_section_data(elf_image& image, const elf_section_header& section) {
    elf_seek(image.name, *image.stream, section.sh_offset);
    return elf_read_bytes(image.elf, *image.stream, section.sh_size);
}

bool read_image(elf_image& image) {
    image.elf.elfbits = elf_class_of(*image.stream, image.stream->position, nullptr);
    if (!genelf_readXheader(image.elf, *image.stream, image.stream->position, image.elfhead) ||
        !read_program_headers(image) || !read_section_headers(image))
        return false;
    if (image.sechead.empty()) {
        gen_error("file '%s' has no sections\n", image.name);
        return false;
    }
    if (image.elfhead.e_shstrndx >= image.sechead.size())
        return report_damage(image.name,
                             "e_shstrndx %" PRIu32 " is not below the section count %" PRIu32,
                             image.elfhead.e_shstrndx, image.elfhead.e_shnum);
    const elf_section_header& strings = image.sechead[image.elfhead.e_shstrndx];
    if (strings.sh_size == 0) {
        gen_error("string table empty for '%s'", image.name);
        return false;
    }
    if (!section_zero_is_sound(image))
        return false;
    // They carried extended numbering, which is resolved by now and made anew when writing.
    image.sechead[0].sh_size = 0;
    image.sechead[0].sh_link = 0;
    image.shstrtab = read_section_data(image, strings);
    return true;
}

bool names_are_sound(const elf_image& image) {
    for (size_t i = 0; i < image.sechead.size(); ++i)
        if (image.sechead[i].sh_name >= image.shstrtab.size)
            return report_damage(image.name,
                                 "sh_name 0x%" PRIx32 " of section %zu is outside the "
                                 "section-name string table of 0x%" PRIx64 " bytes",
                                 image.sechead[i].sh_name, i, image.shstrtab.size);
    return true;
}

bool lies_in_file(const elf_image& image, const elf_section_header& section) {
    return holds_table(image, section.sh_offset, section.sh_size, 1);
}

bool holds_section(const elf_image& image, uint32_t index) {
    const elf_section_header& section = image.sechead[index];
    if (lies_in_file(image, section))
        return true;
    return report_damage(image.name,
                         "section %" PRIu32 " at sh_offset 0x%" PRIx64 " with sh_size 0x%" PRIx64
                         " reaches past the end of the file, 0x%" PRIx64,
                         index, section.sh_offset, section.sh_size, image.stream->size);
}
