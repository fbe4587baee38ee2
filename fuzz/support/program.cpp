// A program's end is an exception here, which the code under test is compiled to let through: what
// would be done at the exit is done as its records go.
//
// The linker leads the call that starts a child here (see CMakeLists.txt): it would be the
// archiver.
#include "support/program.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "shared/genexit.h"
#include "shared/host.h"
#include "support/files.h"

int objtrim_main(int argc, char** argv); // the entries of the two programs
int lbm_main(int argc, char** argv);

namespace {

struct program_end {
    int status;
};

execution* current;
std::string bin, tmp;

[[noreturn]] void throw_end(int status) {
    throw program_end{status};
}

void note_message(uint32_t level, const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    char text[512] = "";
    if (format)
        vsnprintf(text, sizeof text, format, again);
    va_end(again);
    current->said.push_back({level % GEN_WITH_SYSTEM_TEXT, text});
    gen_message(level, format, arguments);
}

gen_message_sink diverted_sink() {
    gen_message_sink sink;
    sink.exit = throw_end;
    sink.message = sink.assertion_message = note_message;
    return sink;
}

// With a sink of its own, as a process has.
int run_to_end(const std::function<void()>& body) {
    gen_message_sink& outer = gen_sink();
    gen_message_sink sink = diverted_sink();
    gen_use_sink(sink);
    const std::string name = gen_program_name();
    errno = 0;
    int status = 0;
    try {
        body();
        status = sink.gen_total_errors != 0 ? status_failure : 0;
    } catch (const program_end& end) {
        status = end.status;
    }
    gen_use_sink(outer);
    static std::string kept_name;
    kept_name = name;
    gen_set_program_name(kept_name.c_str());
    return status;
}

void remove_all(const std::string& directory) {
    for (const std::string& name : names_in(directory)) {
        const std::string path = directory + "/" + name;
        if (unlink(path.c_str()) != 0) {
            remove_all(path);
            rmdir(path.c_str());
        }
    }
}

std::string scratch;
pid_t owner;

void remove_scratch() {
    if (getpid() != owner || chdir("/") != 0)
        return;
    remove_all(scratch);
    rmdir(scratch.c_str());
}

void prepare() {
    owner = getpid();
    scratch = make_scratch();
    std::atexit(remove_scratch);
    bin = scratch + "/bin";
    tmp = scratch + "/tmp";
    const std::string work = scratch + "/work";
    for (const std::string& directory : {bin, tmp, work})
        host_make_directory(directory.c_str(), 0700);
    put_file(bin + "/lbm", ""); // it is only looked for
    if (chdir(work.c_str()) != 0)
        abort();
    setenv("TMP", tmp.c_str(), 1);
    unsetenv("BUILDER_TEMPORARY_NAME");
}

} // namespace

bool execution::has_said(const char* part) const {
    return std::any_of(said.begin(), said.end(), [part](const said_message& message) {
        return message.text.find(part) != std::string::npos;
    });
}

bool execution::is_fatal() const {
    return std::any_of(said.begin(), said.end(), [](const said_message& message) {
        return (message.level == GEN_FATAL && !message.text.starts_with(survived_error)) ||
               (message.level == GEN_PLAIN && message.text.starts_with("Assertion "));
    });
}

execution run_routine(const std::function<void()>& body) {
    execution result;
    current = &result;
    result.status = run_to_end(body);
    return result;
}

execution run_objtrim(const std::vector<const char*>& arguments) {
    return run_routine([&arguments] {
        const std::string program = bin + "/objtrim";
        std::vector<char*> words = {const_cast<char*>(program.c_str())};
        for (const char* argument : arguments)
            words.push_back(const_cast<char*>(argument));
        objtrim_main(static_cast<int>(words.size()), words.data());
    });
}

const std::string& program_tmpdir() {
    return tmp;
}

// Before the first execution. From here on paths that are not absolute lead into the scratch
// directory.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    prepare();
    return 0;
}

// host_run: the archiver.
extern "C" int __wrap__Z8host_runPKcb(const char* command_line, bool /*no_streams*/) {
    std::string line = command_line;
    std::vector<char*> words;
    char* rest = line.data();
    for (char* word = strtok_r(rest, " ", &rest); word != nullptr;
         word = strtok_r(nullptr, " ", &rest))
        words.push_back(word);
    return run_to_end([&words] { lbm_main(static_cast<int>(words.size()), words.data()); });
}
