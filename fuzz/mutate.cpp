// Mutation runs: files with a few bytes changed go through the real program, some in one run, and
// what becomes of each is judged by what is said of it.
//
// mutate PROGRAM SEEDS COUNT [FORMAT [NUMBER]] runs COUNT mutants of each format (a directory in
// SEEDS, as the seeds program makes them), or of the one. The same NUMBER makes the same runs. The
// first wrong outcome ends it; its files stay where it says.
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
#include <sys/stat.h>
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
const std::string mark = "--mark";            // an option that is none, in front of each file

struct batch_file {
    std::string name, companion; // the map beside it, or empty
    kept_file before, companion_before;
    bool was_reached = false;
    std::string said; // while it was dealt with
};

struct batch {
    std::string format;
    option_choice choice = 0;
    std::vector<batch_file> files;
    std::vector<std::string> arguments;
    int status = 0; // as waited for
    double seconds = 0;
    uint64_t memory = 0;
    std::string said;
};

struct outcome_counts {
    uint64_t mutants = 0, stripped = 0, refused = 0, fatal = 0, runs = 0;
    double longest = 0;
    uint64_t memory = 0;
};

std::string program, scratch;
bool is_instrumented = false;
pid_t running;

bool has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

void require(bool condition, const batch& run, const batch_file& file, const char* what) {
    if (condition)
        return;
    printf("WRONG: %s\n  file %s, status 0x%x, %.1f s, %llu KiB\n  in %s/work: %s", what,
           file.name.c_str(), static_cast<unsigned>(run.status), run.seconds,
           static_cast<unsigned long long>(run.memory >> 10), scratch.c_str(), program.c_str());
    for (const std::string& argument : run.arguments)
        printf(" '%s'", argument.c_str());
    printf("\nsaid:\n%s\n", run.said.c_str());
    for (const batch_file& one : run.files) {
        put_file(one.name + ".before", one.before.bytes);
        if (!one.companion.empty())
            put_file(one.companion + ".before", one.companion_before.bytes);
    }
    exit(1);
}

// A section that reaches past the end of the file is copied as far as it goes, with the word of a
// fatal message; the strip goes on.
bool is_survived(const std::string& line) {
    return has(line, "Error reading from");
}

enum severity { QUIET, SURVIVED, REFUSED, FATAL };

severity severity_of(const std::string& said) {
    severity worst = QUIET;
    for (size_t at = 0; at < said.size();) {
        const size_t end = std::min(said.find('\n', at), said.size());
        const std::string line = said.substr(at, end - at);
        at = end + 1;
        if (is_survived(line))
            worst = std::max(worst, SURVIVED);
        else if (has(line, "fatal: ") || has(line, "FATAL: ") || has(line, "Assertion ("))
            worst = FATAL;
        else if (has(line, "error: ") || has(line, "ERROR: "))
            worst = std::max(worst, REFUSED);
    }
    return worst;
}

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
    for (const int stream : {1, 2})
        posix_spawn_file_actions_addopen(&actions, stream, "../said",
                                         O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    const auto start = std::chrono::steady_clock::now();
    if (posix_spawn(&running, program.c_str(), &actions, nullptr, words.data(), environ) != 0) {
        perror(program.c_str());
        exit(2);
    }
    posix_spawn_file_actions_destroy(&actions);
    alarm(seconds_allowed + 2);
    rusage usage = {};
    while (wait4(running, &run.status, 0, &usage) < 0 && errno == EINTR) {
    }
    alarm(0);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    run.seconds = taken.count();
    run.memory = static_cast<uint64_t>(usage.ru_maxrss) << 10;
    run.said = look_at_file("../said").bytes;
}

// Gives each file its part of what was said: behind the line of its mark, and the usage text that
// may follow that.
void divide_messages(batch& run) {
    for (size_t i = 0; i < run.files.size(); ++i) {
        const auto find_mark = [&run](size_t index, size_t from) {
            return run.said.find(mark + std::to_string(index) + " (ignored)\n", from);
        };
        const size_t start = find_mark(i, 0);
        if (start == std::string::npos)
            return;
        const size_t text = run.said.find('\n', start) + 1;
        run.files[i].was_reached = true;
        run.files[i].said = run.said.substr(text, find_mark(i + 1, text) - text);
    }
}

void check_process(const batch& run) {
    const batch_file& first = run.files[0];
    uint64_t largest = 0;
    for (const batch_file& file : run.files)
        largest = std::max(largest, uint64_t{file.before.bytes.size()});
    require(WIFEXITED(run.status), run, first, "no signal ends the program");
    require(!has(run.said, "Sanitizer") && !has(run.said, "runtime error"), run, first,
            "no sanitizer has anything to say");
    require(WEXITSTATUS(run.status) == (severity_of(run.said) == QUIET ? 0 : 1), run, first,
            "status and messages agree");
    require(run.seconds < seconds_allowed, run, first, "a run takes less than its time");
    require(is_instrumented || run.memory <= memory_allowed + 4 * largest, run, first,
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
        require(name.starts_with("ov_") && name.ends_with(".tmp"), run, run.files[0],
                "nothing else is left beside the files");
        ++temporaries;
    }
    require(temporaries <= (severity_of(run.said) == FATAL ? 1 : 0), run, run.files[0],
            "only a fatal end leaves its result");
    require(names_in("../tmp").empty(), run, run.files[0], "the temporary directory is empty");
}

void check_elf(const batch& run, const batch_file& file, const kept_file& after) {
    const bool is_changed = !(after == file.before);
    const severity worst = severity_of(file.said);
    require(worst < REFUSED || !is_changed || run.format == "dnm", run, file,
            "a refused file stays as it was");
    require(!is_changed || after.bytes.starts_with("\177ELF"), run, file,
            "the result is of the same kind");
    const option_choice harmless = option_bit("-stripreloc") | option_bit("-prefixed_msgs");
    if (worst != QUIET || (run.choice & ~harmless) != 0 || !file.said.empty())
        return;
    std::string names_before, names_after;
    has_needless_section(file.before.bytes, names_before);
    const bool has_more = has_needless_section(after.bytes, names_after);
    const bool keeps_symbols = (run.choice & option_bit("-stripreloc")) != 0;
    require(!has_more || keeps_symbols || (is_changed && names_after != names_before), run, file,
            "a file that is quietly done has nothing left that would go");
}

void check_in_place(const batch& run, const batch_file& file, const kept_file& after) {
    const bool is_changed = !(after == file.before);
    require(after.inode == file.before.inode, run, file, "the file is changed in place");
    require(after.bytes.size() <= file.before.bytes.size(), run, file, "no file grows");
    // Where the strings end is found last, when the headers are already written.
    require(severity_of(file.said) < REFUSED || !is_changed ||
                has(file.said, "unable to read string table"),
            run, file, "a refused file stays as it was");
    require(!file.said.empty() || is_changed, run, file, "a file that is quietly done has changed");
}

void check_archive(const batch& run, const batch_file& file, const kept_file& after) {
    const bool is_refused =
        severity_of(file.said) == FATAL || has(file.said, "failed to strip file");
    require(!is_refused || after == file.before, run, file, "a refused archive stays as it was");
    require(after.bytes.starts_with("!<arch") || after == file.before, run, file,
            "the result is of the same kind");
}

// One that has lost its magic: whoever takes it leaves it as it was, unless it is taken for COFF.
void check_stranger(const batch& run, const batch_file& file, const kept_file& after) {
    const bool is_forced = (run.choice & option_bit("-F")) != 0;
    require(after == file.before || severity_of(file.said) < REFUSED ||
                has(file.said, "unable to read string table"),
            run, file, "a refused file stays as it was");
    require(after.inode == file.before.inode || !is_forced, run, file,
            "a file that is taken for COFF is changed in place");
}

void check_companion(const batch& run, const batch_file& file) {
    const kept_file after = look_at_file(file.companion);
    if (has(file.said, "failed to read"))
        require(after == file.companion_before, run, file,
                "a map that cannot be read stays as it was");
    else
        require(after.exists() || has(file.said, "failed to write"), run, file, "no map is lost");
}

void check_file(const batch& run, const batch_file& file, outcome_counts& counts) {
    const kept_file after = look_at_file(file.name);
    require(after.exists(), run, file, "no file is lost");
    if (!file.was_reached) {
        require(after == file.before, run, file, "a file that was not reached stays as it was");
        return;
    }
    const severity worst = severity_of(file.said);
    ++counts.mutants;
    counts.stripped += !(after == file.before);
    counts.refused += worst == REFUSED;
    counts.fatal += worst == FATAL;
    if (run.format == "coff" || run.format == "pe")
        check_in_place(run, file, after);
    else if (file.before.bytes.starts_with("\177ELF"))
        check_elf(run, file, after);
    else if (file.before.bytes.starts_with("!<arch"))
        check_archive(run, file, after);
    else
        check_stranger(run, file, after);
    if (!file.companion.empty())
        check_companion(run, file);
}

void put_batch(batch& run) {
    run.arguments.clear();
    for (const char* const option : chosen_options(run.choice))
        run.arguments.emplace_back(option);
    for (size_t i = 0; i < run.files.size(); ++i) {
        batch_file& file = run.files[i];
        put_file(file.name, file.before.bytes);
        file.before = look_at_file(file.name);
        if (!file.companion.empty()) {
            put_file(file.companion, file.companion_before.bytes);
            file.companion_before = look_at_file(file.companion);
        }
        run.arguments.push_back(mark + std::to_string(i));
        run.arguments.push_back(file.name);
    }
}

// Files behind the one at which a run ended are run again, in a run of their own.
void run_batch(batch& run, outcome_counts& counts) {
    while (!run.files.empty()) {
        put_batch(run);
        spawn_and_wait(run);
        ++counts.runs;
        counts.longest = std::max(counts.longest, run.seconds);
        counts.memory = std::max(counts.memory, run.memory);
        divide_messages(run);
        check_process(run);
        check_directory(run);
        for (const batch_file& file : run.files)
            check_file(run, file, counts);
        remove_files(names_in("."));
        require(run.files[0].was_reached, run, run.files[0], "the options are taken");
        std::erase_if(run.files, [](const batch_file& file) { return file.was_reached; });
    }
}

option_choice random_choice(random_numbers& random, const std::string& format) {
    option_choice choice = 0;
    if (!random.one_in(3))
        for (uint64_t count = 1 + random.below(4); count != 0; --count)
            choice |= option_choice{1} << random.below(all_options().size());
    if ((format.ends_with("_rel") || format == "archive") && !random.one_in(8))
        choice |= option_bit("-stripreloc");
    return choice;
}

void run_format(const std::string& seeds_directory, const std::string& format, uint64_t count,
                uint64_t number) {
    const std::vector<seed_file> seeds = load_seeds(seeds_directory + "/files/" + format);
    std::vector<seed_file> executables;
    if (format == "dnm")
        for (const char* const form : {"elf32le", "elf32be", "elf64le", "elf64be"})
            executables.push_back(load_seeds(seeds_directory + "/files/" + form + "_exec").front());
    random_numbers random = {number};
    outcome_counts counts;
    while (counts.mutants < count) {
        batch run;
        run.format = format;
        run.choice = random_choice(random, format);
        for (size_t i = 0; i < std::min<uint64_t>(batch_size, count - counts.mutants); ++i) {
            batch_file& file = run.files.emplace_back();
            const std::string stem = "f" + std::to_string(i);
            const std::string mutant = make_mutant(random, seeds);
            file.name = stem + ".in";
            file.before.bytes = mutant;
            if (format != "dnm")
                continue;
            file.companion = stem + ".dnm";
            file.companion_before.bytes = mutant;
            file.before.bytes = executables[random.below(executables.size())].bytes;
        }
        run_batch(run, counts);
    }
    printf("%-12s %8llu mutants: %llu changed, %llu refused, %llu fatal; %llu runs, longest %.2f "
           "s, at most %llu KiB\n",
           format.c_str(), static_cast<unsigned long long>(counts.mutants),
           static_cast<unsigned long long>(counts.stripped),
           static_cast<unsigned long long>(counts.refused),
           static_cast<unsigned long long>(counts.fatal),
           static_cast<unsigned long long>(counts.runs), counts.longest,
           static_cast<unsigned long long>(counts.memory >> 10));
    fflush(stdout);
}

std::string absolute(const char* name) {
    char* const full = realpath(name, nullptr);
    if (!full) {
        perror(name);
        exit(2);
    }
    const std::string result = full;
    free(full);
    return result;
}

void go_to_scratch() {
    scratch = make_scratch();
    for (const char* const part : {"/work", "/tmp"})
        mkdir((scratch + part).c_str(), 0700);
    if (chdir((scratch + "/work").c_str()) != 0)
        exit(2);
    setenv("TMP", (scratch + "/tmp").c_str(), 1);
    signal(SIGALRM, end_child);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: mutate PROGRAM SEEDS COUNT [FORMAT [NUMBER]]\n");
        return 2;
    }
    program = absolute(argv[1]);
    const std::string seeds = absolute(argv[2]);
    is_instrumented = has(look_at_file(program).bytes, "__asan_init");
    go_to_scratch();
    const std::string wanted = argc > 4 ? argv[4] : "all";
    const uint64_t number = argc > 5 ? strtoull(argv[5], nullptr, 10) : 1;
    for (const std::string& format : names_in(seeds + "/files"))
        if (wanted == "all" || wanted == format)
            run_format(seeds, format, strtoull(argv[3], nullptr, 10), number);
    if (chdir("/") == 0) {
        unlink((scratch + "/said").c_str());
        for (const char* const part : {"/work", "/tmp", ""})
            rmdir((scratch + part).c_str());
    }
    return 0;
}
