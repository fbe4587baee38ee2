// The program, run whole and in process: each execution is a run of its entry with arguments, ends
// as the program would, and leaves nothing behind for the next one.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct said_message {
    uint32_t level;
    std::string text;
};

struct execution {
    int status = -1; // exit status
    std::vector<said_message> said;

    bool has_said(const char* part) const;
    bool is_fatal() const; // the run has ended by a fatal message or an assertion
};

// It has the word of a fatal message, but a section that reaches past the end of its file is copied
// as far as it goes, and the strip goes on.
constexpr const char* survived_error = "Error reading from";

// Runs objtrim in the scratch directory of this process, which is the current directory and has
// nothing in it but what the caller puts there. The archiver is run in process, too.
execution run_objtrim(const std::vector<const char*>& arguments);
// The same for anything else that may end the program. If `body` returns, the status is
// 1 if it has reported errors.
execution run_routine(const std::function<void()>& body);

// Where the program's temporary directory is: nothing may be left in it.
const std::string& program_tmpdir();
