// The host on POSIX systems: signals, pipes, how children end, and directories in which others may
// have planted something.
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
#include "shared/genlock.h"
#include "shared/genscratch.h"
#include "support/child.h"
#include "support/coff_builder.h"

namespace {

namespace fs = std::filesystem;

struct host_posix : placed_test {
    host_posix() { temp.input_directory = ""; }

    gen_scratch scratch = {temp};
    const std::string root = "ORVSD_" + host_user_name();
};

TEST_F(host_posix, opening_does_not_wait_for_the_partner_of_a_pipe) {
    mkfifo("fifo", 0600);
    EXPECT_EQ(host_open("fifo", host_access::create), -1);
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(host_posix, space_is_set_aside_but_for_the_beginning) {
    const gen_stream_ptr stream = stream_of("");
    gen_reserve(*stream, 512 * 1024 - 1);
    EXPECT_EQ(host_descriptor_status(stream->descriptor)->size, 0U);
    struct stat found = {};
    stat("f", &found);
    EXPECT_EQ(found.st_blocks, 0);
    gen_reserve(*stream, 512 * 1024);
    stat("f", &found);
    if (found.st_blocks == 0)
        GTEST_SKIP() << "this file system sets no space aside";
    EXPECT_EQ(found.st_blocks, (512 - 64) * 2);
    EXPECT_EQ(found.st_size, 0);
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
        std::signal(SIGCHLD, SIG_IGN);
        failures += host_run("/bin/true", false) != 127; // its status is not to be had
        _exit(failures);
    };
    expect_end(body, 0, "");
}

// An ignored signal, as of a job in the background, stays ignored; the others end the process as
// the parent would expect, and take the unfinished files with them.
TEST_F(host_posix, an_interrupt_removes_unfinished_files) {
    static const char* const released = "done"; // by its address
    for (const int signal_number : {SIGHUP, SIGINT, SIGTERM}) {
        const int ignored = signal_number == SIGHUP ? SIGINT : SIGHUP;
        const auto body = [&] {
            std::signal(ignored, SIG_IGN);
            host_start();
            for (const char* name : {released, "one", "two"}) {
                host_close(host_open(name, host_access::create));
                host_guard_file(name);
            }
            host_release_file(released);
            raise(ignored);
            raise(signal_number);
        };
        expect_end(body, 128 + signal_number, "");
        EXPECT_EQ(place.list(), words{released});
    }
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

// A process that has ended, but that nobody has asked about, is dead.
TEST_F(host_posix, what_stands_in_the_place_of_a_lock_is_never_followed) {
    char tag[32];
    snprintf(tag, sizeof tag, "Disk%llx", static_cast<unsigned long long>(host_machine_id()));
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT); // it stays a zombie
    place.put("target", number(static_cast<uint64_t>(child), 4) + number(strlen(tag), 4) + tag);
    fs::copy("target", "p.lock");
    EXPECT_TRUE(gen_lockfile("p", 0, 100));
    waitpid(child, nullptr, 0);
    fs::create_symlink("target", "d_.lock");
    const auto body = [] { EXPECT_FALSE(gen_lockfile("d/", 0, 100)); };
    expect_text(body, "");
    host_set_times("d_.lock", 1);
    gen_lock_ptr lock;
    expect_text([&] { lock = gen_lockfile("d/", 0, 100); },
                "objtrim: warning: Breaking lock on d_.lock. It is more than 100 seconds old.\n");
    ASSERT_TRUE(lock);
    EXPECT_TRUE(fs::exists("target"));
    fs::rename("target", "d_.lock"); // ours was broken, and another holds one now
    EXPECT_TRUE(gen_unlock(std::move(lock)));
    EXPECT_EQ(place.list(), words{"d_.lock"});
}

TEST_F(host_posix, a_root_that_others_prepared_is_not_used) {
    fs::create_directories("other/0_x");
    const auto make = [&](mode_t mode) {
        return mkdir(root.c_str(), 0) == 0 && chmod(root.c_str(), mode) == 0;
    };
    const std::function<bool()> plants[] = {
        [&] { return symlink("other", root.c_str()) == 0; },
        [&] { return symlink("nowhere", root.c_str()) == 0; },
        [&] { return place.put(root, ""), true; },
        [&] { return make(0775); },
        [&] { return make(0757); },
        // Only the superuser can give a directory away.
        [&] { return make(0700) && chown(root.c_str(), 1, 1) == 0; },
    };
    for (const std::function<bool()>& plant : plants) {
        if (plant())
            expect_text(
                [&] {
                    EXPECT_FALSE(gen_make_session_dir(scratch, "a", 0777));
                    EXPECT_TRUE(gen_clean_session_dirs(scratch));
                },
                "objtrim: error: Internal error: Could not find ORV user directory.\n");
        EXPECT_TRUE(fs::exists("other/0_x") && host_name_taken(root.c_str()));
        fs::remove(root);
    }
}

TEST_F(host_posix, only_what_belongs_to_the_dead_is_removed) {
    const std::string live = std::to_string(getppid()), own = std::to_string(getpid());
    std::string deep = "0_deep"; // deeper than removal goes
    for (int depth = 0; depth < 300; ++depth)
        deep += "/d";
    const words kept = {
        live + "_a_1/f",  "PID_" + live + "_x/f",      live + ".lock",         deep + "/f",
        "DATA_PID_0_x/f", "0_b/ALTERNATE_PID_" + live, "0_c/ALTERNATE_PID_1_x"};
    const words gone = {"0_d/e/f/g",
                        "-1_x/f",
                        "99999999999_x/f",
                        "_x/f",
                        "x",
                        "PID_0_x/f",
                        "x_y",
                        "0_x.lock",
                        "0_e/PID_1/f",
                        own + "_a/f",
                        "0_f/ALTERNATE_PID_" + own};
    for (const words& group : {kept, gone, words{"../other/f"}})
        for (const std::string& name : group) {
            fs::create_directories((fs::path(root) / name).parent_path());
            place.put(root + "/" + name, "");
        }
    fs::create_directory_symlink("../other", root + "/0_link");
    fs::create_directory_symlink("../../other", root + "/0_d/link");
    expect_text([&] { EXPECT_TRUE(gen_clean_session_dirs(scratch)); }, "");
    EXPECT_EQ(place.list(root).size(), kept.size());
    for (const std::string& name : kept)
        EXPECT_TRUE(name.starts_with(deep) || fs::exists(root + "/" + name)) << name;
    EXPECT_EQ(place.list("other"), words{"f"});
}

} // namespace
