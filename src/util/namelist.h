// Name lists: what the options collect, and how names are matched against it.
#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_set>

#include "shared/genmem.h"
#include "util/patterns.h"
#include "util/stringindex.h"

// Names and star patterns. A star as a pattern's first or last character stands for any text; one
// anywhere else is an ordinary character. The texts are not copied: they live as long as the run.
struct name_list {
    size_t count = 0;
    size_t longest = 0;                         // characters of the longest name
    std::unordered_set<std::string_view> whole; // every name as given, stars included
    pattern_set beginnings = {true};            // "text*"
    pattern_set endings = {false};              // "*text"
    pattern_set contents = {false};             // "*text*"
    bool matches_all = false;                   // "*" or "**" is among them
};

void append_name(name_list& list, std::string_view name);

// Whether `name`, a C string, equals a name of the list to the letter. Looks at no more of it than
// the longest name has, since a damaged file's names may be as long as the file.
bool match_exact_name(const name_list& list, const char* name);
// Whether `name` matches a pattern of the list.
bool match_name_list(const name_list& list, const char* name);

// Matches the names in one string table. Whether a pattern that ends or is contained in a name
// matches depends only on how far into its string the name begins: the last such place is
// remembered for each string, so that names that share a long string cost no more than one.
struct name_judge {
    const name_list* list = nullptr;
    const string_index* strings = nullptr;
    gen_block tail_limits; // uint32_t for each string: how many of its ends match, + 1; or 0
};

name_judge make_judge(const name_list& list, const string_index& strings);
// Whether the name at `offset`, which lies inside the table (0 in an empty one), matches the list.
bool is_named(name_judge& judge, uint32_t offset);
