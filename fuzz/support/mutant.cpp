// What is changed most are the numbers that say where things are.
#include "support/mutant.h"

#include <algorithm>
#include <cstring>

#include "support/files.h"

namespace {

constexpr uint64_t header_share = 512; // bytes at the start of a file that count as headers
constexpr size_t longest_block = 64;

// An ELF file as far as it takes to find its sections; out of the file everything is 0.
struct elf_view {
    const std::string& file;
    bool is_64 = file.size() > 5 && file[4] == 2;
    bool big_endian = file.size() > 5 && file[5] == 2;

    uint64_t number(uint64_t at, unsigned width) const {
        uint64_t value = 0;
        for (unsigned i = 0; i < width; ++i) {
            const uint64_t from = big_endian ? at + i : at + width - 1 - i;
            value = value << 8 | (from < file.size() ? static_cast<uint8_t>(file[from]) : 0u);
        }
        return value;
    }
    uint64_t word(uint64_t at) const { return number(at, is_64 ? 8 : 4); }
    uint64_t section_headers() const { return word(is_64 ? 40 : 32); }
    uint64_t section_count() const { return number(is_64 ? 60 : 48, 2); }
    uint64_t stride() const { return number(is_64 ? 58 : 46, 2); }
    uint64_t section(uint64_t index) const { return section_headers() + index * stride(); }
    uint64_t type(uint64_t index) const { return number(section(index) + 4, 4); }
    uint64_t flags(uint64_t index) const { return word(section(index) + 8); }
    uint64_t offset(uint64_t index) const { return word(section(index) + (is_64 ? 24 : 16)); }
    uint64_t size(uint64_t index) const { return word(section(index) + (is_64 ? 32 : 20)); }
    uint64_t names() const { return number(is_64 ? 62 : 50, 2); }
};

std::vector<std::pair<uint64_t, uint64_t>> headers_of(const std::string& file) {
    std::vector<std::pair<uint64_t, uint64_t>> ranges = {
        {0, std::min<uint64_t>(file.size(), header_share)}};
    if (!file.starts_with("\177ELF"))
        return ranges;
    const elf_view elf = {file};
    ranges[0].second = elf.is_64 ? 64 : 52;
    const auto add = [&](uint64_t offset, uint64_t size) {
        if (size != 0 && offset < file.size())
            ranges.emplace_back(offset, std::min(size, file.size() - offset));
    };
    for (int weight = 0; weight < 3; ++weight) // the sections matter most
        add(elf.section_headers(), elf.section_count() * elf.stride());
    add(elf.word(elf.is_64 ? 32 : 28), elf.number(elf.is_64 ? 56 : 44, 2) * (elf.is_64 ? 56 : 32));
    for (uint64_t i = 0; i < elf.section_count(); ++i)
        if ((elf.type(i) >= 2 && elf.type(i) <= 4) || elf.type(i) == 9 || elf.type(i) == 18)
            add(elf.offset(i), elf.size(i));
    return ranges;
}

uint64_t place_in(random_numbers& random, const seed_file& seed, const std::string& file) {
    if (random.one_in(4))
        return random.below(file.size());
    const auto& [offset, size] = seed.headers[random.below(seed.headers.size())];
    return std::min<uint64_t>(offset + random.below(size), file.size() - 1);
}

uint64_t telling_number(random_numbers& random, uint64_t old, uint64_t file_size) {
    const uint64_t numbers[] = {0,
                                1,
                                old + 1,
                                old - 1,
                                old ^ uint64_t{1} << random.below(64),
                                old + random.below(64),
                                old - random.below(64),
                                file_size,
                                file_size - 1,
                                file_size + random.below(64),
                                random.below(file_size),
                                random.below(256),
                                0x7FFFFFFF,
                                0x80000000,
                                0xFFFFFFFF,
                                0x7FFFFFFFFFFFFFFF,
                                UINT64_MAX - random.below(128),
                                random.next()};
    return numbers[random.below(sizeof numbers / sizeof numbers[0])];
}

void change_number(random_numbers& random, std::string& file, uint64_t at) {
    const unsigned widths[] = {1, 2, 4, 4, 8};
    const unsigned width = widths[random.below(5)];
    if (random.one_in(2))
        at -= at % width;
    if (file.size() < width || at > file.size() - width)
        return;
    const bool big_endian = random.one_in(2);
    uint64_t old = 0;
    const auto byte_at = [&](unsigned i) -> char& {
        return file[at + (big_endian ? width - 1 - i : i)];
    };
    for (unsigned i = 0; i < width; ++i)
        old |= static_cast<uint64_t>(static_cast<uint8_t>(byte_at(i))) << 8 * i;
    const uint64_t changed = telling_number(random, old, file.size());
    for (unsigned i = 0; i < width; ++i)
        byte_at(i) = static_cast<char>(changed >> 8 * i);
}

void change_letter(random_numbers& random, std::string& file, uint64_t at) {
    constexpr char letters[] = "0123456789/ \n`#-9";
    file[at] = letters[random.below(sizeof letters - 1)];
}

void copy_block(random_numbers& random, std::string& file, uint64_t at) {
    const uint64_t from = random.below(file.size());
    const uint64_t size =
        std::min({1 + random.below(longest_block), file.size() - at, file.size() - from});
    const std::string block = file.substr(from, size);
    file.replace(at, random.one_in(4) ? 0 : size, block);
}

void change_length(random_numbers& random, std::string& file) {
    if (random.one_in(2))
        file.resize(random.one_in(4)
                        ? random.below(file.size())
                        : file.size() -
                              random.below(std::min<uint64_t>(file.size(), longest_block)));
    else
        file.append(1 + random.below(longest_block), static_cast<char>(random.next()));
}

} // namespace

uint64_t random_numbers::next() {
    uint64_t value = state += 0x9E3779B97F4A7C15; // "splitmix"
    value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9;
    value = (value ^ value >> 27) * 0x94D049BB133111EB;
    return value ^ value >> 31;
}

std::vector<seed_file> load_seeds(const std::string& directory) {
    std::vector<seed_file> seeds;
    for (const std::string& name : names_in(directory)) {
        const std::string bytes = look_at_file(directory + "/" + name).bytes;
        seeds.push_back({bytes, headers_of(bytes)});
    }
    return seeds;
}

std::string make_mutant(random_numbers& random, const std::vector<seed_file>& seeds) {
    const seed_file& seed = seeds[random.below(seeds.size())];
    std::string file = seed.bytes;
    for (uint64_t changes = 1 + random.below(random.one_in(2) ? 2 : 8); changes != 0; --changes) {
        if (file.empty())
            break;
        const uint64_t at = place_in(random, seed, file);
        const uint64_t kind = random.below(20);
        if (kind < 14)
            change_number(random, file, at);
        else if (kind < 17)
            change_letter(random, file, at);
        else if (kind < 19)
            copy_block(random, file, at);
        else
            change_length(random, file);
    }
    return file;
}

bool has_needless_section(const std::string& file, std::string& names) {
    constexpr uint64_t SHF_ALLOC = 2;
    const elf_view elf = {file};
    const uint64_t count = elf.section_count(), strings = elf.offset(elf.names());
    const uint64_t size = elf.size(elf.names());
    if (strings > file.size() || size > file.size() - strings)
        return false;
    names = file.substr(strings, size);
    for (uint64_t i = 1; i < count; ++i) {
        const uint64_t at = elf.number(elf.section(i), 4);
        if (at >= names.size() || (elf.flags(i) & SHF_ALLOC) != 0 || i == elf.names())
            continue;
        for (const char* const name : {".symtab", ".strtab", ".line", ".debug_line", ".debug_info",
                                       ".debug_str", ".stab", ".linfix"})
            if (strcmp(names.c_str() + at, name) == 0)
                return true;
    }
    return false;
}
