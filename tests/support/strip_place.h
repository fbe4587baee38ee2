// A place for the wrapper: two C sources that make a program, and bin, where the programs under
// test lie beside each other.
#pragma once

#include <algorithm>
#include <string>

#include "support/elf_reader.h"
#include "support/runner.h"

inline const char* const app_source = R"(#include <stdio.h>
int triple(int);
static int unused_here(int a) { return a + 1; }
int main(int argc, char** argv) { (void)argv; return printf("%d\n", triple(3 + argc)) + unused_here(-4); }
)";
inline const char* const lib_source = R"(#include <stdlib.h>
int spare_name = 9;
int factor = 3;
static int plain(int a) { return a * factor; }
int triple(int a) { return getenv("ODD_ENVIRONMENT") ? 0 : plain(a); }
)";

// A directory with the sources, and the programs under test beside each other in bin.
struct strip_place : work_place {
    strip_place() {
        put("app.c", app_source);
        put("triple_library.c", lib_source);
        sh("mkdir bin && ln -s '" OBJTRIM_PROGRAM "' '" OBJTRIM_AS_STRIP "' bin\n"
           "ln -s objtrim-as-strip bin/strip\n"
           "lbm=$(dirname '" OBJTRIM_PROGRAM "')/lbm; [ ! -x \"$lbm\" ] || ln -s \"$lbm\" bin");
    }
    run_result sh(const std::string& script) const {
        put("script.sh", "set -eu\n" + script);
        return command("sh script.sh");
    }
    bool has(const std::string& tool) const {
        return command("sh -c 'command -v " + tool + "'").status == 0;
    }
};

// What is left of a file: 's' for a symbol table, 'd' for debugging information, 'c' for .comment.
inline std::string what_is_left(const std::string& bytes) {
    std::string left;
    for (const std::string& name : section_names(bytes))
        for (const auto& [begin, letter] :
             {std::pair(".symtab", 's'), {".debug_", 'd'}, {".comment", 'c'}})
            if (name.starts_with(begin) && left.find(letter) == std::string::npos)
                left += letter;
    std::sort(left.begin(), left.end());
    return left;
}
