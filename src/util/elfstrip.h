// The ELF stripper.
#pragma once

#include <cstdint>

#include "shared/genfile.h"
#include "shared/gentemp.h"
#include "util/options.h"

// Strips the ELF file `name`, open for update at its start in `stream`, as the options say, which
// are reconciled, and replaces it by the result. Temporary things are made in the file's directory
// from then on. What is wrong is reported; the stream is closed in any case.
void elf_strip(const strip_options& options, gen_temp_space& temp, gen_stream_ptr stream,
               const char* name);

// Whether the result of `name` would take its place: neither -o nor -vxworks send it elsewhere.
bool elf_result_replaces(const strip_options& options, const char* name);
// Strips what `stream` holds, a file that stands nowhere by itself, into the new file `name`, for
// which that is so, and which is free. True when that was made, with `mode` as its permissions;
// false when there was nothing to change, or after a report.
bool elf_strip_part(const strip_options& options, gen_temp_space& temp, gen_stream_ptr stream,
                    const char* name, uint32_t mode);
