// The kinds of files that the benchmark strips.
#pragma once

#include "output.h"

void make_program(output& to, uint64_t text, uint64_t writable, uint64_t debug, uint64_t symbols,
                  size_t name_length);
void make_relocated(output& to);
// One section for each function and one for its relocations, as compilers make them on request.
void make_object(output& to, uint64_t sections, uint64_t debug, size_t name_length);
void make_sparse(output& to);
// A PE32+ image: headers, two sections, symbols, strings.
void make_pe(output& to);
// A map that is not compressed (docs/dnm-format.md), with the sections of a program and one large
// table of labels.
void make_map(output& to);
