#pragma once

#include <mutex>

/// Annotations by which Clang proves, while it compiles, that what a mutex guards is used under it only;
/// other compilers see nothing of them. The attributes are those of Clang's "Thread Safety Analysis", which
/// knows no mutex of libstdc++, hence the classes below.
#if defined(__clang__)
#define KESTREL_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define KESTREL_THREAD_ANNOTATION(attribute)
#endif

#define KESTREL_CAPABILITY KESTREL_THREAD_ANNOTATION(capability("mutex"))
#define KESTREL_SCOPED_CAPABILITY KESTREL_THREAD_ANNOTATION(scoped_lockable)
#define KESTREL_GUARDED_BY(mutex) KESTREL_THREAD_ANNOTATION(guarded_by(mutex))
#define KESTREL_REQUIRES(...) KESTREL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define KESTREL_ACQUIRE(...) KESTREL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KESTREL_RELEASE(...) KESTREL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// For a function that takes a lock for another one to give back.
#define KESTREL_UNCHECKED KESTREL_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace kestrel::callbacks {

/// A std::mutex, and nothing more at run time.
class KESTREL_CAPABILITY Mutex {
 public:
  void lock() KESTREL_ACQUIRE() { _mutex.lock(); }
  void unlock() KESTREL_RELEASE() { _mutex.unlock(); }

 private:
  friend class UniqueLock;
  std::mutex _mutex;
};

/// Holds a mutex for a scope, as std::lock_guard does; the mutex of any class that is annotated.
template <class AnyMutex>
class KESTREL_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(AnyMutex& mutex) KESTREL_ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~MutexLock() KESTREL_RELEASE() { _mutex.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  AnyMutex& _mutex;
};

/// Holds a mutex for a scope but for pauses, as std::unique_lock does.
class KESTREL_SCOPED_CAPABILITY UniqueLock {
 public:
  explicit UniqueLock(Mutex& mutex) KESTREL_ACQUIRE(mutex) : _lock(mutex._mutex) {}
  ~UniqueLock() KESTREL_RELEASE() = default;
  UniqueLock(const UniqueLock&) = delete;
  UniqueLock& operator=(const UniqueLock&) = delete;

  void lock() KESTREL_ACQUIRE() { _lock.lock(); }
  void unlock() KESTREL_RELEASE() { _lock.unlock(); }

  /// What a condition variable waits with. A predicate that looks at guarded members says KESTREL_REQUIRES.
  [[nodiscard]] std::unique_lock<std::mutex>& native() { return _lock; }

 private:
  std::unique_lock<std::mutex> _lock;
};

}  // namespace kestrel::callbacks
