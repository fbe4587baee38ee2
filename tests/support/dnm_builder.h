// Builds debug-name-map files for tests, with an encoder of its own. Nothing is checked: any field
// can have any value, and every table any bytes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Fields by name; the names are in the rows of dnm_builder.cpp. A header string is four bytes,
// none for 0; a banked address has its bank above the lower 16 bits.
using dnm_fields = std::map<std::string, int64_t>;

struct dnm_file {
    dnm_fields head;                            // prologue and header, up to the count of "tables"
    std::vector<dnm_fields> sections = {};      // the records of table 1
    std::string tail = {};                      // its bytes behind them
    std::map<int64_t, std::string> bytes = {};  // of the other tables
    std::map<int64_t, dnm_fields> entries = {}; // "max", "parameter" and "marks" of each table
    std::map<int64_t, int64_t> offsets = {};    // of tables whose place is fixed
    std::vector<int64_t> order = {};            // in which tables lie in the file
};

// A map with a value in every field, and three sections. A `filled` one has bytes in all of the 36
// tables and behind the last section; tables lie in a mixed order, and two of them share a place.
dnm_file sample_dnm(int version = 43, bool filled = true, int mode = 4, bool compressed = true);
// The same with its tables where they are after writing.
dnm_file in_written_order(dnm_file file);
std::string build_dnm(dnm_file file);
