// Programs started directly, without a shell: quick, many at once, and open to signals.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

#include "support/runner.h"

struct process {
    pid_t id = -1;
    int errors = -1; // the end of a pipe that takes what it writes to standard error
};

// In the directory, with these settings as its whole environment. `prepare` is called in
// the child before the program. A program that hangs is ended by SIGALRM.
process start(const std::string& directory, const std::string& program, const words& arguments,
              const words& environment = {}, const std::function<void()>& prepare = nullptr);
// Waits for it, and for those to whom it left its standard error.
run_result end_of(process& started);

// Tests that go through many moments or sizes go through more of them in a long run, which the
// variable OBJTRIM_STRESS asks for with the factor.
int stress_factor();
