// A whole strip of a PE image, which is changed in place.
#include "support/checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz_input input = take_input(data, size, "MZ");
    const auto [arguments, run, before, after] = strip_input(input, "prog.exe");

    require(after.inode == before.inode, run, "the file is changed in place");
    require(after.bytes.size() <= before.bytes.size(), run, "no file grows");
    require(run.status == 0 || after == before, run, "a refused file stays as it was");
    require(!run.has_said("already stripped") || after == before, run, "so does a stripped one");
    if (!(after == before))
        run_objtrim(arguments); // whatever that comes to: the cut may have taken the headers
    clear_directory();
    return 0;
}
