// Files of an execution: put down with an old date, looked at afterwards.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct kept_file {
    std::string bytes;
    uint64_t inode = 0;   // 0: there is no such file
    int64_t modified = 0; // nanoseconds since 1970

    bool exists() const { return inode != 0; }
    bool operator==(const kept_file&) const = default;
};

// Failures of the host end the program: it is its scratch directory that is wrong then.
void put_file(const std::string& name, const std::string& bytes);
kept_file look_at_file(const std::string& name);
std::vector<std::string> names_in(const std::string& directory); // sorted
void remove_files(const std::vector<std::string>& names);
// A new directory in TMPDIR, or in memory where the host has that.
std::string make_scratch();
