// The runner on Windows. Programs get a clean environment and files as their standard streams.
#include <cstdlib>
#include <filesystem>
#include <windows.h>

#include "support/runner.h"

namespace {

// The build says where the program lies on the machine that it was built on: without a drive.
const std::string program = std::filesystem::absolute(OBJTRIM_PROGRAM).string();

HANDLE open_for_child(const std::string& name, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return CreateFileA(name.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                       disposition, 0, nullptr);
}

// The status is -1 for a program that did not start, 255 for one that hung.
run_result run(const std::string& directory, std::string line) {
    const std::string out = directory + ".out", err = directory + ".err";
    std::string environment;
    for (const char* const name : {"SystemDrive", "SystemRoot"})
        environment += std::string(name) + "=" + getenv(name) + '\0';
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = open_for_child("NUL", GENERIC_READ, OPEN_EXISTING);
    startup.hStdOutput = open_for_child(out, GENERIC_WRITE, CREATE_ALWAYS);
    startup.hStdError = open_for_child(err, GENERIC_WRITE, CREATE_ALWAYS);
    PROCESS_INFORMATION started = {};
    DWORD status = UINT32_MAX;
    if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, environment.data(),
                       directory.c_str(), &startup, &started)) {
        if (WaitForSingleObject(started.hProcess, 120'000) != WAIT_OBJECT_0)
            TerminateProcess(started.hProcess, 255);
        WaitForSingleObject(started.hProcess, INFINITE);
        GetExitCodeProcess(started.hProcess, &status);
    }
    for (HANDLE handle : {startup.hStdInput, startup.hStdOutput, startup.hStdError,
                          started.hProcess, started.hThread})
        CloseHandle(handle);
    run_result result = {static_cast<int>(status), read_file(out), read_file(err)};
    std::erase(result.out, '\r');
    std::erase(result.err, '\r');
    return result;
}

} // namespace

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
