// What has to hold after every execution, whatever the input was.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/options.h"
#include "support/program.h"

// An input: the bytes of a choice of options, and a file.
struct fuzz_input {
    option_choice choice = 0;
    std::string file;
};
fuzz_input take_input(const uint8_t* data, size_t size, const std::string& magic = "");

// Ends the process, with what was said and what is there, unless the condition holds.
void require(bool condition, const execution& run, const char* what);

// The run's status fits what was said. Beside the `expected` names, and "result", there are only
// temporary files that a fatal end leaves.
void check_end(const execution& run, const std::vector<std::string>& expected);
// A second run, on the result of the first one; it finds no damage in a result that is sound.
void check_again(const std::string& name, option_choice choice, bool has_to_be_sound);
void clear_directory();

// One strip of an input, with the file before and after it.
struct stripping {
    std::vector<const char*> arguments;
    execution run;
    kept_file before, after;
};
// Strips the input under this name, with the options that it chooses. Its end is checked.
stripping strip_input(const fuzz_input& input, const char* name);
