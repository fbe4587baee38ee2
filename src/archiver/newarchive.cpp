// Gathering, writing and renaming; and the clean-up when a run does not come that far.
#include "archiver/newarchive.h"

#include <cerrno>

#include "shared/genmessage.h"
#include "shared/genpath.h"

namespace {

constexpr size_t gather_limit = 256 * 1024; // bytes held back
constexpr uint64_t copy_worth = 64 * 1024;  // from here on the host may copy by itself
constexpr size_t longest_name = 4095;

bool report(const archive_output& output, const char* what) {
    gen_system_error("archive '%s': %s '%s'", output.archive_name, what, output.temporary.c_str());
    return false;
}

void flush(archive_output& output) {
    gen_write_stream(*output.stream, output.gathered.data(), output.gathered.size());
    output.gathered.clear();
}

} // namespace

void archive_output::remove_unfinished() {
    if (!unfinished.name.empty())
        host_delete(unfinished.name.c_str());
    unfinished.release();
}

bool open_output(archive_output& output, gen_temp_space& temp, const char* archive_name,
                 const std::string& real_name, const host_status* old) {
    output.archive_name = archive_name;
    output.real_name = real_name;
    const std::string directory(gen_directory_part(real_name));
    output.temporary = gen_temp_name(temp, directory, "tmp").value_or("");
    if (output.temporary.empty() || output.temporary.size() > longest_name) {
        gen_error("archive '%s': no name is free for the new archive", archive_name);
        return false;
    }
    // A new archive has the usual permissions; one that replaces another is nobody's until it is
    // complete.
    output.unfinished.guard(output.temporary);
    output.stream = gen_open(output.temporary.c_str(), old ? "wbx" : "wb+x");
    if (!output.stream) {
        output.unfinished.release(); // the name is someone else's
        return report(output, "can't create");
    }
    output.gathered.reserve(gather_limit);
    return true;
}

void put_bytes(archive_output& output, std::string_view bytes) {
    if (output.gathered.size() + bytes.size() > gather_limit)
        flush(output);
    if (bytes.size() <= gather_limit)
        output.gathered += bytes;
    else
        gen_write_stream(*output.stream, bytes.data(), bytes.size());
}

bool put_range(archive_output& output, gen_stream& input, uint64_t size) {
    if (size >= copy_worth) {
        flush(output);
        return gen_copy_stream(input, *output.stream, size) == size;
    }
    if (output.gathered.size() + size > gather_limit)
        flush(output);
    const size_t before = output.gathered.size();
    output.gathered.resize(before + size);
    return gen_read_stream(input, output.gathered.data() + before, size) == size;
}

bool put_file(archive_output& output, const listed_file& file) {
    if (file.contents.size() == file.size) {
        put_bytes(output, file.contents);
    } else {
        const gen_stream_ptr stream = open_listed(file, output.archive_name);
        if (!stream)
            return false;
        if (stream->size != file.size || !put_range(output, *stream, file.size)) {
            gen_error("archive '%s', member '%s': file '%s' cannot be copied", output.archive_name,
                      file.name.c_str(), file.path.c_str());
            return false;
        }
    }
    if (file.size % 2 != 0)
        put_bytes(output, "\n");
    return true;
}

bool finish_output(archive_output& output, const host_status* old) {
    flush(output);
    if (output.stream->write_error != 0) {
        errno = output.stream->write_error;
        return report(output, "can't write");
    }
    if (old && gen_copy_owner_and_mode(output.stream->descriptor, *old) != 0)
        return report(output, "can't set the permissions of");
    if (gen_close(std::move(output.stream)) != 0)
        return report(output, "can't write");
    if (host_rename(output.temporary.c_str(), output.real_name.c_str()) != 0)
        return report(output, "can't put in its place");
    output.unfinished.release();
    return true;
}
