// The files that the list names: what each is, and which member each takes the place of.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "archiver/elfnames.h"
#include "objfile/objident.h"
#include "shared/genfile.h"

// The bytes of a symbol index, the names of listed files included. More is no real archive.
constexpr uint64_t index_limit = 256 * 1024 * 1024;

// What kind of object something is. All that are no objects are of one kind.
struct object_kind {
    obj_kind format = OBJ_UNKNOWN;
    uint32_t machine = 0;
    uint32_t file_type = OBJ_TYPE_UNKNOWN;
    uint32_t class_bits = 0;
    bool big_endian = false;
};

struct listed_file {
    std::string path;
    std::string name; // its last component: what the member is called
    uint64_t size = 0;
    std::string contents; // empty if they are left to be read again
    int64_t modified = 0; // seconds since 1970
    uint32_t mode = 0;    // permission bits
    object_kind kind;
    std::optional<defined_names> names; // of an ELF file; nothing when it is damaged
};

// Reads the list, one path a line, and looks at each file. Nothing after a report, which names
// `archive_name` too.
std::optional<std::vector<listed_file>> read_list(obj_history& history, const char* list_name,
                                                  const char* archive_name);

// The file, to be read. Null after a report.
gen_stream_ptr open_listed(const listed_file& file, const char* archive_name);

// Listed files that wait for a member of their name and kind.
struct file_queue {
    std::vector<const listed_file*> files; // in the order of the list
    size_t next = 0;
};
struct partner_table {
    obj_history& history;
    std::unordered_map<std::string, uint64_t> waiting = {}; // how many, by name
    std::unordered_map<std::string, file_queue> queues = {};
};

partner_table make_partner_table(obj_history& history, const std::vector<listed_file>& files);
// The file that replaces the member called `name` whose data is at the stream's position, which is
// kept. Null when there is none.
const listed_file* take_partner(partner_table& table, const std::string& name, gen_stream& stream);
