// An archive whose ELF members are stripped, and which the archiver rebuilds.
#include "objfile/arformat.h"
#include "support/checks.h"
#include "support/options.h"

static void walk_archive() {
    const ar_handler_table nothing;
    ar_walk("lib.a", nothing);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz_input input = take_input(data, size, "!<arch");
    put_file("lib.a", input.file);
    const kept_file before = look_at_file("lib.a");
    std::vector<const char*> arguments = chosen_options(input.choice);
    arguments.push_back("lib.a");
    const execution run = run_objtrim(arguments);

    check_end(run, {"lib.a"});
    const kept_file after = look_at_file("lib.a");
    const bool is_refused = run.is_fatal() || run.has_said("failed to strip file");
    require(!is_refused || after == before, run, "a refused archive stays as it was");
    if (!(after == before)) {
        const execution walk = run_routine(walk_archive);
        // Damage would be fatal. What members are may be told, or end the walk.
        require(!walk.is_fatal() || walk.has_said("seek failed to"), walk,
                "a rebuilt archive is sound");
        run_objtrim(arguments); // whatever that comes to
    }
    clear_directory();
    return 0;
}
