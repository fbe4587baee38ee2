// Child processes.
#pragma once

// 1 when the program exists, 0 when `path` is a plain directory, -1 when it is empty or nothing is
// there. A path without extension is tried with ".exe" and, where programs have no suffix, as it
// is.
int gen_can_exec(const char* path);

// Runs `command_line` (program and arguments) and waits. `mode` with a "q" leaves the child without
// standard streams, else it inherits ours. The child's exit status, as host_run gives it.
int gen_run(const char* command_line, const char* mode);
