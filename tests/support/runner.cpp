// The shell and the system's small tools set up the environment and the limits. What the program
// writes goes to files beside its directory, so that nobody has to read while it runs.
#include "support/runner.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A program that hangs is ended; a write that is too long fails.
const std::string prepared =
    " && umask 022 && set -f && trap '' XFSZ && exec prlimit --core=0 --cpu=120";
// Only what a sanitizer needs to behave as asked.
const std::string clean = " env -i ${ASAN_OPTIONS:+\"ASAN_OPTIONS=$ASAN_OPTIONS\"} "
                          "${UBSAN_OPTIONS:+\"UBSAN_OPTIONS=$UBSAN_OPTIONS\"} ";

std::string read_file(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

run_result run(const std::string& directory, const std::string& command, const run_limits& limits) {
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

} // namespace

words split(const std::string& line) {
    std::istringstream text(line);
    words result;
    for (std::string word; text >> word;)
        result.push_back(word == "''" ? "" : word);
    return result;
}

std::set<std::string> split_set(const std::string& line) {
    const words list = split(line);
    return {list.begin(), list.end()};
}

work_place::work_place() {
    char name[] = "/tmp/objtrim_test_XXXXXX";
    if (mkdtemp(name) == nullptr)
        abort();
    directory = name;
}

work_place::~work_place() {
    std::error_code ignored;
    for (const char* end : {"", ".out", ".err"})
        std::filesystem::remove_all(directory + end, ignored);
}

void work_place::put(const std::string& name, const std::string& bytes, mode_t mode) const {
    const std::string full = path(name);
    std::filesystem::create_directories(std::filesystem::path(full).parent_path());
    std::ofstream(full, std::ios::binary) << bytes;
    chmod(full.c_str(), mode);
    const timespec past[2] = {{1000000000, 0}, {1000000000, 0}};
    utimensat(AT_FDCWD, full.c_str(), past, 0);
}

std::string work_place::get(const std::string& name) const {
    return read_file(path(name));
}

file_state work_place::state(const std::string& name) const {
    struct stat status = {};
    if (stat(path(name).c_str(), &status) != 0)
        return {};
    return {S_ISREG(status.st_mode) ? get(name) : "", status.st_ino, status.st_mode & 07777,
            status.st_mtim.tv_sec * 1000000000 + status.st_mtim.tv_nsec};
}

words work_place::list(const std::string& below) const {
    words names;
    for (const auto& entry : std::filesystem::directory_iterator(path(below)))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

run_result work_place::trim(const std::string& line, const run_limits& limits) const {
    return run(directory, "'" OBJTRIM_PROGRAM "' " + line, limits);
}

run_result work_place::command(const std::string& line) const {
    return run(directory, "\"PATH=$PATH\" " + line, {});
}
