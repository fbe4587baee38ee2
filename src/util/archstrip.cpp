// The archive workflow: each ELF member is stripped into a file of its own, in a scratch directory
// of this process; then the archiver replaces the members by these copies.
//
// A member's name is data from a file. A copy is made only for a name that cannot lead out of the
// scratch directory, and only where nothing is in its way.
#include "util/archstrip.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "objfile/arformat.h"
#include "shared/genchild.h"
#include "shared/genexit.h"
#include "shared/genfile.h"
#include "shared/genpath.h"
#include "shared/host.h"
#include "util/elfstrip.h"

namespace {

constexpr uint32_t scratch_mode = 0777;
constexpr size_t lines_at_once = 32 * 1024; // bytes of the list

// One archive. Its scratch directories go with it, also where the program ends on the way.
struct archive_job {
    strip_run& run;
    const char* archive_name;
    std::string archive_dir = {};
    std::string archive_list = {};             // names the stripped copies, for the archiver
    std::vector<std::string> directories = {}; // archive_dir, and those of members of the same name
    gen_stream_ptr list = {};
    std::string lines = {}; // of the list, still to be written
    uint32_t stripped_count = 0;
    bool scratch_is_in_use = false;
    gen_exit_handler at_exit{[this] { remove_scratch_directories(); }};

    archive_job(strip_run& of, const char* name) : run(of), archive_name(name) {}
    ~archive_job() { remove_scratch_directories(); }
    void remove_scratch_directories();
};

// Removes without a lock what only this process has to do with. Whether there was anything.
bool remove_own_directories(archive_job& job) {
    if (!host_is_private_directory(gen_session_root(job.run.scratch).c_str()))
        return false;
    bool any = false;
    for (const std::string& directory : job.directories)
        any = host_remove_tree(directory.c_str()) == 0 || any;
    return any;
}

// A full disk has no room for the locks that the clean-up takes; then this run's own makes room.
void archive_job::remove_scratch_directories() {
    if (!scratch_is_in_use)
        return;
    scratch_is_in_use = false; // the program may end in here
    list.reset();
    gen_clean_session_dirs(run.scratch);
    if (remove_own_directories(*this))
        gen_clean_session_dirs(run.scratch);
}

bool make_scratch_directory(archive_job& job) {
    std::optional<std::string> made =
        gen_make_session_dir(job.run.scratch, "objtrim_lib", scratch_mode);
    if (!made)
        return false;
    job.scratch_is_in_use = true;
    job.archive_dir = std::move(*made);
    job.directories = {job.archive_dir};
    job.archive_list = gen_join(job.archive_dir, "objfiles");
    return true;
}

// The list is open from the first member to the last: nobody reads it before that.
void open_list(archive_job& job) {
    if (!job.list)
        job.list = gen_safe_fopen(job.archive_list.c_str(), "@file", "wb+x");
}

void write_lines(archive_job& job) {
    if (!job.lines.empty())
        gen_safe_fwrite64(job.archive_list.c_str(), job.lines.data(), 1, job.lines.size(),
                          job.list.get());
    job.lines.clear();
}

void add_to_list(archive_job& job, const std::string& copy) {
    job.lines.append(copy).append(host_line_end);
    if (job.lines.size() >= lines_at_once)
        write_lines(job);
}

// Where the member's copy goes; every further member of the same name gets a directory of its own.
std::optional<std::string> copy_path(archive_job& job, const std::string& member_name) {
    std::string path = gen_join(job.archive_dir, member_name);
    if (!host_name_taken(path.c_str()))
        return path;
    const std::optional<std::string> other =
        gen_make_session_dir(job.run.scratch, "objtrim_lib_alt", scratch_mode);
    if (!other)
        return std::nullopt;
    job.directories.push_back(*other);
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

bool is_known_elf(archive_job& job, gen_stream& stream) {
    const objinfo* const info = obj_identify(job.run.history, &stream, nullptr);
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
bool make_copy(archive_job& job, gen_stream& archive, const ar_member_context& context,
               const std::string& path) {
    strip_options& options = job.run.options;
    const ar_member& member = *context.member;
    const uint32_t mode = member.mode & 0777;
    const int64_t start = static_cast<int64_t>(archive.position);
    bool was_tried = false; // what there is to say has been said, and is not to be said again
    if (elf_result_replaces(options, path.c_str())) {
        gen_stream_ptr part = open_member(archive, static_cast<uint64_t>(member.size));
        was_tried = part && is_known_elf(job, *part);
        if (was_tried)
            reconcile_options(options);
        if (was_tried && elf_strip_part(options, job.run.temp, std::move(part), path.c_str(), mode))
            return true;
    }
    gen_safe_fseek64(context.archive_name, &archive, start, GEN_SEEK_SET);
    gen_stream_ptr copy = extract(archive, context, path);
    if (!copy)
        return false;
    if (!is_known_elf(job, *copy)) {
        gen_error("file %s(%s) is not a known ELF type\n", context.archive_name,
                  member.name.c_str());
        return false;
    }
    if (!was_tried) {
        reconcile_options(options);
        elf_strip(options, job.run.temp, std::move(copy), path.c_str());
    }
    copy.reset();
    host_set_mode(path.c_str(), mode);
    return true;
}

// The copy counts as stripped whatever became of it: it then replaces the member unchanged. The
// stream of the headers has read small members already, so the data comes from there.
int32_t archive_member_strip(archive_job& job, gen_stream& headers,
                             const ar_member_context& context) {
    if (context.member == nullptr) {
        gen_error("file '%s' has changed: it is no archive any more", context.archive_name);
        return 1;
    }
    const ar_member& member = *context.member;
    if (!gen_is_plain_name(member.name)) {
        gen_error("objtrim does not support archived objects in multiple directories");
        return 1;
    }
    open_list(job);
    const std::optional<std::string> path = copy_path(job, member.name);
    if (!path || !make_copy(job, headers, context, *path))
        return 1;
    ++job.stripped_count;
    add_to_list(job, *path);
    host_set_times(path->c_str(), member.date);
    return 0;
}

// A name with a blank, in any of the three, reaches the archiver torn apart.
int32_t rebuild(archive_job& job) {
    std::string archiver = "lbm";
    if (const std::optional<std::string> directory =
            gen_getinstalldir(job.run.install_dirs, GEN_INSTALL_TOOLS))
        archiver = gen_join(*directory, archiver);
    if (gen_can_exec(archiver.c_str()) != 1) {
        gen_error("cannot exec \"%s\"", archiver.c_str());
        return 1;
    }
    const std::string command = archiver + " -rc " + job.archive_name + " @" + job.archive_list;
    return gen_run(command.c_str(), "");
}

int32_t strip_members(archive_job& job) {
    ar_handler_table handlers;
    handlers.by_kind[OBJ_ELF] = [&job](gen_stream& headers, gen_stream&,
                                       const ar_member_context& context) {
        return archive_member_strip(job, headers, context);
    };
    const int32_t result = ar_walk(job.archive_name, job.run.history, job.run.long_names, handlers);
    if (result != 0 || job.stripped_count == 0)
        return result;
    write_lines(job);
    // A list with a hole in it would leave members as they were without a word from the archiver.
    const bool is_written = job.list->write_error == 0;
    const bool is_closed =
        gen_safe_fclose(job.archive_list.c_str(), "@file", std::move(job.list)) == 0;
    return is_written && is_closed ? rebuild(job) : 1;
}

} // namespace

int32_t archive_strip(strip_run& run, const char* archive_name) {
    archive_job job(run, archive_name);
    return make_scratch_directory(job) ? strip_members(job) : 1;
}
