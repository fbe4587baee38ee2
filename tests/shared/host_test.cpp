// The host: what a plain call of any system would get wrong for us.
#include <cerrno>

#include "shared/host.h"
#include "support/child.h"

namespace {

using host = placed_test;

TEST_F(host, success_and_an_expected_no_leave_the_error_number) {
    const bool linked = make_link("nowhere", "dangling");
    errno = 77;
    EXPECT_FALSE(host_status_of("dangling"));
    EXPECT_EQ(host_name_taken("dangling"), linked);
    EXPECT_FALSE(host_usable_directory("dangling"));
    const int file = host_open("f", host_access::create);
    EXPECT_EQ(host_close(file), 0);
    EXPECT_EQ(errno, 77);
}

} // namespace
