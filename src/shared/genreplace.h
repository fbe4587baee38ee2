// Replacing a file by a new one that was made beside it: which file that is, and what the new one
// inherits from it.
#pragma once

#include <string>

#include "shared/host.h"

// The file that is replaced: behind symbolic links, the one that they lead to. It need not exist.
std::string gen_real_name(const char* name);

// Gives an open file the owner, where the caller may set it, and the permissions of another one:
// 0, or -1 when the permissions cannot be set. Set-id bits mean something else under another owner,
// and are dropped there.
int gen_copy_owner_and_mode(int descriptor, const host_status& from);
