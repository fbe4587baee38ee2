// What the files of the POSIX host share; nothing else includes it.
#pragma once

#include <cerrno>
#include <sys/stat.h>

#include "shared/host.h"

// Puts errno back at the end of a scope, unless a failure is to be seen.
struct errno_keeper {
    int saved = errno;
    ~errno_keeper() { errno = saved; }
    // For a result of -1 on failure: shows the reason then, after the end of the scope.
    template <typename Result>
    Result pass(Result result) {
        if (result < 0)
            saved = errno;
        return result;
    }
};

// Part of the start: see host_guard_file.
void host_handle_interrupts();

host_status host_status_from(const struct stat& from);
