// A command line taken apart as the Windows loader and the C runtime of its child would, for hosts
// that start children with a list of arguments. No shell is involved: "$", ";", "*" and "`" are
// letters like any other.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct gen_command {
    std::string program;                // the file to run; found or not, see below
    std::vector<std::string> arguments; // without the program's own name
};

// The program is the quoted text when the line begins with a quote; else the shortest text before a
// blank (or the end) that names a file; else the text up to the first blank. A name that is no file
// as it stands is also tried with ".exe".
gen_command gen_split_command_line(std::string_view line);
