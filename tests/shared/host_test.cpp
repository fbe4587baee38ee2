// The host: what a plain call of any system would get wrong for us.
#include <cerrno>

#include "shared/host.h"
#include "support/child.h"

namespace {

using host = placed_test;

TEST_F(host, success_and_an_expected_no_leave_the_error_number) {
    const bool linked = make_link("nowhere", "dangling");
    errno = 77;
    EXPECT_FALSE(host_status_of("dangling") || host_status_of_link("none"));
    EXPECT_EQ(host_name_taken("dangling"), linked);
    EXPECT_FALSE(host_usable_directory("dangling") || host_readable("none"));
    const int file = host_open("f", host_access::create);
    EXPECT_TRUE(host_readable("f") && !host_usable_directory("f") && host_usable_directory("."));
    EXPECT_EQ(host_write_at(file, "abc", 3, 0), 3);
    EXPECT_EQ(host_set_mode(file, 0444), 0);
    EXPECT_EQ(host_descriptor_status(file)->mode & host_mode_bits, 0444U & host_mode_bits);
    EXPECT_EQ(host_set_mode("f", 0644) | host_close(file) | host_set_length("f", 5), 0);
    EXPECT_EQ(host_rename("f", "g") | host_set_times("g", 1'000'000'000), 0);
    const std::optional<host_status> status = host_status_of("g");
    EXPECT_TRUE(status && status->is_regular && !status->is_directory && status->mode == 0644);
    EXPECT_EQ(status->size, 5U);
    EXPECT_EQ(status->modified, 1'000'000'000);
    EXPECT_TRUE(host_process_is_alive(host_process_id()));
    EXPECT_EQ(host_remove_tree("g"), 0);
    EXPECT_EQ(errno, 77);
}

// Every failure is -1, with its reason.
TEST_F(host, failures_leave_the_reason) {
    place.put("d/f", "abc");
    const int file = host_open("d/f", host_access::update);
    const int gone = host_open("d/f", host_access::read);
    host_close(gone);
    constexpr uint64_t beyond = uint64_t{1} << 63;
    char b = 0;
    int lock = -1;
    const auto reason = [](const std::function<int64_t()>& call) {
        errno = 77;
        return call() == -1 ? errno : 0;
    };
    EXPECT_EQ(reason([&] { return host_read_at(file, &b, 1, beyond); }), EINVAL);
    EXPECT_EQ(reason([&] { return host_write_at(file, &b, 1, beyond); }), EINVAL);
    EXPECT_EQ(reason([] { return host_set_length("d/f", UINT64_MAX); }), EINVAL);
    EXPECT_EQ(reason([&] { return host_close(gone); }), EBADF);
    EXPECT_EQ(reason([] { return host_rename("none", "x"); }), ENOENT);
    EXPECT_EQ(reason([] { return host_delete("none"); }), ENOENT);
    EXPECT_EQ(reason([] { return host_set_times("none", 1); }), ENOENT);
    EXPECT_EQ(reason([] { return host_make_directory("d/", 0777); }), EEXIST);
    EXPECT_EQ(reason([] { return host_remove_directory("d"); }), ENOTEMPTY);
    EXPECT_EQ(reason([] { return host_remove_tree("none"); }), ENOENT);
    EXPECT_EQ(reason([] { return host_list_directory("none") ? 0 : -1; }), ENOENT);
    EXPECT_EQ(host_create_lock("none/l", lock), host_lock_outcome::failed);
    EXPECT_EQ(host_read_at(file, &b, 1, 2), 1);
    EXPECT_EQ(host_read_at(file, &b, 1, 3), 0);
    host_close(file);
    EXPECT_EQ(host_list_directory("d/"), words{"f"});
    EXPECT_FALSE(host_list_directory("d/f"));
    EXPECT_EQ(host_remove_tree("d"), 0);
}

} // namespace
