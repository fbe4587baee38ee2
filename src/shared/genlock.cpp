// Lock files.
//
// The owner makes the file exclusively, writes who it is into it, and removes it at the end. A file
// whose owner died, or that is too old, is removed by whoever waits for it. Only one process at a
// time does that: it holds a second lock file, "._rlock", for as long as it looks and removes.
#include "shared/genlock.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <utility>

#include "shared/genbytes.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/host.h"

namespace {

constexpr uint32_t milliseconds_between_tries = 100;
constexpr int32_t second_lock_stale_age = 100; // seconds; it is held for an instant

void trace(const char* text) {
    if (gen_sink().event_log)
        gen_sink().event_log("gen_lockfile", text);
}

// What a lock file holds: process id and length of the machine tag, four bytes each with the lowest
// first, and the tag.
constexpr size_t tag_size_at = 4;
constexpr size_t tag_at = 8;

std::string machine_tag() {
    char text[32];
    snprintf(text, sizeof text, "Disk%" PRIx64, host_machine_id());
    return text;
}

// In one write, so that nobody sees a part.
bool write_owner(int descriptor) {
    const std::string tag = machine_tag();
    std::string content(tag_at, '\0');
    std::byte* const words = reinterpret_cast<std::byte*>(content.data());
    gen_store(words, host_process_id(), false);
    gen_store(words + tag_size_at, static_cast<uint32_t>(tag.size()), false);
    content += tag;
    return host_write_at(descriptor, content.data(), content.size(), 0) ==
           static_cast<int64_t>(content.size());
}

// A lock file as somebody else sees it. It is kept open, so that at its removal the host can tell
// whether the name still means this file.
struct lock_view {
    int descriptor = -1; // -1: it cannot be read
    int64_t age = 0;     // seconds
    bool has_owner = false;
    uint32_t owner = 0;     // process id
    bool is_orphan = false; // its owner lived on this machine and lives no more

    lock_view() = default;
    lock_view(const lock_view&) = delete;
    lock_view& operator=(const lock_view&) = delete;
    ~lock_view() {
        if (descriptor >= 0)
            host_close(descriptor);
    }
};

// Opens the very file that `status` tells of: through a link it would be another.
int open_seen(const char* name, const host_status& status) {
    const int descriptor = status.is_regular ? host_open(name, host_access::read) : -1;
    if (descriptor < 0)
        return -1;
    const std::optional<host_status> opened = host_descriptor_status(descriptor);
    if (opened && opened->device == status.device && opened->number == status.number)
        return descriptor;
    host_close(descriptor);
    return -1;
}

void read_owner(lock_view& view) {
    std::byte content[64];
    const int64_t length = host_read_at(view.descriptor, content, sizeof content, 0);
    if (length < static_cast<int64_t>(tag_at))
        return;
    const uint64_t tag_size = gen_load<uint32_t>(content + tag_size_at, false);
    if (tag_size > static_cast<uint64_t>(length) - tag_at)
        return;
    view.has_owner = true;
    view.owner = gen_load<uint32_t>(content, false);
    const char* const tag = reinterpret_cast<const char*>(content) + tag_at;
    view.is_orphan = gen_equal_ignoring_case({tag, tag_size}, machine_tag()) &&
                     !host_process_is_alive(view.owner);
}

// Whether there is a file to look at.
bool look(const char* name, lock_view& view) {
    const int saved_errno = errno;
    const std::optional<host_status> status = host_status_of_link(name);
    if (!status)
        return false;
    // A date before 1970 counts as 1970: the difference cannot overflow.
    view.age = host_time() - (status->modified > 0 ? status->modified : 0);
    view.descriptor = open_seen(name, *status);
    if (view.descriptor >= 0)
        read_owner(view);
    errno = saved_errno;
    return true;
}

bool is_stale(const lock_view& view, int32_t stale_age) {
    return view.is_orphan || (stale_age != gen_lock_never_stale && view.age > stale_age);
}

void warn_of_breaking(const lock_view& view, const char* name, int32_t stale_age) {
    if (view.has_owner)
        gen_warning("Breaking lock from pid %" PRId32 "%s, on %s. It is %" PRId64 " seconds old.\n",
                    static_cast<int32_t>(view.owner), "", name, view.age);
    else
        gen_warning("Breaking lock on %s. It is more than %" PRId32 " seconds old.\n", name,
                    stale_age);
}

// Makes the lock file with our name in it. The reason of a failure is in errno.
host_lock_outcome take(const char* name, int& descriptor) {
    const host_lock_outcome made = host_create_lock(name, descriptor);
    if (made == host_lock_outcome::failed)
        trace("CreateFile failed");
    if (made != host_lock_outcome::held || write_owner(descriptor))
        return made;
    const int reason = errno;
    host_close_lock(descriptor, name);
    errno = reason;
    trace("create_lock_file failed");
    return host_lock_outcome::failed;
}

// One try, but the file of a process that died with it in its hands does not count.
host_lock_outcome take_second_lock(const char* name, int& descriptor) {
    const host_lock_outcome taken = take(name, descriptor);
    if (taken != host_lock_outcome::contended)
        return taken;
    {
        lock_view view;
        if (!look(name, view) || !is_stale(view, second_lock_stale_age))
            return host_lock_outcome::contended;
        if (host_remove_lock(view.descriptor, name) != 0)
            return host_lock_outcome::failed;
    }
    return take(name, descriptor);
}

// With the second lock held: nobody else removes the file unless it is its own. Sets `is_gone`.
bool remove_seen_again(const char* name, int32_t stale_age, bool& is_gone) {
    lock_view view;
    is_gone = !look(name, view);
    if (is_gone || !is_stale(view, stale_age))
        return true;
    if (!view.is_orphan)
        warn_of_breaking(view, name, stale_age);
    is_gone = host_remove_lock(view.descriptor, name) == 0;
    return is_gone;
}

// Removes the lock file if its owner is dead or it is too old. False, with the reason in errno, if
// it should go but cannot; `is_gone` tells whether another try to make it is worth while.
bool remove_stale_lock(const char* name, int32_t stale_age, bool& is_gone) {
    {
        lock_view view;
        is_gone = !look(name, view);
        if (is_gone || !is_stale(view, stale_age))
            return true;
    }
    const std::string second_lock = std::string(name) + "._rlock";
    int descriptor = -1;
    const host_lock_outcome taken = take_second_lock(second_lock.c_str(), descriptor);
    if (taken != host_lock_outcome::held)
        return taken == host_lock_outcome::contended;
    const bool removed = remove_seen_again(name, stale_age, is_gone);
    const int reason = errno;
    host_close_lock(descriptor, second_lock.c_str());
    errno = reason;
    return removed;
}

// The usual case comes first: where there is no lock file, nobody's can be stale.
host_lock_outcome attempt(const char* name, int32_t stale_age, int& descriptor) {
    const host_lock_outcome taken = take(name, descriptor);
    if (taken != host_lock_outcome::contended)
        return taken;
    bool is_gone = false;
    if (!remove_stale_lock(name, stale_age, is_gone)) {
        gen_warning("remove_stale_lock failed (errno=%d)", errno);
        return host_lock_outcome::failed;
    }
    return is_gone ? take(name, descriptor) : taken;
}

// Whether the lock file is none of this user's, who has names of his own for what he locks: its
// owner could hold it for ever. So is one that cannot be looked at.
bool is_foreign(const char* name) {
    const std::optional<host_status> status = host_status_of_link(name);
    return !status || !host_is_users_own(*status);
}

} // namespace

std::string gen_lock_path(std::string path) {
    if (!path.empty() && (path.back() == '\\' || path.back() == '/' || path.back() == ':'))
        path.back() = '_';
    return path + ".lock";
}

gen_lock_ptr gen_lockfile(const std::string& path, int32_t timeout, int32_t stale_age,
                          bool* hard_failure) {
    gen_lock_ptr lock(std::make_unique<gen_lock>().release());
    lock->path = gen_lock_path(path);
    const int64_t start = host_time();
    host_lock_outcome taken;
    for (;;) {
        taken = attempt(lock->path.c_str(), stale_age, lock->descriptor);
        if (taken != host_lock_outcome::contended || timeout == 0)
            break;
        host_sleep(milliseconds_between_tries);
        const int64_t waited = host_time() - start;
        if (timeout != gen_lock_wait_for_ever && waited >= timeout)
            break;
        if (timeout == gen_lock_wait_for_ever && stale_age != gen_lock_never_stale &&
            waited > stale_age + 1 && is_foreign(lock->path.c_str())) {
            gen_error("lock file '%s' is not this user's", lock->path.c_str());
            taken = host_lock_outcome::failed;
            break;
        }
    }
    if (hard_failure != nullptr)
        *hard_failure = taken == host_lock_outcome::failed;
    if (taken == host_lock_outcome::held) {
        trace("locked");
        return lock;
    }
    trace("lock failed");
    lock->descriptor = -1;
    return nullptr;
}

bool gen_unlock(gen_lock_ptr lock) {
    const bool unlocked =
        lock && host_close_lock(std::exchange(lock->descriptor, -1), lock->path.c_str()) == 0;
    trace(unlocked ? "unlocked" : "failed to unlock");
    return unlocked;
}

void gen_lock_releaser::operator()(gen_lock* lock) const {
    std::unique_ptr<gen_lock> owned(lock);
    if (lock->descriptor >= 0) {
        const int descriptor = std::exchange(lock->descriptor, -1);
        trace(host_close_lock(descriptor, lock->path.c_str()) == 0 ? "unlocked"
                                                                   : "failed to unlock");
    }
}
