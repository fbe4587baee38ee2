// The COFF stripper.
#pragma once

#include "objfile/objident.h"
#include "shared/genfile.h"

// Set for the rest of the run once a file of a certain target was met: from then on the counts of
// section headers are read as 32 bits.
extern bool coff_wide_counts;

// Removes the symbol table and the line numbers of the COFF file `name`, open for update at its
// start in `stream`, in place; the string table stays. What is wrong is reported; the stream is
// closed in any case.
void coff_strip(gen_stream_ptr stream, const char* name, const objinfo& info);
