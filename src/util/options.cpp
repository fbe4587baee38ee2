// Options: the table of spellings, the limits of the name lists, and the reconciliation.
#include "util/options.h"

#include <cstring>
#include <span>

#include "shared/genout.h"
#include "util/elfpolicy.h"
#include "util/version.h"

option_flags strip_flags;
bool forced_kind;
std::optional<std::string> output_name;
bool options_frozen;
name_list remove_section_list;
name_list keep_symbol_list;
name_list strip_symbol_list;

namespace {

void show_version() {
    gen_plain("%s", version_stamp(VERSION_TEXT).c_str());
}

void set_output_name(const char* value) {
    output_name = value;
}

void set_prefixed_messages() {
    gen_prefixed_messages = true;
}

void set_forced_kind() {
    forced_kind = true;
}

void remove_named_section(const char* value) {
    strip_flags.remove_named = true;
    add_remove_section(value);
}

void prepare_intermediate_dll() {
    strip_flags.strip_unneeded = true;
    strip_flags.secrel_reloc = true;
    strip_flags.keep_used_common = true;
    for (const char* name : {"_ctors", "_init", "_fini", "__call_dtors__Fv", "..orv.intsharedlib*"})
        add_keep_symbol(name);
}

// One spelling: it sets a flag, runs a routine, or hands on the value behind it.
struct option_row {
    const char* spelling;
    bool option_flags::*flag = nullptr;
    bool setting = true;
    void (*action)() = nullptr;
    void (*value_action)(const char* value) = nullptr; // the spelling is a prefix then
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

struct limited_list {
    name_list& names;
    size_t limit;
    const char* complaint; // with the limit as %d
};

const limited_list remove_sections = {remove_section_list, 99, "Too many -r options, limit is %d"};
const limited_list keep_symbols = {keep_symbol_list, 999,
                                   "Too many --keep-symbol= options, limit is %d"};
const limited_list strip_symbols = {strip_symbol_list, 999,
                                    "Too many --strip-symbol= options, limit is %d"};

void add_name(const limited_list& list, const char* name) {
    if (list.names.count >= list.limit)
        gen_fatal(status_failure, list.complaint, static_cast<int>(list.limit));
    append_name(list.names, name);
}

void add_default_sections(std::span<const char* const> names) {
    for (const char* name : names)
        add_remove_section(name);
}

} // namespace

void parse_option(const char* argument) {
    if (options_frozen)
        print_usage();
    const option_row* row = find_option(argument);
    if (!row) {
        gen_warning("unrecognized option, %s (ignored)", argument);
        print_usage();
    } else if (row->flag) {
        strip_flags.*row->flag = row->setting;
    } else if (row->action) {
        row->action();
    } else {
        row->value_action(argument + strlen(row->spelling));
    }
}

void add_remove_section(const char* name) {
    add_name(remove_sections, name);
}

void add_keep_symbol(const char* name) {
    add_name(keep_symbols, name);
}

void add_strip_symbol(const char* name) {
    add_name(strip_symbols, name);
}

void reconcile_options() {
    if (options_frozen)
        return;
    option_flags& flags = strip_flags;
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
        add_default_sections(symbol_table_names);
    if (default_mode || flags.strip_unneeded || flags.strip_orv_debug)
        add_default_sections(orv_debug_names);
    if (default_mode || flags.keep_symtab || flags.strip_unneeded)
        add_default_sections(debug_names);
    if (default_mode || flags.keep_symtab || flags.lines_only || flags.strip_unneeded)
        add_default_sections(line_number_names);
    if (flags.strip_unneeded || flags.strip_orv_debug)
        add_strip_symbol(local_name_pattern);
    options_frozen = true;
}

void print_usage() {
    static bool printed;
    if (printed)
        return;
    printed = true;
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
