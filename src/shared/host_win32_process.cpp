// The host on Windows: this process, its user and machine, other processes, time.
#include <ctime>
#include <fcntl.h>
#include <winsock2.h>

#include "shared/host_guard.h"
#include "shared/host_win32.h"

namespace {

// The address of an operation that not every version of the system has.
template <typename Function>
Function* find_operation(const char* library, const char* name) {
    const HMODULE module = GetModuleHandleA(library);
    return module
               ? reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)))
               : nullptr;
}

// A process that a service starts may inherit a low memory priority, which would slow it down.
void restore_memory_priority() {
    using set_process_information = BOOL WINAPI(HANDLE, int, void*, DWORD);
    using nt_set_information_process = LONG WINAPI(HANDLE, int, void*, ULONG);
    constexpr int memory_priority_class = 0, nt_page_priority_class = 39;
    ULONG priority = 5; // normal
    if (GetPriorityClass(GetCurrentProcess()) != NORMAL_PRIORITY_CLASS)
        return;
    if (auto* const set =
            find_operation<set_process_information>("KERNEL32", "SetProcessInformation"))
        set(GetCurrentProcess(), memory_priority_class, &priority, sizeof priority);
    else if (auto* const nt_set =
                 find_operation<nt_set_information_process>("NTDLL", "NtSetInformationProcess"))
        nt_set(GetCurrentProcess(), nt_page_priority_class, &priority, sizeof priority);
}

// The next handler, the system's, ends the process.
BOOL WINAPI remove_guarded_files(DWORD) {
    for (std::atomic<const char*>& slot : host_guarded)
        if (const char* const name = slot.load()) {
            SetFileAttributesA(name, FILE_ATTRIBUTE_NORMAL); // a protected one stays otherwise
            DeleteFileA(name);
        }
    return FALSE;
}

// A file that was opened as descriptor 2 would receive the tool's messages.
void occupy_standard_descriptors() {
    int descriptor;
    do
        descriptor = _open("NUL", _O_RDWR | _O_NOINHERIT);
    while (descriptor >= 0 && descriptor <= host_error_descriptor);
    if (descriptor >= 0)
        _close(descriptor);
}

bool has_console() {
    char title[MAX_PATH];
    SetLastError(ERROR_SUCCESS);
    return GetConsoleTitleA(title, sizeof title) != 0 || GetLastError() != ERROR_INVALID_HANDLE;
}

} // namespace

int host_win32_start_sockets() {
    WSADATA data;
    return WSAStartup(MAKEWORD(1, 1), &data);
}

std::string host_module_file_name() {
    const errno_keeper error;
    char name[MAX_PATH + 1] = "";
    const DWORD length = GetModuleFileNameA(nullptr, name, sizeof name);
    return length < sizeof name ? std::string(name, length) : std::string();
}

std::string host_user_name() {
    const errno_keeper error;
    char name[256 + 1] = "";
    DWORD size = sizeof name;
    return GetUserNameA(name, &size) ? name : "";
}

std::string host_home_directory() {
    const errno_keeper error;
    std::string name(32768, '\0'); // no variable is longer
    const DWORD length =
        GetEnvironmentVariableA("USERPROFILE", name.data(), static_cast<DWORD>(name.size()));
    name.resize(length < name.size() ? length : 0);
    return name;
}

std::string host_network_name() {
    const errno_keeper error;
    char name[256] = "";
    if (host_win32_start_sockets() != 0 || gethostname(name, sizeof name - 1) != 0)
        return std::string();
    return name;
}

uint32_t host_process_id() {
    return GetCurrentProcessId();
}

bool host_process_is_alive(uint32_t id) {
    constexpr DWORD still_running = 259;
    const errno_keeper error;
    const scoped_handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    DWORD code = 0;
    return process.is_open() && GetExitCodeProcess(process.handle, &code) && code == still_running;
}

// The serial number of the disk that the system is on.
uint64_t host_machine_id() {
    const errno_keeper error;
    char directory[MAX_PATH] = "";
    const UINT length = GetWindowsDirectoryA(directory, sizeof directory);
    const std::string root(directory, length >= 2 && length < sizeof directory ? 2 : 0);
    DWORD serial = 0;
    GetVolumeInformationA((root + "\\").c_str(), nullptr, 0, &serial, nullptr, nullptr, nullptr, 0);
    return serial;
}

int64_t host_time() {
    return static_cast<int64_t>(std::time(nullptr));
}

void host_sleep(uint32_t milliseconds) {
    Sleep(milliseconds);
}

int host_start() {
    const errno_keeper error;
    restore_memory_priority();
    SetConsoleCtrlHandler(remove_guarded_files, TRUE);
    const int status = host_win32_start_sockets();
    SetErrorMode(SetErrorMode(0) | SEM_FAILCRITICALERRORS); // an empty drive asks nobody for a disk
    occupy_standard_descriptors();
    return status;
}

// Without a console a child would be given one, in a window of its own, unless it is detached.
int host_run(const char* command_line, bool no_streams) {
    constexpr int cannot_start = 127;
    errno_keeper error;
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = no_streams ? INVALID_HANDLE_VALUE : GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = no_streams ? INVALID_HANDLE_VALUE : GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = no_streams ? INVALID_HANDLE_VALUE : GetStdHandle(STD_ERROR_HANDLE);
    std::string line = command_line; // the system may write into it
    PROCESS_INFORMATION started = {};
    if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE,
                        has_console() ? 0 : DETACHED_PROCESS, nullptr, nullptr, &startup,
                        &started)) {
        error.fail();
        return cannot_start;
    }
    const scoped_handle process(started.hProcess), thread(started.hThread);
    DWORD status = 0;
    if (WaitForSingleObject(process.handle, INFINITE) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(process.handle, &status)) {
        error.fail();
        return cannot_start;
    }
    return static_cast<int>(status);
}
