// Options: the table of spellings, the limits of the name lists, and the reconciliation.
#include "util/options.h"

#include <cstring>
#include <span>

#include "shared/genexit.h"
#include "util/elfpolicy.h"
#include "util/version.h"

namespace {

void show_version(strip_options&) {
    gen_plain("%s", version_stamp(VERSION_TEXT).c_str());
}

void set_output_name(strip_options& options, const char* value) {
    options.output_name = value;
}

void set_prefixed_messages(strip_options&) {
    gen_sink().gen_prefixed_messages = true;
}

void set_forced_kind(strip_options& options) {
    options.forced_kind = true;
}

void remove_named_section(strip_options& options, const char* value) {
    options.strip_flags.remove_named = true;
    add_remove_section(options, value);
}

void prepare_intermediate_dll(strip_options& options) {
    options.strip_flags.strip_unneeded = true;
    options.strip_flags.secrel_reloc = true;
    options.strip_flags.keep_used_common = true;
    for (const char* name : {"_ctors", "_init", "_fini", "__call_dtors__Fv", "..orv.intsharedlib*"})
        add_keep_symbol(options, name);
}

// One spelling: it sets a flag, runs a routine, or hands on the value behind it.
struct option_row {
    const char* spelling;
    bool option_flags::*flag = nullptr;
    bool setting = true;
    void (*action)(strip_options& options) = nullptr;
    // The spelling is a prefix then.
    void (*value_action)(strip_options& options, const char* value) = nullptr;
};

constexpr option_row option_rows[] = {
    {.spelling = "-prefixed_msgs", .action = set_prefixed_messages},
    {.spelling = "-help", .action = print_usage},
    {.spelling = "-V", .action = show_version},
    {.spelling = "-F", .action = set_forced_kind},
    {.spelling = "-a", .flag = &option_flags::all_unallocated},
    {.spelling = "-vxworks", .flag = &option_flags::vxworks},
    {.spelling = "-x", .flag = &option_flags::keep_symtab},
    {.spelling = "-l", .flag = &option_flags::lines_only},
    {.spelling = "-o=", .value_action = set_output_name},
    {.spelling = "-r=", .value_action = remove_named_section},
    {.spelling = "--remove-section=", .value_action = remove_named_section},
    {.spelling = "-wildcards_in_secnames", .flag = &option_flags::wildcards},
    {.spelling = "-wl=", .value_action = add_keep_symbol},
    {.spelling = "--keep-symbol=", .value_action = add_keep_symbol},
    {.spelling = "-bl=", .value_action = add_strip_symbol},
    {.spelling = "--strip-symbol=", .value_action = add_strip_symbol},
    {.spelling = "-s", .flag = &option_flags::strip_unneeded},
    {.spelling = "--strip-unneeded", .flag = &option_flags::strip_unneeded},
    {.spelling = "--strip-orv-debug", .flag = &option_flags::strip_orv_debug},
    {.spelling = "--convert-to-secrel-reloc", .flag = &option_flags::secrel_reloc},
    {.spelling = "--keep-used-common", .flag = &option_flags::keep_used_common},
    {.spelling = "--no-keep-used-common",
     .flag = &option_flags::keep_used_common,
     .setting = false},
    {.spelling = "--update-dnm", .flag = &option_flags::dont_update_dnm, .setting = false},
    {.spelling = "--dont-update-dnm", .flag = &option_flags::dont_update_dnm},
    {.spelling = "--idll", .action = prepare_intermediate_dll},
    {.spelling = "-X1", .flag = &option_flags::reloc_kind_never},
    {.spelling = "-X2", .flag = &option_flags::reloc_kind_always},
    {.spelling = "-stripreloc", .flag = &option_flags::strip_reloc},
    {.spelling = "-X3", .flag = &option_flags::reserved_x3},
};

const option_row* find_option(const char* argument) {
    for (const option_row& row : option_rows) {
        const bool matches = row.value_action
                                 ? strncmp(argument, row.spelling, strlen(row.spelling)) == 0
                                 : strcmp(argument, row.spelling) == 0;
        if (matches)
            return &row;
    }
    return nullptr;
}

struct list_limit {
    name_list strip_options::*names;
    size_t limit;
    const char* complaint; // with the limit as %d
};

constexpr list_limit remove_sections = {&strip_options::remove_section_list, 99,
                                        "Too many -r options, limit is %d"};
constexpr list_limit keep_symbols = {&strip_options::keep_symbol_list, 999,
                                     "Too many --keep-symbol= options, limit is %d"};
constexpr list_limit strip_symbols = {&strip_options::strip_symbol_list, 999,
                                      "Too many --strip-symbol= options, limit is %d"};

void add_name(strip_options& options, const list_limit& list, const char* name) {
    name_list& names = options.*list.names;
    if (names.count >= list.limit)
        gen_fatal(status_failure, list.complaint, static_cast<int>(list.limit));
    append_name(names, name);
}

void add_default_sections(strip_options& options, std::span<const char* const> names) {
    for (const char* name : names)
        add_remove_section(options, name);
}

} // namespace

void parse_option(strip_options& options, const char* argument) {
    if (options.options_frozen)
        print_usage(options);
    const option_row* row = find_option(argument);
    if (!row) {
        gen_warning("unrecognized option, %s (ignored)", argument);
        print_usage(options);
    } else if (row->flag) {
        options.strip_flags.*row->flag = row->setting;
    } else if (row->action) {
        row->action(options);
    } else {
        row->value_action(options, argument + strlen(row->spelling));
    }
}

void add_remove_section(strip_options& options, const char* name) {
    add_name(options, remove_sections, name);
}

void add_keep_symbol(strip_options& options, const char* name) {
    add_name(options, keep_symbols, name);
}

void add_strip_symbol(strip_options& options, const char* name) {
    add_name(options, strip_symbols, name);
}

namespace {

void settle(strip_options& options) {
    option_flags& flags = options.strip_flags;
    // Decided before -l may be taken back below: a -l that is ignored still is no default mode.
    const bool default_mode = !flags.all_unallocated && !flags.keep_symtab &&
                              !flags.strip_unneeded && !flags.lines_only && !flags.remove_named &&
                              !flags.strip_orv_debug;
    if (flags.lines_only && flags.vxworks) {
        gen_warning("Option %s ignored due to the presence of the %s option", "l", "-vxworks");
        flags.lines_only = false;
    }
    if (flags.secrel_reloc && !flags.strip_unneeded) {
        gen_warning("Option %s ignored as it requires presence of the %s option",
                    "--convert-to-secrel-reloc", "--strip-unneeded");
        flags.secrel_reloc = false;
    }
    if (default_mode && !flags.strip_reloc)
        add_default_sections(options, symbol_table_names);
    if (default_mode || flags.strip_unneeded || flags.strip_orv_debug)
        add_default_sections(options, orv_debug_names);
    if (default_mode || flags.keep_symtab || flags.strip_unneeded)
        add_default_sections(options, debug_names);
    if (default_mode || flags.keep_symtab || flags.lines_only || flags.strip_unneeded)
        add_default_sections(options, line_number_names);
    if (flags.strip_unneeded || flags.strip_orv_debug)
        add_strip_symbol(options, local_name_pattern);
    options.options_frozen = true;
}

} // namespace

void reconcile_options(strip_options& options) {
    if (!options.options_frozen)
        settle(options);
    if (options.strip_flags.wildcards)
        prepare_patterns(options.remove_section_list);
    prepare_patterns(options.keep_symbol_list);
    prepare_patterns(options.strip_symbol_list);
}

void print_usage(strip_options& options) {
    if (options.usage_printed)
        return;
    options.usage_printed = true;
    gen_eprintf("usage: %s [options] [files]\n"
                "\t-a          remove all unallocated sections except .shstrtab (ELF only)\n"
                "\t-l          strip line number information only\n"
                "\t-r=secname  strip sections named secname\n"
                "\t-stripreloc enable stripping of relocatable objects and libraries\n"
                "\t-x          do not strip the symbol table\n"
                "\t-V          display the version number\n"
                "\t-help       display this message\n",
                gen_program_name());
}
