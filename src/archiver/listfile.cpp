// The list is read as a whole; each file in it is opened once to see what it is.
#include "archiver/listfile.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/host.h"

namespace {

// Small files are kept from the first look on, so that they need not be opened again; within a
// limit, for an archive may be larger than the memory.
constexpr uint64_t small_file = 64 * 1024;
constexpr uint64_t kept_limit = 16 * 1024 * 1024;

// What is left of the limits for all files together.
struct look_limits {
    uint64_t names = index_limit;
    uint64_t contents = kept_limit;
};

// Archives, and texts that begin almost like one, would be reported as damaged, or keep the kind of
// what was looked at before.
bool looks_like_archive(gen_stream& stream) {
    char start[2] = {};
    const uint64_t position = stream.position;
    gen_read_stream(stream, start, sizeof start);
    gen_seek(stream, static_cast<int64_t>(position), GEN_SEEK_SET);
    return memcmp(start, "!<", 2) == 0 || memcmp(start, "<a", 2) == 0;
}

object_kind kind_at(obj_history& history, gen_stream& stream) {
    if (looks_like_archive(stream))
        return {};
    const objinfo* const info = obj_identify(history, &stream, nullptr);
    if (!info || info->kind < OBJ_AOUT || info->kind > OBJ_PECOFF)
        return {};
    return {info->kind, info->machine, info->file_type, info->class_bits, info->big_endian};
}

std::string key_of(const std::string& name, const object_kind& kind) {
    std::string key = name;
    for (const uint32_t part : {uint32_t{kind.format}, kind.machine, kind.file_type,
                                kind.class_bits, uint32_t{kind.big_endian}})
        key.append(1, '\0').append(std::to_string(part));
    return key;
}

std::optional<std::string> read_text(const char* list_name, const char* archive_name) {
    const gen_stream_ptr stream = gen_open(list_name, "rb");
    if (!stream) {
        gen_system_error("archive '%s': can't open the list '%s'", archive_name, list_name);
        return std::nullopt;
    }
    std::string text(stream->size, '\0');
    if (gen_read_stream(*stream, text.data(), text.size()) != text.size()) {
        gen_system_error("archive '%s': can't read the list '%s'", archive_name, list_name);
        return std::nullopt;
    }
    return text;
}

// False after a report: what a line says must be the name of a file.
bool add_line(std::vector<listed_file>& files, std::string_view line, const char* archive_name) {
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    if (line.empty())
        return true;
    listed_file& file = files.emplace_back();
    file.path = line;
    file.name = gen_last_component(line);
    if (!file.name.empty() && line.find('\0') == std::string_view::npos)
        return true;
    gen_error("archive '%s': line '%s' of the list is no name of a file", archive_name,
              file.path.c_str());
    return false;
}

void keep_contents(listed_file& file, gen_stream& stream, look_limits& left) {
    if (file.size > small_file || file.size > left.contents ||
        gen_seek(stream, 0, GEN_SEEK_SET) != 0)
        return;
    file.contents.resize(file.size);
    if (gen_read_stream(stream, file.contents.data(), file.size) != file.size)
        file.contents.clear();
    left.contents -= file.contents.size();
}

// A failure may have used up what was left in vain: thousands of such files must not take thousands
// of times as long.
void take_names(listed_file& file, gen_stream& stream, look_limits& left) {
    file.names = find_defined_names(stream, left.names);
    if (file.names)
        left.names -= file.names->text.size();
    else
        left.names /= 2;
}

bool look_at(listed_file& file, obj_history& history, look_limits& left, const char* archive_name) {
    const gen_stream_ptr stream = open_listed(file, archive_name);
    if (!stream)
        return false;
    const host_status& status = stream->opened;
    if (!status.is_regular) {
        gen_error("archive '%s', member '%s': '%s' is no file", archive_name, file.name.c_str(),
                  file.path.c_str());
        return false;
    }
    file.size = stream->size;
    file.modified = status.modified;
    file.mode = status.mode;
    file.kind = kind_at(history, *stream);
    if (file.kind.format == OBJ_ELF)
        take_names(file, *stream, left);
    keep_contents(file, *stream, left);
    return true;
}

} // namespace

std::optional<std::vector<listed_file>> read_list(obj_history& history, const char* list_name,
                                                  const char* archive_name) {
    const std::optional<std::string> text = read_text(list_name, archive_name);
    if (!text)
        return std::nullopt;
    std::vector<listed_file> files;
    for (std::string_view rest = *text; !rest.empty();) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        if (!add_line(files, rest.substr(0, end), archive_name))
            return std::nullopt;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    look_limits left;
    for (listed_file& file : files)
        if (!look_at(file, history, left, archive_name))
            return std::nullopt;
    return files;
}

gen_stream_ptr open_listed(const listed_file& file, const char* archive_name) {
    gen_stream_ptr stream = gen_open(file.path.c_str(), "rb");
    if (!stream)
        gen_system_error("archive '%s', member '%s': can't open file '%s'", archive_name,
                         file.name.c_str(), file.path.c_str());
    return stream;
}

partner_table make_partner_table(obj_history& history, const std::vector<listed_file>& files) {
    partner_table table = {history};
    for (const listed_file& file : files) {
        ++table.waiting[file.name];
        table.queues[key_of(file.name, file.kind)].files.push_back(&file);
    }
    return table;
}

const listed_file* take_partner(partner_table& table, const std::string& name, gen_stream& stream) {
    const auto waiting = table.waiting.find(name);
    if (waiting == table.waiting.end() || waiting->second == 0)
        return nullptr;
    const auto queue = table.queues.find(key_of(name, kind_at(table.history, stream)));
    if (queue == table.queues.end() || queue->second.next == queue->second.files.size())
        return nullptr;
    --waiting->second;
    return queue->second.files[queue->second.next++];
}
