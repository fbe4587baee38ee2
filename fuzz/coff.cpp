// A whole strip of a COFF file, which is changed in place.
#include "support/checks.h"

namespace {

// Files that would go to another stripper.
bool is_other_kind(const std::string& file) {
    for (const char* const magic : {"\177ELF", "MZ", "!<", "<a"})
        if (file.starts_with(magic))
            return true;
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz_input input = take_input(data, size);
    if (is_other_kind(input.file))
        return 0;
    const auto [arguments, run, before, after] = strip_input(input, "prog.out");

    require(after.inode == before.inode, run, "the file is changed in place");
    require(after.bytes.size() <= before.bytes.size(), run, "no file grows");
    // Where the strings end is found last, when the headers are already written.
    require(run.status == 0 || after == before || run.has_said("unable to read string table"), run,
            "a refused file stays as it was");
    if (run.has_said("unable to read string table"))
        require(after.bytes.size() == before.bytes.size(), run, "the file keeps its length");
    if (!(after == before))
        run_objtrim(arguments); // whatever that comes to
    clear_directory();
    return 0;
}
