#pragma once

#include <pthread.h>

namespace kestrel::streams {

/// Names the calling thread for debuggers and process listings; at most 15 characters.
inline void nameThisThread(const char* name) noexcept {
  (void)pthread_setname_np(pthread_self(), name);
}

}  // namespace kestrel::streams
