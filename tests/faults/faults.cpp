// Stands between the programs and the C library in a build that only the fault tests run: any call
// of the system or the allocator can be made to fail.
//
//   OBJTRIM_FAULT  "program:kind:n:mode": of this program, the n-th call of the kind fails. "host"
//                  is any kind but memory. Modes: once; from, and all calls of the kind after it;
//                  short, where a transfer moves one byte only; again, where it is interrupted; or
//                  the number of a signal, which the program gets instead.
//                  The kind "count" asks for a file "count" of how many calls there were of each.
//
// Time passes only while the program sleeps, so that nobody has to wait for its timeouts.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace {

// "host" is any of the others but memory. Each has its error number.
constexpr const char* kinds[] = {"open",  "read",   "write",  "seek",  "close",  "rename",
                                 "mode",  "length", "delete", "make",  "lock",   "list",
                                 "times", "copy",   "status", "child", "memory", "host"};
constexpr int errors[] = {EMFILE, EIO, ENOSPC, EINVAL, EDQUOT, EACCES, EPERM,  ENOSPC, EACCES,
                          ENOSPC, EIO, EIO,    EPERM,  EIO,    EIO,    ECHILD, ENOMEM, 0};
constexpr size_t kind_count = sizeof kinds / sizeof kinds[0], host = kind_count - 1;

unsigned wanted_call, counts[kind_count];
char wanted_kind[16], wanted_mode[8];
long slept; // nanoseconds

__attribute__((constructor)) void read_wish() {
    const char* const wish = getenv("OBJTRIM_FAULT");
    char program[16] = "";
    if (wish)
        sscanf(wish, "%15[^:]:%15[^:]:%u:%7s", program, wanted_kind, &wanted_call, wanted_mode);
    if (strcmp(program, program_invocation_short_name) != 0)
        wanted_kind[0] = '\0';
}

bool is_struck(size_t kind) {
    const unsigned call = ++counts[kind];
    if (strcmp(wanted_kind, kinds[kind]) != 0 || call < wanted_call)
        return false;
    if (atoi(wanted_mode) != 0 && call == wanted_call)
        raise(atoi(wanted_mode));
    return wanted_mode[0] == 'f' || call == wanted_call;
}

// Whether this call is to fail, with the error number set.
bool fails(const char* name) {
    size_t kind = 0;
    while (strcmp(name, kinds[kind]) != 0)
        ++kind;
    const bool is_of_host = strcmp(name, "memory") != 0 && is_struck(host);
    const bool struck = is_struck(kind) || is_of_host;
    if (struck)
        errno = wanted_mode[0] == 'a' ? EINTR : errors[kind];
    return struck;
}

} // namespace

// Each call that the link step leads here, and the real one. All take and give what fits a
// register, so that one form serves them all. Where "short" is asked for, a transfer moves one byte
// instead of failing.
#define FAULTY(name, kind, failed)                                                                 \
    extern "C" long __real_##name(long, long, long, long, long, long);                             \
    extern "C" long __wrap_##name(long a, long b, long c, long d, long e, long f) {                \
        const bool struck = fails(#kind);                                                          \
        const bool is_short = struck && wanted_mode[0] == 's' && c != 0;                           \
        return struck && !is_short ? failed : __real_##name(a, b, is_short ? 1 : c, d, e, f);      \
    }
#include "faulty_calls.inc"

extern "C" {
int __real_close(int descriptor);
time_t __real_time(time_t* result);

// As on file systems that tell only now that a write has failed: what was written is not there.
int __wrap_close(int descriptor) {
    const bool failing = fails("close");
    if (failing && (fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_WRONLY)
        (void)!ftruncate(descriptor, 1);
    const int result = __real_close(descriptor);
    errno = failing ? EDQUOT : errno;
    return failing ? -1 : result;
}

int __wrap_nanosleep(const timespec* rest, timespec*) {
    slept += rest->tv_sec * 1000000000 + rest->tv_nsec;
    return 0;
}

time_t __wrap_time(time_t* result) {
    return __real_time(result) + slept / 1000000000;
}
}

__attribute__((destructor)) static void tell_counts() {
    if (strcmp(wanted_kind, "count") != 0)
        return;
    const long file = __real_open(long("count"), O_WRONLY | O_CREAT | O_TRUNC, 0600, 0, 0, 0);
    for (size_t i = 0; i < kind_count; ++i)
        dprintf(int(file), "%s %u\n", kinds[i], counts[i]);
}
