// The runner on POSIX systems: the shell and the system's small tools set up the environment and
// the limits.
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/runner.h"

const char* const null_device = "/dev/null";

namespace {

// A program that hangs is ended; a write that is too long fails.
const std::string prepared =
    " && umask 022 && set -f && trap '' XFSZ && exec prlimit --core=0 --cpu=120";
// Only what a sanitizer needs to behave as asked.
const std::string clean = " env -i ${ASAN_OPTIONS:+\"ASAN_OPTIONS=$ASAN_OPTIONS\"} "
                          "${UBSAN_OPTIONS:+\"UBSAN_OPTIONS=$UBSAN_OPTIONS\"} ";

} // namespace

static run_result run(const std::string& directory, const std::string& command,
                      const run_limits& limits) {
    std::string line = "exec </dev/null >" + directory + ".out 2>" + directory + ".err && cd " +
                       directory + prepared;
    if (limits.file_size != 0)
        line += " --fsize=" + std::to_string(limits.file_size);
    if (limits.memory != 0) // and the program itself
        line += " --data=" + std::to_string(limits.memory) +
                " --as=" + std::to_string(limits.memory + (48u << 20));
    line += clean + command;
    const int status = std::system(line.c_str());
    return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status),
            read_file(directory + ".out"), read_file(directory + ".err")};
}

run_result run_program(const std::string& directory, const std::string& line,
                       const run_limits& limits) {
    return run(directory, "'" OBJTRIM_PROGRAM "' " + line, limits);
}

run_result run_tool(const std::string& directory, const std::string& line) {
    return run(directory, "\"PATH=$PATH\" " + line, {});
}

std::string make_work_directory() {
    char name[] = "/tmp/objtrim_test_XXXXXX";
    if (mkdtemp(name) == nullptr)
        abort();
    return name;
}

void set_variable(const char* name, const char* value) {
    setenv(name, value, 1);
}

void limit_own_files(uint64_t size) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {size, size};
    setrlimit(RLIMIT_FSIZE, &limit);
}

std::string test_program() {
    return std::filesystem::read_symlink("/proc/self/exe");
}

void remove_work_directory(const std::string& name) {
    std::error_code ignored;
    std::filesystem::remove_all(name, ignored);
}

uint32_t host_mode(uint32_t mode) {
    return mode;
}

void set_mode_and_age(const std::string& file, uint32_t mode) {
    chmod(file.c_str(), mode);
    const timespec past[2] = {{1000000000, 0}, {1000000000, 0}};
    utimensat(AT_FDCWD, file.c_str(), past, 0);
}

file_state file_state_of(const std::string& file) {
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0)
        return {};
    return {"", status.st_ino, status.st_mode & 07777,
            status.st_mtim.tv_sec * 1000000000 + status.st_mtim.tv_nsec};
}
