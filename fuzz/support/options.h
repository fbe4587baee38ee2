// The options that fuzzing and mutation choose from: all of the table, those that take a value with
// some values.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One bit an option, in the order of the table.
using option_choice = uint64_t;
constexpr unsigned choice_size = sizeof(option_choice);
constexpr const char* result_option = "-o=result";

// What the bits stand for. The texts last for ever.
const std::vector<std::string>& all_options();
std::vector<const char*> chosen_options(option_choice choice);
// The bit of one of them; any other text ends the program.
option_choice option_bit(const std::string& option);
