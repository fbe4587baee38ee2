// Interrupts on POSIX systems: a signal that ends the process first removes the files that are of
// no use to anyone.
#include <atomic>
#include <csignal>
#include <unistd.h>

#include "shared/host.h"
#include "shared/host_posix.h"

namespace {

constexpr int ending_signals[] = {SIGHUP, SIGINT, SIGTERM};
constexpr int most_guarded = 64; // more are never unfinished at one time

// Read by the handler at any moment; it takes only what has come to stand here.
std::atomic<const char*> guarded[most_guarded];
static_assert(std::atomic<const char*>::is_always_lock_free);

// Nothing here but what a handler may call. The signal that is raised again takes effect as the
// handler returns, and the parent sees how the process ended.
extern "C" void end_by_signal(int signal_number) {
    for (std::atomic<const char*>& slot : guarded)
        if (const char* const name = slot.load())
            unlink(name);
    std::signal(signal_number, SIG_DFL);
    std::raise(signal_number);
}

void replace(const char* from, const char* to) {
    for (std::atomic<const char*>& slot : guarded)
        if (const char* expected = from; slot.compare_exchange_strong(expected, to))
            return;
}

} // namespace

void host_guard_file(const char* name) {
    replace(nullptr, name);
}

void host_release_file(const char* name) {
    replace(name, nullptr);
}

// What the parent had ignored, as for a job in the background, stays ignored.
void host_handle_interrupts() {
    const errno_keeper error;
    for (const int signal_number : ending_signals) {
        struct sigaction action = {};
        if (sigaction(signal_number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action.sa_handler = end_by_signal;
        action.sa_flags = SA_RESTART;
        sigfillset(&action.sa_mask);
        sigaction(signal_number, &action, nullptr);
    }
}
