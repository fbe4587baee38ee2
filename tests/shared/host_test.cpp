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
    const int file = host_open("f", host_access::create_exclusive_update);
    EXPECT_TRUE(host_readable("f") && !host_usable_directory("f") && host_usable_directory("."));
    constexpr uint64_t distant = (uint64_t{5} << 30) + 3;
    char letter = 0;
    EXPECT_EQ(host_write_at(file, "abc", 3, distant), 3);
    EXPECT_TRUE(host_read_at(file, &letter, 1, distant + 1) == 1 && letter == 'b');
    EXPECT_EQ(host_set_mode(file, 0444), 0);
    EXPECT_EQ(host_descriptor_status(file)->mode & host_mode_bits, 0444U & host_mode_bits);
    EXPECT_EQ(host_set_mode("f", 0644) | host_close(file) | host_set_length("f", distant), 0);
    EXPECT_EQ(host_rename("f", "g") | host_set_times("g", 1'000'000'000), 0);
    EXPECT_EQ(host_status_of("g").value().modified, 1'000'000'000);
    EXPECT_EQ(host_status_of("g").value().size, distant);
    EXPECT_TRUE(host_process_is_alive(host_process_id()));
    EXPECT_EQ(host_remove_tree("g"), 0);
    EXPECT_EQ(errno, 77);
}

// Every failure is -1, with its reason.
TEST_F(host, failures_leave_the_reason) {
    place.put("d/f", "abc");
    const int file = host_open("d/f", host_access::update);
    constexpr uint64_t beyond = uint64_t{1} << 63;
    char b = 0;
    const auto reason = [](const std::function<int64_t()>& call) {
        errno = 77;
        return call() == -1 ? errno : 0;
    };
    EXPECT_EQ(reason([&] { return host_read_at(file, &b, 1, beyond); }), EINVAL);
    EXPECT_EQ(reason([&] { return host_write_at(file, &b, 1, beyond); }), EINVAL);
    EXPECT_EQ(reason([] { return host_set_length("d/f", UINT64_MAX); }), EINVAL);
    EXPECT_EQ(reason([] { return host_make_directory("d/", 0777); }), EEXIST);
    EXPECT_EQ(reason([] { return host_remove_directory("d"); }), ENOTEMPTY);
    host_close(file);
    EXPECT_EQ(host_list_directory("d/"), words{"f"});
}

} // namespace
