// Writing a debug-name-map back: the header and the "Sections" table anew, all other tables as
// ranges of the input. Where everything goes is known before the first byte is written.
#include <cerrno>
#include <cinttypes>
#include <map>
#include <optional>
#include <utility>

#include "debug/dnmlayout.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/genreplace.h"
#include "shared/host.h"

namespace {

// A table's bytes on their way: from memory, and then from a range of the input.
struct table_output {
    std::vector<std::byte> front;
    uint64_t from = 0;
    uint64_t size = 0; // of the range
    uint64_t at = 0;   // in the output
};

struct write_job {
    dnm_map& map;
    dnm_coding coding;
    std::vector<std::byte> head;      // prologue and header
    std::vector<table_output> tables; // in the order of writing
    std::string temporary;
    gen_unfinished_file unfinished; // the temporary file
    gen_stream_ptr output;
    std::optional<host_status> old; // the file before its removal changed anything
};

// An undecoded table cannot change its encoding, so it keeps the file's. Without one, the map is
// written compressed.
bool keeps_encoding(const dnm_map& map) {
    for (uint32_t i = 0; i < DNM_TABLE_COUNT; ++i)
        if (i != DNM_SECTIONS && map.header.tables[i].size != 0)
            return true;
    return false;
}

void put_prologue(dnm_writer& writer, const dnm_header& header) {
    writer.u32(dnm_magic);
    writer.u32(dnm_newest_prologue);
    writer.u32(dnm_map_kind);
    writer.u32(writer.coding.compressed ? 1 : 0);
    writer.u8(dnm_address_encoding(header.address_mode));
    writer.u8(dnm_no_descriptors);
    writer.u8(header.version >= 27 ? dnm_newest_extension : dnm_no_extension);
    writer.u8(0); // reserved
}

void put_offset(dnm_writer& writer, int32_t version, int64_t offset) {
    if (version >= 40)
        return writer.fixed(static_cast<uint64_t>(offset), 8);
    if (offset > INT32_MAX)
        gen_error("<libst>: offset is too large: 0x%" PRIx64 "\n", static_cast<uint64_t>(offset));
    writer.fixed(static_cast<uint64_t>(offset), 4);
}

std::vector<std::byte> encode_head(const dnm_map& map, const dnm_coding& coding,
                                   bool with_offsets) {
    dnm_writer writer = {{}, coding};
    const dnm_header& header = map.header;
    put_prologue(writer, header);
    writer.u32(static_cast<uint32_t>(header.version));
    dnm_layout_header(writer, header);
    writer.u8(DNM_TABLE_COUNT);
    for (const dnm_table& table : header.tables)
        put_offset(writer, header.version, with_offsets ? table.offset : 0);
    for (const dnm_table& table : header.tables) {
        writer.number(static_cast<uint32_t>(table.max));
        writer.number(table.parameter);
        writer.u8(table.flags[0]);
        writer.u8(table.flags[1]);
    }
    return std::move(writer.bytes);
}

table_output output_of(const write_job& job, dnm_table_id index) {
    const dnm_map& map = job.map;
    const dnm_table& table = map.header.tables[index];
    table_output output;
    if (table.max == 0)
        return output;
    output.from = table.start;
    output.size = table.size;
    if (index != DNM_SECTIONS)
        return output;
    dnm_writer writer = {{}, job.coding};
    for (const dnm_section& section : map.sections)
        dnm_layout_section(writer, map.header.version, section);
    output.front = std::move(writer.bytes);
    output.size = table.start + table.size - map.sections_tail;
    output.from = map.sections_tail;
    return output;
}

bool shares_place_with_sections(const dnm_map& map, dnm_table_id index) {
    const dnm_table& sections = map.header.tables[DNM_SECTIONS];
    return sections.max > 0 && sections.start == map.header.tables[index].start;
}

// Tables that share a place in the input share one in the output.
void place_tables(write_job& job, uint64_t at) {
    std::map<uint64_t, int64_t> placed; // from where in the input, to where
    for (const dnm_family& family : dnm_families)
        for (dnm_table_id index : family.tables) {
            dnm_table& table = job.map.header.tables[index];
            table.offset = static_cast<int64_t>(at);
            if (table.max == 0)
                continue;
            const auto [place, is_first] = placed.try_emplace(table.start, table.offset);
            table.offset = place->second;
            if (!is_first)
                continue;
            const bool has_sections = shares_place_with_sections(job.map, index);
            table_output output = output_of(job, has_sections ? DNM_SECTIONS : index);
            output.at = at;
            at += output.front.size() + output.size;
            job.tables.push_back(std::move(output));
        }
}

bool write_block(write_job& job, const std::vector<std::byte>& block) {
    return gen_write_stream(*job.output, block.data(), block.size()) == block.size();
}

// A range of no bytes may begin anywhere, even where no file reaches.
bool copy_range(write_job& job, uint64_t from, uint64_t size) {
    return size == 0 || (gen_seek(*job.map.input, static_cast<int64_t>(from), GEN_SEEK_SET) == 0 &&
                         gen_copy_stream(*job.map.input, *job.output, size) == size);
}

bool write_table(write_job& job, const table_output& table) {
    return gen_seek(*job.output, static_cast<int64_t>(table.at), GEN_SEEK_SET) == 0 &&
           write_block(job, table.front) && copy_range(job, table.from, table.size);
}

// Whoever could use the old file can use the new one. Refused is only what the caller has no right
// to, and that is no reason to do without the map.
void give_owner_and_mode(const write_job& job) {
    constexpr uint32_t permissions = 0777;
    const int saved_errno = errno;
    if (job.old) {
        host_set_owner(job.output->descriptor, job.old->owner, job.old->group);
        host_set_mode(job.output->descriptor, job.old->mode & permissions);
    }
    errno = saved_errno;
}

bool write_temporary(write_job& job) {
    job.unfinished.guard(job.temporary);
    job.output = gen_open(job.temporary.c_str(), "wbx");
    if (!job.output)
        return false;
    if (!write_block(job, job.head)) {
        gen_system_error("<libst>: while %s in \"%s\"", "writing .dnm header",
                         job.temporary.c_str());
        return false;
    }
    for (const table_output& table : job.tables)
        if (!write_table(job, table))
            return false;
    give_owner_and_mode(job);
    return gen_close(std::move(job.output)) == 0;
}

// Write permission on the file itself decides on some hosts.
bool remove_forcibly(const char* name) {
    constexpr uint32_t owner_and_group = 0660;
    if (host_delete(name) == 0)
        return true;
    const std::optional<host_status> status = host_status_of(name);
    if (!status || host_set_mode(name, status->mode | owner_and_group) != 0)
        return false;
    if (host_delete(name) == 0)
        return true;
    host_set_mode(name, status->mode);
    return false;
}

bool is_directory(const std::string& name) {
    const std::optional<host_status> status = host_status_of(name.c_str());
    return status && status->is_directory;
}

bool move_into_place(const write_job& job) {
    const std::string& target = job.map.name;
    if (is_directory(target))
        return false;
    if (host_rename(job.temporary.c_str(), target.c_str()) == 0)
        return true;
    remove_forcibly(target.c_str());
    return host_rename(job.temporary.c_str(), target.c_str()) == 0;
}

std::string temporary_name(const dnm_map& map, gen_temp_space& temp) {
    const std::string directory(gen_directory_part(map.name));
    return gen_temp_name(temp, directory, "dnmtmp").value_or(std::string());
}

} // namespace

int STDnm_Write(dnm_map& map, gen_temp_space& temp) {
    write_job job = {map, {map.compressed, map.header.address_mode}, {}, {}, {}, {}, nullptr, {}};
    if (!keeps_encoding(map))
        job.coding.compressed = true;
    place_tables(job, encode_head(map, job.coding, false).size());
    job.head = encode_head(map, job.coding, true);
    job.temporary = temporary_name(map, temp);
    // The old file goes before the new one exists.
    const int saved_errno = errno;
    job.old = host_descriptor_status(map.input->descriptor);
    if (!is_directory(map.name))
        remove_forcibly(map.name.c_str());
    errno = saved_errno;
    const bool written = write_temporary(job);
    map.input.reset(); // some hosts free the old file's name only now
    if (written && move_into_place(job))
        return 0;
    const int reason = errno;
    job.output.reset();
    remove_forcibly(job.temporary.c_str());
    errno = reason;
    gen_system_error("<libst>: failed to write \"%s\"", job.temporary.c_str());
    return 1;
}
