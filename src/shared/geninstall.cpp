// Install directories, looked up once and kept. A small text file beside the program may redirect
// all of them: that is how one set of tools serves several installations.
#include "shared/geninstall.h"

#include <algorithm>
#include <string_view>

#include "shared/genfile.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/host.h"

namespace {

void warn_of_missing_directory(const gen_install_dirs& dirs, const char* routine, bool& warned) {
    if (warned)
        return;
    warned = true;
    gen_warning("%s(): for %s returns NULL\n"
                "\tmost likely gen_init() was not called with the correct argv[0] value",
                routine, dirs.program_path.empty() ? "(null)" : dirs.program_path.c_str());
}

bool is_file(const std::string& name) {
    const std::optional<host_status> status = host_status_of(name.c_str());
    return status && status->is_regular;
}

// The first line of a short text file, as far as a file name can be long; nothing when the file
// cannot be read. The file may come from a host that ends lines in a carriage return, too.
std::optional<std::string> read_first_line(const std::string& name) {
    if (!is_file(name))
        return std::nullopt;
    const gen_stream_ptr stream = gen_open(name.c_str(), "rb");
    if (!stream)
        return std::nullopt;
    char start[4096];
    const uint64_t length = gen_read_stream(*stream, start, sizeof start);
    if (stream->read_error != 0)
        return std::nullopt;
    std::string_view text(start, static_cast<size_t>(length));
    text = text.substr(0, std::min(text.find('\0'), text.find('\n')));
    if (text.ends_with('\r'))
        text.remove_suffix(1);
    return std::string(text);
}

std::optional<std::string> redirected(const std::string& line, const std::string& progdir) {
    if (line.empty())
        return line;
    if (line[0] == '~' && (line.size() == 1 || gen_is_separator(line[1]))) {
        const std::string home = host_home_directory();
        if (home.empty())
            return std::nullopt;
        return line.size() <= 2 ? home : gen_join(home, line.substr(2));
    }
    if (gen_is_absolute(line))
        return host_full_path(line.c_str()).value_or(line);
    return gen_join(progdir, line);
}

bool is_kestrel_installation(gen_install_dirs& dirs) {
    if (!dirs.is_kestrel) {
        const std::optional<std::string> directory = gen_getinstalldir(dirs, GEN_INSTALL_WHOLE);
        dirs.is_kestrel = directory && is_file(gen_join(*directory, ".rtos_is_kestrel"));
    }
    return *dirs.is_kestrel;
}

// An answer that holds for the rest of the run goes to `known`, too.
std::optional<std::string> find_installdir(gen_install_dirs& dirs, int type,
                                           std::optional<std::string>& known) {
    std::optional<std::string> progdir = gen_getprogdir(dirs);
    if (!progdir)
        return std::nullopt;
    const std::optional<std::string> line = read_first_line(gen_join(*progdir, ".redirect_host32"));
    if (line)
        return known = redirected(*line, *progdir);
    if (type == GEN_INSTALL_WHOLE || !is_kestrel_installation(dirs))
        known = progdir;
    return progdir;
}

} // namespace

std::optional<std::string> gen_getprogdir(gen_install_dirs& dirs) {
    const std::string_view directory = gen_directory_part(dirs.program_path);
    if (!directory.empty())
        return std::string(directory);
    warn_of_missing_directory(dirs, "gen_getprogdir", dirs.warned_of_program);
    return std::nullopt;
}

std::optional<std::string> gen_getinstalldir(gen_install_dirs& dirs, int type) {
    if (type < GEN_INSTALL_TOOLS || type > GEN_INSTALL_WHOLE) {
        if (!dirs.warned_of_type)
            gen_warning("gen_getinstalldir(): Unsupported install type");
        dirs.warned_of_type = true;
        return std::nullopt;
    }
    std::optional<std::string>& entry = dirs.known[type - GEN_INSTALL_TOOLS];
    if (entry)
        return entry;
    std::optional<std::string> found = find_installdir(dirs, type, entry);
    if (!found)
        warn_of_missing_directory(dirs, "gen_getinstalldir", dirs.warned_of_directory);
    return found;
}
