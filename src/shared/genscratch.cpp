// Scratch directories and their removal.
//
// The root lies in a directory where everyone may write. So it is used only if it is the user's
// own, and nothing in it is followed: entries are judged and removed by what they are themselves.
#include "shared/genscratch.h"

#include <cerrno>
#include <charconv>
#include <string_view>
#include <vector>

#include "shared/genlock.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/host.h"

namespace {

constexpr int32_t stale_lock_age = 100;    // seconds
constexpr int32_t clean_lock_timeout = 30; // seconds
constexpr uint32_t root_mode = 0755;       // a root that others can write to is refused

std::string user_name() {
    constexpr size_t longest = 256;
    return host_user_name().substr(0, longest);
}

std::string root_of(gen_scratch& scratch, const std::string& name) {
    return gen_join(gen_tmpdir(scratch.temp), name) + host_separator;
}

// Makes the root, or finds one that nobody else can have prepared for us.
bool have_root(const std::string& root) {
    if (host_make_directory(root.c_str(), root_mode) == 0)
        return true;
    if (errno != EEXIST)
        return false;
    if (host_is_private_directory(root.c_str()))
        return true;
    gen_error("Internal error: Could not find ORV user directory.");
    return false;
}

// The marker of a directory. It is made anew unless it is there already.
void put_marker(const std::string& directory) {
    const std::string marker = gen_join(directory, "dont_delete");
    const int file = host_open(marker.c_str(), host_access::create_exclusive_update);
    if (file >= 0)
        host_close(file);
    else if (errno == EEXIST)
        host_set_times(marker.c_str(), host_time());
}

std::optional<std::string> make_numbered(gen_scratch& scratch, const std::string& prefix,
                                         uint32_t mode) {
    for (;;) {
        const std::string path = prefix + std::to_string(++scratch.counter);
        if (host_make_directory(path.c_str(), mode) == 0) {
            put_marker(path);
            return path;
        }
        if (errno == EEXIST) {
            const std::optional<host_status> there = host_status_of(path.c_str());
            if (there && there->is_directory)
                continue;
        }
        gen_error("Internal error: Temporary directory '%s' could not be created", path.c_str());
        return std::nullopt;
    }
}

// The process id that a text up to its first "_" says; 0, which no process has, for anything else.
uint32_t leading_process_id(std::string_view text) {
    text = text.substr(0, text.find('_'));
    uint32_t id = 0;
    const std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), id);
    return read.ec == std::errc() ? id : 0;
}

bool is_someone_elses(uint32_t id) {
    return id != host_process_id() && host_process_is_alive(id);
}

bool is_deletable(std::string_view entry) {
    constexpr std::string_view process_prefix = "PID_";
    if (entry.starts_with("DATA_PID_"))
        return false;
    if (entry.starts_with(process_prefix))
        entry.remove_prefix(process_prefix.size());
    return !is_someone_elses(leading_process_id(entry));
}

// Whether another process that still lives works in the directory.
bool is_claimed(const std::string& directory) {
    constexpr std::string_view claim = "ALTERNATE_PID_";
    const std::optional<std::vector<std::string>> names = host_list_directory(directory.c_str());
    if (!names)
        return false;
    for (const std::string& name : *names)
        if (name.starts_with(claim) &&
            is_someone_elses(leading_process_id(std::string_view(name).substr(claim.size()))))
            return true;
    return false;
}

void clean_directory(const std::string& path) {
    const gen_lock_ptr lock = gen_lockfile(path, clean_lock_timeout, stale_lock_age);
    if (lock && !is_claimed(path))
        host_remove_tree(path.c_str());
}

// Files first: among them may be the locks of directories that a cleaner left behind as it died.
bool clean_entries(const std::string& root, const std::vector<std::string>& entries) {
    bool all_removed = true;
    std::vector<std::string> directories;
    for (const std::string& entry : entries) {
        if (!is_deletable(entry))
            continue;
        const std::string path = gen_join(root, entry);
        const std::optional<host_status> status = host_status_of_link(path.c_str());
        if (status && status->is_directory)
            directories.push_back(path);
        else if (host_delete(path.c_str()) != 0 && errno != ENOENT)
            all_removed = false;
    }
    for (const std::string& path : directories)
        clean_directory(path);
    return all_removed;
}

} // namespace

const std::string& gen_session_root(gen_scratch& scratch) {
    if (!scratch.session_root)
        scratch.session_root = root_of(scratch, "ORVSD_" + user_name());
    return *scratch.session_root;
}

const std::string& gen_session_data_root(gen_scratch& scratch) {
    if (!scratch.session_data_root)
        scratch.session_data_root =
            root_of(scratch, "ORVSessionData_" + host_network_name() + "_" + user_name());
    return *scratch.session_data_root;
}

std::optional<std::string> gen_make_session_dir(gen_scratch& scratch, const char* name,
                                                uint32_t mode) {
    const int saved_errno = errno;
    const std::string& root = gen_session_root(scratch);
    const gen_lock_ptr lock = gen_lockfile(root, gen_lock_wait_for_ever, stale_lock_age);
    if (!lock || !have_root(root))
        return std::nullopt;
    std::string prefix = root + std::to_string(static_cast<int32_t>(host_process_id())) + "_";
    if (name != nullptr)
        prefix.append(name).append("_");
    std::optional<std::string> path = make_numbered(scratch, prefix, mode);
    if (path)
        errno = saved_errno;
    return path;
}

bool gen_clean_session_dirs(gen_scratch& scratch) {
    return gen_clean_deletable_dir(gen_session_root(scratch)) &&
           gen_clean_deletable_dir(gen_session_data_root(scratch));
}

bool gen_clean_deletable_dir(const std::string& root) {
    if (root.empty() || (root.size() == 1 && gen_is_separator(root[0])))
        return false;
    if (!host_is_private_directory(root.c_str()))
        return true;
    const int saved_errno = errno;
    const gen_lock_ptr lock = gen_lockfile(root, clean_lock_timeout, stale_lock_age);
    if (!lock)
        return false;
    const std::optional<std::vector<std::string>> entries = host_list_directory(root.c_str());
    if (!entries)
        return !host_is_private_directory(root.c_str()); // another has removed it meanwhile
    const bool is_clean = clean_entries(root, *entries);
    const bool is_gone = host_remove_directory(root.c_str()) == 0 || errno == ENOTEMPTY;
    errno = saved_errno; // what could not be removed is no part of later messages
    return is_clean && is_gone;
}
