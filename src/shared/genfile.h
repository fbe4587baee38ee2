// Checked streams: what the runtime's streams do, with failures reported in fixed words.
//
// Opening and seeking end the program when they fail; reading, writing and closing report and hand
// the failure back. `name` is the file's name as the user knows it and may be null; `kind` is a
// short noun for what the file is ("executable") and may be null where noted.
//
// A stream reads through a window and writes straight to the host, so its position is a number and
// reads see earlier writes. A failed write marks the stream: the next checked seek or flush fails,
// so that nobody builds on a file with a hole in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "shared/host.h"

struct gen_stream {
    int descriptor = -1;
    uint64_t position = 0;
    uint64_t size = 0;   // bytes in the file, as far as this stream has seen them
    bool at_end = false; // the last read met the end of the file
    host_status opened;  // what was opened; unknown of a file made for writing only
    int write_error = 0; // error number of the first failed write
    int read_error = 0;  // error number of the last failed read
    uint64_t window_start = 0;
    size_t window_length = 0;
    size_t window_capacity = 0;
    std::unique_ptr<std::byte[]> window;

    // Of a part: the stream that it is a part of, and where in it the part begins.
    gen_stream* whole = nullptr;
    uint64_t start = 0;
};

struct gen_stream_closer {
    void operator()(gen_stream* stream) const; // closes without a word
};
using gen_stream_ptr = std::unique_ptr<gen_stream, gen_stream_closer>;

enum gen_origin { GEN_SEEK_SET, GEN_SEEK_CUR, GEN_SEEK_END };

// Mode: the runtime's ("rb", "rb+", "wb", "ab"). "wbx" makes a new file that only its owner can
// read and fails if the name is taken; "wb+x" does so with the permissions that the user's mask
// leaves. Clears the error number first. Ends the program with status 1 on failure; a directory
// fails with the error number for "is a directory".
gen_stream_ptr gen_safe_fopen(const char* name, const char* kind, const char* mode);

// Items read. Reports only when nothing was read; a shorter read is the caller's to notice.
int32_t gen_safe_fread(const char* name, void* buffer, int32_t size, int32_t count,
                       gen_stream* stream);
int64_t gen_safe_fread64(const char* name, void* buffer, uint64_t size, uint64_t count,
                         gen_stream* stream);
// Items written. Reports whenever they are fewer than asked.
int32_t gen_safe_fwrite(const char* name, const void* buffer, int32_t size, int32_t count,
                        gen_stream* stream);
int64_t gen_safe_fwrite64(const char* name, const void* buffer, uint64_t size, uint64_t count,
                          gen_stream* stream);
// 0, or -1 after a report. A null stream is an error.
int gen_safe_fclose(const char* name, const char* kind, gen_stream_ptr stream);
// 0, or the program ends.
int gen_safe_fseek(const char* name, gen_stream* stream, int32_t offset, gen_origin origin);
int gen_safe_fseek64(const char* name, gen_stream* stream, int64_t offset, gen_origin origin);
// 0, or the program ends: a write to this stream has failed.
int gen_safe_fflush(const char* name, gen_stream* stream);

// The unchecked ground they stand on: none of these reports.
gen_stream_ptr gen_open(const char* name, const char* mode); // null, with the error number
// A stream of its own over the `size` bytes at `start` of another one, to be read only. It reads
// through that one, whose position it moves and which must outlive it. Clears the error number;
// null when a small part cannot be read, which is seen at once.
gen_stream_ptr gen_open_part(gen_stream& whole, uint64_t start, uint64_t size);
// Brings the other stream to where the part stands: how many of the next `size` bytes there are.
uint64_t gen_enter_part(gen_stream& part, uint64_t size);
void gen_note_part_failure(gen_stream& part); // of the read or copy that followed
int gen_close(gen_stream_ptr stream);
int gen_seek(gen_stream& stream, int64_t offset, gen_origin origin);              // 0, or -1
uint64_t gen_read_stream(gen_stream& stream, void* buffer, uint64_t size);        // bytes read
int gen_getc(gen_stream& stream);                                                 // a byte, or -1
uint64_t gen_write_stream(gen_stream& stream, const void* buffer, uint64_t size); // bytes written

// Sets space aside for `size` bytes at the position, which are about to be written. Large writes do
// so themselves.
void gen_reserve(const gen_stream& stream, uint64_t size);

// Bytes from one stream's position to the other's, moved by the host where it can, never through
// more than a fixed buffer. Both positions advance. Bytes copied: fewer than `size` when the input
// ends, or cannot be read (input.read_error), or the output cannot be written (output.write_error).
uint64_t gen_copy_stream(gen_stream& input, gen_stream& output, uint64_t size);

// Cuts the closed file `name`, or fills it up with zeros, to `length` bytes: 0, or -1.
int gen_set_length(const char* name, uint64_t length);

// Descriptor calls: bytes moved, or -1. A count beyond 32 bits is an error and is cut.
int64_t gen_read(int descriptor, void* buffer, uint64_t count);
int64_t gen_write(int descriptor, const void* buffer, uint64_t count);

// The runtime's unsigned conversion cut to 32 bits; a null string gives 0 and a null end.
int32_t gen_strtoul(const char* string, const char** end, int base);
// The length; one that does not fit 32 bits is an error and is cut.
int32_t gen_strlen(const char* string);
