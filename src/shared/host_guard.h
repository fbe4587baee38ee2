// The files that an interrupt removes, as every host keeps them; nothing but the host includes it.
#pragma once

#include <atomic>

// Read by a signal's handler, or in a thread of its own, at any moment: what is not null has come
// to stand here as a whole. More files are never unfinished at one time.
extern std::atomic<const char*> host_guarded[64];
static_assert(std::atomic<const char*>::is_always_lock_free);
