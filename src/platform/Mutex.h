// Mutexes that the compiler can check: clang's thread-safety analysis knows who holds which, and a
// guarded field touched without its lock does not build.
#pragma once

#include <mutex>

#if defined(__clang__)
#define QVR_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QVR_THREAD_ANNOTATION(x)
#endif

#define QVR_CAPABILITY(name) QVR_THREAD_ANNOTATION(capability(name))
#define QVR_SCOPED_CAPABILITY QVR_THREAD_ANNOTATION(scoped_lockable)
#define QVR_GUARDED_BY(mutex) QVR_THREAD_ANNOTATION(guarded_by(mutex))
#define QVR_REQUIRES(...) QVR_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define QVR_EXCLUDES(...) QVR_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define QVR_ACQUIRE(...) QVR_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define QVR_NO_THREAD_ANALYSIS QVR_THREAD_ANNOTATION(no_thread_safety_analysis)
#define QVR_RELEASE(...) QVR_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace qvr {

template <class Lock>
class QVR_CAPABILITY("mutex") BasicMutex {
 public:
  void lock() QVR_ACQUIRE() { lock_.lock(); }
  void unlock() QVR_RELEASE() { lock_.unlock(); }

  // For condition variables, which need the lock itself.
  Lock& native() { return lock_; }

 private:
  Lock lock_;
};

using Mutex = BasicMutex<std::mutex>;
using RecursiveMutex = BasicMutex<std::recursive_mutex>;

// Holds a mutex for a scope, left by an exception too.
template <class Lock>
class QVR_SCOPED_CAPABILITY BasicMutexLock {
 public:
  explicit BasicMutexLock(BasicMutex<Lock>& mutex) QVR_ACQUIRE(mutex) : mutex_(mutex) {
    mutex_.lock();
  }
  ~BasicMutexLock() QVR_RELEASE() { mutex_.unlock(); }
  BasicMutexLock(const BasicMutexLock&) = delete;
  BasicMutexLock& operator=(const BasicMutexLock&) = delete;

 private:
  BasicMutex<Lock>& mutex_;
};

using MutexLock = BasicMutexLock<std::mutex>;
using RecursiveMutexLock = BasicMutexLock<std::recursive_mutex>;

}  // namespace qvr
