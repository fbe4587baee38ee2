// Moving strings: each old string remembers where it went.
#include "util/elfstrings.h"

#include <algorithm>
#include <cstring>

#include "shared/genexit.h"
#include "util/elfassert.h"

namespace {

// Small texts are gathered; what is large is written from where it is.
struct text_writer {
    const char* name;
    gen_stream& output;
    std::vector<char> gathered;
    bool failed = false;
};

constexpr size_t gather_limit = 256 * 1024;

void write_out(text_writer& writer, std::string_view text) {
    if (!writer.failed && !text.empty())
        writer.failed = gen_safe_fwrite64(writer.name, text.data(), 1, text.size(),
                                          &writer.output) != static_cast<int64_t>(text.size());
}

void write_gathered(text_writer& writer) {
    write_out(writer, {writer.gathered.data(), writer.gathered.size()});
    writer.gathered.clear();
}

void add_text(text_writer& writer, std::string_view text) {
    if (text.size() > gather_limit - writer.gathered.size())
        write_gathered(writer);
    if (text.size() >= gather_limit)
        return write_out(writer, text);
    writer.gathered.insert(writer.gathered.end(), text.begin(), text.end());
}

} // namespace

string_move prepare_strings(const char* strings, uint64_t size) {
    string_move move;
    move.old = index_strings(strings, size);
    move.new_offsets = gen_new_block(uint64_t{move.old.count} * sizeof(uint32_t));
    return move;
}

uint32_t move_string(string_move& move, uint32_t offset) {
    if (move.old.size == 0)
        return 0; // an empty table holds the empty name alone
    const string_place place = find_string(move.old, offset);
    uint32_t& moved = reinterpret_cast<uint32_t*>(move.new_offsets.bytes.get())[place.number];
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
    if (!move.texts.empty() && move.texts.back().end() == text) {
        std::string_view& last = move.texts.back();
        last = {last.data(), last.size() + static_cast<size_t>(length)};
    } else {
        move.texts.emplace_back(text, static_cast<size_t>(length));
    }
    move.newstrsize += length;
    return static_cast<uint32_t>(at);
}

void write_strings(const char* name, gen_stream& output, const string_move& move, uint64_t size) {
    text_writer writer = {name, output, {}};
    writer.gathered.reserve(std::min<uint64_t>(size, gather_limit));
    for (std::string_view text : move.texts)
        add_text(writer, text);
    static constexpr char zeros[8] = {};
    add_text(writer, {zeros, static_cast<size_t>(size - move.newstrsize)});
    write_gathered(writer);
}
