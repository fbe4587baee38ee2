// The map beside an executable, read, brought up to date and written back.
#include "debug/dnmfile.h"
#include "shared/genmessage.h"
#include "support/checks.h"
#include "support/elf_builder.h"
#include "support/options.h"

namespace {

std::string executable(const elf_form& form) {
    elf_draft draft{.form = form, .type = et::exec};
    for (const char* name : {".text", ".debug_info", ".comment", ".debug_line", ".note"})
        draft.sections.push_back({.name = name, .content = filler(0x28, draft.sections.size())});
    return build_elf(draft);
}

void read_map() {
    if (!STDnm_Read("prog.dnm"))
        gen_error("the map cannot be read");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string executables[] = {executable(elf_forms[0]), executable(elf_forms[1]),
                                              executable(elf_forms[2]), executable(elf_forms[3])};
    const fuzz_input input = take_input(data, size);
    put_file("prog.elf", executables[input.choice % 4]);
    put_file("prog.dnm", input.file);
    const kept_file elf_before = look_at_file("prog.elf"), before = look_at_file("prog.dnm");
    const execution run = run_objtrim({"prog.elf"});

    check_end(run, {"prog.elf", "prog.dnm"});
    const kept_file elf_after = look_at_file("prog.elf"), after = look_at_file("prog.dnm");
    require(run.is_fatal() == (elf_after == elf_before), run, "no map keeps a file from its strip");
    if (run.has_said("failed to read")) {
        require(after == before, run, "a map that cannot be read stays as it was");
    } else if (run.has_said("failed to write")) {
        require(!after.exists(), run, "there is no part of a map");
    } else if (!run.is_fatal()) {
        const execution reading = run_routine(read_map);
        require(reading.status == 0, reading, "a new map is sound");
    }
    clear_directory();
    return 0;
}
