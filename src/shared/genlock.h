// Lock files: one process at a time works on what a path names.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

// A held lock: the open lock file and its name.
struct gen_lock {
    int descriptor = -1;
    std::string path;
};

struct gen_lock_releaser {
    void operator()(gen_lock* lock) const; // unlocks
};
using gen_lock_ptr = std::unique_ptr<gen_lock, gen_lock_releaser>;

// The lock file of `path`: beside it, its name with ".lock". A separator or ":" at the end of the
// path becomes "_".
std::string gen_lock_path(std::string path);

constexpr int32_t gen_lock_wait_for_ever = -1;
constexpr int32_t gen_lock_never_stale = -1;

// Takes the lock of `path`: null if it cannot be had within `timeout` seconds (0: one try) or,
// with `hard_failure` set, at all. The lock of a dead process is taken over; any other that is
// older than `stale_age` seconds is broken with a warning. For another user's nobody waits longer
// than that, whatever the timeout: an error.
gen_lock_ptr gen_lockfile(const std::string& path, int32_t timeout, int32_t stale_age,
                          bool* hard_failure = nullptr);
// Removes the lock file. Whether that succeeded.
bool gen_unlock(gen_lock_ptr lock);
