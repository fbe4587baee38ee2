// Tables of cases as text, so that a case is a line or two.
#pragma once

#include <sstream>

#include "support/runner.h"

// What stands between the marks, with single blanks.
inline words parts_of(const std::string& text, char mark) {
    words parts;
    std::istringstream stream(text);
    for (std::string part, word; std::getline(stream, part, mark);) {
        std::istringstream part_words(part);
        parts.emplace_back();
        while (part_words >> word)
            parts.back() += (parts.back().empty() ? "" : " ") + word;
    }
    return parts;
}

// A row begins with ">", and "|" stands between its fields, of which the last may be missing.
inline std::vector<words> rows_of(const std::string& table) {
    std::vector<words> rows;
    for (const std::string& row : parts_of(table, '>'))
        rows.push_back(parts_of(row + "| | | |", '|'));
    rows.erase(rows.begin()); // what stands before the first
    return rows;
}
