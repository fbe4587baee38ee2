// A new archive: magic, symbol index, long names, members.
//
// Names of up to 15 letters stand in the header with a "/" behind them, longer ones in a member
// "// ". Members belong to nobody in particular: user and group are 0.
#include <cstring>

#include "archiver/newarchive.h"
#include "archiver/oldarchive.h"
#include "archiver/rebuild.h"
#include "archiver/symindex.h"
#include "shared/genmessage.h"

namespace {

constexpr char magic[] = "!<arch>\n";
constexpr uint32_t regular_file = 0100000;

// Text that no name in a header may begin with: there it means something else.
bool is_special_name(const std::string& name) {
    for (const char* special :
         {"ARFILENAMES", "<filenames>", "__________EL", "__.SYMDEF", "________64EL", "#1"})
        if (name.starts_with(special))
            return true;
    return false;
}

struct new_archive {
    const char* name = nullptr;
    const std::vector<listed_file>& files;
    std::vector<std::string> name_fields; // of the headers
    std::string long_names;
    bool has_index = false;
    symbol_index index;
};

void name_members(new_archive& archive) {
    constexpr size_t short_name = 15;
    for (const listed_file& file : archive.files) {
        const bool is_short = file.name.size() <= short_name && !is_special_name(file.name);
        archive.name_fields.push_back(is_short ? file.name + "/"
                                               : "/" + std::to_string(archive.long_names.size()));
        if (!is_short)
            archive.long_names += file.name + "/\n";
    }
    if (archive.long_names.size() % 2 != 0)
        archive.long_names += '\n';
}

bool index_members(new_archive& archive) {
    for (size_t i = 0; i < archive.files.size(); ++i) {
        const listed_file& file = archive.files[i];
        if (file.kind.format != OBJ_ELF)
            continue;
        archive.has_index = true;
        if (!add_names(archive.name, archive.index, static_cast<uint32_t>(i), file))
            return false;
    }
    return true;
}

// False after a report: something does not fit.
bool put_header(const new_archive& archive, archive_output& output, const char* name, int64_t date,
                uint32_t mode, uint64_t size) {
    const header_layout& layout = standard_layout;
    std::string header = std::string(layout.length - 2, ' ') + "`\n";
    const bool fits = put_header_field(header.data(), {0, 16}, name) &&
                      put_header_number(header.data(), layout.date, date) &&
                      put_header_number(header.data(), layout.uid, 0) &&
                      put_header_number(header.data(), layout.gid, 0) &&
                      put_header_number(header.data(), layout.mode, mode, 8) &&
                      put_header_size(header.data(), layout, size);
    if (fits)
        put_bytes(output, header);
    else
        report_misfit(archive.name, name, layout, size, date);
    return fits;
}

bool put_index(const new_archive& archive, archive_output& output) {
    const uint64_t size = index_size(archive.index);
    const uint64_t header = standard_layout.length;
    uint64_t at = strlen(magic) + header + size;
    if (!archive.long_names.empty())
        at += header + archive.long_names.size();
    std::vector<uint64_t> positions;
    for (const listed_file& file : archive.files) {
        positions.push_back(at);
        at += header + padded_size(file.size);
    }
    std::string bytes;
    if (!encode_index(archive.name, archive.index, positions, bytes) ||
        !put_header(archive, output, "/", 0, 0, size))
        return false;
    put_bytes(output, bytes);
    return true;
}

bool write_members(const new_archive& archive, archive_output& output) {
    put_bytes(output, magic);
    if (archive.has_index && !put_index(archive, output))
        return false;
    if (!archive.long_names.empty()) {
        if (!put_header(archive, output, "//", 0, 0, archive.long_names.size()))
            return false;
        put_bytes(output, archive.long_names);
    }
    for (size_t i = 0; i < archive.files.size(); ++i)
        if (!put_header(archive, output, archive.name_fields[i].c_str(), archive.files[i].modified,
                        regular_file | archive.files[i].mode, archive.files[i].size) ||
            !put_file(output, archive.files[i]))
            return false;
    return true;
}

} // namespace

bool create_archive(gen_temp_space& temp, const char* name, const std::string& real_name,
                    const std::vector<listed_file>& files) {
    new_archive archive{name, files, {}, {}, false, {}};
    name_members(archive);
    archive_output output;
    return index_members(archive) && open_output(output, temp, name, real_name, nullptr) &&
           write_members(archive, output) && finish_output(output, nullptr);
}
