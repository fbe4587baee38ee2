// What the files of the Windows host share: the error number, and handles behind descriptors.
//
// A descriptor is one of the C runtime's, so that standard streams and files are told apart as on
// every host, but transfers go to the handle behind it.
#pragma once

#include <cerrno>
#include <cstdint>
#include <io.h>
#include <windows.h>

#include "shared/host.h"

// The error number for a reason that GetLastError gives.
int host_win32_error_number(DWORD reason);

// Puts errno back at the end of a scope, unless a failure is to be seen.
struct errno_keeper {
    int saved = errno;
    ~errno_keeper() { errno = saved; }
    // Shows the last error, or the reason given, after the end of the scope.
    int fail(DWORD reason = GetLastError()) {
        saved = host_win32_error_number(reason);
        return -1;
    }
};

// A handle that is closed at the end of its scope.
struct scoped_handle {
    HANDLE handle;
    explicit scoped_handle(HANDLE opened) : handle(opened) {}
    ~scoped_handle() {
        if (is_open())
            CloseHandle(handle);
    }
    scoped_handle(const scoped_handle&) = delete;
    scoped_handle& operator=(const scoped_handle&) = delete;
    bool is_open() const { return handle != INVALID_HANDLE_VALUE && handle != nullptr; }
};

// As on other hosts, a file that is open may be read, written, renamed and deleted by others.
constexpr DWORD host_win32_share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Whether the name is a link or a junction, which stands for another file.
bool host_win32_is_link(const char* name);
// Opens what the name denotes, a directory too: the name itself unless links are to be followed.
HANDLE host_win32_open_name(const char* name, DWORD access, bool follow_links);
// The runtime's descriptor for a handle, which it owns then; -1 and the handle closed on failure.
int host_win32_descriptor(HANDLE handle);
// Seconds since 1970 in the system's units, and back.
FILETIME host_win32_file_time(int64_t seconds);
int64_t host_win32_seconds(FILETIME time);
// Starts the socket library, or counts one user of it more. Its status.
int host_win32_start_sockets();
