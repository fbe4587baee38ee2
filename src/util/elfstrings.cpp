// Moving strings: each old string remembers where it went.
#include "util/elfstrings.h"

#include <cstring>

#include "shared/genout.h"
#include "util/elfassert.h"

namespace {

uint32_t& new_offset_of(string_move& move, uint32_t number) {
    return reinterpret_cast<uint32_t*>(move.new_offsets.bytes.get())[number];
}

} // namespace

string_move prepare_strings(const char* strings, uint64_t size) {
    string_move move;
    move.old = index_strings(strings, size);
    move.newstrtab = gen_new_block(size);
    move.new_offsets = gen_new_block(uint64_t{move.old.count} * sizeof(uint32_t));
    return move;
}

uint32_t move_string(string_move& move, uint32_t offset) {
    if (move.old.size == 0)
        return 0; // an empty table holds the empty name alone
    const string_place place = find_string(move.old, offset);
    uint32_t& moved = new_offset_of(move, place.number);
    if (moved == 0) {
        const char* text = move.old.strings + place.start;
        const uint64_t length = strlen(text) + 1;
        elf_assert(length <= move.old.size - move.newstrsize, ASSERT_STRING_ROOM);
        moved = append_string(move, text, length) + 1;
    }
    const uint64_t new_offset = uint64_t{moved} - 1 + (offset - place.start);
    if (new_offset > UINT32_MAX)
        gen_fatal(status_failure, "64-bit value truncated");
    return static_cast<uint32_t>(new_offset);
}

uint32_t append_string(string_move& move, const char* text, uint64_t length) {
    const uint64_t at = move.newstrsize;
    if (at >= UINT32_MAX)
        gen_fatal(status_failure, "64-bit value truncated");
    memcpy(move.newstrtab.bytes.get() + at, text, static_cast<size_t>(length));
    move.newstrsize += length;
    return static_cast<uint32_t>(at);
}
