// The host on POSIX systems: files.
//
// Everything here works on plain descriptors and names. Error numbers are part of the tool's
// messages: a routine that succeeds, or that only answers a question, puts errno back.
#include "shared/host_posix.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

static_assert(sizeof(off_t) == 8, "files beyond 2 GiB need 64-bit offsets");

const host_path_rules host_paths = host_path_rules::posix;
const char host_separator = '/';
const uint32_t host_mode_bits = 07777;
const char host_line_end[] = "\n";
const char host_program_suffix[] = "";

namespace {

struct c_memory_freer {
    void operator()(char* text) const { std::free(text); }
};
using c_text = std::unique_ptr<char, c_memory_freer>;

bool is_offset(uint64_t offset) {
    return offset <= static_cast<uint64_t>(INT64_MAX);
}

// O_NONBLOCK is of no consequence for regular files.
int open_flags(host_access access) {
    constexpr int always = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    switch (access) {
    case host_access::read:
        return always | O_RDONLY;
    case host_access::update:
        return always | O_RDWR;
    case host_access::create:
        return always | O_WRONLY | O_CREAT | O_TRUNC;
    case host_access::create_exclusive:
        return always | O_WRONLY | O_CREAT | O_EXCL;
    case host_access::create_exclusive_update:
        return always | O_RDWR | O_CREAT | O_EXCL;
    case host_access::append:
        return always | O_WRONLY | O_CREAT;
    }
    return always;
}

// Repeats a transfer for as long as signals interrupt it.
template <typename Call>
int64_t transfer(Call call) {
    errno_keeper error;
    ssize_t moved;
    do
        moved = call();
    while (moved < 0 && errno == EINTR);
    return error.pass(moved);
}

// A write that moves nothing would make its caller go round for ever.
template <typename Call>
int64_t transfer_out(size_t size, Call call) {
    const int64_t moved = transfer(call);
    if (moved != 0 || size == 0)
        return moved;
    errno = ENOSPC;
    return -1;
}

} // namespace

host_status host_status_from(const struct stat& from) {
    host_status status;
    status.size = from.st_size > 0 ? static_cast<uint64_t>(from.st_size) : 0;
    status.device = static_cast<uint64_t>(from.st_dev);
    status.number = static_cast<uint64_t>(from.st_ino);
    status.mode = static_cast<uint32_t>(from.st_mode & 07777);
    status.owner = from.st_uid;
    status.group = from.st_gid;
    status.modified = static_cast<int64_t>(from.st_mtime);
    status.is_directory = S_ISDIR(from.st_mode);
    status.is_regular = S_ISREG(from.st_mode);
    return status;
}

std::optional<host_status> host_status_of(const char* name) {
    const errno_keeper error;
    struct stat found;
    if (stat(name, &found) == 0)
        return host_status_from(found);
    return std::nullopt;
}

bool host_is_users_own(const host_status& status) {
    return status.owner == geteuid();
}

bool host_name_taken(const char* name) {
    const errno_keeper error;
    struct stat found;
    return lstat(name, &found) == 0;
}

bool host_readable(const char* name) {
    const errno_keeper error;
    return faccessat(AT_FDCWD, name, R_OK, AT_EACCESS) == 0;
}

bool host_usable_directory(const char* name) {
    const errno_keeper error;
    struct stat found;
    return stat(name, &found) == 0 && S_ISDIR(found.st_mode) &&
           faccessat(AT_FDCWD, name, W_OK | X_OK, AT_EACCESS) == 0;
}

std::optional<std::string> host_full_path(const char* name) {
    const errno_keeper error;
    std::string whole = name;
    if (whole.empty())
        return std::nullopt;
    if (whole[0] != '/') {
        const c_text current(getcwd(nullptr, 0));
        if (!current)
            return std::nullopt;
        whole = std::string(current.get()) + "/" + name;
    }
    std::string full;
    for (size_t at = 0; at < whole.size();) {
        const size_t end = std::min(whole.find('/', at), whole.size());
        const std::string_view component = std::string_view(whole).substr(at, end - at);
        if (component == "..")
            full.resize(full.empty() ? 0 : full.rfind('/'));
        else if (!component.empty() && component != ".")
            full.append("/").append(component);
        at = end + 1;
    }
    return full.empty() ? std::string("/") : full;
}

std::optional<std::string> host_link_target(const char* name) {
    const errno_keeper error;
    std::string target(PATH_MAX, '\0');
    const ssize_t length = readlink(name, target.data(), target.size());
    if (length < 0 || static_cast<size_t>(length) == target.size())
        return std::nullopt;
    target.resize(static_cast<size_t>(length));
    return target;
}

int host_rename(const char* from, const char* to) {
    return errno_keeper().pass(rename(from, to));
}

int host_delete(const char* name) {
    return errno_keeper().pass(unlink(name));
}

int host_set_length(const char* name, uint64_t length) {
    if (!is_offset(length)) {
        errno = EINVAL;
        return -1;
    }
    return errno_keeper().pass(truncate(name, static_cast<off_t>(length)));
}

int host_set_mode(const char* name, uint32_t mode) {
    return errno_keeper().pass(chmod(name, static_cast<mode_t>(mode & 07777)));
}

// An interrupted open is handed back as it is: the caller counts its attempts.
int host_open(const char* name, host_access access) {
    const mode_t mode = access == host_access::create_exclusive ? 0600 : 0666;
    return errno_keeper().pass(open(name, open_flags(access), mode));
}

// The descriptor is gone even when the call was interrupted.
int host_close(int descriptor) {
    const int saved = errno;
    if (close(descriptor) != 0 && errno != EINTR)
        return -1;
    errno = saved;
    return 0;
}

std::optional<host_status> host_descriptor_status(int descriptor) {
    errno_keeper error;
    struct stat found;
    if (error.pass(fstat(descriptor, &found)) == 0)
        return host_status_from(found);
    return std::nullopt;
}

int64_t host_read_at(int descriptor, void* buffer, size_t size, uint64_t offset) {
    if (!is_offset(offset)) {
        errno = EINVAL;
        return -1;
    }
    return transfer([=] { return pread(descriptor, buffer, size, static_cast<off_t>(offset)); });
}

int64_t host_write_at(int descriptor, const void* buffer, size_t size, uint64_t offset) {
    if (!is_offset(offset)) {
        errno = EINVAL;
        return -1;
    }
    return transfer_out(
        size, [=] { return pwrite(descriptor, buffer, size, static_cast<off_t>(offset)); });
}

int64_t host_read(int descriptor, void* buffer, uint32_t size) {
    return transfer([=] { return read(descriptor, buffer, size); });
}

int64_t host_write(int descriptor, const void* buffer, uint32_t size) {
    return transfer_out(size, [=] { return write(descriptor, buffer, size); });
}

#ifdef __linux__
uint64_t host_copy_range(int from, uint64_t from_offset, int to, uint64_t to_offset,
                         uint64_t size) {
    const errno_keeper error;
    if (!is_offset(from_offset) || !is_offset(to_offset))
        return 0;
    constexpr uint64_t piece_limit = uint64_t{1} << 30;
    const size_t piece = static_cast<size_t>(std::min(size, piece_limit));
    const int64_t copied = transfer([=] {
        off_t read_from = static_cast<off_t>(from_offset);
        off_t write_to = static_cast<off_t>(to_offset);
        return copy_file_range(from, &read_from, to, &write_to, piece, 0);
    });
    return copied > 0 ? static_cast<uint64_t>(copied) : 0;
}

void host_expect_use(void* block, size_t size) {
    const errno_keeper error;
    constexpr uintptr_t large_page = 2 * 1024 * 1024;
    const uintptr_t begin = reinterpret_cast<uintptr_t>(block);
    const uintptr_t first = (begin + large_page - 1) / large_page * large_page;
    const uintptr_t end = (begin + size) / large_page * large_page;
    if (first < end)
        madvise(static_cast<char*>(block) + (first - begin), end - first, MADV_HUGEPAGE);
}

host_range host_next_data(int descriptor, uint64_t offset) {
    const errno_keeper error;
    const host_range rest = {offset, UINT64_MAX};
    if (!is_offset(offset))
        return rest;
    const off_t start = lseek(descriptor, static_cast<off_t>(offset), SEEK_DATA);
    if (start < 0)
        return errno == ENXIO ? host_range{UINT64_MAX, UINT64_MAX} : rest;
    const off_t end = lseek(descriptor, start, SEEK_HOLE);
    if (end <= start)
        return rest;
    return {static_cast<uint64_t>(start), static_cast<uint64_t>(end)};
}

void host_reserve(int descriptor, uint64_t offset, uint64_t size) {
    const errno_keeper error;
    if (is_offset(offset) && is_offset(size))
        fallocate(descriptor, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                  static_cast<off_t>(size));
}
#endif

int host_set_owner(int descriptor, uint32_t owner, uint32_t group) {
    return errno_keeper().pass(fchown(descriptor, owner, group));
}

int host_set_mode(int descriptor, uint32_t mode) {
    return errno_keeper().pass(fchmod(descriptor, static_cast<mode_t>(mode & 07777)));
}

int host_check_offset(int descriptor, int64_t offset) {
    return errno_keeper().pass(lseek(descriptor, static_cast<off_t>(offset), SEEK_SET)) < 0 ? -1
                                                                                            : 0;
}
