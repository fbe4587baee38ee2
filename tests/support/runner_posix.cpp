// The runner on POSIX systems, by the host's own calls, so that the code under test does not look
// at itself.
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/runner.h"

namespace {

std::vector<char*> pointers(words& list) {
    std::vector<char*> result;
    for (std::string& word : list)
        result.push_back(word.data());
    result.push_back(nullptr);
    return result;
}

run_result run(const std::string& directory, const std::string& program, const words& arguments,
               const words& environment, const run_limits& limits) {
    const std::string out = directory + ".out";
    const auto prepare = [&] {
        umask(022);
        dup2(creat(out.c_str(), 0600), STDOUT_FILENO);
        for (const auto& [resource, most] :
             {std::pair(RLIMIT_FSIZE, limits.file_size), {RLIMIT_DATA, limits.memory}})
            if (const rlimit bounds = {most, most}; most != 0)
                setrlimit(resource, &bounds);
    };
    process started = start(directory, program, arguments, environment, prepare);
    const auto [status, nothing, err] = end_of(started);
    return {status, read_file(out), err};
}

} // namespace

process start(const std::string& directory, const std::string& program, const words& arguments,
              const words& environment, const std::function<void()>& prepare) {
    words line = arguments, settings = environment;
    line.insert(line.begin(), program);
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LLVM_PROFILE_FILE"})
        if (const char* const value = getenv(name))
            settings.push_back(std::string(name) + "=" + value);
    const std::vector<char*> line_pointers = pointers(line), setting_pointers = pointers(settings);
    process started;
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) == 0)
        started = {fork(), ends[0]};
    if (started.id != 0) {
        close(ends[1]);
        return started;
    }
    alarm(120);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) // one that is ignored would stay so
        signal(number, SIG_DFL);
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    if (chdir(directory.c_str()) == 0) {
        if (prepare)
            prepare();
        execve(program.c_str(), line_pointers.data(), setting_pointers.data());
    }
    _exit(126);
}

run_result end_of(process& started) {
    run_result result;
    char piece[4096];
    for (ssize_t got; (got = read(started.errors, piece, sizeof piece)) > 0;)
        result.err.append(piece, static_cast<size_t>(got));
    close(started.errors);
    int status = 0;
    waitpid(started.id, &status, 0);
    result.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return result;
}

int stress_factor() {
    const char* const factor = getenv("OBJTRIM_STRESS");
    return factor != nullptr && atoi(factor) > 0 ? atoi(factor) : 1;
}

run_result run_program(const std::string& directory, const std::string& line,
                       const run_limits& limits) {
    return run(directory, OBJTRIM_PROGRAM, split(line), {}, limits);
}

run_result run_tool(const std::string& directory, const std::string& line) {
    return run(directory, "/bin/sh", {"-c", line}, {std::string("PATH=") + getenv("PATH")}, {});
}
