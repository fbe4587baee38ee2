// The host: every operation of the operating system that objtrim uses, as free functions.
//
// Each host has its files that implement this header (host_posix*.cpp, host_win32*.cpp), and they
// alone call it. What only Linux can do stands for all others in host_fallback.cpp.
//
// No routine here decides anything or reports anything. A routine that fails says so in its result
// and leaves the reason in errno; one that succeeds, or whose answer is an expected "no", leaves
// errno as it found it, because error numbers are part of the tool's messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// How names are taken apart on a host (shared/genpath works by these rules).
enum class host_path_rules {
    posix,  // "/" separates
    windows // "/", "\" and a drive's ":" separate
};

extern const host_path_rules host_paths;
extern const char host_separator;        // the one that is written between directory and name
extern const char host_line_end[];       // of text files
extern const char host_program_suffix[]; // what program files end in: ".exe", or nothing

// What a name or an open file denotes.
struct host_status {
    uint64_t size = 0;   // bytes
    uint64_t device = 0; // device and number together identify a file
    uint64_t number = 0;
    uint32_t mode = 0; // permission bits, with the set-id bits
    uint32_t owner = 0;
    uint32_t group = 0;
    int64_t modified = 0; // seconds since 1970
    bool is_directory = false;
    bool is_regular = false;
};

// The status of what `name` denotes, links followed; nothing when there is no such thing, or when
// it cannot be looked at.
std::optional<host_status> host_status_of(const char* name);
// The same of the name itself: a link is neither directory nor regular file.
std::optional<host_status> host_status_of_link(const char* name);
// The permission bits that a file really has on this host; the others of its mode are made up.
extern const uint32_t host_mode_bits;
// Whether that is the status of something that belongs to the effective user.
bool host_is_users_own(const host_status& status);
// Whether the name itself is in use, be it by a link that leads nowhere.
bool host_name_taken(const char* name);
// Whether there is a `name` that can be opened for reading.
bool host_readable(const char* name);
// Whether `name` is a directory in which files can be made.
bool host_usable_directory(const char* name);
// The absolute form of `name`, by its text alone: "." and ".." taken out, no links resolved; the
// file need not exist. Nothing when the host cannot say, or for an empty name.
std::optional<std::string> host_full_path(const char* name);
// What the link `name` says, which counts from the link's own directory. Nothing if it is no link.
std::optional<std::string> host_link_target(const char* name);

// All of these: 0 on success, -1 on failure.
int host_rename(const char* from, const char* to); // replaces an existing `to`
int host_delete(const char* name);
int host_set_length(const char* name, uint64_t length);
int host_set_mode(const char* name, uint32_t mode);

// Sets the times of access and modification, in seconds since 1970, of the name itself.
int host_set_times(const char* name, int64_t time);

// Directories. A separator at the end of the name changes nothing, and no link is followed.
int host_make_directory(const char* name, uint32_t mode); // errno EEXIST: the name is taken
int host_remove_directory(const char* name);              // errno ENOTEMPTY: it is not empty
// The names in one, without "." and "..", in no order; nothing when it cannot be read.
std::optional<std::vector<std::string>> host_list_directory(const char* name);
// Whether the name itself, no link, is a directory of the user's own that others cannot write to.
bool host_is_private_directory(const char* name);
// Removes what the name denotes, a directory with all that is in it, as far as that can be done: -1
// when something is left. Never follows a link.
int host_remove_tree(const char* name);

enum class host_access {
    read,                    // must exist
    update,                  // must exist; read and write
    create,                  // write, made or emptied
    create_exclusive,        // write, must not exist, readable by the owner only
    create_exclusive_update, // read and write, must not exist; permissions as the user's mask says
    append                   // write, made if missing, contents kept
};

// A descriptor, or -1. Never waits for a partner, as opening a FIFO otherwise would.
int host_open(const char* name, host_access access);
int host_close(int descriptor);
std::optional<host_status> host_descriptor_status(int descriptor);

// Bytes moved, at least one unless `size` is 0 or the end of the file is reached; -1 on failure.
int64_t host_read_at(int descriptor, void* buffer, size_t size, uint64_t offset);
int64_t host_write_at(int descriptor, const void* buffer, size_t size, uint64_t offset);
// The same at the descriptor's own position.
int64_t host_read(int descriptor, void* buffer, uint32_t size);
int64_t host_write(int descriptor, const void* buffer, uint32_t size);

// An interrupt by the user or the system removes the guarded files before it ends the process. The
// text of the name stays where it is until the file is released.
void host_guard_file(const char* name);
void host_release_file(const char* name);

// Copies up to `size` bytes between two files inside the host. Bytes copied; 0 when the host has no
// way to do it here, or at the end of the input: then the caller reads and writes.
uint64_t host_copy_range(int from, uint64_t from_offset, int to, uint64_t to_offset, uint64_t size);

// Where the file has data at `offset` or behind it: bytes outside such ranges were never written
// and read as zeros. The whole rest where the host cannot tell; an empty range at UINT64_MAX when
// there is no more.
struct host_range {
    uint64_t start;
    uint64_t end;
};
host_range host_next_data(int descriptor, uint64_t offset);

// Sets space aside for bytes that are about to be written. The file keeps its length, and whether
// this worked is of no consequence.
void host_reserve(int descriptor, uint64_t offset, uint64_t size);

// Owner and permissions of an open file: 0, or -1.
int host_set_owner(int descriptor, uint32_t owner, uint32_t group);
int host_set_mode(int descriptor, uint32_t mode);

// Says that a large block of memory, fresh from the allocator, is going to be used as a whole, so
// that the host may give it in larger portions. Changes nothing else.
void host_expect_use(void* block, size_t size);

// Whether the host lets a file position move there: 0, or -1.
int host_check_offset(int descriptor, int64_t offset);

constexpr int host_error_descriptor = 2; // standard error, for raw writes

std::string host_module_file_name(); // of the running program; empty when unknown
std::string host_user_name();        // of the effective user; empty when unknown
std::string host_home_directory();   // of the effective user; empty when unknown
std::string host_network_name();     // empty when unknown
uint32_t host_process_id();
bool host_process_is_alive(uint32_t id); // one that may not be looked at: as the host can tell
uint64_t host_machine_id();              // the same number at each call on this machine

int64_t host_time(); // seconds since 1970
void host_sleep(uint32_t milliseconds);

// A lock file: made exclusively, never through a link, for reading and writing, and gone as soon as
// it is closed or its owner ends, as far as the host can do that.
enum class host_lock_outcome {
    held,
    contended, // someone else has it, or is about to; errno stays
    failed     // errno says why
};
host_lock_outcome host_create_lock(const char* name, int& descriptor);
int host_close_lock(int descriptor, const char* name);
// Removes the lock file of someone else, if `name` still is the file that `descriptor` was opened
// on; whatever it is when that is -1. 0: it is gone, another, or being removed, which is no
// failure. The caller closes the descriptor next.
int host_remove_lock(int descriptor, const char* name);

// Prepares the process: memory priority, the socket library, signals that would end a write,
// standard descriptors that the parent left closed (a file must not come to stand in their place).
// Returns the status of the socket library's start, 0 when the host needs none.
int host_start();

// Runs a child and waits for it. `command_line` is split as the Windows loader and runtime do;
// no shell sees it. `no_streams` leaves the child without standard streams. The child's exit
// status; 128 + n when signal n ended it; 127 when it could not be started.
int host_run(const char* command_line, bool no_streams);
