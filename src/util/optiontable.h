// The table of options: how each is spelled, what it does, and what is said of it. The parser, the
// usage text, README, the manual, the completions and the choices of the fuzzer are made of it.
#pragma once

#include <string_view>

#include "util/options.h"

// What an option does; a flag needs no more than its row.
enum option_action {
    SET_FLAG,
    CLEAR_FLAG,
    REMOVE_SECTION,
    KEEP_SYMBOL,
    STRIP_SYMBOL,
    PREPARE_IDLL,
    SET_OUTPUT,
    FORCE_KIND,
    PREFIX_MESSAGES,
    SHOW_VERSION,
    SHOW_USAGE
};

// The shortest text that shows an option; the longer ones do, too.
enum option_place { IN_MANUAL, IN_README, IN_USAGE };

struct option_row {
    std::string_view spelling; // with what the value is called, as in "-r=secname"
    std::string_view alias;    // another spelling, as in "--remove-section=", or empty
    option_action action;
    bool option_flags::*flag; // of SET_FLAG and CLEAR_FLAG
    option_place place;
    std::string_view group;      // the list in the manual
    std::string_view brief;      // in markdown: a sentence without its capital and its full stop
    std::string_view more = "."; // what follows that in the manual
    std::string_view usage = {}; // what the usage text says instead
};

// What an argument that is this option begins with: all of the spelling or, of one that takes a
// value, up to its "=".
constexpr std::string_view option_name(std::string_view spelling) {
    const size_t equals = spelling.find('=');
    return equals == std::string_view::npos ? spelling : spelling.substr(0, equals + 1);
}

// The usage text and README keep this order, and so does each list in the manual.
inline constexpr option_row option_table[] = {
    {"-a", "", SET_FLAG, &option_flags::all_unallocated, IN_USAGE, "selection",
     "remove every section that is not loaded at run time",
     ", except **.shstrtab** and **.symtab_shndx**.",
     "remove all unallocated sections except .shstrtab (ELF only)"},
    {"-l", "", SET_FLAG, &option_flags::lines_only, IN_USAGE, "selection",
     "strip line number information only", " (**.line**, **.debug_line**)."},
    {"-r=secname", "--remove-section=", REMOVE_SECTION, nullptr, IN_USAGE, "selection",
     "remove the sections named *secname*",
     ", and the relocation sections for them. May be given many times. At most 99 names are "
     "accepted; the names that the other options add count.",
     "strip sections named secname"},
    {"-stripreloc", "", SET_FLAG, &option_flags::strip_reloc, IN_USAGE, "symbols",
     "enable stripping of relocatable objects and libraries",
     ". The symbol table and its strings are then kept."},
    {"--strip-orv-debug", "", SET_FLAG, &option_flags::strip_orv_debug, IN_README, "selection",
     "remove the tool chain's own debugging sections",
     " (**.linfix**, **.rominfo**) and the symbols whose names contain two dots."},
    {"-s", "--strip-unneeded", SET_FLAG, &option_flags::strip_unneeded, IN_README, "selection",
     "remove debugging information, line numbers and symbols that are not needed"},
    {"-x", "", SET_FLAG, &option_flags::keep_symtab, IN_USAGE, "selection",
     "remove debugging information and line numbers, but do not strip the symbol table", ".",
     "do not strip the symbol table"},
    {"-vxworks", "", SET_FLAG, &option_flags::vxworks, IN_MANUAL, "selection",
     "change nothing but the size of the **.debug** section, which becomes 0, in place",
     ". With this option **-l** is ignored, with a warning."},
    {"-wildcards_in_secnames", "", SET_FLAG, &option_flags::wildcards, IN_README, "names",
     R"(let a **\*** at either end (or both) of the names of sections to be removed stand )"
     R"(for any text)"},
    {"-wl=symbol", "--keep-symbol=", KEEP_SYMBOL, nullptr, IN_README, "names", "keep *symbol*",
     R"(; a **\*** at either end stands for any text. At most 999 names.)"},
    {"-bl=symbol", "--strip-symbol=", STRIP_SYMBOL, nullptr, IN_README, "names", "strip *symbol*",
     "; as above. At most 999 names."},
    {"--convert-to-secrel-reloc", "", SET_FLAG, &option_flags::secrel_reloc, IN_MANUAL, "symbols",
     "make relocations refer to sections instead of symbols; requires **-s**",
     ", and is ignored without it, with a warning."},
    {"--keep-used-common", "", SET_FLAG, &option_flags::keep_used_common, IN_MANUAL, "symbols",
     "keep common symbols that are used"},
    {"--no-keep-used-common", "", CLEAR_FLAG, &option_flags::keep_used_common, IN_MANUAL, "symbols",
     "do not keep common symbols that are used (the default)", ". The last one given counts."},
    {"--idll", "", PREPARE_IDLL, nullptr, IN_MANUAL, "symbols",
     "strip an intermediate shared library",
     R"(: the same as **-s**, **--convert-to-secrel-reloc** and **--keep-used-common**, and keep )"
     R"(the symbols **\_ctors**, **\_init**, **\_fini**, **\_\_call_dtors\_\_Fv** and )"
     R"(**..orv.intsharedlib\***.)"},
    {"-X1", "", SET_FLAG, &option_flags::reloc_kind_never, IN_MANUAL, "symbols",
     "never take a relocation as one that can be converted", "; wins over **-X2**."},
    {"-X2", "", SET_FLAG, &option_flags::reloc_kind_always, IN_MANUAL, "symbols",
     "always take a relocation as one that can be converted"},
    {"-X3", "", SET_FLAG, &option_flags::reserved_x3, IN_MANUAL, "symbols",
     "accepted and without effect"},
    {"-o=file", "", SET_OUTPUT, nullptr, IN_README, "output",
     "write the result to *file* and leave the input alone",
     ". The name holds for all files that follow, so each result overwrites the one before. When "
     "*file* is the input itself, which is decided without regard to the case of letters, the "
     "input is replaced. The permissions of the input are not copied. Nothing is written when "
     "there is nothing to remove."},
    {"--update-dnm", "", CLEAR_FLAG, &option_flags::dont_update_dnm, IN_MANUAL, "output",
     "bring the companion **.dnm** file of an executable up to date (the default)"},
    {"--dont-update-dnm", "", SET_FLAG, &option_flags::dont_update_dnm, IN_README, "output",
     "leave the companion **.dnm** file of an executable alone", ". The last one given counts."},
    {"-F", "", FORCE_KIND, nullptr, IN_MANUAL, "output",
     "hand a file that is not recognised to the COFF stripper instead of refusing it",
     ". No effect on ELF files and archives."},
    {"-prefixed_msgs", "", PREFIX_MESSAGES, nullptr, IN_README, "messages",
     "from here on, let messages carry upper-case level words",
     ": ERROR: FATAL, ERROR, WARNING and INFO instead of fatal, error, warning and info."},
    {"-V", "", SHOW_VERSION, nullptr, IN_USAGE, "messages", "display the version number",
     " on standard error."},
    {"-help", "", SHOW_USAGE, nullptr, IN_USAGE, "messages", "display the usage text",
     " on standard error.", "display this message"},
};
