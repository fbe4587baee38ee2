// Builds archives for tests, of every format. Nothing is checked: any field can hold any text.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "objfile/objident.h"

struct ar_draft {
    std::string name; // the name field, without its padding
    std::string data = {};
    std::string size = {}; // empty: that of the data
    std::string date = "1", uid = "2", gid = "3", mode = "100644";
    std::string end = "`\n";
    std::string next = {}; // AIX: where the next member is; empty: behind this one
};

// The member table of an AIX archive would begin at its end.
std::string build_archive(obj_kind kind, const std::vector<ar_draft>& drafts);

// Members out of text: name fields, separated by "|". What is not as in a new draft stands behind a
// name in this order: "@date", "%mode", "[uid", "]gid", "#size", "^next", "~end", "=data".
std::vector<ar_draft> ar_members(const std::string& line);

// Members by their real names: each field is ended by "/", or refers to a "// " table in front.
// There are also short names that begin with a letter of those that mean something in a header.
std::vector<ar_draft> with_long_names(std::vector<ar_draft> drafts);

// The data of a symbol index "/": names of symbols, and the offsets of the members' headers.
std::string ar_index(const std::vector<std::pair<std::string, uint64_t>>& symbols);
