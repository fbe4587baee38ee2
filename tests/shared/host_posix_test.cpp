// The host on POSIX systems: signals, pipes, and how children end.
//
// Not on Windows: signals and pipes; host_win32_test has that host.
#include <cerrno>
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

#include "shared/genchild.h"
#include "shared/host.h"
#include "support/child.h"

namespace {

using host_posix = placed_test;

TEST_F(host_posix, opening_does_not_wait_for_the_partner_of_a_pipe) {
    mkfifo("fifo", 0600);
    EXPECT_EQ(host_open("fifo", host_access::create), -1);
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(host_posix, after_the_start_writes_fail_instead_of_ending_the_program) {
    const auto body = [] {
        std::signal(SIGCHLD, SIG_IGN); // as a careless parent leaves it
        close(STDERR_FILENO);
        int failures = host_start() != 0;
        const int file = host_open("f", host_access::create);
        failures += file <= host_error_descriptor;
        int ends[2] = {-1, -1};
        failures += pipe(ends) != 0 || close(ends[0]) != 0;
        failures += host_write(ends[1], "x", 1) != -1 || errno != EPIPE;
        const rlimit limit = {4, 4};
        setrlimit(RLIMIT_FSIZE, &limit);
        failures += host_write_at(file, "x", 1, 4) != -1 || errno != EFBIG;
        const int ended = host_run("/bin/sh -c \"kill -PIPE $$\"", false); // ignored only here
        failures += ended != 128 + SIGPIPE;
        _exit(failures);
    };
    EXPECT_EQ(run_child(body).first, 0);
}

// An ignored signal, as of a job in the background, stays ignored; the others end the process as
// the parent would expect, and take the unfinished files with them.
TEST_F(host_posix, an_interrupt_removes_unfinished_files) {
    static const char* const released = "done"; // by its address
    const auto body = [] {
        std::signal(SIGHUP, SIG_IGN);
        host_start();
        for (const char* name : {released, "one", "two"}) {
            host_close(host_open(name, host_access::create));
            host_guard_file(name);
        }
        host_release_file(released);
        raise(SIGHUP);
        raise(SIGTERM);
    };
    EXPECT_EQ(run_child(body).first, 128 + SIGTERM);
    EXPECT_EQ(place.list(), words{released});
}

TEST_F(host_posix, a_childs_status_says_how_it_ended) {
    const std::tuple<const char*, const char*, int> rows[] = {
        {"/bin/sh -c \"exit 7\"", "", 7},
        {"/bin/sh -c \"kill -9 $$\"", nullptr, 128 + 9},
        {"none x", "", 127},
        {"/bin/sh -c \"cd /proc/$$/fd; test -e 0 -o -e 1 -o -e 2 || exit 6\"", "q", 6},
    };
    for (const auto& [line, mode, status] : rows)
        EXPECT_EQ(gen_run(line, mode), status) << line;
}

} // namespace
