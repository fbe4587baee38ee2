// The child writes to unnamed files rather than pipes, so that nobody has to read while it runs.
#include "support/runner.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int cap_dac_override = 1, cap_dac_read_search = 2, cap_setpcap = 8;
constexpr rlim_t cpu_seconds = 120; // a program that hangs is ended

using file_ptr = std::unique_ptr<FILE, int (*)(FILE*)>;

void set_limit(int resource, rlim_t value) {
    rlimit limit = {value, value};
    setrlimit(static_cast<__rlimit_resource>(resource), &limit);
}

std::string read_all(FILE* file) {
    std::string text;
    char piece[4096];
    rewind(file);
    while (size_t length = fread(piece, 1, sizeof piece, file))
        text.append(piece, length);
    return text;
}

// Only what a sanitizer needs to behave as asked, and the way to the tools.
words clean_environment(bool with_path) {
    words result;
    for (const char* name : {"PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
        if (const char* value = getenv(name); value != nullptr && (with_path || *name != 'P'))
            result.push_back(std::string(name) + "=" + value);
    return result;
}

std::vector<char*> pointers(words& list) {
    std::vector<char*> result;
    for (std::string& word : list)
        result.push_back(word.data());
    result.push_back(nullptr);
    return result;
}

void enter_child(const std::string& directory, const run_limits& limits, int out, int err) {
    int input = open("/dev/null", O_RDONLY);
    if (chdir(directory.c_str()) != 0 || dup2(input, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0)
        _exit(127);
    umask(022);
    set_limit(RLIMIT_CORE, 0);
    set_limit(RLIMIT_CPU, cpu_seconds);
    if (limits.file_size != 0) {
        signal(SIGXFSZ, SIG_IGN); // the write fails instead
        set_limit(RLIMIT_FSIZE, limits.file_size);
    }
    if (limits.memory != 0) {
        set_limit(RLIMIT_DATA, limits.memory);
        set_limit(RLIMIT_AS, limits.memory + (rlim_t{48} << 20)); // and the program itself
    }
    if (limits.obey_modes && geteuid() == 0) {
        prctl(PR_CAPBSET_DROP, cap_dac_override, 0, 0, 0);
        prctl(PR_CAPBSET_DROP, cap_dac_read_search, 0, 0, 0);
    }
}

run_result run(const std::string& directory, words command, const run_limits& limits,
               bool with_path) {
    run_result result;
    file_ptr out(tmpfile(), fclose);
    file_ptr err(tmpfile(), fclose);
    words environment = clean_environment(with_path);
    std::vector<char*> argv = pointers(command);
    std::vector<char*> envp = pointers(environment);
    if (!out || !err)
        return result;
    pid_t child = fork();
    if (child == 0) {
        enter_child(directory, limits, fileno(out.get()), fileno(err.get()));
        execvpe(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    int status = 0;
    pid_t ended;
    do
        ended = waitpid(child, &status, 0);
    while (ended < 0 && errno == EINTR);
    if (ended == child && WIFEXITED(status))
        result.status = WEXITSTATUS(status);
    else if (ended == child && WIFSIGNALED(status))
        result.status = 128 + WTERMSIG(status);
    result.out = read_all(out.get());
    result.err = read_all(err.get());
    return result;
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
    words list = split(line);
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
    std::filesystem::permissions(directory, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(directory, ignored);
}

void work_place::put(const std::string& name, const std::string& bytes, mode_t mode) const {
    std::string full = path(name);
    std::filesystem::create_directories(std::filesystem::path(full).parent_path());
    std::ofstream(full, std::ios::binary) << bytes;
    chmod(full.c_str(), mode);
    const timespec past[2] = {{1000000000, 0}, {1000000000, 0}};
    utimensat(AT_FDCWD, full.c_str(), past, 0);
}

std::string work_place::get(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

file_state work_place::state(const std::string& name) const {
    struct stat status = {};
    if (stat(path(name).c_str(), &status) != 0)
        return {};
    bool is_file = S_ISREG(status.st_mode);
    return {is_file ? get(name) : "", status.st_ino, status.st_mode & 07777,
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
    words arguments = split(line);
    arguments.insert(arguments.begin(), OBJTRIM_PROGRAM);
    return run(directory, arguments, limits, false);
}

run_result work_place::command(const std::string& line) const {
    return run(directory, split(line), {}, true);
}

bool modes_can_bind() {
    return geteuid() != 0 || prctl(PR_CAPBSET_READ, cap_setpcap, 0, 0, 0) == 1;
}

bool is_sanitized_build() {
#if defined(__SANITIZE_ADDRESS__)
    return true;
#elif defined(__has_feature)
    return __has_feature(address_sanitizer);
#else
    return false;
#endif
}
