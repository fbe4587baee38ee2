// The runner on Windows. Programs get a clean environment and files as their standard streams.
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <windows.h>

#include "support/runner.h"
#include "support/win32.h"

const char* const null_device = "NUL";

namespace {

// The build says where the program lies on the machine that it was built on: without a drive.
const std::string program = std::filesystem::absolute(OBJTRIM_PROGRAM).string();

constexpr DWORD milliseconds_to_live = 120'000;

std::string variable(const char* name) {
    const char* const value = getenv(name);
    return value ? std::string(name) + "=" + value + '\0' : "";
}

FILETIME past() {
    constexpr uint64_t ticks = (11'644'473'600 + 1'000'000'000) * uint64_t{10'000'000};
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

run_result run(const std::string& directory, const std::string& line) {
    const std::string out = directory + ".out", err = directory + ".err";
    const child_streams streams = {open_for_child("NUL", GENERIC_READ, OPEN_EXISTING),
                                   open_for_child(out.c_str(), GENERIC_WRITE, CREATE_ALWAYS),
                                   open_for_child(err.c_str(), GENERIC_WRITE, CREATE_ALWAYS)};
    const std::string environment = variable("SystemDrive") + variable("SystemRoot") + '\0';
    const int status = run_process(line, streams, directory.c_str(), environment.c_str());
    return {status, unix_lines(read_file(out)), unix_lines(read_file(err))};
}

} // namespace

std::string unix_lines(std::string text) {
    for (size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos; ++at)
        text.erase(at, 1);
    return text;
}

HANDLE open_for_child(const char* name, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return CreateFileA(name, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, disposition, 0,
                       nullptr);
}

int run_process(std::string line, const child_streams& streams, const char* directory,
                const char* environment) {
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = streams.in;
    startup.hStdOutput = streams.out;
    startup.hStdError = streams.err;
    PROCESS_INFORMATION started = {};
    DWORD status = static_cast<DWORD>(-1);
    // The environment is not written to.
    if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0,
                       const_cast<char*>(environment), directory, &startup, &started)) {
        if (WaitForSingleObject(started.hProcess, milliseconds_to_live) != WAIT_OBJECT_0)
            TerminateProcess(started.hProcess, 255);
        WaitForSingleObject(started.hProcess, INFINITE);
        GetExitCodeProcess(started.hProcess, &status);
        CloseHandle(started.hProcess);
        CloseHandle(started.hThread);
    }
    for (HANDLE stream : {streams.in, streams.out, streams.err})
        CloseHandle(stream);
    return static_cast<int>(status);
}

run_result run_program(const std::string& directory, const std::string& line, const run_limits&) {
    return run(directory, "\"" + program + "\" " + line);
}

// A program of ours is named in quotes. The compilers and dump programs that tests ask for belong
// to other hosts.
run_result run_tool(const std::string& directory, const std::string& line) {
    if (!line.starts_with("'"))
        return {};
    const size_t end = line.find('\'', 1);
    const std::string own = std::filesystem::absolute(line.substr(1, end - 1)).string();
    return run(directory, "\"" + own + "\"" + line.substr(end + 1));
}

void set_variable(const char* name, const char* value) {
    _putenv_s(name, value);
}

void limit_own_files(uint64_t) {}

std::string test_program() {
    return _pgmptr;
}

// What is read-only is not removed.
void remove_work_directory(const std::string& name) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(name, ignored))
        SetFileAttributesA(entry.path().string().c_str(), FILE_ATTRIBUTE_NORMAL);
    std::filesystem::remove_all(name, ignored);
}

uint32_t host_mode(uint32_t mode) {
    return (mode & 0200) != 0 ? 0644 : 0444;
}

void set_mode_and_age(const std::string& file, uint32_t mode) {
    const HANDLE handle = CreateFileA(file.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    const FILETIME time = past();
    SetFileTime(handle, nullptr, &time, &time);
    CloseHandle(handle);
    if ((mode & 0200) == 0)
        SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_READONLY);
}

file_state file_state_of(const std::string& file) {
    const HANDLE handle = CreateFileA(file.c_str(), FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    BY_HANDLE_FILE_INFORMATION info = {};
    const bool found = GetFileInformationByHandle(handle, &info) != FALSE;
    CloseHandle(handle);
    if (!found)
        return {};
    const bool writable = (info.dwFileAttributes & FILE_ATTRIBUTE_READONLY) == 0;
    return {"", uint64_t{info.nFileIndexHigh} << 32 | info.nFileIndexLow,
            host_mode(writable ? 0200 : 0),
            static_cast<int64_t>(uint64_t{info.ftLastWriteTime.dwHighDateTime} << 32 |
                                 info.ftLastWriteTime.dwLowDateTime) *
                100};
}
