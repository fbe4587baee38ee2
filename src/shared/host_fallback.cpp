// Operations that only Linux has, as they are on all other hosts: nothing is copied inside the
// host, there are no holes to find, and there is nothing to reserve or to announce.
#include "shared/host.h"

#ifndef __linux__

uint64_t host_copy_range(int, uint64_t, int, uint64_t, uint64_t) {
    return 0;
}

host_range host_next_data(int, uint64_t offset) {
    return {offset, UINT64_MAX};
}

void host_reserve(int, uint64_t, uint64_t) {}

void host_expect_use(void*, size_t) {}

#endif
