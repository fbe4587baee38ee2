// Start-up of the program: its name and path, and what every tool of the tool chain prepares.
#pragma once

#include <string>

enum gen_viewpath_mode { GEN_VIEWPATH_OFF = 0, GEN_VIEWPATH_SLOW = 1, GEN_VIEWPATH_FAST = 2 };

struct gen_init_options {
    int viewpath_mode = GEN_VIEWPATH_SLOW;
};

// Once, before any other service; again only to give the program another path. `given_path` is the
// first entry of the command line. The vector `argv` of `argc` entries is where settings of the
// tool chain would be taken from; the arguments of a tool itself are not to be handed in.
void gen_init(const char* given_path, int& argc, const char** argv,
              const gen_init_options& options);

// The full path of the running program: as given when that is absolute, else as the host has it.
const std::string& gen_program_path();

// What the start of the host's socket library answered; 0 is success.
int gen_network_status();
