// Options: what those of the table do, the limits of the name lists, and the reconciliation.
#include "util/options.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "shared/genexit.h"
#include "util/elfpolicy.h"
#include "util/optiontable.h"
#include "util/version.h"

namespace {

constexpr size_t usage_column = 12;

const option_row* find_option(std::string_view argument) {
    for (const option_row& row : option_table)
        for (const std::string_view spelling : {row.spelling, row.alias}) {
            const std::string_view name = option_name(spelling);
            if (name.ends_with('=') ? argument.starts_with(name) : argument == name)
                return &row;
        }
    return nullptr;
}

// A list that is full ends the program.
void add_name(name_list& names, unsigned limit, const char* option, const char* name) {
    if (names.count >= limit)
        gen_fatal(status_failure, "Too many %s options, limit is %u", option, limit);
    append_name(names, name);
}

void add_remove_section(strip_options& options, const char* name) {
    add_name(options.remove_section_list, 99, "-r", name);
}

void add_keep_symbol(strip_options& options, const char* name) {
    add_name(options.keep_symbol_list, 999, "--keep-symbol=", name);
}

void add_strip_symbol(strip_options& options, const char* name) {
    add_name(options.strip_symbol_list, 999, "--strip-symbol=", name);
}

void add_default_sections(strip_options& options, std::span<const char* const> names) {
    for (const char* name : names)
        add_remove_section(options, name);
}

// The value is what follows "=".
void run_option(strip_options& options, const option_row& row, const char* value) {
    switch (row.action) {
    case SET_FLAG:
    case CLEAR_FLAG:
        options.strip_flags.*row.flag = row.action == SET_FLAG;
        return;
    case REMOVE_SECTION:
        options.strip_flags.remove_named = true;
        return add_remove_section(options, value);
    case KEEP_SYMBOL:
        return add_keep_symbol(options, value);
    case STRIP_SYMBOL:
        return add_strip_symbol(options, value);
    case PREPARE_IDLL:
        for (const char* option :
             {"-s", "--convert-to-secrel-reloc", "--keep-used-common", "-wl=_ctors", "-wl=_init",
              "-wl=_fini", "-wl=__call_dtors__Fv", "-wl=..orv.intsharedlib*"})
            parse_option(options, option);
        return;
    case SET_OUTPUT:
        options.output_name = value;
        return;
    case FORCE_KIND:
        options.forced_kind = true;
        return;
    case PREFIX_MESSAGES:
        gen_sink().gen_prefixed_messages = true;
        return;
    case SHOW_VERSION:
        return gen_plain("%s", version_stamp(VERSION_TEXT).c_str());
    case SHOW_USAGE:
        return print_usage(options);
    }
}

} // namespace

void parse_option(strip_options& options, const char* argument) {
    if (options.options_frozen)
        print_usage(options);
    if (const option_row* row = find_option(argument)) {
        const char* const equals = strchr(argument, '=');
        run_option(options, *row, equals ? equals + 1 : "");
    } else {
        gen_warning("unrecognized option, %s (ignored)", argument);
        print_usage(options);
    }
}

void reconcile_options(strip_options& options) {
    if (options.options_frozen)
        return;
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

// Each spelling of the usage text is filled up to where its words begin.
static_assert(std::ranges::all_of(option_table, [](const option_row& row) {
    return row.place != IN_USAGE || row.spelling.size() < usage_column;
}));

void print_usage(strip_options& options) {
    if (options.usage_printed)
        return;
    options.usage_printed = true;
    std::string text = std::string("usage: ") + gen_program_name() + " [options] [files]\n";
    for (const option_row& row : option_table) {
        if (row.place != IN_USAGE)
            continue;
        std::string line(row.spelling);
        line.resize(usage_column, ' ');
        text.append("\t").append(line).append(row.usage.empty() ? row.brief : row.usage) += '\n';
    }
    gen_eprintf("%s", text.c_str());
}
