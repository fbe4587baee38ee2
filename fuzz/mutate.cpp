// Mutation runs: files with a few bytes changed go through the real program, some in one run, and
// what is left of each is judged by what was said of it.
//
// mutate PROGRAM SEEDS COUNT [FORMAT [RANDOM_SEED]] runs COUNT mutants of each format (a directory
// in SEEDS, as the seeds program makes them). The same numbers make the same runs. The first wrong
// outcome ends it, and is kept.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/files.h"
#include "support/mutant.h"
#include "support/options.h"

namespace {

constexpr size_t batch_size = 16;
constexpr unsigned seconds_allowed = 10;
constexpr uint64_t memory_allowed = 64 << 20; // and four times the largest input

struct batch_file {
    std::string name;
    kept_file before;
    std::string companion; // the map beside it, or empty
    kept_file companion_before;
};

struct batch {
    std::string format;
    uint32_t choice = 0;
    std::vector<std::string> arguments;
    std::vector<batch_file> files;
    int status = 0; // as waited for
    uint64_t memory = 0;
    double seconds = 0;
    std::string said;
};

std::string program, scratch;
bool is_instrumented;

bool is_elf(const std::string& format) {
    return format.starts_with("elf");
}

bool is_in_place(const std::string& format) {
    return format == "coff" || format == "pe";
}

[[noreturn]] void fail(const batch& run, const std::string& file, const char* what) {
    printf("WRONG: %s\n  file %s, status 0x%x, %.1f s, %llu KiB\n  in %s: %s", what, file.c_str(),
           static_cast<unsigned>(run.status), run.seconds,
           static_cast<unsigned long long>(run.memory >> 10), scratch.c_str(), program.c_str());
    for (const std::string& argument : run.arguments)
        printf(" '%s'", argument.c_str());
    printf("\nsaid:\n%s\n", run.said.c_str());
    // The inputs as they were, to try again.
    for (const batch_file& one : run.files) {
        put_file(one.name + ".before", one.before.bytes);
        if (!one.companion.empty())
            put_file(one.companion + ".before", one.companion_before.bytes);
    }
    exit(1);
}

void require(bool condition, const batch& run, const std::string& file, const char* what) {
    if (!condition)
        fail(run, file, what);
}

pid_t running;

void end_child(int /*signal*/) {
    kill(running, SIGKILL);
}

void spawn_and_wait(batch& run) {
    std::vector<char*> words = {program.data()};
    for (std::string& argument : run.arguments)
        words.push_back(argument.data());
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, "../said", O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const auto start = std::chrono::steady_clock::now();
    if (posix_spawn(&running, program.c_str(), &actions, nullptr, words.data(), environ) != 0) {
        perror(program.c_str());
        exit(2);
    }
    posix_spawn_file_actions_destroy(&actions);
    alarm(2 * seconds_allowed);
    rusage usage = {};
    while (wait4(running, &run.status, 0, &usage) < 0 && errno == EINTR) {
    }
    alarm(0);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    run.seconds = taken.count();
    run.memory = static_cast<uint64_t>(usage.ru_maxrss) << 10;
    run.said = look_at_file("../said").bytes;
}

// Whether a line of the messages has both texts.
bool has_line(const batch& run, const std::string& one, const std::string& other) {
    for (size_t at = 0; at < run.said.size();) {
        const size_t end = std::min(run.said.find('\n', at), run.said.size());
        const std::string line = run.said.substr(at, end - at);
        if (line.find(one) != std::string::npos && line.find(other) != std::string::npos)
            return true;
        at = end + 1;
    }
    return false;
}

bool has_said(const batch& run, const std::string& text) {
    return has_line(run, text, "");
}

// The errors that a strip survives have the word of a fatal message, too.
bool is_fatal(const batch& run) {
    std::string rest = run.said;
    const std::string survived = "fatal: Error reading from";
    for (size_t at = rest.find(survived); at != std::string::npos; at = rest.find(survived))
        rest.erase(at, survived.size());
    for (std::string other = "ERROR: FATAL: Error reading from"; rest.find(other) != std::string::npos;)
        rest.erase(rest.find(other), other.size());
    return rest.find("fatal: ") != std::string::npos || rest.find("FATAL: ") != std::string::npos ||
           rest.find("Assertion (") != std::string::npos;
}

bool has_errors(const batch& run) {
    return is_fatal(run) || has_said(run, "error: ") || has_said(run, "fatal: ") ||
           has_said(run, "ERROR: ");
}

void check_process(const batch& run) {
    uint64_t largest = 0;
    for (const batch_file& file : run.files)
        largest = std::max(largest, static_cast<uint64_t>(file.before.bytes.size()));
    require(WIFEXITED(run.status), run, "-", "no signal ends the program");
    require(WEXITSTATUS(run.status) == (has_errors(run) ? 1 : 0), run, "-",
            "status and messages agree");
    require(!has_said(run, "Sanitizer") && !has_said(run, "runtime error"), run, "-",
            "no sanitizer has anything to say");
    require(run.seconds < seconds_allowed, run, "-", "a run takes less than its time");
    require(is_instrumented || run.memory <= memory_allowed + 4 * largest, run, "-",
            "a run takes no more than its memory");
}

void check_directory(const batch& run) {
    int temporaries = 0;
    for (const std::string& name : names_in(".")) {
        const bool is_known =
            std::any_of(run.files.begin(), run.files.end(), [&name](const batch_file& file) {
                return name == file.name || name == file.companion;
            });
        if (is_known || name == "result")
            continue;
        require(name.starts_with("ov_") && name.ends_with(".tmp"), run, name, "nothing else is left");
        ++temporaries;
    }
    require(temporaries <= (is_fatal(run) ? 1 : 0), run, "-", "only a fatal end leaves its result");
    require(names_in("../tmp").empty(), run, "-", "the temporary directory is empty");
}

// A file that something was said of, as a name in quotes, or one by which a fatal message ended the
// run: those are nowhere named at times.
bool may_be_refused(const batch& run, const std::string& name) {
    return is_fatal(run) || has_line(run, name, "error: ") || has_line(run, name, "ERROR: ");
}

void check_file(const batch& run, const batch_file& file) {
    const kept_file after = look_at_file(file.name);
    const bool is_changed = !(after == file.before);
    const bool survived = has_line(run, "Error reading from", file.name);
    require(after.exists(), run, file.name, "no file is lost");
    if (is_in_place(run.format) && is_changed) {
        require(after.inode == file.before.inode, run, file.name, "it is changed in place");
        require(after.bytes.size() <= file.before.bytes.size(), run, file.name, "no file grows");
    }
    if (is_changed && !is_in_place(run.format))
        require(after.bytes.substr(0, 4) == file.before.bytes.substr(0, 4), run, file.name,
                "a result is of the kind of its input");
    const bool is_named = has_line(run, file.name, "error: ") || has_line(run, file.name, "ERROR: ");
    if (is_elf(run.format) && is_named && !survived)
        require(!is_changed, run, file.name, "a refused file stays as it was");
    if (is_in_place(run.format) && is_named && !has_said(run, "unable to read string table"))
        require(!is_changed, run, file.name, "a refused file stays as it was");
    if (run.format == "archive" && has_line(run, "failed to strip file", file.name))
        require(!is_changed, run, file.name, "a refused archive stays as it was");
}

void check_companion(const batch& run, const batch_file& file) {
    const kept_file after = look_at_file(file.companion);
    if (has_line(run, "failed to read", file.companion))
        require(after == file.companion_before, run, file.companion,
                "a map that cannot be read stays as it was");
    else if (!has_said(run, "failed to write"))
        require(after.exists(), run, file.companion, "no map is lost");
}

// A file that was not refused has nothing left that would go: a second run is as quiet, and changes
// nothing. Kept symbols may become needless only by the first run, and data that is in two places,
// or ends behind the file, is not there any more.
void check_again(batch& run, const std::vector<size_t>& quiet) {
    if (quiet.empty() || (run.choice & ~option_bit("-stripreloc")) != 0)
        return;
    batch again;
    again.format = run.format;
    for (const char* const option : chosen_options(run.choice))
        again.arguments.emplace_back(option);
    for (const size_t index : quiet) {
        const std::string& name = run.files[index].name;
        again.arguments.push_back(name);
        again.files.push_back({name, look_at_file(name), "", {}});
    }
    spawn_and_wait(again);
    check_process(again);
    for (const batch_file& file : again.files)
        if (!may_be_refused(again, file.name))
            require(look_at_file(file.name) == file.before, again, file.name,
                    "a stripped file has nothing left that would go");
}

struct outcome_counts {
    uint64_t changed = 0, kept = 0, fatal_runs = 0, runs = 0;
    double longest = 0;
    uint64_t memory = 0;
};

// Files behind the one at which a run ended were not looked at: they are run again, in the end one
// by one.
void run_batch(batch run, outcome_counts& counts) {
    spawn_and_wait(run);
    ++counts.runs;
    counts.longest = std::max(counts.longest, run.seconds);
    counts.memory = std::max(counts.memory, run.memory);
    check_process(run);
    check_directory(run);
    std::vector<size_t> quiet;
    size_t last_changed = 0;
    const bool fatal = is_fatal(run);
    counts.fatal_runs += fatal;
    for (size_t i = 0; i < run.files.size(); ++i) {
        check_file(run, run.files[i]);
        if (!run.files[i].companion.empty())
            check_companion(run, run.files[i]);
        const bool changed = !(look_at_file(run.files[i].name) == run.files[i].before);
        last_changed = changed || has_said(run, run.files[i].name) ? i + 1 : last_changed;
        counts.changed += changed;
        counts.kept += !changed;
        if (!may_be_refused(run, run.files[i].name))
            quiet.push_back(i);
    }
    if (is_elf(run.format) && !fatal)
        check_again(run, quiet);
    remove_files(names_in("."));
    // The file that ended the run is the one behind the last that shows anything, or that one.
    if (!fatal || run.files.size() == 1)
        return;
    batch rest;
    rest.format = run.format;
    rest.choice = run.choice;
    const size_t first = std::max<size_t>(last_changed, 1);
    for (size_t i = 0; i < first && i < run.files.size(); ++i) {
    }
    rest.files.assign(run.files.begin() + static_cast<std::ptrdiff_t>(std::min(first, run.files.size())),
                      run.files.end());
    counts.kept -= rest.files.size();
    if (rest.files.empty())
        return;
    for (const char* const option : chosen_options(rest.choice))
        rest.arguments.emplace_back(option);
    for (batch_file& file : rest.files) {
        rest.arguments.push_back(file.name);
        put_file(file.name, file.before.bytes);
        file.before = look_at_file(file.name);
        if (!file.companion.empty()) {
            put_file(file.companion, file.companion_before.bytes);
            file.companion_before = look_at_file(file.companion);
        }
    }
    run_batch(std::move(rest), counts);
}

} // namespace

int main() { return 0; }
