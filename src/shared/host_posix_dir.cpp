// The host on POSIX systems: directories, and the files that serve as locks.
//
// Both lie where others may plant things, so nothing here follows a link: a name is opened, looked
// at and removed as what it is itself.
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

#include "shared/host_posix.h"

namespace {

// A separator at the end would make the host follow a link.
std::string without_last_separators(std::string_view name) {
    while (name.size() > 1 && name.back() == '/')
        name.remove_suffix(1);
    return std::string(name);
}

bool status_of_link(const char* name, struct stat& found) {
    return lstat(without_last_separators(name).c_str(), &found) == 0;
}

struct directory_closer {
    void operator()(DIR* stream) const { closedir(stream); }
};
using directory_stream = std::unique_ptr<DIR, directory_closer>;

struct tree_level {
    directory_stream stream;
    std::string name; // in the level above
};

// Null, with the error number, also when the name is a link.
directory_stream open_directory(int parent, const char* name) {
    const int descriptor =
        openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        return nullptr;
    directory_stream stream(fdopendir(descriptor));
    if (!stream)
        close(descriptor);
    return stream;
}

// The next entry but "." and ".."; null at the end, and with an error number on failure.
const dirent* next_entry(DIR* stream) {
    const dirent* entry;
    do {
        errno = 0;
        entry = readdir(stream);
    } while (entry != nullptr &&
             (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0));
    return entry;
}

bool is_directory_entry(int parent, const dirent& entry) {
#ifdef DT_UNKNOWN
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_DIR;
#endif
    struct stat found;
    return fstatat(parent, entry.d_name, &found, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(found.st_mode);
}

bool enter(std::vector<tree_level>& levels, int parent, std::string name) {
    constexpr size_t depth_limit = 256; // each level keeps a descriptor
    if (levels.size() == depth_limit) {
        errno = ELOOP;
        return false;
    }
    directory_stream stream = open_directory(parent, name.c_str());
    if (!stream)
        return false;
    levels.push_back({std::move(stream), std::move(name)});
    return true;
}

// One step of a removal: an entry of the deepest level removed or entered, or that level left.
bool remove_step(std::vector<tree_level>& levels) {
    DIR* const stream = levels.back().stream.get();
    if (const dirent* const entry = next_entry(stream)) {
        const int parent = dirfd(stream);
        if (is_directory_entry(parent, *entry))
            return enter(levels, parent, entry->d_name);
        return unlinkat(parent, entry->d_name, 0) == 0 || errno == ENOENT;
    }
    const std::string name = std::move(levels.back().name);
    levels.pop_back();
    const int parent = levels.empty() ? AT_FDCWD : dirfd(levels.back().stream.get());
    return unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0;
}

} // namespace

std::optional<host_status> host_status_of_link(const char* name) {
    const errno_keeper error;
    struct stat found;
    if (status_of_link(name, found))
        return host_status_from(found);
    return std::nullopt;
}

bool host_is_private_directory(const char* name) {
    const errno_keeper error;
    struct stat found;
    return status_of_link(name, found) && S_ISDIR(found.st_mode) && found.st_uid == geteuid() &&
           (found.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

int host_make_directory(const char* name, uint32_t mode) {
    const mode_t bits = static_cast<mode_t>(mode & 0777);
    return errno_keeper().pass(mkdir(without_last_separators(name).c_str(), bits));
}

int host_remove_directory(const char* name) {
    const int result = errno_keeper().pass(rmdir(without_last_separators(name).c_str()));
    if (result != 0 && errno == EEXIST) // the other error number that hosts use for this
        errno = ENOTEMPTY;
    return result;
}

int host_set_times(const char* name, int64_t time) {
    timespec times[2] = {};
    times[0].tv_sec = times[1].tv_sec = static_cast<time_t>(time);
    return errno_keeper().pass(utimensat(AT_FDCWD, name, times, AT_SYMLINK_NOFOLLOW));
}

std::optional<std::vector<std::string>> host_list_directory(const char* name) {
    errno_keeper error;
    const directory_stream stream = open_directory(AT_FDCWD, without_last_separators(name).c_str());
    if (stream) {
        std::vector<std::string> names;
        while (const dirent* const entry = next_entry(stream.get()))
            names.emplace_back(entry->d_name);
        if (errno == 0)
            return names;
    }
    error.saved = errno;
    return std::nullopt;
}

// What cannot be removed does not keep the rest; the first reason is the one that is told.
int host_remove_tree(const char* name) {
    errno_keeper error;
    const std::string whole = without_last_separators(name);
    std::vector<tree_level> levels;
    if (!enter(levels, AT_FDCWD, whole)) {
        const bool is_no_directory = errno == ENOTDIR || errno == ELOOP;
        return error.pass(is_no_directory ? unlink(whole.c_str()) : -1);
    }
    int first_failure = 0;
    while (!levels.empty())
        if (!remove_step(levels) && first_failure == 0)
            first_failure = errno;
    errno = first_failure;
    return error.pass(first_failure == 0 ? 0 : -1);
}

host_lock_outcome host_create_lock(const char* name, int& descriptor) {
    errno_keeper error;
    do
        descriptor = open(name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    while (descriptor < 0 && errno == EINTR);
    if (descriptor >= 0)
        return host_lock_outcome::held;
    if (errno == EEXIST)
        return host_lock_outcome::contended;
    error.saved = errno;
    return host_lock_outcome::failed;
}

// Between the look at the name and the removal someone else could remove the file and make a new
// one. So whoever removes a lock file holds the host's own lock on it meanwhile, where the file
// system has such locks; that the descriptor is open keeps the file's number from being reused.
int host_remove_lock(int descriptor, const char* name) {
    errno_keeper error;
    if (descriptor >= 0) {
        struct stat opened;
        struct stat named;
        if (flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
            return 0; // someone is removing it just now
        if (fstat(descriptor, &opened) != 0 || lstat(name, &named) != 0 ||
            opened.st_dev != named.st_dev || opened.st_ino != named.st_ino)
            return 0;
    }
    const int result = unlink(name);
    return error.pass(result != 0 && errno == ENOENT ? 0 : result);
}

int host_close_lock(int descriptor, const char* name) {
    errno_keeper error;
    const int removed = host_remove_lock(descriptor, name);
    const int reason = errno;
    const int closed = host_close(descriptor);
    if (removed != 0)
        errno = reason;
    return error.pass(removed != 0 ? removed : closed);
}
