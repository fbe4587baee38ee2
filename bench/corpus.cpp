// Makes the input files of the benchmark. What they say means nothing; their structure is that of
// the programs that a linker writes, so that every strip tool takes them.
//
//     corpus KIND SIZE FILE     SIZE scales the kind's numbers; 1 is what the results are made with
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr uint64_t image_base = 0x400000;
constexpr uint32_t SHT_PROGBITS = 1, SHT_SYMTAB = 2, SHT_STRTAB = 3, SHT_RELA = 4,
                   SHT_SYMTAB_SHNDX = 18;
constexpr uint64_t SHF_WRITE = 1, SHF_ALLOC = 2, SHF_EXECINSTR = 4, SHF_INFO_LINK = 0x40;
constexpr uint16_t ET_REL = 1, ET_EXEC = 2;

double scale = 1;

uint64_t scaled(uint64_t number) {
    return std::max<uint64_t>(1, static_cast<uint64_t>(static_cast<double>(number) * scale));
}

uint64_t megabytes(uint64_t number) {
    return scaled(number * 1000000) / 16 * 16;
}

[[noreturn]] void fail(const char* what) {
    perror(what);
    exit(1);
}

// --- bytes ---------------------------------------------------------------------------------------

using bytes = std::string;

template <typename number>
void put(bytes& to, number value) {
    to.append(reinterpret_cast<const char*>(&value), sizeof value);
}

uint64_t next_random() {
    static uint64_t state = 0x9E3779B97F4A7C15;
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
}

// A file that is written from its start to its end.
struct output {
    FILE* file;
    uint64_t position = 0;
};

void write(output& to, const bytes& data) {
    if (!data.empty() && fwrite(data.data(), 1, data.size(), to.file) != data.size())
        fail("write");
    to.position += data.size();
}

void fill(output& to, uint64_t size) {
    static bytes filler;
    while (filler.size() < 1 << 20)
        put(filler, next_random());
    while (size != 0) {
        const uint64_t piece = std::min<uint64_t>(size, filler.size());
        write(to, filler.substr(0, piece));
        size -= piece;
    }
}

void skip(output& to, uint64_t size) {
    if (fseeko(to.file, static_cast<off_t>(size), SEEK_CUR) != 0)
        fail("seek");
    to.position += size;
}

void align(output& to, uint64_t unit) {
    write(to, bytes((unit - to.position % unit) % unit, '\0'));
}

// --- ELF -----------------------------------------------------------------------------------------

struct section {
    std::string name = {};
    uint32_t type = SHT_PROGBITS;
    uint64_t flags = 0;
    uint64_t size = 0; // of filler, when there is no data
    bytes data = {};
    uint32_t link = 0, info = 0;
    uint64_t entsize = 0;
    bool is_hole = false;
    uint64_t offset = 0;
};

// Section 0 is the null section.
struct elf_file {
    uint16_t type = ET_EXEC;
    std::vector<section> sections{{.name = "", .type = 0}};
};

uint32_t add(elf_file& file, section added) {
    if (!added.data.empty())
        added.size = added.data.size();
    file.sections.push_back(std::move(added));
    return static_cast<uint32_t>(file.sections.size() - 1);
}

constexpr uint64_t code = SHF_ALLOC | SHF_EXECINSTR;
constexpr uint64_t data = SHF_ALLOC | SHF_WRITE;

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

// --- symbols -------------------------------------------------------------------------------------

struct symbol_table {
    bytes symbols = bytes(24, '\0');
    bytes strings = bytes(1, '\0');
    bytes indexes = bytes(4, '\0'); // the extended section index of each symbol
    uint32_t count = 1;
};

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

// A name like those of a C++ program, about `length` letters long.
std::string long_name(uint64_t number, size_t length) {
    static const char* const words[] = {"engine", "matrix",  "vector",  "stream",   "detail",
                                        "policy", "storage", "network", "iterator", "allocator"};
    std::string name = "_ZN";
    for (uint64_t rest = number; name.size() + 12 < length; rest = rest / 10 + 7) {
        const char* const word = words[rest % 10];
        name.append(std::to_string(strlen(word))).append(word);
    }
    return name + "6f" + std::to_string(number) + "Ev";
}

// Symbols of sections `first` to `last`, a third of them local, with names of 2/3 to 4/3 of
// `length` letters.
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

// The string table gets a size that is divisible by 8: the modes that keep it ask for that.
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

// --- kinds ---------------------------------------------------------------------------------------

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

bytes two_relocations(uint32_t symbol) {
    bytes entries;
    for (const uint64_t offset : {8, 24}) {
        put(entries, offset);
        put(entries, uint64_t{symbol} << 32 | 1);
        put(entries, int64_t{0});
    }
    return entries;
}

// One section for each function and one for its relocations, as compilers make them on request.
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

// A PE32+ image: headers, two sections, symbols, strings.
void make_pe(output& to) {
    const uint64_t code_size = megabytes(30) / 512 * 512 + 512;
    const uint64_t data_size = megabytes(6) / 512 * 512 + 512;
    const uint32_t symbols = static_cast<uint32_t>(scaled(300000));
    const auto halves = [](bytes& head, std::initializer_list<int> values) {
        for (const int value : values)
            put(head, static_cast<uint16_t>(value));
    };
    const auto words = [](bytes& head, std::initializer_list<uint64_t> values) {
        for (const uint64_t value : values)
            put(head, static_cast<uint32_t>(value));
    };
    const uint64_t image_size = (0x1000 + code_size + 0xFFF) / 0x1000 * 0x1000;
    bytes head = "MZ";
    head.resize(60);
    words(head, {128});
    head.resize(128);
    head.append("PE\0\0", 4);
    halves(head, {0x8664, 2});
    words(head, {0, 1024 + code_size + data_size, symbols});
    halves(head, {240, 0x0022});
    halves(head, {0x20B, 0x0202});
    words(head, {code_size, data_size, 0, 0x1000, 0x1000});
    put(head, uint64_t{0x140000000});
    words(head, {0x1000, 512});
    halves(head, {6, 0, 0, 0, 6, 0});
    words(head, {0, image_size + (data_size + 0xFFF) / 0x1000 * 0x1000, 1024, 0});
    halves(head, {3, 0});
    for (int i = 0; i < 4; ++i)
        put(head, uint64_t{0x100000});
    words(head, {0, 16});
    head.resize(head.size() + 16 * 8);
    head.append(".text\0\0\0", 8);
    words(head, {code_size, 0x1000, code_size, 1024, 0, 0, 0, 0x60000020});
    head.append(".data\0\0\0", 8);
    words(head, {data_size, image_size, data_size, 1024 + code_size, 0, 0, 0, 0xC0000040});
    head.resize(1024);
    write(to, head);
    fill(to, code_size + data_size);
    bytes table, strings(4, '\0');
    for (uint32_t i = 0; i < symbols; ++i) {
        words(table, {0, strings.size(), next_random() % code_size});
        halves(table, {1, 0x20});
        table.append("\x02\0", 2);
        strings.append(long_name(i, 30)).append(1, '\0');
    }
    const uint32_t size = static_cast<uint32_t>(strings.size());
    memcpy(strings.data(), &size, sizeof size);
    write(to, table);
    write(to, strings);
}

// A map that is not compressed (docs/dnm-format.md), with the sections of a program and one large
// table of labels.
void make_map(output& to) {
    constexpr uint32_t version = 42;
    constexpr uint32_t sections = 3;
    const auto big = [](bytes& text, uint64_t value, unsigned width) {
        while (width-- != 0)
            text.push_back(static_cast<char>(value >> (8 * width)));
    };
    bytes head;
    for (const uint32_t word : {0x7F4F5256u, 1u, 3u, 0u, 0x08000200u, version, 0u, 0u, 0u, 0u})
        big(head, word, 4);
    head.append("\x08\0\0\0\0\0", 6);
    big(head, 0, 8);
    big(head, UINT64_MAX, 8);
    head.append(bytes("\0\0\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0", 17));
    for (const uint32_t word : {0u, 0u, 0u, 0u, 0u, UINT32_MAX, UINT32_MAX})
        big(head, word, 4);
    head.push_back(36);
    bytes records;
    for (uint32_t i = 0; i < sections; ++i) {
        big(records, 0, 8);
        big(records, image_base, 8);
        big(records, image_base, 8);
        big(records, 0x1000, 8);
        big(records, i, 4);
        records.push_back(0);
        for (const uint32_t index : {i + 1, UINT32_MAX, UINT32_MAX, 0u})
            big(records, index, 4);
        big(records, 0, 8);
        big(records, 0, 4);
    }
    const uint64_t sections_at = head.size() + 36 * (8 + 10);
    const uint64_t labels_at = sections_at + records.size();
    for (unsigned table = 0; table < 36; ++table)
        big(head, table == 1 ? sections_at : labels_at, 8);
    for (unsigned table = 0; table < 36; ++table) {
        big(head, table == 1 ? sections : table == 7 ? scaled(2000000) : 0, 4);
        big(head, 0, 4);
        big(head, 0, 2);
    }
    write(to, head);
    write(to, records);
    fill(to, megabytes(200));
}

void make(const std::string& kind, output& to) {
    if (kind == "small")
        make_program(to, 4096, 1024, 4096, 40, 30);
    else if (kind == "cpp")
        make_program(to, megabytes(22), megabytes(4), megabytes(335), scaled(120000), 90);
    else if (kind == "loaded")
        make_program(to, megabytes(256), megabytes(8), megabytes(1), scaled(10000), 40);
    else if (kind == "symbols")
        make_program(to, megabytes(8), megabytes(2), megabytes(2), scaled(1000000), 110);
    else if (kind == "sections60000")
        make_object(to, scaled(60000), megabytes(4), 40);
    else if (kind == "sections70000")
        make_object(to, scaled(70000), megabytes(4), 40);
    else if (kind == "member")
        make_object(to, 12, 6000, 30);
    else if (kind == "relocated")
        make_relocated(to);
    else if (kind == "sparse")
        make_sparse(to);
    else if (kind == "image")
        make_pe(to);
    else if (kind == "map")
        make_map(to);
    else
        fail("no such kind");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        return 1;
    scale = atof(argv[2]);
    // A file has its name only when it is complete.
    const std::string unfinished = std::string(argv[3]) + ".part";
    output to{fopen(unfinished.c_str(), "wb")};
    if (!to.file)
        fail(argv[3]);
    make(argv[1], to);
    if (fclose(to.file) != 0 || rename(unfinished.c_str(), argv[3]) != 0)
        fail(argv[3]);
}
