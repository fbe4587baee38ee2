// The options that fuzzing and mutation choose from.
#pragma once

#include <cstdint>
#include <vector>

constexpr unsigned option_choices = 32;
constexpr const char* result_option = "-o=result";

// The options whose bits are set, in a fixed order. Their texts last for ever.
std::vector<const char*> chosen_options(uint32_t choice);
// The bit of one of them; 0 for a text that is none.
uint32_t option_bit(const char* option);
