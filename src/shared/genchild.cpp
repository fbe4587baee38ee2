// Child processes: whether a program is there, and running it.
#include "shared/genchild.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "shared/genpath.h"
#include "shared/host.h"

namespace {

int can_exec(const std::string& name) {
    const std::optional<host_status> status = host_status_of(name.c_str());
    if (!status)
        return -1;
    return status->is_directory ? 0 : 1;
}

} // namespace

int gen_can_exec(const char* path) {
    if (path == nullptr || *path == '\0')
        return -1;
    const std::string name = path;
    if (gen_last_component(name).find('.') != std::string_view::npos)
        return can_exec(name);
    const int with_suffix = can_exec(name + ".exe");
    const bool suffix_is_optional = host_program_suffix[0] == '\0';
    if (with_suffix == 1 || !suffix_is_optional)
        return with_suffix;
    const int as_given = can_exec(name);
    return as_given == -1 ? with_suffix : as_given;
}

// Our own output has to come before the child's.
int gen_run(const char* command_line, const char* mode) {
    const int saved = errno;
    std::fflush(stdout);
    std::fflush(stderr);
    errno = saved;
    return host_run(command_line, mode != nullptr && std::strchr(mode, 'q') != nullptr);
}
