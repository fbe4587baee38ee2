// Interrupts on POSIX systems: a signal that ends the process first removes the files that are of
// no use to anyone.
#include <csignal>
#include <unistd.h>

#include "shared/host_guard.h"
#include "shared/host_posix.h"

namespace {

constexpr int ending_signals[] = {SIGHUP, SIGINT, SIGTERM};

// Nothing here but what a handler may call. The signal that is raised again takes effect as the
// handler returns, and the parent sees how the process ended.
extern "C" void end_by_signal(int signal_number) {
    for (std::atomic<const char*>& slot : host_guarded)
        if (const char* const name = slot.load())
            unlink(name);
    std::signal(signal_number, SIG_DFL);
    std::raise(signal_number);
}

} // namespace

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
