// Reading an index is strict: one that is not understood to the last byte is refused.
#include "archiver/symindex.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstring>

#include "shared/genbytes.h"
#include "shared/genmem.h"
#include "shared/genmessage.h"

namespace {

GEN_PRINTF(2, 3)
bool refuse_index(const old_archive& archive, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char* const why = gen_vasprintf(format, arguments);
    va_end(arguments);
    gen_error("archive '%s', member '/': damaged symbol index: %s", archive.name, why);
    gen_free_slot(why);
    return false;
}

// Entries and names of `block`, which holds `count` positions behind the count.
bool decode_entries(const old_archive& archive, const gen_block& block, uint32_t count,
                    symbol_index& index) {
    const uint64_t names_at = 4 + uint64_t{count} * 4;
    index.names.assign(block.text() + names_at, block.size - names_at);
    index.entries.reserve(count);
    size_t at = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t position = gen_load<uint32_t>(block.bytes.get() + 4 + size_t{i} * 4, true);
        const auto member = std::ranges::lower_bound(archive.members, uint64_t{position}, {},
                                                     &archive_member::header);
        if (member == archive.members.end() || member->header != position)
            return refuse_index(archive, "entry %" PRIu32 " leads to 0x%" PRIx32 ", to no member",
                                i, position);
        const size_t end = at + strlen(index.names.c_str() + at) + 1; // behind the NUL
        if (end > index.names.size())
            return refuse_index(
                archive, "it ends at its size, %" PRIu64 ", before the last of %" PRIu32 " names",
                block.size, count);
        const auto number = static_cast<uint32_t>(member - archive.members.begin());
        index.entries.push_back({number, static_cast<uint32_t>(at), static_cast<uint32_t>(end)});
        at = end;
    }
    if (index.names.find_first_not_of('\0', at) != std::string::npos)
        return refuse_index(archive,
                            "there is something behind the last name, which ends at 0x%" PRIx64,
                            names_at + at);
    return true;
}

void add_entry(symbol_index& index, uint32_t member, std::string_view name_and_nul) {
    const auto at = static_cast<uint32_t>(index.names.size());
    index.names += name_and_nul;
    index.entries.push_back({member, at, static_cast<uint32_t>(index.names.size())});
}

bool is_renewed(const archive_change& change) {
    return change.file && change.file->kind.format == OBJ_ELF &&
           !(change.file->names && change.file->names->is_intermediate);
}

} // namespace

bool read_index(const old_archive& archive, symbol_index& index) {
    const archive_member& member = archive.members[*archive.index];
    if (member.size < 4)
        return refuse_index(archive, "its size %" PRIu64 " is below the 4 of its count",
                            member.size);
    if (member.size > index_limit)
        return refuse_index(archive, "its size %" PRIu64 " is above %" PRIu64, member.size,
                            index_limit);
    gen_stream& stream = *archive.stream;
    const gen_block block = gen_new_block(member.size);
    if (gen_seek(stream, static_cast<int64_t>(member.data), GEN_SEEK_SET) != 0 ||
        gen_read_stream(stream, block.bytes.get(), block.size) != block.size)
        return refuse_index(archive, "it cannot be read");
    const uint32_t count = gen_load<uint32_t>(block.bytes.get(), true);
    if (count > (block.size - 4) / 4)
        return refuse_index(archive, "the count %" PRIu32 " reaches past its end, %" PRIu64, count,
                            block.size);
    return decode_entries(archive, block, count, index);
}

bool add_names(const char* archive_name, symbol_index& index, uint32_t member,
               const listed_file& file) {
    const uint64_t added =
        file.names ? file.names->text.size() + uint64_t{file.names->count} * 4 : UINT64_MAX;
    const uint64_t size = index_size(index);
    if (size > index_limit || added > index_limit - size) {
        gen_error("archive '%s', member '%s': the symbols of file '%s' cannot be told: it is "
                  "damaged, or there are too many",
                  archive_name, file.name.c_str(), file.path.c_str());
        return false;
    }
    for (std::string_view rest = file.names->text; !rest.empty();) {
        const size_t length = strlen(rest.data()) + 1; // each name has its NUL
        add_entry(index, member, rest.substr(0, length));
        rest.remove_prefix(length);
    }
    return true;
}

bool renew_index(const old_archive& archive, symbol_index& index) {
    symbol_index old = std::move(index);
    index = {};
    std::ranges::stable_sort(old.entries, {}, &index_entry::member);
    const std::string_view names = old.names;
    size_t at = 0;
    const auto take_until = [&](uint64_t member) {
        for (; at < old.entries.size() && old.entries[at].member < member; ++at) {
            const index_entry& entry = old.entries[at];
            add_entry(index, entry.member,
                      names.substr(entry.name_at, entry.name_end - entry.name_at));
        }
    };
    for (const archive_change& change : archive.changes) {
        if (!is_renewed(change))
            continue;
        take_until(change.member);
        while (at < old.entries.size() && old.entries[at].member == change.member)
            ++at;
        if (!add_names(archive.name, index, change.member, *change.file))
            return false;
    }
    take_until(UINT64_MAX);
    return true;
}

uint64_t index_size(const symbol_index& index) {
    return padded_size(4 + uint64_t{index.entries.size()} * 4 + index.names.size());
}

bool encode_index(const char* archive_name, const symbol_index& index,
                  std::span<const uint64_t> positions, std::string& bytes) {
    if (!index.entries.empty() && positions[index.entries.back().member] > UINT32_MAX) {
        gen_error("archive '%s', member '/': a symbol index reaches no further than 4 GiB, and its "
                  "last entry leads to 0x%" PRIx64,
                  archive_name, positions[index.entries.back().member]);
        return false;
    }
    bytes.assign(index_size(index), '\0');
    std::byte* at = reinterpret_cast<std::byte*>(bytes.data());
    gen_store(at, static_cast<uint32_t>(index.entries.size()), true);
    for (const index_entry& entry : index.entries)
        gen_store(at += 4, static_cast<uint32_t>(positions[entry.member]), true);
    memcpy(at + 4, index.names.data(), index.names.size());
    return true;
}
