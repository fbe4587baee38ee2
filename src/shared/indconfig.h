// Where the tool chain is installed.
#pragma once

#include <optional>
#include <string>

// The directory of the running program. Nothing, after one warning, when it cannot be had.
std::optional<std::string> gen_getprogdir();

// The install directory of type 2, 3 or 4: beside the program, or where the first line of the file
// ".redirect_host32" beside it leads. Any other type gives nothing, with one warning a process.
std::optional<std::string> gen_getinstalldir(int type);
