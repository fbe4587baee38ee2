// String index: a bit for each string's start, with counts by block.
#include "util/stringindex.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr uint64_t block_bits = 512;
constexpr uint64_t words_per_block = block_bits / 64;

void mark_starts(string_index& index, uint64_t size) {
    const char* strings = index.strings;
    const char* end = strings + size;
    for (const char* at = strings; at < end;) {
        const uint64_t offset = static_cast<uint64_t>(at - strings);
        index.starts[offset / 64] |= uint64_t{1} << (offset % 64);
        const void* nul = memchr(at, '\0', static_cast<size_t>(end - at));
        at = nul ? static_cast<const char*>(nul) + 1 : end;
    }
}

uint32_t last_start_in(uint64_t bits, size_t word) {
    return static_cast<uint32_t>(word * 64 + static_cast<size_t>(std::bit_width(bits)) - 1);
}

void count_starts(string_index& index) {
    string_index::block_start before;
    for (size_t block = 0; block < index.blocks.size(); ++block) {
        index.blocks[block] = before;
        const size_t first = block * words_per_block;
        const size_t end = std::min<size_t>(first + words_per_block, index.starts.size());
        for (size_t word = first; word < end; ++word) {
            const uint64_t bits = index.starts[word];
            before.strings_before += static_cast<uint32_t>(std::popcount(bits));
            if (bits != 0)
                before.last_start = last_start_in(bits, word);
        }
    }
    index.count = before.strings_before;
}

} // namespace

string_index index_strings(const char* strings, uint64_t size) {
    string_index index;
    index.strings = strings;
    index.size = size;
    const uint64_t reachable = std::min<uint64_t>(size, UINT32_MAX);
    index.starts.resize((reachable + 63) / 64);
    index.blocks.resize((reachable + block_bits - 1) / block_bits);
    mark_starts(index, reachable);
    count_starts(index);
    return index;
}

string_place find_string(const string_index& index, uint32_t offset) {
    const size_t block = static_cast<size_t>(offset / block_bits);
    const size_t last_word = offset / 64;
    string_place place = {index.blocks[block].last_start, index.blocks[block].strings_before};
    for (size_t word = block * words_per_block; word <= last_word; ++word) {
        uint64_t bits = index.starts[word];
        if (word == last_word)
            bits &= UINT64_MAX >> (63 - offset % 64);
        place.number += static_cast<uint32_t>(std::popcount(bits));
        if (bits != 0)
            place.start = last_start_in(bits, word);
    }
    --place.number; // the string itself was counted
    return place;
}
