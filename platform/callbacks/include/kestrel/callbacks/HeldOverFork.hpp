#pragma once

#include <pthread.h>

namespace kestrel::callbacks {

/// Makes the one object of a class, which is never destroyed, as memory is given back until the very end of
/// the process. A fork waits until no other thread is within it, so that the child can use it.
template <class T>
T* makeHeldOverFork() {
  static T* const object = new T;
  // Where there is no memory for that, a child may find it locked for ever.
  (void)::pthread_atfork([] { object->beforeFork(); }, [] { object->afterFork(); },
                         [] { object->afterForkInChild(); });
  return object;
}

}  // namespace kestrel::callbacks
