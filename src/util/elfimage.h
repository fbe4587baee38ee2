// What is read of an ELF file before anything is decided: headers, tables and section names, all
// checked so that the steps that follow can index them freely.
#pragma once

#include <cstdint>
#include <vector>

#include "objfile/elfhead.h"
#include "shared/genmem.h"

struct elf_image {
    const char* name = nullptr; // as the user typed it
    gen_stream* stream = nullptr;
    elf_access elf = {};
    elf_file_header elfhead = {};
    std::vector<elf_program_header> proghead = {};
    std::vector<elf_section_header> sechead = {};
    gen_block shstrtab = {}; // a NUL stands behind its last byte
};

// Moved data keeps its offset modulo this.
inline uint64_t alignment_unit(const elf_image& image) {
    return static_cast<uint64_t>(image.elf.elfbits) / 8;
}

// The section's name, a C string inside shstrtab. Valid once names_are_sound.
inline const char* section_name(const elf_image& image, const elf_section_header& section) {
    return image.shstrtab.text() + section.sh_name;
}

inline bool has_data(const elf_section_header& section) {
    return section.sh_type != SHT_NOBITS && section.sh_size != 0;
}

// Bytes between two entries of the header tables in the file.
uint32_t section_header_stride(const elf_image& image);
uint32_t program_header_stride(const elf_image& image);

// The section's bytes, a NUL behind the last; none after an error.
gen_block read_section_data(elf_image& image, const elf_section_header& section);

// Reads headers, tables and the section-name string table from the image's stream, which is at the
// start of the file. False after a report: the file is not to be touched.
bool read_image(elf_image& image);

// Whether every sh_name lies inside the section-name string table. False after a report.
bool names_are_sound(const elf_image& image);

bool lies_in_file(const elf_image& image, const elf_section_header& section);
// The same for the data of section `index`. False after a report.
bool holds_section(const elf_image& image, uint32_t index);
