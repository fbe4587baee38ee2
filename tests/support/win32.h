// Processes on Windows, for the runner and for children.
#pragma once

#include <string>
#include <windows.h>

struct child_streams {
    HANDLE in, out, err;
};

// A file that a child inherits. INVALID_HANDLE_VALUE when it cannot be opened.
HANDLE open_for_child(const char* name, DWORD access, DWORD disposition);
// Runs a command line and closes the streams. The exit status, -1 when it did not start, 255 when
// it hung. Null: this process's own directory and environment.
int run_process(std::string line, const child_streams& streams, const char* directory,
                const char* environment);
// Carriage returns before new-lines taken out.
std::string unix_lines(std::string text);
