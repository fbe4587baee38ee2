// Copying a range from one stream to another: inside the host where it can, else in large pieces.
#include <algorithm>

#include "shared/genfile.h"
#include "shared/host.h"

namespace {

// Below this, the reading stream's window serves better than a call into the host.
constexpr uint64_t host_copy_worth = 64 * 1024;
constexpr uint64_t piece_size = 256 * 1024;
// Hosts keep what is written together best when it begins at a multiple of this.
constexpr uint64_t host_unit = 64 * 1024;
// The host moves whole pages; between places that differ within a page it only moves bytes.
constexpr uint64_t page_size = 4096;

void advance(gen_stream& input, gen_stream& output, uint64_t size) {
    input.position += size;
    output.position += size;
}

// Bytes up to the next multiple of `unit` in the output, but no more than `size`.
uint64_t up_to_multiple(const gen_stream& output, uint64_t unit, uint64_t size) {
    return std::min(unit - output.position % unit, size);
}

uint64_t copy_in_host(gen_stream& input, gen_stream& output, uint64_t size) {
    uint64_t done = 0;
    while (done < size) {
        const bool at_unit = output.position % host_unit == 0;
        const uint64_t wanted =
            at_unit ? size - done : up_to_multiple(output, host_unit, size - done);
        const uint64_t moved = host_copy_range(input.descriptor, input.position, output.descriptor,
                                               output.position, wanted);
        if (moved == 0)
            break;
        advance(input, output, moved);
        done += moved;
    }
    output.window_length = 0;
    output.size = std::max(output.size, output.position);
    return done;
}

uint64_t copy_in_pieces(gen_stream& input, gen_stream& output, uint64_t size) {
    const std::unique_ptr<std::byte[]> piece = std::make_unique_for_overwrite<std::byte[]>(
        static_cast<size_t>(std::min(size, piece_size)));
    uint64_t done = 0;
    while (done < size) {
        const uint64_t wanted = up_to_multiple(output, piece_size, size - done);
        const uint64_t got = gen_read_stream(input, piece.get(), wanted);
        const uint64_t put = got != 0 ? gen_write_stream(output, piece.get(), got) : 0;
        done += put;
        if (got == 0 || put < got)
            break;
    }
    return done;
}

uint64_t copy_part(gen_stream& part, gen_stream& output, uint64_t size) {
    const uint64_t wanted = gen_enter_part(part, size);
    const uint64_t done = gen_copy_stream(*part.whole, output, wanted);
    part.position += done;
    gen_note_part_failure(part);
    return done;
}

// Copies bytes that the input has, not only reads as zeros.
uint64_t copy_data(gen_stream& input, gen_stream& output, uint64_t size) {
    uint64_t done = 0;
    gen_reserve(output, size);
    if (size >= host_copy_worth && (input.position - output.position) % page_size == 0)
        done = copy_in_host(input, output, size);
    // The host stops where its way ends, which need not be the end of the input.
    if (done < size)
        done += copy_in_pieces(input, output, size - done);
    return done;
}

} // namespace

// What was never written to the input is not written to a new part of the output either, but for
// the last byte, which gives the output its length.
uint64_t gen_copy_stream(gen_stream& input, gen_stream& output, uint64_t size) {
    if (input.whole)
        return copy_part(input, output, size);
    const bool may_skip = size >= host_copy_worth && output.position >= output.size;
    uint64_t done = 0;
    while (done < size) {
        host_range data = {input.position, UINT64_MAX};
        if (may_skip)
            data = host_next_data(input.descriptor, input.position);
        const uint64_t unwritten = std::min(data.start - input.position, size - done - 1);
        advance(input, output, unwritten);
        done += unwritten;
        const uint64_t wanted =
            std::min(std::max(data.end, input.position + 1) - input.position, size - done);
        const uint64_t copied = copy_data(input, output, wanted);
        done += copied;
        if (copied < wanted)
            break;
    }
    return done;
}
