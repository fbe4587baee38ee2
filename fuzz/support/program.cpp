// A program's end is an exception here, which the code under test is compiled to let through; and
// what is process-wide is put back as a new process would find it.
//
// The linker leads a few calls here (see CMakeLists.txt): handlers of the exit, which have to run
// at the end of each execution, and the child that would be the archiver.
#include "support/program.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "objfile/arformat.h"
#include "objfile/arname.h"
#include "objfile/elfio.h"
#include "objfile/objident.h"
#include "shared/genout.h"
#include "shared/gentemp.h"
#include "shared/host.h"
#include "support/files.h"
#include "util/coffstrip.h"

int objtrim_main(int argc, char** argv); // the entries of the two programs
int lbm_main(int argc, char** argv);

namespace {

struct program_end {
    int status;
};

using exit_handler = void (*)();

// Handlers by program: objtrim's, and those of the archiver that it runs.
std::vector<exit_handler> exit_handlers[2];
int depth = -1; // index of the program that runs

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

void run_handlers() {
    std::vector<exit_handler>& handlers = exit_handlers[depth];
    for (size_t i = handlers.size(); i-- != 0;)
        handlers[i]();
}

int run_to_end(const std::function<void()>& body) {
    ++depth;
    int status = 0;
    try {
        body();
        status = gen_total_errors != 0 ? status_failure : 0;
    } catch (const program_end& end) {
        status = end.status;
    }
    run_handlers();
    --depth;
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

std::optional<std::string> (*first_tmpdir_hook)();

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
    first_tmpdir_hook = gen_tmpdir_hook;
    gen_exit_slot = throw_end;
    gen_message_slot = gen_assertion_message_slot = note_message;
}

void reset_messages() {
    std::fill(std::begin(gen_error_count), std::end(gen_error_count), 0);
    gen_total_errors = 0;
    gen_prefixed_messages = false;
    errno = 0;
}

void reset_identification() {
    ti_coff = coff_wide_counts = false;
    elf_set_error_sink(nullptr);
    // There is one record, and what a file leaves in it is there for the next one.
    gen_stream empty;
    *const_cast<objinfo*>(obj_identify(&empty, nullptr)) = objinfo();
    elf_byte_order = ELF_ORDER_UNSET;
    elf_error_count = 0;
    ar_damage_is_fatal = true;
    ar_read_name_table(empty, "", AR_TABLE_SLASHES, 0);
}

void reset_options() {
    gen_tmpdir_hook = first_tmpdir_hook;
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
    reset_messages();
    result.status = run_to_end(body);
    reset_options();
    reset_identification();
    reset_messages();
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

extern "C" int __real_atexit(exit_handler handler);

extern "C" int __wrap_atexit(exit_handler handler) {
    if (depth < 0)
        return __real_atexit(handler);
    std::vector<exit_handler>& handlers = exit_handlers[depth];
    if (std::find(handlers.begin(), handlers.end(), handler) == handlers.end())
        handlers.push_back(handler);
    return 0;
}

// host_run: the archiver, with counters and flags of its own.
extern "C" int __wrap__Z8host_runPKcb(const char* command_line, bool /*no_streams*/) {
    const uint32_t errors = gen_total_errors, plain_errors = gen_error_count[GEN_ERROR];
    const bool prefixed = gen_prefixed_messages;
    const std::string name = gen_program_name();
    reset_messages();
    reset_identification();
    std::string line = command_line;
    std::vector<char*> words;
    char* rest = line.data();
    for (char* word = strtok_r(rest, " ", &rest); word != nullptr;
         word = strtok_r(nullptr, " ", &rest))
        words.push_back(word);
    const int status =
        run_to_end([&words] { lbm_main(static_cast<int>(words.size()), words.data()); });
    static std::string kept_name;
    kept_name = name;
    gen_set_program_name(kept_name.c_str());
    reset_messages();
    reset_identification();
    gen_total_errors = errors;
    gen_error_count[GEN_ERROR] = plain_errors;
    gen_prefixed_messages = prefixed;
    return status;
}
