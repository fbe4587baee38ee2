// Every condition here is one that the documents promise.
#include "support/checks.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "shared/genmessage.h"

namespace {

// The error stream, before it is closed to the program's messages.
const int report = dup(STDERR_FILENO);

} // namespace

fuzz_input take_input(const uint8_t* data, size_t size, const std::string& magic) {
    fuzz_input input;
    for (unsigned i = 0; i < choice_size && i < size; ++i)
        input.choice |= static_cast<option_choice>(data[i]) << (8 * i);
    if (size > choice_size)
        input.file.assign(reinterpret_cast<const char*>(data) + choice_size, size - choice_size);
    input.file.replace(0, std::min(magic.size(), input.file.size()), magic);
    return input;
}

void require(bool condition, const execution& run, const char* what) {
    if (condition)
        return;
    dprintf(report, "CHECK FAILED: %s\nstatus %d\n", what, run.status);
    for (const said_message& message : run.said)
        dprintf(report, "said (%u): %s\n", message.level, message.text.c_str());
    for (const std::string& name : names_in("."))
        dprintf(report, "there is: %s\n", name.c_str());
    abort();
}

void check_end(const execution& run, const std::vector<std::string>& expected) {
    bool has_errors = false;
    for (const said_message& message : run.said)
        has_errors = has_errors || message.level < GEN_WARNING;
    require(run.status == (has_errors || run.is_fatal() ? 1 : 0), run, "status and messages agree");

    int temporaries = 0;
    for (const std::string& name : names_in(".")) {
        if (name == "result" || std::find(expected.begin(), expected.end(), name) != expected.end())
            continue;
        require(name.starts_with("ov_") && name.ends_with(".tmp"), run, "nothing else is left");
        ++temporaries;
    }
    require(temporaries <= (run.is_fatal() ? 1 : 0), run, "only a fatal end leaves its result");
    require(names_in(program_tmpdir()).empty(), run, "nothing is left in the temporary directory");
}

void check_again(const std::string& name, option_choice choice, bool has_to_be_sound) {
    std::vector<const char*> arguments = chosen_options(choice & ~option_bit(result_option));
    arguments.push_back(name.c_str());
    const execution again = run_objtrim(arguments);
    // Sections go by their names: the strings of a symbol table may, while it stays. And a symbol
    // that stands for section 0, in a table that names sections too, gives that section a name.
    const bool is_odd =
        again.has_said("names no string table") || again.has_said("of section header 0 is not 0");
    const bool is_sound = !again.has_said("is damaged") && !again.has_said("is not ");
    require(!has_to_be_sound || is_sound || is_odd, again, "a result is sound");
}

void clear_directory() {
    remove_files(names_in("."));
}

stripping strip_input(const fuzz_input& input, const char* name) {
    stripping done;
    put_file(name, input.file);
    done.before = look_at_file(name);
    done.arguments = chosen_options(input.choice);
    done.arguments.push_back(name);
    done.run = run_objtrim(done.arguments);
    check_end(done.run, {name});
    done.after = look_at_file(name);
    return done;
}
