// String index: a bit for each string's start, with counts by block.
#include "util/stringindex.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr uint64_t block_bits = 512;
constexpr uint64_t words_per_block = block_bits / 64;

// As std::popcount, but without a call where the processor may lack the instruction.
uint32_t count_bits(uint64_t bits) {
    bits -= bits >> 1 & 0x5555555555555555;
    bits = (bits & 0x3333333333333333) + (bits >> 2 & 0x3333333333333333);
    bits = (bits + (bits >> 4)) & 0x0F0F0F0F0F0F0F0F;
    return static_cast<uint32_t>(bits * 0x0101010101010101 >> 56);
}

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
    uint32_t total = 0;
    uint32_t last_start = 0;
    for (size_t block = 0; block < index.blocks.size(); ++block) {
        string_index::block_start& entry = index.blocks[block];
        entry.strings_before = total;
        entry.last_start = last_start;
        const size_t first = block * words_per_block;
        const size_t end = std::min<size_t>(first + words_per_block, index.starts.size());
        for (size_t word = first; word < end; ++word) {
            const uint64_t bits = index.starts[word];
            entry.words_before[word - first] = static_cast<uint16_t>(total - entry.strings_before);
            total += count_bits(bits);
            if (bits != 0)
                last_start = last_start_in(bits, word);
        }
    }
    index.count = total;
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
    const string_index::block_start& block = index.blocks[static_cast<size_t>(offset / block_bits)];
    const size_t own_word = offset / 64;
    const size_t in_block = own_word % words_per_block;
    uint64_t bits = index.starts[own_word] & UINT64_MAX >> (63 - offset % 64);
    string_place place;
    // The string itself is counted, so its number is one less.
    place.number = block.strings_before + block.words_before[in_block] + count_bits(bits) - 1;
    size_t word = own_word;
    while (bits == 0 && word % words_per_block != 0)
        bits = index.starts[--word];
    place.start = bits != 0 ? last_start_in(bits, word) : block.last_start;
    return place;
}
