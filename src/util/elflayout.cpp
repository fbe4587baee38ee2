// Layout: the loop over the sections, the translation of offsets, the headers.
#include "util/elflayout.h"

#include <algorithm>
#include <numeric>

#include "util/elfcopy.h"

namespace {

uint64_t round_up(uint64_t value, uint64_t unit) {
    return (value + unit - 1) / unit * unit;
}

// Gives the section its new size, `written` bytes and what fills up the unit, and moves what
// follows if that is less than before.
void settle_size(elf_section_header& section, uint64_t written, uint64_t unit, uint64_t& shift) {
    if (written == section.sh_size)
        return;
    const uint64_t occupied = round_up(written, unit);
    if (occupied != section.sh_size)
        shift += section.sh_size - occupied - section.sh_size % unit;
    section.sh_size = occupied;
}

// The new number of the section that sh_link or sh_info names: 0 when it is gone, or never was.
uint32_t new_index(const section_plan& plan, uint32_t index) {
    return index < plan.new_section_index.size() ? plan.new_section_index[index] : 0;
}

void translate_headers(elf_image& image, const strip_plan& decided, const elf_layout_plan& layout) {
    const section_plan& plan = decided.sections;
    elf_file_header& head = image.elfhead;
    head.e_shoff = translate_offset(layout, plan, head.e_shoff);
    for (size_t i = 0; i < image.sechead.size(); ++i) {
        if (plan.info[i].state == SECTION_REMOVED)
            continue;
        elf_section_header& section = image.sechead[i];
        section.sh_offset -= plan.info[i].shift;
        section.sh_link = new_index(plan, section.sh_link);
        if (decided.symbols.present && i == plan.symtab_index)
            section.sh_info = decided.symbols.first_nonlocal;
        if (is_relocation_section(section))
            section.sh_info = new_index(plan, section.sh_info);
    }
    head.e_shnum = plan.kept_count;
    head.e_phoff = translate_offset(layout, plan, head.e_phoff);
    head.e_shstrndx = plan.new_section_index[head.e_shstrndx];
    for (elf_program_header& segment : image.proghead)
        segment.p_offset = translate_offset(layout, plan, segment.p_offset);

    // Entries are written in the standard size, whatever they had.
    head.e_shentsize = std::min(head.e_shentsize, elf_section_header_size(image.elf.elfbits));
    head.e_phentsize = std::min(head.e_phentsize, elf_program_header_size(image.elf.elfbits));
}

std::vector<elf_section_header> kept_headers(const elf_image& image, const section_plan& plan) {
    std::vector<elf_section_header> kept;
    kept.reserve(plan.kept_count);
    for (size_t i = 0; i < image.sechead.size(); ++i)
        if (plan.info[i].state != SECTION_REMOVED)
            kept.push_back(image.sechead[i]);
    return kept;
}

// One pass over the sections' data.
struct section_writer {
    elf_image& image;
    strip_plan& plan;
    const output_file& output;
    section_copier copier;
};

uint64_t write_new_contents(section_writer& writer, uint32_t index) {
    const char* name = writer.output.name;
    gen_stream& stream = writer.output.stream;
    const elf_section_header& section = writer.image.sechead[index];
    const section_plan& sections = writer.plan.sections;
    symbol_plan& symbols = writer.plan.symbols;
    relocation_plan& relocations = writer.plan.relocations;
    if (index == sections.symtab_index)
        return elf_write_symbols(writer.image.elf, name, stream, symbols.symbols);
    if (index == sections.shndx_index)
        return write_index_table(writer.image.elf, name, stream, section, symbols);
    if (index == sections.strtab_index)
        return write_string_table(name, stream, writer.image, section, symbols);
    return write_relocations(name, stream, writer.image, symbols, relocations,
                             relocations.table_of[index] - 1);
}

// The number + 1 of the small relocation table that is rewritten in section `index`, or 0.
uint32_t small_table_in(const strip_plan& plan, uint32_t index) {
    const section_plan& sections = plan.sections;
    const uint32_t table = plan.relocations.table_of[index];
    const bool has_symbols = index == sections.symtab_index || index == sections.shndx_index ||
                             index == sections.strtab_index;
    return table != 0 && !has_symbols && is_small_table(plan.relocations.tables[table - 1]) ? table
                                                                                            : 0;
}

// Writes section `index`, which is kept and has data, to `offset`. Bytes written.
uint64_t write_section(section_writer& writer, uint32_t index, uint64_t offset) {
    const elf_section_header& section = writer.image.sechead[index];
    if (!is_rewritten(writer.plan, index)) {
        copy_section_data(writer.copier, section.sh_offset, offset, section.sh_size);
        return section.sh_size;
    }
    if (const uint32_t table = small_table_in(writer.plan, index); table != 0) {
        const std::span<const std::byte> contents =
            rewritten_table(writer.image, writer.plan.symbols, writer.plan.relocations, table - 1);
        put_section_data(writer.copier, offset, contents);
        return contents.size();
    }
    flush_copies(writer.copier);
    elf_seek(writer.output.name, writer.output.stream, offset);
    const uint64_t written = write_new_contents(writer, index);
    note_written(writer.copier, offset + written);
    return written;
}

} // namespace

elf_layout_plan order_by_offset(const elf_image& image) {
    elf_layout_plan layout;
    layout.offset_order.resize(image.sechead.size());
    std::iota(layout.offset_order.begin(), layout.offset_order.end(), 0U);
    std::ranges::stable_sort(layout.offset_order, {},
                             [&image](uint32_t index) { return image.sechead[index].sh_offset; });
    return layout;
}

uint64_t translate_offset(const elf_layout_plan& layout, const section_plan& plan,
                          uint64_t offset) {
    // The last section but section 0 that starts strictly before the offset says how far it moves.
    const auto first = layout.offset_order.begin() + 1;
    const auto behind =
        std::partition_point(first, layout.offset_order.end(), [&plan, offset](uint32_t index) {
            return plan.info[index].old_offset < offset;
        });
    return behind == first ? offset : offset - plan.info[*(behind - 1)].shift_after;
}

void write_sections(elf_image& image, strip_plan& plan, elf_layout_plan& layout,
                    const output_file& output) {
    section_writer writer = {
        image, plan, output, {image.name, image.stream, output.name, &output.stream}};
    uint64_t shift = 0; // of what begins where the current section does
    uint64_t previous_offset = 0;
    for (uint32_t index : layout.offset_order) {
        elf_section_header& section = image.sechead[index];
        strip_section_info& info = plan.sections.info[index];
        if (section.sh_offset != previous_offset)
            shift = layout.shift;
        previous_offset = section.sh_offset;
        info.shift = shift;
        if (has_data(section)) {
            const uint64_t new_offset = section.sh_offset - shift;
            elf_seek(image.name, *image.stream, section.sh_offset);
            elf_seek(output.name, output.stream, new_offset);
            const uint64_t written =
                info.state == SECTION_REMOVED ? 0 : write_section(writer, index, new_offset);
            settle_size(section, written, alignment_unit(image), layout.shift);
        }
        info.shift_after = layout.shift;
    }
    flush_copies(writer.copier);
}

void write_headers(elf_image& image, const strip_plan& plan, const elf_layout_plan& layout,
                   const output_file& output) {
    translate_headers(image, plan, layout);
    elf_seek(output.name, output.stream, 0);
    genelf_writeXheader(image.elf, output.name, output.stream, image.elfhead, &image.sechead[0]);
    elf_seek(output.name, output.stream, image.elfhead.e_shoff);
    elf_write_secheaders(image.elf, output.name, output.stream, kept_headers(image, plan.sections));
    elf_seek(output.name, output.stream, image.elfhead.e_phoff);
    elf_write_progheaders(image.elf, output.name, output.stream, image.proghead);
}
