// The runner on Windows. Programs get a clean environment and files as their standard streams.
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <windows.h>

#include "support/runner.h"

namespace {

// The build says where the program lies on the machine that it was built on: without a drive.
const std::string program = std::filesystem::absolute(OBJTRIM_PROGRAM).string();

constexpr DWORD milliseconds_to_live = 120'000;

HANDLE open_for_child(const std::string& name, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return CreateFileA(name.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                       disposition, 0, nullptr);
}

std::string unix_lines(std::string text) {
    std::erase(text, '\r');
    return text;
}

// The status is -1 for a program that did not start, 255 for one that hung.
run_result run(const std::string& directory, std::string line) {
    const std::string out = directory + ".out", err = directory + ".err";
    std::string environment;
    for (const std::string name : {"SystemDrive", "SystemRoot"})
        if (const char* const value = getenv(name.c_str()))
            environment += name + "=" + value + '\0';
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = open_for_child(null_device, GENERIC_READ, OPEN_EXISTING);
    startup.hStdOutput = open_for_child(out, GENERIC_WRITE, CREATE_ALWAYS);
    startup.hStdError = open_for_child(err, GENERIC_WRITE, CREATE_ALWAYS);
    PROCESS_INFORMATION started = {};
    DWORD status = static_cast<DWORD>(-1);
    if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, environment.data(),
                       directory.c_str(), &startup, &started)) {
        if (WaitForSingleObject(started.hProcess, milliseconds_to_live) != WAIT_OBJECT_0)
            TerminateProcess(started.hProcess, 255);
        WaitForSingleObject(started.hProcess, INFINITE);
        GetExitCodeProcess(started.hProcess, &status);
        CloseHandle(started.hProcess);
        CloseHandle(started.hThread);
    }
    for (HANDLE stream : {startup.hStdInput, startup.hStdOutput, startup.hStdError})
        CloseHandle(stream);
    return {static_cast<int>(status), unix_lines(read_file(out)), unix_lines(read_file(err))};
}

// A child of a test finds its way by its parent's variables.
const char* const parent_variable = "OBJTRIM_TEST_PARENT";
const bool is_child = getenv(parent_variable) != nullptr;

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

// Directories are numbered within a test, so that the child of one, which comes the same way, works
// in the same ones.
std::string make_work_directory() {
    static int count;
    static const testing::TestInfo* of;
    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    count = test == of ? count + 1 : 1;
    of = test;
    if (!is_child)
        set_variable(parent_variable, std::to_string(GetCurrentProcessId()).c_str());
    const std::string name = std::filesystem::temp_directory_path().string() + "objtrim_test_" +
                             getenv(parent_variable) + "_" + std::to_string(count);
    if (!is_child)
        std::filesystem::remove_all(name);
    std::filesystem::create_directory(name);
    return name;
}
