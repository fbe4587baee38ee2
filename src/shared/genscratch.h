// Scratch directories: made below a root that the user's processes share, removed by whoever cleans
// up after their process is gone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "shared/gentemp.h"

// The scratch directories of this process. They are all told by the process id, so there is one of
// these records.
struct gen_scratch {
    gen_temp_space& temp;
    // The roots, with a separator at the end: where temporary things are made at the first use.
    std::optional<std::string> session_root = {};
    std::optional<std::string> session_data_root = {};
    int32_t counter = 0; // of directories
};

// Scratch directories lie below the first one.
const std::string& gen_session_root(gen_scratch& scratch);
const std::string& gen_session_data_root(gen_scratch& scratch);

// Makes a new directory "<process id>_<name>_<number>" (without the name and one "_" when it is
// null) below the root, with the permissions `mode` as far as the user's mask lets them, and the
// marker file "dont_delete" in it. Its path, or nothing: a report has been made, but not for a root
// that could not be locked or made.
std::optional<std::string> gen_make_session_dir(gen_scratch& scratch, const char* name,
                                                uint32_t mode);

// Removes from both roots what belongs to this process and to processes that are no more. Whether
// both were cleaned.
bool gen_clean_session_dirs(gen_scratch& scratch);
// The same for one root, which goes, too, when it is then empty. One that is not there, or not the
// user's own alone, counts as clean.
bool gen_clean_deletable_dir(const std::string& root);
