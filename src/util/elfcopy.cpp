// Section data from file to file: merging, gathering, copying.
#include "util/elfcopy.h"

#include <algorithm>

#include "objfile/elffield.h"
#include "shared/genmessage.h"

namespace {

constexpr uint64_t most_gathered = 256 * 1024;

// Memory comes cleared: small files do with less. A range or a table always fits.
uint64_t gather_capacity(const section_copier& copier) {
    return std::clamp(copier.input->size, gather_limit, most_gathered);
}

void report_short_read(const section_copier& copier) {
    gen_perror("Error reading from '%s'", copier.input_name);
}

void write_gathered(section_copier& copier) {
    if (copier.gathered_size == 0)
        return;
    elf_seek(copier.output_name, *copier.output, copier.gathered_to);
    gen_safe_fwrite64(copier.output_name, copier.gathered.bytes.get(), 1, copier.gathered_size,
                      copier.output);
    copier.gathered_size = 0;
}

// Whether a small range can join the gathered ones. The bytes between become zeros, which is right
// only behind everything that was written before.
bool joins_gathered(const section_copier& copier, uint64_t to, uint64_t size) {
    if (copier.gathered_size == 0)
        return false;
    const uint64_t end = copier.gathered_to + copier.gathered_size;
    return to >= end && (to == end || copier.written_end == end) &&
           to - copier.gathered_to <= copier.gathered.size - size;
}

// Where in the block the bytes for `to` belong; the caller puts them there and counts them.
std::byte* make_room(section_copier& copier, uint64_t to, uint64_t size) {
    if (!joins_gathered(copier, to, size)) {
        write_gathered(copier);
        copier.gathered_to = to;
    }
    if (!copier.gathered.bytes)
        copier.gathered = gen_new_block(gather_capacity(copier));
    std::byte* block = copier.gathered.bytes.get();
    const uint64_t at = to - copier.gathered_to;
    std::fill(block + copier.gathered_size, block + at, std::byte{0});
    copier.gathered_size = at;
    return block + at;
}

void gather(section_copier& copier) {
    std::byte* const room = make_room(copier, copier.to, copier.size);
    elf_seek(copier.input_name, *copier.input, copier.from);
    const uint64_t got = gen_read_stream(*copier.input, room, copier.size);
    copier.gathered_size += got;
    if (got < copier.size)
        report_short_read(copier);
}

void copy_large(section_copier& copier) {
    write_gathered(copier);
    elf_seek(copier.input_name, *copier.input, copier.from);
    elf_seek(copier.output_name, *copier.output, copier.to);
    const uint64_t done = gen_copy_stream(*copier.input, *copier.output, copier.size);
    if (done == copier.size)
        return;
    if (copier.output->write_error != 0)
        gen_perror("Error writing to '%s'", copier.output_name);
    else
        report_short_read(copier);
}

// Carries out the range that has grown so far.
void finish_range(section_copier& copier) {
    if (copier.size == 0)
        return;
    if (copier.size <= gather_limit)
        gather(copier);
    else
        copy_large(copier);
    copier.written_end = std::max(copier.written_end, copier.to + copier.size);
    copier.size = 0;
}

// How many of the bytes at `from` an earlier section has brought along.
uint64_t bytes_already_there(const section_copier& copier, uint64_t from, uint64_t size) {
    return from < copier.copied_end ? std::min(size, copier.copied_end - from) : 0;
}

// Lets the range grow by what follows it in both files, or begins another.
void extend_range(section_copier& copier, uint64_t from, uint64_t to, uint64_t size) {
    if (size == 0)
        return;
    if (copier.size != 0 && (from != copier.from + copier.size || to != copier.to + copier.size))
        finish_range(copier);
    if (copier.size == 0) {
        copier.from = from;
        copier.to = to;
    }
    copier.size += size;
}

} // namespace

void copy_section_data(section_copier& copier, uint64_t from, uint64_t to, uint64_t size) {
    const uint64_t input_size = copier.input->size;
    const uint64_t available = from < input_size ? std::min(size, input_size - from) : 0;
    const uint64_t done =
        from - to == copier.copied_shift ? bytes_already_there(copier, from, available) : 0;
    extend_range(copier, from + done, to + done, available - done);
    copier.copied_shift = from - to;
    copier.copied_end = std::max(from + available, done != 0 ? copier.copied_end : 0);
    if (available < size) {
        finish_range(copier);
        report_short_read(copier);
    }
}

void put_section_data(section_copier& copier, uint64_t to, std::span<const std::byte> contents) {
    finish_range(copier);
    copier.copied_end = 0;
    if (contents.empty())
        return;
    std::copy(contents.begin(), contents.end(), make_room(copier, to, contents.size()));
    copier.gathered_size += contents.size();
    copier.written_end = std::max(copier.written_end, to + contents.size());
}

void flush_copies(section_copier& copier) {
    finish_range(copier);
    write_gathered(copier);
    copier.copied_end = 0;
}

void note_written(section_copier& copier, uint64_t end) {
    copier.written_end = std::max(copier.written_end, end);
}
