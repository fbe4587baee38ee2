// Mutants: files with a few numbers, blocks or lengths changed. The same numbers make the same
// mutants.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct random_numbers {
    uint64_t state;

    uint64_t next();
    uint64_t below(uint64_t limit) { return next() % limit; } // limit above 0
    bool one_in(uint64_t count) { return below(count) == 0; }
};

struct seed_file {
    std::string bytes;
    std::vector<std::pair<uint64_t, uint64_t>> headers; // offset and size: mostly changed there
};

// All files of a directory, in the order of their names.
std::vector<seed_file> load_seeds(const std::string& directory);
std::string make_mutant(random_numbers& random, const std::vector<seed_file>& seeds);

// Whether an ELF file has a section that is not loaded and has one of the names that always go.
// `names` are the bytes of the section names, as the file has them.
bool has_needless_section(const std::string& file, std::string& names);
