// The COFF stripper.
#pragma once

#include "objfile/objident.h"
#include "shared/genfile.h"

// Removes the symbol table and the line numbers of the COFF file `name`, open for update at its
// start in `stream`, in place; the string table stays. `ti_coff` tells that section headers are
// TI's, `coff_wide_counts` that their counts have 32 bits: a file of a certain target sets it. What
// is wrong is reported; the stream is closed in any case.
void coff_strip(gen_stream_ptr stream, const char* name, const objinfo& info, bool ti_coff,
                bool& coff_wide_counts);
