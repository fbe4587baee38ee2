// Which files an interrupt removes: the same on all hosts, but for the interrupt.
#include "shared/host_guard.h"

#include "shared/host.h"

std::atomic<const char*> host_guarded[64];

namespace {

void replace(const char* from, const char* to) {
    for (std::atomic<const char*>& slot : host_guarded)
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
