// The archive workflow: each ELF member is stripped into a file of its own, in a scratch directory
// of this process; then the archiver replaces the members by these copies.
//
// A member's name is data from a file. A copy is made only for a name that cannot lead out of the
// scratch directory, and only where nothing is in its way.
#include "util/archstrip.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "objfile/arformat.h"
#include "objfile/objident.h"
#include "shared/genfile.h"
#include "shared/genout.h"
#include "shared/genpath.h"
#include "shared/host.h"
#include "shared/indconfig.h"
#include "shared/inddeletable.h"
#include "shared/indgensys.h"
#include "util/elfstrip.h"

namespace {

constexpr uint32_t scratch_mode = 0777;
constexpr int tools_directory = 2;          // the install type of the programs beside this one
constexpr size_t lines_at_once = 32 * 1024; // bytes of the list

// The archive at hand. It is process-wide because the handler of the walk, and the handler of a
// fatal end, have nothing else to find it by.
struct archive_run {
    strip_options* options = nullptr;
    std::string archive_dir;
    std::string archive_list;             // names the stripped copies, for the archiver
    std::vector<std::string> directories; // archive_dir, and those of members of the same name
    gen_stream_ptr list;
    std::string lines; // of the list, still to be written
    uint32_t stripped_count = 0;
};
archive_run run;
bool scratch_is_in_use;

// Removes without a lock what only this process has to do with. Whether there was anything.
bool remove_own_directories() {
    if (!host_is_private_directory(gen_session_root().c_str()))
        return false;
    bool any = false;
    for (const std::string& directory : run.directories)
        any = host_remove_tree(directory.c_str()) == 0 || any;
    return any;
}

// A full disk has no room for the locks that the clean-up takes; then this run's own makes room.
void remove_scratch_directories() {
    scratch_is_in_use = false;
    run.list.reset();
    gen_clean_session_dirs();
    if (remove_own_directories())
        gen_clean_session_dirs();
    run = archive_run();
}

void clean_at_exit() {
    if (scratch_is_in_use)
        remove_scratch_directories();
}

// The directory and everything below it go at the end of the run, however that comes.
bool make_scratch_directory() {
    std::optional<std::string> made = gen_make_session_dir("objtrim_lib", scratch_mode);
    if (!made)
        return false;
    // Registered only now: what has been kept for the process so far is destroyed after the call.
    static const bool registered = std::atexit(clean_at_exit) == 0;
    run.archive_dir = std::move(*made);
    run.directories = {run.archive_dir};
    if (!registered) {
        remove_scratch_directories();
        return false;
    }
    scratch_is_in_use = true;
    run.archive_list = gen_join(run.archive_dir, "objfiles");
    return true;
}

// The list is open from the first member to the last: nobody reads it before that.
void open_list() {
    if (!run.list)
        run.list = gen_safe_fopen(run.archive_list.c_str(), "@file", "wb+x");
}

void write_lines() {
    if (!run.lines.empty())
        gen_safe_fwrite64(run.archive_list.c_str(), run.lines.data(), 1, run.lines.size(),
                          run.list.get());
    run.lines.clear();
}

void add_to_list(const std::string& copy) {
    run.lines.append(copy).append(host_line_end);
    if (run.lines.size() >= lines_at_once)
        write_lines();
}

// Where the member's copy goes; every further member of the same name gets a directory of its own.
std::optional<std::string> copy_path(const std::string& member_name) {
    std::string path = gen_join(run.archive_dir, member_name);
    if (!host_name_taken(path.c_str()))
        return path;
    const std::optional<std::string> other = gen_make_session_dir("objtrim_lib_alt", scratch_mode);
    if (!other)
        return std::nullopt;
    run.directories.push_back(*other);
    path = gen_join(*other, member_name);
    host_delete(path.c_str()); // a member may have the name of the directory's marker
    return path;
}

// Null after a report.
gen_stream_ptr extract(gen_stream& archive, const ar_member_context& context,
                       const std::string& path) {
    const uint64_t size = static_cast<uint64_t>(context.member->size);
    gen_stream_ptr copy = gen_safe_fopen(path.c_str(), "object", "wb+x");
    if (gen_copy_stream(archive, *copy, size) == size && gen_seek(*copy, 0, GEN_SEEK_SET) == 0)
        return copy;
    gen_error("failed to extract file %s from archive %s", context.member->name.c_str(),
              context.archive_name);
    return nullptr;
}

bool is_known_elf(gen_stream* stream) {
    const objinfo* const info = obj_identify(stream, nullptr);
    return info != nullptr && info->kind == OBJ_ELF && info->target != 0;
}

// The member where it is in the archive; null when it is not all there, or cannot be read.
gen_stream_ptr open_member(gen_stream& archive, uint64_t size) {
    const uint64_t start = archive.position;
    const bool fits = start <= archive.size && size <= archive.size - start;
    return fits ? gen_open_part(archive, start, size) : nullptr;
}

// Makes the copy at `path`. What gets shorter is stripped on its way there; everything else is
// copied as it is. False after a report: there is no copy to put into the archive.
bool make_copy(gen_stream& archive, const ar_member_context& context, const std::string& path) {
    const ar_member& member = *context.member;
    const uint32_t mode = member.mode & 0777;
    const int64_t start = static_cast<int64_t>(archive.position);
    bool was_tried = false; // what there is to say has been said, and is not to be said again
    if (elf_result_replaces(*run.options, path.c_str())) {
        gen_stream_ptr part = open_member(archive, static_cast<uint64_t>(member.size));
        was_tried = part && is_known_elf(part.get());
        if (was_tried)
            reconcile_options(*run.options);
        if (was_tried && elf_strip_part(*run.options, std::move(part), path.c_str(), mode))
            return true;
    }
    gen_safe_fseek64(context.archive_name, &archive, start, GEN_SEEK_SET);
    gen_stream_ptr copy = extract(archive, context, path);
    if (!copy)
        return false;
    if (!is_known_elf(copy.get())) {
        gen_error("file %s(%s) is not a known ELF type\n", context.archive_name,
                  member.name.c_str());
        return false;
    }
    if (!was_tried) {
        reconcile_options(*run.options);
        elf_strip(*run.options, std::move(copy), path.c_str());
    }
    copy.reset();
    host_set_mode(path.c_str(), mode);
    return true;
}

// The copy counts as stripped whatever became of it: it then replaces the member unchanged. The
// stream of the headers has read small members already, so the data comes from there.
int32_t archive_member_strip(gen_stream* headers, gen_stream*, const ar_member_context& context) {
    if (context.member == nullptr) {
        gen_error("file '%s' has changed: it is no archive any more", context.archive_name);
        return 1;
    }
    const ar_member& member = *context.member;
    if (!gen_is_plain_name(member.name)) {
        gen_error("objtrim does not support archived objects in multiple directories");
        return 1;
    }
    open_list();
    const std::optional<std::string> path = copy_path(member.name);
    if (!path || !make_copy(*headers, context, *path))
        return 1;
    ++run.stripped_count;
    add_to_list(*path);
    host_set_times(path->c_str(), member.date);
    return 0;
}

// A name with a blank, in any of the three, reaches the archiver torn apart.
int32_t rebuild(const char* archive_name) {
    std::string archiver = "lbm";
    if (const std::optional<std::string> directory = gen_getinstalldir(tools_directory))
        archiver = gen_join(*directory, archiver);
    if (gen_can_exec(archiver.c_str()) != 1) {
        gen_error("cannot exec \"%s\"", archiver.c_str());
        return 1;
    }
    const std::string command = archiver + " -rc " + archive_name + " @" + run.archive_list;
    return gen_run(command.c_str(), "");
}

int32_t strip_members(const char* archive_name) {
    ar_handler_table handlers;
    handlers.by_kind[OBJ_ELF] = archive_member_strip;
    const int32_t result = ar_walk(archive_name, handlers);
    if (result != 0 || run.stripped_count == 0)
        return result;
    write_lines();
    // A list with a hole in it would leave members as they were without a word from the archiver.
    const bool is_written = run.list->write_error == 0;
    const bool is_closed =
        gen_safe_fclose(run.archive_list.c_str(), "@file", std::move(run.list)) == 0;
    return is_written && is_closed ? rebuild(archive_name) : 1;
}

} // namespace

int32_t archive_strip(strip_options& options, const char* archive_name) {
    if (!make_scratch_directory())
        return 1;
    run.options = &options;
    const int32_t status = strip_members(archive_name);
    remove_scratch_directories();
    return status;
}
