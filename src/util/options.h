// Options: what the command line says, kept for the whole run.
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

extern option_flags strip_flags;
extern bool forced_kind;                       // -F: COFF strippers take what is not recognised
extern std::optional<std::string> output_name; // -o=
extern bool options_frozen;                    // an ELF file has been met
extern name_list remove_section_list;
extern name_list keep_symbol_list;
extern name_list strip_symbol_list;

// Applies one argument that begins with "-". Its text must outlive the run.
void parse_option(const char* argument);

// Each adds a name; a list that is full ends the program with status 1.
void add_remove_section(const char* name);
void add_keep_symbol(const char* name);
void add_strip_symbol(const char* name);

// Settles conflicts, adds the default names, and freezes the options. Does nothing a second time.
void reconcile_options();

// The usage text on the standard error stream, once a run.
void print_usage();
