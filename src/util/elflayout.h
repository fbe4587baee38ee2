// Layout: where everything of an ELF file goes in the output, and the output's headers.
//
// Sections are visited in the order of their offsets. What is removed moves all that follows it
// towards the start, by a multiple of the alignment unit, so that offsets keep their value modulo 4
// in a 32-bit file and modulo 8 in a 64-bit one.
#pragma once

#include <cstdint>
#include <vector>

#include "util/elfimage.h"
#include "util/elfplan.h"

struct elf_layout_plan {
    std::vector<uint32_t> offset_order; // section indexes by sh_offset, equal ones by index
    uint64_t shift = 0;                 // bytes by which data at the current place moves
};

elf_layout_plan order_by_offset(const elf_image& image);

// Where the byte at `offset` of the input goes. During write_sections it holds for what lies before
// the current section, afterwards for the whole file.
uint64_t translate_offset(const elf_layout_plan& layout, const section_plan& plan, uint64_t offset);

struct output_file {
    const char* name;
    gen_stream& stream;
};

// Writes the data of the kept sections, rewritten where `plan` says so, and fills in the shifts in
// `plan` and the new sh_size in `image`.
void write_sections(elf_image& image, strip_plan& plan, elf_layout_plan& layout,
                    const output_file& output);

// Translates the headers in `image` and writes them.
void write_headers(elf_image& image, const strip_plan& plan, const elf_layout_plan& layout,
                   const output_file& output);
