// What the files of the POSIX host share; nothing else includes it.
#pragma once

#include <cerrno>
#include <sys/stat.h>

#include "shared/host.h"

// Puts errno back at the end of a scope, unless the failure is to be seen.
struct errno_keeper {
    int saved = errno;
    bool keep = true;
    ~errno_keeper() {
        if (keep)
            errno = saved;
    }
    // For a result of -1 on failure: shows the reason then.
    template <typename Result>
    Result pass(Result result) {
        keep = result >= 0;
        return result;
    }
};

// Part of the start: see host_guard_file.
void host_handle_interrupts();

host_status host_status_from(const struct stat& from);
