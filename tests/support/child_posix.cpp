// Children on POSIX systems are forks, which find everything as the parent left it.
#include <cerrno>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

#include "shared/genmessage.h"
#include "support/child.h"

constexpr unsigned child_seconds = 60; // a child that hangs is ended

child_end run_child(const std::function<void()>& body) {
    child_end result = {-1, ""};
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    fflush(nullptr);
    pid_t const child = fork();
    if (child == 0) {
        alarm(child_seconds);
        dup2(ends[1], STDERR_FILENO);
        gen_set_program_name("objtrim");
        static gen_message_sink sink; // nothing was said yet
        gen_use_sink(sink);
        errno = 0;
        body();
        _exit(child_returned);
    }
    close(ends[1]);
    char piece[4096];
    for (ssize_t got; (got = read(ends[0], piece, sizeof piece)) > 0;)
        result.second.append(piece, static_cast<size_t>(got));
    close(ends[0]);
    int status = 0;
    if (child > 0 && waitpid(child, &status, 0) == child)
        result.first = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

void expect_together(int children, const std::function<bool(int child)>& body) {
    for (int child = 0; child < children; ++child)
        if (fork() == 0) {
            alarm(child_seconds);
            _exit(body(child) ? 0 : 1);
        }
    int ended_well = 0;
    for (int status = 0; wait(&status) > 0;)
        ended_well += status == 0;
    EXPECT_EQ(ended_well, children);
}
