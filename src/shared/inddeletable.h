// Scratch directories: made below a root that the user's processes share, removed by whoever cleans
// up after their process is gone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The roots, with a separator at the end: in the temporary directory that the hook answers at the
// first call, and kept. Scratch directories lie below the first one.
const std::string& gen_session_root();
const std::string& gen_session_data_root();

// Makes a new directory "<process id>_<name>_<number>" (without the name and one "_" when it is
// null) below the root, with the permissions `mode` as far as the user's mask lets them, and the
// marker file "dont_delete" in it. Its path, or nothing: a report has been made, but not for a root
// that could not be locked or made.
std::optional<std::string> gen_make_session_dir(const char* name, uint32_t mode);

// Removes from both roots what belongs to this process and to processes that are no more. Whether
// both were cleaned.
bool gen_clean_session_dirs();
// The same for one root, which goes, too, when it is then empty. One that is not there, or not the
// user's own alone, counts as clean.
bool gen_clean_deletable_dir(const std::string& root);
