// Archive libraries: their ELF members stripped, the archive rebuilt.
#pragma once

#include <cstdint>

#include "util/run.h"

// Strips the ELF members of the archive `archive_name`, which nobody holds open. The archive is
// rebuilt by the archiver "lbm" of the tool chain, once, after the last member. 0 when it was, or
// when there was nothing to strip; otherwise what went wrong last: the result of the last member,
// the archiver's exit status, or 1. Everything else that went wrong has been reported. No scratch
// file survives, even where the program ends on the way.
int32_t archive_strip(strip_run& run, const char* archive_name);
