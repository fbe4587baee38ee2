// The frame of one ELF strip: its steps in order, the output file, and the replacement.
//
// Everything that can be refused is refused before the output is opened. The output is a complete
// new file beside the input, which a rename then replaces; only -vxworks patches in place.
#include "util/elfstrip.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "shared/genexit.h"
#include "shared/genpath.h"
#include "shared/genreplace.h"
#include "shared/host.h"
#include "util/dnmupdate.h"
#include "util/elfimage.h"
#include "util/elflayout.h"
#include "util/elfoverlap.h"
#include "util/elfplan.h"
#include "util/options.h"

namespace {

struct strip_job {
    const strip_options& options;
    gen_temp_space& temp;
    const char* name; // as typed, for messages
    gen_stream_ptr input;
    std::string input_name = {}; // the file itself
    host_status input_status = {};
    elf_image image = {.name = name, .stream = input.get()};

    std::string result_name = {};
    gen_unfinished_file unfinished = {}; // the result, until it has taken the input's place
    bool replaces_input = false;         // the result is renamed over the input
    bool is_part = false;                // there is no input of this name yet
    gen_stream_ptr result = {};
};

bool is_opened_file(const strip_job& job, const std::optional<host_status>& named) {
    const host_status& opened = job.input_status;
    return named && named->device == opened.device && named->number == opened.number;
}

// Finds the file that the result is to replace. False after a report: it is not certain which.
bool find_input(strip_job& job) {
    job.input_status = job.input->opened;
    job.input_name = job.name;
    const std::optional<host_status> named = host_status_of_link(job.name);
    if (named && named->is_regular && is_opened_file(job, named))
        return true; // the usual case: no link is in the way
    job.input_name = gen_real_name(job.name);
    if (is_opened_file(job, host_status_of(job.input_name.c_str())))
        return true;
    gen_error("file '%s' is not stripped: its name does not lead to the file that was opened",
              job.name);
    return false;
}

bool is_refused_object(const strip_job& job) {
    if (job.image.elfhead.e_type != ET_REL || job.options.strip_flags.strip_reloc)
        return false;
    gen_error("Unable to strip relocatable ELF file '%s'", job.name);
    return true;
}

// VxWorks images only lose the size of their ".debug" section: its header is patched in place.
void empty_debug_section(strip_job& job) {
    elf_image& image = job.image;
    for (size_t i = 0; i < image.sechead.size(); ++i) {
        elf_section_header& section = image.sechead[i];
        if (strcmp(section_name(image, section), ".debug") != 0)
            continue;
        section.sh_size = 0;
        job.result_name = job.name;
        job.result = gen_safe_fopen(job.name, "ELF file", "rb+");
        const uint64_t at = image.elfhead.e_shoff + i * section_header_stride(image);
        elf_seek(job.name, *job.result, at);
        elf_write_secheaders(image.elf, job.name, *job.result, {&section, 1});
        return;
    }
    gen_warning("failed to find the .debug section in '%s'", job.name);
}

void open_result(strip_job& job) {
    job.replaces_input = job.is_part || elf_result_replaces(job.options, job.name);
    if (job.replaces_input) {
        const std::optional<std::string> temporary =
            gen_temp_name(job.temp, gen_tmpdir(job.temp), "tmp");
        if (!temporary)
            gen_fatal(status_failure, "Unable to open output file %s", job.name);
        job.result_name = *temporary;
        job.unfinished.guard(*temporary);
    } else {
        job.result_name = *job.options.output_name;
    }
    job.result =
        gen_safe_fopen(job.result_name.c_str(), "output file", job.replaces_input ? "wbx" : "wb");
}

int set_permissions(const strip_job& job) {
    const int result = job.result->descriptor;
    return job.is_part ? host_set_mode(result, job.input_status.mode)
                       : gen_copy_owner_and_mode(result, job.input_status);
}

// A result that lacks bytes does not take the place of anything, whichever file they were lost in.
// Some hosts tell only as a file is closed that it could not be written.
void close_result(strip_job& job) {
    gen_safe_fflush(job.result_name.c_str(), job.result.get());
    if (job.input->read_error != 0) {
        errno = job.input->read_error;
        gen_perror_exit(status_failure, "Error reading from '%s'", job.name);
    }
    // Before the rename, so that nobody ever finds the new file without its permissions.
    if (job.replaces_input && set_permissions(job) != 0)
        gen_perror("can't set the permissions of '%s'", job.name);
    if (gen_safe_fclose(job.result_name.c_str(), "output file", std::move(job.result)) != 0)
        gen_exit(status_failure);
}

// Closes both files and puts the result in its place.
void finish(strip_job& job) {
    if (job.result)
        close_result(job);
    job.input.reset();
    if (job.replaces_input && host_rename(job.result_name.c_str(), job.input_name.c_str()) != 0)
        gen_fatal(status_failure, "can't rename %s to %s", job.result_name.c_str(), job.name);
}

// False when there is nothing to change, or after a report of damage. Damage is told before any
// assertion of the rewrite can fire, as soon as it is certain that the file changes.
bool plan_changes(const strip_options& options, elf_image& image, strip_plan& plan) {
    plan.sections = plan_sections(options, image);
    const bool removes = removes_sections(plan.sections);
    if ((removes && !removal_is_safe(image, plan.sections)) ||
        !read_symbols(image, plan.sections, plan.symbols) ||
        !read_relocations(options.strip_flags, image, plan.sections, plan.symbols,
                          plan.relocations))
        return false;
    if (removes && !relocations_are_sound(image, plan.symbols, plan.relocations))
        return false;
    if (plan.symbols.present)
        rewrite_symbols(options, image, plan.sections, plan.symbols);
    if (removes)
        return true;
    return drops_symbols(plan.symbols) &&
           relocations_are_sound(image, plan.symbols, plan.relocations);
}

void write_result(strip_job& job, strip_plan& plan) {
    elf_layout_plan layout = order_by_offset(job.image);
    if (plan.symbols.present)
        prepare_symbol_output(job.image.elf, plan.sections, plan.symbols);
    const output_file output = {job.result_name.c_str(), *job.result};
    write_sections(job.image, plan, layout, output);
    if (!job.options.strip_flags.dont_update_dnm)
        update_dnm(job.temp, job.image, plan.sections, layout);
    write_headers(job.image, plan, layout, output);
}

void strip(strip_job& job) {
    if (!read_image(job.image) || is_refused_object(job) || !names_are_sound(job.image))
        return;
    if (job.options.strip_flags.vxworks)
        return empty_debug_section(job);
    job.temp.input_directory = gen_directory_part(job.input_name);
    strip_plan plan;
    if (!plan_changes(job.options, job.image, plan))
        return;
    open_result(job);
    write_result(job, plan);
}

} // namespace

bool elf_result_replaces(const strip_options& options, const char* name) {
    return !options.strip_flags.vxworks &&
           (!options.output_name || same_file_name(*options.output_name, name));
}

void elf_strip(const strip_options& options, gen_temp_space& temp, gen_stream_ptr stream,
               const char* name) {
    strip_job job = {options, temp, name, std::move(stream)};
    if (find_input(job))
        strip(job);
    finish(job);
}

bool elf_strip_part(const strip_options& options, gen_temp_space& temp, gen_stream_ptr stream,
                    const char* name, uint32_t mode) {
    strip_job job = {options, temp, name, std::move(stream)};
    job.input_name = name;
    job.input_status.mode = mode;
    job.is_part = true;
    strip(job);
    finish(job);
    return job.replaces_input;
}
