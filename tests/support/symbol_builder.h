// ELF files with symbols and relocations out of text, so that a case is a line that goes in and a
// line that must come out. Entries are separated by "; ":
//
//   a symbol: name [, binding and type, section, value, size, st_other]   main gF .text 16 8
//   a relocation: @section, offset, type, symbol [, addend]               @.rela.text 4 2 main 7
//
// '' is no name, and no section. Bindings are l, g and w, types N, O, F, S, f (file) and C. Beside
// names of sections there are ABS, COM and #n; instead of a symbol's name there is #n as well. What
// is not said is "gF .text 0 0 0", or 0.
#pragma once

#include <functional>
#include <string>

#include "support/elf_builder.h"
#include "support/runner.h"

// Some sections. What -x and -s remove stands among those that stay.
elf_draft base_draft(const elf_form& form);

struct symbol_draft {
    std::string entries = {};                 // less symbol 0
    std::string strings = {};                 // of ".strtab", "^" for NUL; empty: as needed
    elf_draft elf = base_draft(elf_forms[0]); // the tables come behind its sections
};

// The draft's file; the draft gets the tables that it lacks.
std::string build_symbols(symbol_draft& draft);

// Runs the program on a file, which then has the bytes of the result. What was said, without the
// line end: "(left) " before it when a temporary file is left, and behind it that something else is
// not as it has to be.
std::string trim_file(const std::string& options, std::string& file);
// The same of a draft whose result must be without these sections, and how it differs from that.
std::string trim_draft(const std::string& options, const elf_draft& draft,
                       const std::set<std::string>& removed);

// Strips a draft of each form for each case, "options | entries | expected |". Expected are the
// entries that stay; or "!" and what is said, if anything, of a file that stays as it is; or "~",
// if it only counts that nothing is said. In "{one/other}" the first text is for 32 bits, the other
// for 64. With -stripreloc the file is an object. Cases have options of their own:
//
//   ?=elf32 ?=big ...      for these forms only
//   +names=.strtab       the table that section names are in
//   +machine=37          what is added to the machine's number
//   +in=^a^ +out=^a^     the strings that go in and come out
//   #7:sh_size=9         a header field of section 7, for itself, is set to a number at the end;
//   #:e_type=1           or one of the file header
using draft_maker = std::function<elf_draft(const elf_form&)>;
void check_strips(const std::string& cases, const draft_maker& make = base_draft);
