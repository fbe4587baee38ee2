// The entry: arguments from left to right, each file to the stripper of its kind.
#include <cstring>
#include <utility>

#include "shared/genexit.h"
#include "shared/genfile.h"
#include "util/archstrip.h"
#include "util/coffstrip.h"
#include "util/elfstrip.h"
#include "util/pestrip.h"
#include "util/run.h"

namespace {

void close_operand(const char* name, gen_stream_ptr stream) {
    gen_safe_fclose(name, "executable", std::move(stream));
}

void take_option(strip_run& run, const char* argument) {
    if (strcmp(argument, "-help") == 0 || strcmp(argument, "-V") == 0)
        run.file_seen = true;
    parse_option(run.options, argument);
}

void route(strip_run& run, gen_stream_ptr stream, const char* name, const objinfo& info) {
    const bool known = info.target != 0;
    switch (info.kind) {
    case OBJ_ELF:
        if (known) {
            reconcile_options(run.options);
            return elf_strip(run.options, run.temp, std::move(stream), name);
        }
        gen_error("file %s is not a known ELF type\n", name);
        break;
    case OBJ_PECOFF:
        if (known || run.options.forced_kind)
            return pecoff_strip(std::move(stream), name, info);
        gen_error("file '%s' is not a known PE/COFF type", name);
        break;
    case OBJ_ARCHIVE:
    case OBJ_ARCHIVE64:
        close_operand(name, std::move(stream));
        if (archive_strip(run, name) != 0)
            gen_error("failed to strip file '%s'", name);
        return;
    default:
        if (run.options.forced_kind || (known && (info.kind == OBJ_COFF || info.kind == OBJ_XCOFF)))
            return coff_strip(std::move(stream), name, info, run.history.ti_coff,
                              run.coff_wide_counts);
        gen_error("file '%s' is not COFF/ELF", name);
    }
    close_operand(name, std::move(stream));
}

void take_file(strip_run& run, const char* name) {
    gen_stream_ptr stream = gen_safe_fopen(name, "executable", "rb+");
    run.file_seen = true;
    if (const objinfo* info = obj_identify(run.history, stream.get(), nullptr)) {
        route(run, std::move(stream), name, *info);
    } else {
        gen_error("file '%s' is not BSD/COFF/ELF", name);
        close_operand(name, std::move(stream));
    }
}

} // namespace

int main(int argc, char** argv) {
    // The tool chain's switch settings are no concern of objtrim's own arguments: start-up sees
    // only the program path.
    const char* program_path[] = {argc > 0 ? argv[0] : ""};
    int program_path_count = 1;
    strip_run run;
    gen_use_sink(run.messages);
    gen_init(run.program, program_path[0], program_path_count, program_path, gen_init_options());

    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] == '-')
            take_option(run, argv[i]);
        else
            take_file(run, argv[i]);
    }
    if (!run.file_seen) {
        gen_error("File argument required.");
        print_usage(run.options);
    }
    if (run.messages.gen_total_errors != 0)
        gen_exit(status_failure);
    gen_exit_success();
}
