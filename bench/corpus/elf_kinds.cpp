// Linked programs and relocatable objects.
#include "elf.h"
#include "kinds.h"

namespace {

bytes two_relocations(uint32_t symbol) {
    bytes entries;
    for (const uint64_t offset : {8, 24}) {
        put(entries, offset);
        put(entries, uint64_t{symbol} << 32 | 1);
        put(entries, int64_t{0});
    }
    return entries;
}

} // namespace

void make_program(output& to, uint64_t text, uint64_t writable, uint64_t debug, uint64_t symbols,
                  size_t name_length) {
    elf_file file;
    add(file, {.name = ".text", .flags = code, .size = text});
    add(file, {.name = ".rodata", .flags = SHF_ALLOC, .size = text / 4 / 16 * 16});
    const uint32_t last = add(file, {.name = ".data", .flags = data, .size = writable});
    add_debug(file, debug);
    uint32_t locals = 0;
    symbol_table table = make_symbols(file, symbols, name_length, 1, last, locals);
    add_symbol_table(file, table, locals);
    write_elf(to, file);
}

void make_relocated(output& to) {
    const uint64_t count = scaled(3000000);
    const uint64_t symbols = scaled(100000);
    elf_file file;
    add(file, {.name = ".text", .flags = code, .size = count * 8 + 8});
    const uint32_t last = add(file, {.name = ".data", .flags = data, .size = megabytes(4)});
    uint32_t locals = 0;
    symbol_table table = make_symbols(file, symbols, 60, 1, last, locals);
    bytes entries;
    entries.reserve(count * 24);
    for (uint64_t i = 0; i < count; ++i) {
        put(entries, image_base + 0x1000 + i * 8);
        put(entries, (1 + next_random() % (table.count - 1)) << 32 | 1);
        put(entries, int64_t{8});
    }
    const uint32_t at = add(file, {.name = ".rela.text",
                                   .type = SHT_RELA,
                                   .flags = SHF_INFO_LINK,
                                   .data = std::move(entries),
                                   .info = 1,
                                   .entsize = 24});
    add_debug(file, megabytes(4));
    file.sections[at].link = add_symbol_table(file, table, locals);
    write_elf(to, file);
}

void make_object(output& to, uint64_t sections, uint64_t debug, size_t name_length) {
    const uint32_t functions = static_cast<uint32_t>(sections / 2);
    elf_file file{.type = ET_REL};
    for (uint32_t i = 0; i < functions; ++i)
        add(file, {.name = ".text." + long_name(i, name_length), .flags = code, .size = 64});
    for (uint32_t i = 0; i < functions; ++i)
        add(file, {.name = ".rela.text." + long_name(i, name_length),
                   .type = SHT_RELA,
                   .flags = SHF_INFO_LINK,
                   .data = two_relocations(1 + (i * 7 + 1) % (2 * functions)),
                   .info = 1 + i,
                   .entsize = 24});
    add_debug(file, debug);
    symbol_table table;
    for (uint32_t i = 1; i <= functions; ++i)
        add_symbol(table, "", 3, i, 0);
    const uint32_t locals = table.count;
    for (uint32_t i = 1; i <= functions; ++i)
        add_symbol(table, long_name(i, name_length), 0x12, i, 0);
    const uint32_t symtab = add_symbol_table(file, table, locals);
    for (section& each : file.sections)
        if (each.type == SHT_RELA)
            each.link = symtab;
    write_elf(to, file);
}

void make_sparse(output& to) {
    elf_file file;
    add(file, {.name = ".text", .flags = code, .size = 65536});
    const uint32_t last = add(
        file,
        {.name = ".data", .flags = data, .size = scaled(4ULL << 30) / 16 * 16, .is_hole = true});
    add_debug(file, 1000000);
    uint32_t locals = 0;
    symbol_table table = make_symbols(file, 1000, 40, 1, last, locals);
    add_symbol_table(file, table, locals);
    write_elf(to, file);
}
