// A record of runs, so that those of two hosts can be compared: one line for each run of the
// program that says what went in, what came out, what was said, and the exit status.
#pragma once

#include <string>

#include "support/runner.h"

// Begins before a run in a directory. Does nothing unless the environment names a file for records,
// OBJTRIM_TEST_RECORD, or when there is no directory.
class run_record {
public:
    explicit run_record(const std::string& directory);
    void write(const std::string& line, const run_result& result) const;

private:
    const std::string directory;
    const std::string before;
};
