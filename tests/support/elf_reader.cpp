#include "support/elf_reader.h"

#include <algorithm>

#include "support/elf_builder.h"

static std::string content_at(const std::string& file, uint64_t index) {
    return file.substr(std::min<uint64_t>(file.size(), get_field(file, field::sh_offset, index)),
                       get_field(file, field::sh_size, index));
}

std::vector<std::string> section_names(const std::string& file) {
    const uint64_t count = get_field(file, field::e_shnum),
                   names = get_field(file, field::e_shstrndx);
    const std::string table =
        content_at(file, names == 0xFFFF ? get_field(file, field::sh_link) : names);
    std::vector<std::string> result;
    for (uint64_t i = 0; i < (count != 0 ? count : get_field(file, field::sh_size)); ++i)
        result.push_back(table.c_str() +
                         std::min<uint64_t>(get_field(file, field::sh_name, i), table.size()));
    return result;
}

uint64_t section_index(const std::string& file, const std::string& name) {
    const std::vector<std::string> names = section_names(file);
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? 0 : static_cast<uint64_t>(found - names.begin());
}

std::string section_content(const std::string& file, const std::string& name) {
    return content_at(file, section_index(file, name));
}
