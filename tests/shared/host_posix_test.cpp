// The host on POSIX systems: signals, pipes, how children end, and scratch directories in which
// others may have planted something.
//
// Not on Windows: signals, pipes, links and owners; host_win32_test has that host.
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

#include "shared/genchild.h"
#include "shared/genreplace.h"
#include "shared/genscratch.h"
#include "support/child.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;

struct host_posix : placed_test {
    host_posix() { temp.input_directory = ""; }
    gen_scratch scratch = {temp};
    const std::string root = "ORVSD_" + host_user_name();
};

TEST_F(host_posix, pipes_are_not_waited_for) {
    mkfifo("fifo", 0600);
    EXPECT_EQ(host_open("fifo", host_access::create), -1);
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(host_posix, after_the_start_writes_fail_instead_of_ending_the_program) {
    const auto body = [] {
        std::signal(SIGCHLD, SIG_IGN); // as a careless parent leaves it
        std::signal(SIGHUP, SIG_IGN);  // as of a job in the background
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
        failures += host_run("/bin/sh -c \"kill -PIPE $$\"", false) != 128 + SIGPIPE;
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
    const bool given = geteuid() == 0;
    EXPECT_EQ(now->owner, given ? 1 : geteuid());
    EXPECT_EQ(now->mode, given ? 06755U : 0755U);
}

// An open that fails is not tried again unless it was interrupted.
TEST_F(host_posix, a_failure_that_passes_is_one_all_the_same) {
    place.put("f", std::string(100, '\0'));
    int failures = 0;
    for (int call = 1; call < 9; ++call) {
        process started = start(place.directory, OBJTRIM_FAULTY "objtrim", {"f"},
                                {"OBJTRIM_FAULT=objtrim:open:" + std::to_string(call) + ":once"});
        failures +=
            end_of(started).err.starts_with("objtrim: fatal: Unable to open executable 'f'");
    }
    EXPECT_EQ(failures, 1);
}

TEST_F(host_posix, a_childs_status_says_how_it_ended) {
    const std::tuple<const char*, const char*, int> rows[] = {
        {"/bin/sh -c \"exit 7\"", "", 7},
        {"/bin/sh -c \"kill -9 $$\"", nullptr, 128 + 9},
        {"none x", "", 127},
        {"/bin/sh -c \"cd /proc/$$/fd; test -e 0 -a -e 1 -a -e 2 && exit 5\"", "w", 5},
        {"/bin/sh -c \"cd /proc/$$/fd; test -e 0 -o -e 1 -o -e 2 || exit 6\"", "q", 6},
    };
    for (const auto& [line, mode, status] : rows)
        EXPECT_EQ(gen_run(line, mode), status) << line;
}

TEST_F(host_posix, only_what_belongs_to_the_dead_is_removed) {
    const pid_t zombie = fork();
    if (zombie == 0)
        _exit(0);
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(zombie), &ended,
           WEXITED | WNOWAIT); // dead, but not asked about
    const std::string live = std::to_string(getppid()), own = std::to_string(getpid());
    std::string deep = "0_deep"; // deeper than removal goes
    for (int depth = 0; depth < 300; ++depth)
        deep += "/d";
    const words kept = split(live + "_a/f PID_" + live + "_x/f " + live + ".lock DATA_PID_0_x/f " +
                             "0_b/ALTERNATE_PID_" + live + " 0_c/ALTERNATE_PID_1_x " + deep + "/f");
    const words gone = split("0_d/e/f/g -1_x/f 99999999999_x/f _x/f x PID_0_x/f x_y 0_x.lock " +
                             std::to_string(zombie) + "_x/f 0_e/PID_1/f 0_f/ALTERNATE_PID_" + own +
                             " " + own + "_a/f ../other/f");
    for (const words& group : {kept, gone})
        for (const std::string& name : group) {
            fs::create_directories((fs::path(root) / name).parent_path());
            place.put(root + "/" + name, "");
        }
    fs::create_directory_symlink("../other", root + "/0_link");
    fs::create_directory_symlink("../../other", root + "/0_d/link");
    expect_text([&] { EXPECT_TRUE(gen_clean_session_dirs(scratch)); }, "");
    waitpid(zombie, nullptr, 0);
    EXPECT_EQ(place.list(root).size(), kept.size());
    for (const std::string& name : kept)
        EXPECT_TRUE(name.starts_with(deep) || fs::exists(root + "/" + name)) << name;
    EXPECT_EQ(place.list("other"), words{"f"});
}

} // namespace
