// Name lists: what the options collect, prepared for matching when a name is added.
#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_set>
#include <vector>

// Names and star patterns. A star as a pattern's first or last character stands for any text; one
// anywhere else is an ordinary character. The texts are not copied: they live as long as the run.
struct name_list {
    size_t count = 0;
    size_t longest = 0;                         // characters of the longest name
    std::unordered_set<std::string_view> whole; // every name as given, stars included
    std::vector<std::string_view> beginnings;   // "text*"
    std::vector<std::string_view> endings;      // "*text"
    std::vector<std::string_view> contents;     // "*text*", "*"
};

void append_name(name_list& list, std::string_view name);

// Whether `name`, a C string, equals a name of the list to the letter. Looks at no more of it than
// the longest name has, since a damaged file's names may be as long as the file.
bool match_exact_name(const name_list& list, const char* name);
// Whether `name` matches a pattern of the list.
bool match_name_list(const name_list& list, const char* name);
