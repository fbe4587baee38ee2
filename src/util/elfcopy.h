// Section data on its way from the input to the output, in as few and as large pieces as possible.
//
// Ranges that follow each other in both files become one. A large range is copied inside the host;
// small ones are gathered, with the zeros between them, into one block and written together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "shared/genfile.h"
#include "shared/genmem.h"

struct section_copier {
    const char* input_name = nullptr;
    gen_stream* input = nullptr;
    const char* output_name = nullptr;
    gen_stream* output = nullptr;

    // The range that still grows.
    uint64_t from = 0;
    uint64_t to = 0;
    uint64_t size = 0;

    // The block of gathered ranges, and where in the output it belongs.
    gen_block gathered = {};
    uint64_t gathered_to = 0;
    uint64_t gathered_size = 0;

    uint64_t written_end = 0; // no byte of the output lies behind this

    // Input bytes up to here, from the start of the section that reaches furthest, went to where
    // they are less `copied_shift` in the output, and nothing was written over them since.
    uint64_t copied_end = 0;
    uint64_t copied_shift = 0;
};

// Copies `size` bytes at `from` to `to`, as far as the input goes; where it ends too early, one
// "Error reading" is reported. May be carried out later, at the latest by flush_copies. Called in
// the order of `from`; bytes that sections share are copied once.
void copy_section_data(section_copier& copier, uint64_t from, uint64_t to, uint64_t size);
// Writes new contents of a section, no more than `gather_limit` bytes, in the same way.
constexpr uint64_t gather_limit = 64 * 1024;
void put_section_data(section_copier& copier, uint64_t to, std::span<const std::byte> contents);
void flush_copies(section_copier& copier);
// After flush_copies: somebody else has written to the output, up to `end`.
void note_written(section_copier& copier, uint64_t end);
