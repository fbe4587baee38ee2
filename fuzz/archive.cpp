// An archive whose ELF members are stripped, and which the archiver rebuilds.
#include "objfile/arname.h"
#include "shared/genfile.h"
#include "support/checks.h"

namespace {

// The names of all members, as far as they can be read.
std::vector<std::string> member_names() {
    std::vector<std::string> names;
    run_routine([&names] {
        const gen_stream_ptr stream = gen_safe_fopen("lib.a", "archive", "rb");
        const bool is_wide = archive_magic_kind(stream.get(), "lib.a") == OBJ_MAGIC_ARCH64;
        const obj_kind kind = is_wide ? OBJ_ARCHIVE64 : OBJ_ARCHIVE;
        ar_name_table table;
        ar_reader reader = {"lib.a", *stream, table, kind};
        gen_seek(*stream, ar_magic_size(kind), GEN_SEEK_SET);
        while (const ar_member* const member = ar_read_member_header(reader)) {
            names.push_back(member->name);
            gen_seek(*stream, member->size + member->size % 2, GEN_SEEK_CUR);
        }
    });
    return names;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz_input input = take_input(data, size, "!<arch");
    put_file("lib.a", input.file);
    const std::vector<std::string> names = member_names();
    const auto [arguments, run, before, after] = strip_input(input, "lib.a");

    const bool is_refused = run.is_fatal() || run.has_said("failed to strip file");
    require(!is_refused || after == before, run, "a refused archive stays as it was");
    if (!(after == before)) {
        require(member_names() == names, run, "a rebuilt archive has the same members");
        run_objtrim(arguments); // whatever that comes to
    }
    clear_directory();
    return 0;
}
