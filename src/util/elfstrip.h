// The ELF stripper.
#pragma once

#include "shared/genfile.h"

// Strips the ELF file `name`, open for update at its start in `stream`, as the options say, and
// replaces it by the result. What is wrong is reported; the stream is closed in any case.
void elf_strip(gen_stream_ptr stream, const char* name);
