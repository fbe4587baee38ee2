// Runs one command and prints what it cost: wall, user and system time in seconds, peak memory in
// KiB, exit status. A program of its own because peak memory includes what the parent held when it
// started the child: this parent holds next to nothing.
//
//     measure LIMIT COMMAND ARGUMENT...     the command is killed after LIMIT seconds (status 124)
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

pid_t child;

void kill_child(int) {
    kill(child, SIGKILL);
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3)
        return 1;
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    const auto start = std::chrono::steady_clock::now();
    child = vfork();
    if (child == 0) {
        dup2(nowhere, 1);
        dup2(nowhere, 2);
        execvp(argv[2], argv + 2);
        _exit(127);
    }
    signal(SIGALRM, kill_child);
    alarm(static_cast<unsigned>(atoi(argv[1])));
    int status = 0;
    rusage used;
    if (child < 0 || wait4(child, &status, 0, &used) != child)
        return 1;
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    printf("%.6f %.6f %.6f %ld %d\n", wall.count(), seconds(used.ru_utime), seconds(used.ru_stime),
           used.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : 124);
}
