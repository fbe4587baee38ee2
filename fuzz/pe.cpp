// A whole strip of a PE image, which is changed in place.
#include "support/checks.h"
#include "support/options.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz_input input = take_input(data, size, "MZ");
    put_file("prog.exe", input.file);
    const kept_file before = look_at_file("prog.exe");
    std::vector<const char*> arguments = chosen_options(input.choice);
    arguments.push_back("prog.exe");
    const execution run = run_objtrim(arguments);

    check_end(run, {"prog.exe"});
    const kept_file after = look_at_file("prog.exe");
    require(after.inode == before.inode, run, "the file is changed in place");
    require(after.bytes.size() <= before.bytes.size(), run, "no file grows");
    require(run.status == 0 || after == before, run, "a refused file stays as it was");
    require(!run.has_said("already stripped") || after == before, run, "so does a stripped one");
    if (!(after == before))
        run_objtrim(arguments); // whatever that comes to: the cut may have taken the headers
    clear_directory();
    return 0;
}
