// Replacing a file by a new one that was made beside it: which file that is, and what the new one
// inherits from it.
#pragma once

#include <string>

#include "shared/host.h"

// Guards an unfinished file for as long as it lives: an interrupt removes the file.
struct gen_unfinished_file {
    gen_unfinished_file() = default;
    ~gen_unfinished_file() { release(); }
    gen_unfinished_file(const gen_unfinished_file&) = delete;
    gen_unfinished_file& operator=(const gen_unfinished_file&) = delete;

    void guard(std::string file_name) {
        release();
        name = std::move(file_name);
        host_guard_file(name.c_str());
    }
    void release() {
        host_release_file(name.c_str());
        name.clear();
    }

    std::string name; // none while nothing is guarded
};

// The file that is replaced: behind symbolic links, the one that they lead to. It need not exist.
std::string gen_real_name(const char* name);

// Gives an open file the owner, where the caller may set it, and the permissions of another one:
// 0, or -1 when the permissions cannot be set. Set-id bits mean something else under another owner,
// and are dropped there.
int gen_copy_owner_and_mode(int descriptor, const host_status& from);
