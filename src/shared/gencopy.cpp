// Copying a range from one stream to another: inside the host where it can, else in large pieces.
#include <algorithm>

#include "shared/genfile.h"
#include "shared/host.h"

namespace {

// Below this, the reading stream's window serves better than a call into the host.
constexpr uint64_t host_copy_worth = 64 * 1024;
constexpr uint64_t piece_size = 256 * 1024;

uint64_t copy_in_host(gen_stream& input, gen_stream& output, uint64_t size) {
    uint64_t done = 0;
    while (done < size) {
        const uint64_t moved = host_copy_range(input.descriptor, input.position, output.descriptor,
                                               output.position, size - done);
        if (moved == 0)
            break;
        input.position += moved;
        output.position += moved;
        done += moved;
    }
    output.window_length = 0;
    output.size = std::max(output.size, output.position);
    return done;
}

uint64_t copy_in_pieces(gen_stream& input, gen_stream& output, uint64_t size) {
    const uint64_t capacity = std::min(size, piece_size);
    const std::unique_ptr<std::byte[]> piece =
        std::make_unique_for_overwrite<std::byte[]>(static_cast<size_t>(capacity));
    uint64_t done = 0;
    while (done < size) {
        const uint64_t got = gen_read_stream(input, piece.get(), std::min(capacity, size - done));
        const uint64_t put = got != 0 ? gen_write_stream(output, piece.get(), got) : 0;
        done += put;
        if (got == 0 || put < got)
            break;
    }
    return done;
}

} // namespace

uint64_t gen_copy_stream(gen_stream& input, gen_stream& output, uint64_t size) {
    uint64_t done = 0;
    if (size >= host_copy_worth)
        done = copy_in_host(input, output, size);
    // The host stops where its way ends, which need not be the end of the input.
    if (done < size)
        done += copy_in_pieces(input, output, size - done);
    return done;
}
