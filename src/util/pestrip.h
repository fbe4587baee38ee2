// The stripper of PE/COFF images.
#pragma once

#include "objfile/objident.h"
#include "shared/genfile.h"

// Removes symbols, and debug data that is the tail of the file, from the PE/COFF image `name`, open
// for update at its start in `stream`, in place. What is wrong is reported; the stream is closed in
// any case.
void pecoff_strip(gen_stream_ptr stream, const char* name, const objinfo& info);
