// The host on POSIX systems: this process, its user and machine, other processes, time.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <pwd.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "shared/gencmdline.h"
#include "shared/host_posix.h"

#ifndef __linux__
extern char** environ; // not every unistd.h has it
#endif

namespace {

struct user_record {
    std::string name, home;
};

struct file_closer {
    void operator()(FILE* file) const { std::fclose(file); }
};

// The machine's own table is read, not the services behind getpwuid: a program that has its C
// library inside would have to load those, in a version that it does not know. Users of a network
// go by their number and what their environment says.
user_record find_user() {
    const errno_keeper error;
    const uid_t number = geteuid();
    if (const std::unique_ptr<FILE, file_closer> users(std::fopen("/etc/passwd", "re")); users)
        while (const passwd* const user = fgetpwent(users.get()))
            if (user->pw_uid == number && user->pw_name != nullptr && user->pw_dir != nullptr)
                return {user->pw_name, user->pw_dir};
    const char* const home = std::getenv("HOME");
    return {std::to_string(number), home != nullptr ? home : ""};
}

// The beginning of a small file, up to `limit` bytes; nothing when it cannot be read.
std::string read_start(const std::string& name, size_t limit) {
    std::string text(limit, '\0');
    ssize_t length = -1;
    if (const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY); file >= 0) {
        length = read(file, text.data(), limit);
        close(file);
    }
    text.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return text;
}

// A process that has ended but that its parent has not asked about still takes signals.
bool is_zombie(uint32_t id) {
#ifdef __linux__
    const std::string status = read_start("/proc/" + std::to_string(id) + "/stat", 512);
    const size_t state = status.rfind(") "); // behind the program's name, which may hold anything
    return state != std::string::npos && state + 2 < status.size() &&
           (status[state + 2] == 'Z' || status[state + 2] == 'X');
#else
    return id == 0;
#endif
}

// A parent may start us without standard streams. A file that was then opened as descriptor 2
// would receive the tool's messages, so the three are occupied first.
void occupy_standard_descriptors() {
    int descriptor;
    do
        descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= host_error_descriptor);
    if (descriptor >= 0)
        close(descriptor);
}

// Starts the child: 0, or an error number. What this process ignores is no business of the child's.
int spawn(const std::string& program, char* const* arguments, bool no_streams, pid_t& child) {
    posix_spawn_file_actions_t actions;
    if (const int failure = posix_spawn_file_actions_init(&actions); failure != 0)
        return failure;
    posix_spawnattr_t attributes;
    if (const int failure = posix_spawnattr_init(&attributes); failure != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return failure;
    }
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGXFSZ);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    int failure = 0;
    for (int stream = 0; no_streams && stream <= host_error_descriptor && failure == 0; ++stream)
        failure = posix_spawn_file_actions_addclose(&actions, stream);
    if (failure == 0)
        failure = posix_spawn(&child, program.c_str(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return failure;
}

} // namespace

std::string host_module_file_name() {
    const errno_keeper error;
    std::string name;
#ifdef __linux__
    for (size_t room = 256; room <= size_t{1} << 20; room *= 2) {
        name.resize(room);
        const ssize_t length = readlink("/proc/self/exe", name.data(), room);
        if (length < 0)
            return std::string();
        name.resize(static_cast<size_t>(length));
        if (name.size() < room)
            return name;
    }
    name.clear();
#endif
    return name;
}

std::string host_user_name() {
    return find_user().name;
}

std::string host_home_directory() {
    return find_user().home;
}

std::string host_network_name() {
    const errno_keeper error;
    char name[256] = "";
    if (gethostname(name, sizeof name - 1) != 0)
        return std::string();
    return name;
}

uint32_t host_process_id() {
    return static_cast<uint32_t>(getpid());
}

bool host_process_is_alive(uint32_t id) {
    const errno_keeper error;
    const pid_t process = static_cast<pid_t>(id);
    if (process <= 0) // to kill() a group of processes
        return false;
    if (process == getpid())
        return true;
    return (kill(process, 0) == 0 || errno == EPERM) && !is_zombie(id);
}

uint64_t host_machine_id() {
    const errno_keeper error;
    std::string id = read_start("/etc/machine-id", 64);
    if (id.size() <= 1)
        id = host_network_name();
    uint64_t sum = 0xCBF29CE484222325; // FNV-1a
    for (const char c : id)
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return sum;
}

int64_t host_time() {
    return static_cast<int64_t>(time(nullptr));
}

void host_sleep(uint32_t milliseconds) {
    const errno_keeper error;
    timespec rest = {};
    rest.tv_sec = static_cast<time_t>(milliseconds / 1000);
    rest.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

// Writing to a closed pipe or beyond a size limit is to fail like any other write, and a parent
// that ignored its children's ends would hide ours from us. Memory priority and sockets need no
// preparation here.
int host_start() {
    const errno_keeper error;
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);
    host_handle_interrupts();
    occupy_standard_descriptors();
    return 0;
}

int host_run(const char* command_line, bool no_streams) {
    constexpr int cannot_start = 127;
    const int saved = errno;
    gen_command command = gen_split_command_line(command_line);
    std::vector<char*> arguments = {command.program.data()};
    for (std::string& argument : command.arguments)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);

    pid_t child = -1;
    if (const int failure = spawn(command.program, arguments.data(), no_streams, child);
        failure != 0) {
        errno = failure;
        return cannot_start;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return cannot_start;
    errno = saved;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}
