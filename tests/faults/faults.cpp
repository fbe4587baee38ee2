// Stands between the programs and the C library in a build that only the fault tests run: any call
// of the system or the allocator can be made to fail.
//
//   OBJTRIM_FAULT  "program:kind:n:mode": of this program, the n-th call of the kind fails. "host"
//                  is any kind but memory. Modes: once; from, and all calls of the kind after it;
//                  short, where a transfer moves one byte only; again, where it is interrupted; or
//                  the number of a signal, which the program gets instead.
//   OBJTRIM_COUNT  a file to which the calls of a run are appended: "program kind count" lines
//
// Time passes only while the program sleeps, so that nobody has to wait for its timeouts.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <spawn.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" FILE* __real_fopen(const char* name, const char* mode);

namespace {

constexpr const char* kind_names[] = {"open",  "read",   "write",  "seek",  "close",  "rename",
                                      "mode",  "length", "delete", "make",  "lock",   "list",
                                      "times", "copy",   "status", "child", "memory", "host"};
constexpr size_t kinds = sizeof kind_names / sizeof kind_names[0];

// "host" is any of the others but memory; what is no kind is behind the last.
constexpr size_t kind_of(std::string_view name) {
    size_t kind = 0;
    while (kind < kinds && name != kind_names[kind])
        ++kind;
    return kind;
}

size_t wanted_kind = kinds;
unsigned wanted_call;
char wanted_mode[8];
unsigned counts[kinds + 1];
time_t slept;

__attribute__((constructor)) void read_wish() {
    const char* const wish = getenv("OBJTRIM_FAULT");
    char program[16];
    char kind[16];
    if (wish == nullptr ||
        sscanf(wish, "%15[^:]:%15[^:]:%u:%7s", program, kind, &wanted_call, wanted_mode) != 4 ||
        strcmp(program, program_invocation_short_name) != 0)
        return;
    wanted_kind = kind_of(kind);
}

__attribute__((destructor)) void tell_counts() {
    const char* const name = getenv("OBJTRIM_COUNT");
    FILE* const file = name != nullptr ? __real_fopen(name, "a") : nullptr;
    for (size_t i = 0; file != nullptr && i < kinds; ++i)
        fprintf(file, "%s %s %u\n", program_invocation_short_name, kind_names[i], counts[i]);
    if (file != nullptr)
        fclose(file);
}

bool is_struck(size_t kind) {
    const unsigned call = ++counts[kind];
    if (kind != wanted_kind || call < wanted_call)
        return false;
    if (atoi(wanted_mode) != 0 && call == wanted_call)
        raise(atoi(wanted_mode));
    return wanted_mode[0] == 'f' || call == wanted_call;
}

// Whether this call is to fail, with the error number set.
bool fails(size_t kind, int error) {
    bool struck = is_struck(kind);
    if (kind != kind_of("memory"))
        struck = is_struck(kind_of("host")) || struck;
    if (struck)
        errno = wanted_mode[0] == 'a' ? EINTR : error;
    return struck;
}

} // namespace

// Each call that the link step leads here, and the real one.
#define FAULTY(result, name, parameters, arguments, kind, error, failed)                           \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters;                                                    \
    result __wrap_##name parameters {                                                              \
        if (fails(kind_of(kind), error))                                                           \
            return failed;                                                                         \
        return __real_##name arguments;                                                            \
    }

// Arguments of the open family that a call leaves out are handed on unseen.
// clang-format off
FAULTY(int, open, (const char* n, int f, mode_t m), (n, f, m), "open", EMFILE, -1)
FAULTY(int, openat, (int d, const char* n, int f, mode_t m), (d, n, f, m), "open", EMFILE, -1)
FAULTY(off_t, lseek, (int d, off_t o, int w), (d, o, w), "seek", EINVAL, -1)
FAULTY(int, rename, (const char* a, const char* b), (a, b), "rename", EACCES, -1)
FAULTY(int, chmod, (const char* n, mode_t m), (n, m), "mode", EPERM, -1)
FAULTY(int, fchmod, (int d, mode_t m), (d, m), "mode", EPERM, -1)
FAULTY(int, fchown, (int d, uid_t u, gid_t g), (d, u, g), "mode", EPERM, -1)
FAULTY(int, truncate, (const char* n, off_t l), (n, l), "length", EIO, -1)
FAULTY(int, fallocate, (int d, int m, off_t o, off_t l), (d, m, o, l), "length", ENOSPC, -1)
FAULTY(int, unlink, (const char* n), (n), "delete", EACCES, -1)
FAULTY(int, unlinkat, (int d, const char* n, int f), (d, n, f), "delete", EACCES, -1)
FAULTY(int, rmdir, (const char* n), (n), "delete", EACCES, -1)
FAULTY(int, mkdir, (const char* n, mode_t m), (n, m), "make", ENOSPC, -1)
FAULTY(int, flock, (int d, int o), (d, o), "lock", EIO, -1)
FAULTY(DIR*, fdopendir, (int d), (d), "list", ENOMEM, nullptr)
FAULTY(dirent*, readdir, (DIR* d), (d), "list", EIO, nullptr)
FAULTY(int, utimensat, (int d, const char* n, const timespec* t, int f), (d, n, t, f), "times", EPERM, -1)
FAULTY(ssize_t, copy_file_range, (int a, off_t* x, int b, off_t* y, size_t s, unsigned f), (a, x, b, y, s, f), "copy", EIO, -1)
FAULTY(int, stat, (const char* n, struct stat* s), (n, s), "status", EIO, -1)
FAULTY(int, lstat, (const char* n, struct stat* s), (n, s), "status", EIO, -1)
FAULTY(int, fstat, (int d, struct stat* s), (d, s), "status", EIO, -1)
FAULTY(int, fstatat, (int d, const char* n, struct stat* s, int f), (d, n, s, f), "status", EIO, -1)
FAULTY(int, faccessat, (int d, const char* n, int m, int f), (d, n, m, f), "status", EIO, -1)
FAULTY(ssize_t, readlink, (const char* n, char* b, size_t s), (n, b, s), "status", EIO, -1)
FAULTY(char*, getcwd, (char* b, size_t s), (b, s), "status", EIO, nullptr)
FAULTY(FILE*, fopen, (const char* n, const char* m), (n, m), "open", EMFILE, nullptr)
FAULTY(passwd*, fgetpwent, (FILE* f), (f), "status", EIO, nullptr)
FAULTY(int, posix_spawn, (pid_t* p, const char* n, const posix_spawn_file_actions_t* a, const posix_spawnattr_t* t, char* const* v, char* const* e), (p, n, a, t, v, e), "child", EAGAIN, EAGAIN)
FAULTY(pid_t, waitpid, (pid_t p, int* s, int o), (p, s, o), "child", ECHILD, -1)
FAULTY(int, gethostname, (char* n, size_t s), (n, s), "status", EIO, -1)
FAULTY(void*, calloc, (size_t n, size_t s), (n, s), "memory", ENOMEM, nullptr)
FAULTY(void*, realloc, (void* b, size_t s), (b, s), "memory", ENOMEM, nullptr)
// clang-format on

// Where "short" is asked for, the call moves one byte instead.
#define FAULTY_TRANSFER(name, bytes, parameters, arguments, one, kind, error)                      \
    extern "C" ssize_t __real_##name parameters;                                                   \
    extern "C" ssize_t __wrap_##name parameters;                                                   \
    ssize_t __wrap_##name parameters {                                                             \
        if (fails(kind_of(kind), error)) {                                                         \
            if (wanted_mode[0] != 's' || bytes == 0)                                               \
                return -1;                                                                         \
            return __real_##name one;                                                              \
        }                                                                                          \
        return __real_##name arguments;                                                            \
    }

// clang-format off
FAULTY_TRANSFER(read, s, (int d, void* b, size_t s), (d, b, s), (d, b, 1), "read", EIO)
FAULTY_TRANSFER(pread, s, (int d, void* b, size_t s, off_t o), (d, b, s, o), (d, b, 1, o), "read", EIO)
FAULTY_TRANSFER(write, s, (int d, const void* b, size_t s), (d, b, s), (d, b, 1), "write", ENOSPC)
FAULTY_TRANSFER(pwrite, s, (int d, const void* b, size_t s, off_t o), (d, b, s, o), (d, b, 1, o), "write", ENOSPC)
// clang-format on

extern "C" {
int __real_close(int descriptor);
int __wrap_close(int descriptor);
int __wrap_nanosleep(const timespec* rest, timespec* left);
time_t __wrap_time(time_t* result);
time_t __real_time(time_t* result);
}

// As on file systems that tell only now that a write has failed: what was written is not there.
int __wrap_close(int descriptor) {
    const bool failing = fails(kind_of("close"), EDQUOT);
    if (failing && (fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_WRONLY &&
        ftruncate(descriptor, 1)) {
    }
    const int result = __real_close(descriptor);
    if (failing)
        errno = EDQUOT;
    return failing ? -1 : result;
}

int __wrap_nanosleep(const timespec* rest, timespec*) {
    static long nanoseconds;
    nanoseconds += rest->tv_nsec;
    slept += rest->tv_sec + nanoseconds / 1000000000;
    nanoseconds %= 1000000000;
    return 0;
}

time_t __wrap_time(time_t* result) {
    return __real_time(result) + slept;
}
