// The host on POSIX systems: signals, pipes, how children end, and scratch directories in which
// others may have planted something.
//
// Not on Windows: signals, pipes, links and owners; host_win32_test has that host.
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "shared/genchild.h"
#include "shared/genreplace.h"
#include "shared/genscratch.h"
#include "support/child.h"

namespace {

using host_posix = placed_test;

TEST_F(host_posix, after_the_start_writes_fail_and_children_tell_their_ends) {
    const auto body = [] {
        std::signal(SIGCHLD, SIG_IGN); // as a careless parent leaves it
        std::signal(SIGHUP, SIG_IGN);  // as of a job in the background
        close(STDERR_FILENO);
        int failures = host_start() != 0 || mkfifo("fifo", 0600) != 0;
        failures += host_open("fifo", host_access::create) != -1 || errno != ENXIO; // no waiting
        const int file = host_open("f", host_access::create);
        failures += file <= host_error_descriptor;
        int ends[2] = {-1, -1};
        failures += pipe(ends) != 0 || close(ends[0]) != 0;
        failures += host_write(ends[1], "x", 1) != -1 || errno != EPIPE;
        const rlimit limit = {4, 4};
        setrlimit(RLIMIT_FSIZE, &limit);
        failures += host_write_at(file, "x", 1, 4) != -1 || errno != EFBIG;
        failures += host_run("/bin/sh -c \"kill -PIPE $$\"", false) != 128 + SIGPIPE;
        const std::string test = "/bin/sh -c \"cd /proc/$$/fd; test -e 0 ";
        failures += gen_run((test + "-a -e 1 -a -e 2 && exit 5\"").c_str(), "w") != 5;
        failures += gen_run((test + "-o -e 1 -o -e 2 || exit 6\"").c_str(), "q") != 6;
        raise(SIGHUP);
        std::signal(SIGCHLD, SIG_IGN);
        failures += host_run("/bin/true", false) != 127; // its status is not to be had
        _exit(failures);
    };
    expect_end(body, 0, "");
}

// Bits that act for the owner go when he is another.
TEST_F(host_posix, the_owner_is_given_away_by_the_superuser_only) {
    const gen_stream_ptr stream = stream_of("");
    const host_status from = {.mode = 06755, .owner = 1, .group = 1};
    EXPECT_EQ(gen_copy_owner_and_mode(stream->descriptor, from), 0);
    const std::optional<host_status> now = host_descriptor_status(stream->descriptor);
    EXPECT_EQ(now->owner, geteuid() == 0 ? 1 : geteuid());
    EXPECT_EQ(now->mode, geteuid() == 0 ? 06755U : 0755U);
}

TEST_F(host_posix, only_what_belongs_to_the_dead_is_removed) {
    const pid_t zombie = fork(); // dead, but not asked about
    if (zombie == 0)
        _exit(0);
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(zombie), &ended, WEXITED | WNOWAIT);
    temp.input_directory = "";
    gen_scratch scratch = {temp};
    const std::string live = std::to_string(getppid()), own = std::to_string(getpid());
    const std::string root = "ORVSD_" + host_user_name();
    std::string deep = "0_deep"; // deeper than removal goes
    for (int depth = 0; depth < 300; ++depth)
        deep += "/d";
    const words kept = split(live + "_a/f PID_" + live + "_x/f " + live + ".lock DATA_PID_0_x/f " +
                             "0_b/ALTERNATE_PID_" + live + " 0_c/ALTERNATE_PID_1_x " + deep + "/f");
    const words gone = split("0_d/e/f/g -1_x/f 99999999999_x/f _x/f x PID_0_x/f x_y 0_x.lock " +
                             std::to_string(zombie) + "_x/f 0_e/PID_1/f 0_f/ALTERNATE_PID_" + own +
                             " " + own + "_a/f ../other/f");
    for (const words* group : {&kept, &gone})
        for (const std::string& name : *group)
            place.put(root + "/" + name, "");
    make_link("../other", root + "/0_link");
    make_link("../../other", root + "/0_d/link");
    expect_text([&] { EXPECT_TRUE(gen_clean_session_dirs(scratch)); }, "");
    waitpid(zombie, nullptr, 0);
    EXPECT_EQ(place.list(root).size(), kept.size());
    for (const std::string& name : kept)
        EXPECT_TRUE(name.starts_with(deep) || host_readable((root + "/" + name).c_str())) << name;
    EXPECT_EQ(place.list("other"), words{"f"});
}

} // namespace
