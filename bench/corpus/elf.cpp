// Sections, their places and headers; symbols.
#include "elf.h"

#include <algorithm>

uint32_t add(elf_file& file, section added) {
    if (!added.data.empty())
        added.size = added.data.size();
    file.sections.push_back(std::move(added));
    return static_cast<uint32_t>(file.sections.size() - 1);
}

namespace {

uint64_t address(const elf_file& file, const section& of) {
    return file.type == ET_EXEC && (of.flags & SHF_ALLOC) ? image_base + of.offset : 0;
}

void add_section_names(elf_file& file) {
    const uint32_t index = add(file, {.name = ".shstrtab", .type = SHT_STRTAB});
    bytes& names = file.sections[index].data;
    for (const section& each : file.sections)
        names.append(each.name).append(1, '\0');
    file.sections[index].size = names.size();
}

void place_sections(elf_file& file) {
    uint64_t at = file.type == ET_EXEC ? 0x1000 : 64;
    for (size_t i = 1; i < file.sections.size(); ++i) {
        at = (at + 15) / 16 * 16;
        file.sections[i].offset = at;
        at += file.sections[i].size;
    }
}

bytes file_header(const elf_file& file, uint64_t headers_at) {
    const size_t count = file.sections.size();
    const bool extended = count >= 0xFF00;
    bytes head("\x7f"
               "ELF\x02\x01\x01",
               7);
    head.resize(16);
    put(head, file.type);
    put(head, uint16_t{62});
    put(head, uint32_t{1});
    put(head, file.type == ET_EXEC ? image_base + 0x1000 : uint64_t{0});
    put(head, file.type == ET_EXEC ? uint64_t{64} : uint64_t{0});
    put(head, headers_at);
    put(head, uint32_t{0});
    for (const uint16_t half :
         {64, file.type == ET_EXEC ? 56 : 0, file.type == ET_EXEC ? 1 : 0, 64,
          extended ? 0 : static_cast<int>(count), extended ? 0xFFFF : static_cast<int>(count - 1)})
        put(head, half);
    return head;
}

// One segment, which has the headers and everything that is loaded.
bytes program_header(const elf_file& file) {
    bytes head;
    uint64_t end = 0;
    for (const section& each : file.sections)
        if (each.flags & SHF_ALLOC)
            end = each.offset + each.size;
    put(head, uint32_t{1});
    put(head, uint32_t{7});
    for (const uint64_t word : {uint64_t{0}, image_base, image_base, end, end, uint64_t{0x1000}})
        put(head, word);
    return head;
}

bytes section_headers(const elf_file& file) {
    bytes table;
    uint32_t name = 0;
    for (size_t i = 0; i < file.sections.size(); ++i) {
        const section& each = file.sections[i];
        const bool counts = i == 0 && file.sections.size() >= 0xFF00;
        put(table, name);
        put(table, each.type);
        put(table, each.flags);
        put(table, address(file, each));
        put(table, each.offset);
        put(table, counts ? uint64_t{file.sections.size()} : each.size);
        put(table, counts ? static_cast<uint32_t>(file.sections.size() - 1) : each.link);
        put(table, each.info);
        put(table, uint64_t{i == 0 ? 0u : each.entsize != 0 ? 8u : 16u});
        put(table, each.entsize);
        name += static_cast<uint32_t>(each.name.size() + 1);
    }
    return table;
}

} // namespace

void write_elf(output& to, elf_file& file) {
    add_section_names(file);
    place_sections(file);
    const section& last = file.sections.back();
    write(to, file_header(file, (last.offset + last.size + 7) / 8 * 8));
    if (file.type == ET_EXEC)
        write(to, program_header(file));
    for (size_t i = 1; i < file.sections.size(); ++i) {
        const section& each = file.sections[i];
        write(to, bytes(each.offset - to.position, '\0'));
        if (!each.data.empty())
            write(to, each.data);
        else if (each.is_hole)
            skip(to, each.size);
        else
            fill(to, each.size);
    }
    align(to, 8);
    write(to, section_headers(file));
}

void add_symbol(symbol_table& table, const std::string& name, uint8_t info, uint32_t in,
                uint64_t value) {
    put(table.symbols, name.empty() ? 0u : static_cast<uint32_t>(table.strings.size()));
    put(table.symbols, info);
    put(table.symbols, uint8_t{0});
    put(table.symbols, static_cast<uint16_t>(in >= 0xFF00 ? 0xFFFF : in));
    put(table.symbols, value);
    put(table.symbols, uint64_t{16});
    put(table.indexes, in >= 0xFF00 ? in : 0u);
    if (!name.empty())
        table.strings.append(name).append(1, '\0');
    ++table.count;
}

symbol_table make_symbols(const elf_file& file, uint64_t count, size_t length, uint32_t first,
                          uint32_t last, uint32_t& locals) {
    symbol_table table;
    for (uint32_t i = first; i <= last; ++i)
        add_symbol(table, "", 3, i, image_base);
    const uint32_t section_count = last - first + 1;
    const uint32_t local_count = static_cast<uint32_t>(count / 3);
    locals = table.count + local_count;
    for (uint64_t i = 0; i < count; ++i) {
        const uint32_t in = first + static_cast<uint32_t>(i) % section_count;
        const uint64_t room = std::max<uint64_t>(file.sections[in].size, 1);
        const uint8_t info = i < local_count ? 0x02 : 0x12;
        const size_t letters = length * 2 / 3 + next_random() % (length * 2 / 3 + 1);
        add_symbol(table, long_name(i, letters), info, in, image_base + next_random() % room);
    }
    return table;
}

uint32_t add_symbol_table(elf_file& file, symbol_table& table, uint32_t locals) {
    const uint32_t index = add(file, {.name = ".symtab",
                                      .type = SHT_SYMTAB,
                                      .data = std::move(table.symbols),
                                      .info = locals,
                                      .entsize = 24});
    if (file.sections.size() >= 0xFF00)
        add(file, {.name = ".symtab_shndx",
                   .type = SHT_SYMTAB_SHNDX,
                   .data = std::move(table.indexes),
                   .link = index,
                   .entsize = 4});
    table.strings.resize((table.strings.size() + 7) / 8 * 8);
    file.sections[index].link =
        add(file, {.name = ".strtab", .type = SHT_STRTAB, .data = std::move(table.strings)});
    return index;
}

void add_debug(elf_file& file, uint64_t size) {
    static const struct {
        const char* name;
        uint64_t percent;
    } shares[] = {{".debug_aranges", 2}, {".debug_info", 45}, {".debug_abbrev", 2},
                  {".debug_line", 12},   {".debug_str", 25},  {".debug_loc", 9},
                  {".debug_ranges", 5}};
    for (const auto& share : shares)
        add(file, {.name = share.name, .size = size * share.percent / 100 / 16 * 16});
}
