#pragma once

#include <pthread.h>

namespace oru {

// Names the calling thread, as tools (top -H, gdb, /proc) show it. Every thread the engine
// starts carries an "oru-" name, so that a host or a test can tell the engine's threads apart.
// At most 15 characters.
inline void nameCurrentThread(char const* name) { pthread_setname_np(pthread_self(), name); }

}  // namespace oru
