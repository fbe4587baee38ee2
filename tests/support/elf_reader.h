// Reads what tests want to know of an ELF file, independently of the program's own readers.
#pragma once

#include <string>
#include <vector>

std::vector<std::string> section_names(const std::string& file); // by index; section 0 has ""
uint64_t section_index(const std::string& file, const std::string& name); // 0: none
std::string section_content(const std::string& file, const std::string& name);
