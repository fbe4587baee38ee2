// Start-up of the program: its name and path, and what every tool of the tool chain prepares.
#pragma once

#include <string>

enum gen_viewpath_mode { GEN_VIEWPATH_OFF = 0, GEN_VIEWPATH_SLOW = 1, GEN_VIEWPATH_FAST = 2 };

struct gen_init_options {
    int viewpath_mode = GEN_VIEWPATH_SLOW;
};

// What is known of the running program.
struct gen_program {
    std::string gen_program_path; // as given when that is absolute, else as the host has it
    std::string gen_program_name; // messages refer to this very text
    int network_status = 0;       // what the start of the host's socket library answered
};

// Once, before any other service; again only to give the program another path. `given_path` is the
// first entry of the command line. The vector `argv` of `argc` entries is where settings of the
// tool chain would be taken from; the arguments of a tool itself are not to be handed in. `program`
// lives as long as messages are made.
void gen_init(gen_program& program, const char* given_path, int& argc, const char** argv,
              const gen_init_options& options);
