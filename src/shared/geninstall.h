// Where the tool chain is installed.
#pragma once

#include <optional>
#include <string>

// What is asked for: the programs beside this one, or one of two others. The last one is the
// installation as a whole.
enum gen_install_type { GEN_INSTALL_TOOLS = 2, GEN_INSTALL_HOST = 3, GEN_INSTALL_WHOLE = 4 };

// The install directories of one program, as far as they are known. Every warning comes once.
struct gen_install_dirs {
    const std::string& program_path;
    std::optional<std::string> known[GEN_INSTALL_WHOLE - GEN_INSTALL_TOOLS + 1] = {};
    std::optional<bool> is_kestrel = {};
    bool warned_of_program = false;
    bool warned_of_type = false;
    bool warned_of_directory = false;
};

// The directory of the running program. Nothing, after one warning, when it cannot be had.
std::optional<std::string> gen_getprogdir(gen_install_dirs& dirs);

// The install directory of a gen_install_type: beside the program, or where the first line of the
// file ".redirect_host32" beside it leads. Any other type gives nothing, with one warning.
std::optional<std::string> gen_getinstalldir(gen_install_dirs& dirs, int type);
