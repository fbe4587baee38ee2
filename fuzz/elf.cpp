// A whole strip of an ELF file, from the options to the rename.
#include "support/checks.h"
#include "support/options.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz_input input = take_input(data, size, "\177ELF");
    put_file("prog.elf", input.file);
    const kept_file before = look_at_file("prog.elf");
    std::vector<const char*> arguments = chosen_options(input.choice);
    arguments.push_back("prog.elf");
    const execution run = run_objtrim(arguments);

    check_end(run, {"prog.elf"});
    const kept_file after = look_at_file("prog.elf");
    const kept_file result = look_at_file("result");
    require(run.status == 0 || after == before, run, "a refused file stays as it was");
    if (!(after == before))
        check_again("prog.elf", input.choice);
    else if (result.exists() && run.status == 0)
        check_again("result", input.choice);
    clear_directory();
    return 0;
}
