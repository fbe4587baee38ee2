// Options: what the command line says.
//
// Options act on the file operands that follow them. The first ELF file settles which of them go
// together and fills in the default names; later options still change flags and lists.
#pragma once

#include <optional>
#include <string>

#include "util/namelist.h"

struct option_flags {
    bool vxworks = false;           // -vxworks: only empty the ".debug" section, in place
    bool all_unallocated = false;   // -a: remove every section that is not allocated
    bool keep_symtab = false;       // -x: do not strip the symbol table
    bool lines_only = false;        // -l: line numbers only
    bool remove_named = false;      // -r=, --remove-section=
    bool strip_unneeded = false;    // -s, --strip-unneeded, --idll
    bool strip_orv_debug = false;   // --strip-orv-debug: the tool chain's own debug sections
    bool secrel_reloc = false;      // --convert-to-secrel-reloc, --idll
    bool keep_used_common = false;  // --keep-used-common, --idll
    bool dont_update_dnm = false;   // --dont-update-dnm
    bool reloc_kind_never = false;  // -X1
    bool reloc_kind_always = false; // -X2
    bool strip_reloc = false;       // -stripreloc: relocatable objects are stripped too
    bool reserved_x3 = false;       // -X3: accepted, read by nothing
    bool wildcards = false;         // -wildcards_in_secnames
};

// The state of the options. A run has one; nothing is reset between its files.
struct strip_options {
    option_flags strip_flags;
    bool forced_kind = false;               // -F: COFF strippers take what is not recognised
    std::optional<std::string> output_name; // -o=
    bool options_frozen = false;            // an ELF file has been met
    bool usage_printed = false;
    name_list remove_section_list;
    name_list keep_symbol_list;
    name_list strip_symbol_list;
};

// Applies one argument that begins with "-". Its text must outlive the options. A list of names
// that is full ends the program with status 1.
void parse_option(strip_options& options, const char* argument);

// Settles conflicts, adds the default names, and freezes the options, before the first ELF file.
// Does nothing a second time.
void reconcile_options(strip_options& options);

// The usage text on the standard error stream, once a run.
void print_usage(strip_options& options);
