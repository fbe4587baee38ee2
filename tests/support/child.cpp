// Children and their ends, by the host's own calls: the code under test does not look at itself.
#include "support/child.h"

#include <cerrno>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

#include "shared/genout.h"

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

void expect_text(const std::function<void()>& body, const std::string& text) {
    EXPECT_EQ(run_child(body), child_end(child_returned, text));
}

void expect_fatal(const std::vector<fatal_case>& cases) {
    for (auto const& [body, text] : cases)
        EXPECT_EQ(run_child(body), child_end(1, "objtrim: fatal: " + std::string(text) + "\n"));
}

gen_stream_ptr placed_test::stream_of(const std::string& bytes, int64_t position) const {
    place.put("f", bytes);
    gen_stream_ptr stream = gen_open("f", "rb+");
    gen_seek(*stream, position, GEN_SEEK_SET);
    return stream;
}
