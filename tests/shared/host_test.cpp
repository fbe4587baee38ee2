// The host on POSIX: what a plain call of the system would get wrong for us.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "shared/host.h"
#include "support/child.h"

namespace {

using host = placed_test;

TEST_F(host, success_and_an_expected_no_leave_the_error_number) {
    place.put("f", "text");
    std::filesystem::create_symlink("nowhere", "dangling");
    char buffer[8];
    errno = 77;
    EXPECT_FALSE(host_status_of("none"));
    EXPECT_FALSE(host_status_of("f/none"));
    EXPECT_FALSE(host_status_of("dangling"));
    EXPECT_FALSE(host_resolve_links("dangling"));
    EXPECT_TRUE(host_name_taken("dangling"));
    EXPECT_TRUE(host_is_link("dangling"));
    EXPECT_FALSE(host_name_taken("none"));
    EXPECT_FALSE(host_usable_directory("f"));
    EXPECT_TRUE(host_usable_directory("."));
    const int file = host_open("f", host_access::update);
    EXPECT_EQ(host_read_at(file, buffer, 8, 2), 2);
    EXPECT_EQ(host_read_at(file, buffer, 8, 4), 0);
    EXPECT_EQ(host_copy_range(file, 0, -1, 0, 4), 0u);
    EXPECT_EQ(host_check_offset(file, INT64_C(1) << 40), 0);
    EXPECT_EQ(host_close(file), 0);
    EXPECT_EQ(errno, 77);
}

TEST_F(host, failures_show_their_error_number) {
    place.put("f", "");
    std::filesystem::create_symlink("loop", "loop");
    mkfifo("fifo", 0600);
    const int file = host_open("f", host_access::read);
    char byte = 0;
    const struct {
        bool failed;
        int expected, found;
    } rows[] = {
        {!host_status_of("loop"), ELOOP, errno},
        {host_open("none", host_access::update) == -1, ENOENT, errno},
        {host_open("f", host_access::create_exclusive) == -1, EEXIST, errno},
        {host_open("fifo", host_access::create) == -1, ENXIO, errno}, // and does not wait
        {host_read_at(file, &byte, 1, UINT64_C(1) << 63) == -1, EINVAL, errno},
        {host_write_at(file, &byte, 1, UINT64_MAX) == -1, EINVAL, errno},
        {host_write_at(file, &byte, 1, 0) == -1, EBADF, errno},
        {host_check_offset(file, -1) == -1, EINVAL, errno},
        {!host_full_path(""), ENOENT, errno},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(row.failed) << strerror(row.expected);
        EXPECT_EQ(row.found, row.expected);
    }
    const int reader = host_open("fifo", host_access::read);
    EXPECT_GE(reader, 0);
    host_close(reader);
    host_close(file);
}

TEST_F(host, only_create_empties_a_file_and_an_exclusive_one_is_private) {
    umask(022);
    for (host_access access : {host_access::update, host_access::create, host_access::append}) {
        place.put("f", "old");
        const int file = host_open("f", access);
        EXPECT_EQ(host_write_at(file, "N", 1, 0), 1);
        host_close(file);
        EXPECT_EQ(place.get("f"), access == host_access::create ? "N" : "Nld");
    }
    host_close(host_open("new", host_access::create_exclusive));
    EXPECT_EQ(host_status_of("new").value().mode, 0600u);
    EXPECT_EQ(host_status_of("f").value().mode, 0644u);
}

TEST_F(host, a_range_is_copied_from_place_to_place) {
    place.put("from", "0123456789");
    place.put("to", "abcdefghij");
    const int from = host_open("from", host_access::read);
    const int to = host_open("to", host_access::update);
    const uint64_t copied = host_copy_range(from, 8, to, 1, 5);
    EXPECT_EQ(host_copy_range(from, UINT64_C(1) << 63, to, 0, 1), 0u);
    EXPECT_EQ(host_copy_range(from, 0, to, UINT64_MAX, 1), 0u);
    host_close(from);
    host_close(to);
    if (copied == 0)
        GTEST_SKIP() << "the file system has no way to copy";
    EXPECT_EQ(copied, 2u); // as far as the input goes
    EXPECT_EQ(place.get("to"), "a89defghij");
}

TEST_F(host, full_names_are_made_from_the_text_alone) {
    EXPECT_EQ(host_full_path("a/./b//../..c/"), place.directory + "/a/..c");
    EXPECT_EQ(host_full_path("."), place.directory);
    EXPECT_EQ(host_full_path("//x/../.."), "/");
}

TEST_F(host, the_user_is_not_taken_from_the_environment) {
    const std::string user = host_user_name(), home = host_home_directory();
    EXPECT_FALSE(user.empty());
    const auto forged = [] {
        for (const char* variable : {"USER", "LOGNAME", "HOME"})
            setenv(variable, "/forged", 1);
        fprintf(stderr, "%s %s", host_user_name().c_str(), host_home_directory().c_str());
    };
    expect_text(forged, user + " " + home);
}

TEST_F(host, after_the_start_writes_fail_instead_of_ending_the_program) {
    const auto [status, text] = run_child([] {
        std::signal(SIGCHLD, SIG_IGN); // as a careless parent leaves it
        close(STDIN_FILENO);
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
        failures += host_run("/bin/sh -c \"exit 3\"", false) != 3;
        _exit(failures);
    });
    EXPECT_EQ(status, 0);
}

} // namespace
