#pragma once
// Clang's thread-safety analysis checks at compile time that a member marked
// OSTREL_GUARDED_BY(m) is only read or written with m held, and that functions
// marked OSTREL_REQUIRES(m) are only called so. libstdc++'s std::mutex and
// lock types carry no annotations, so the library's internals lock through
// Mutex and MutexLock below. Under other compilers every macro is empty.
#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define OSTREL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define OSTREL_THREAD_ANNOTATION(x)
#endif

#define OSTREL_CAPABILITY(x) OSTREL_THREAD_ANNOTATION(capability(x))
#define OSTREL_SCOPED_CAPABILITY OSTREL_THREAD_ANNOTATION(scoped_lockable)
#define OSTREL_GUARDED_BY(x) OSTREL_THREAD_ANNOTATION(guarded_by(x))
#define OSTREL_PT_GUARDED_BY(x) OSTREL_THREAD_ANNOTATION(pt_guarded_by(x))
#define OSTREL_ACQUIRED_BEFORE(...) OSTREL_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define OSTREL_REQUIRES(...) OSTREL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define OSTREL_EXCLUDES(...) OSTREL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define OSTREL_ACQUIRE(...) OSTREL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define OSTREL_RELEASE(...) OSTREL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define OSTREL_TRY_ACQUIRE(...) OSTREL_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define OSTREL_RETURN_CAPABILITY(x) OSTREL_THREAD_ANNOTATION(lock_returned(x))
#define OSTREL_NO_THREAD_SAFETY_ANALYSIS OSTREL_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace ostrel {

// A std::mutex the analysis can reason about. It is Lockable, so
// std::condition_variable_any works with it directly.
class OSTREL_CAPABILITY("mutex") Mutex {
 public:
  void lock() OSTREL_ACQUIRE() { mutex_.lock(); }
  void unlock() OSTREL_RELEASE() { mutex_.unlock(); }
  bool try_lock() OSTREL_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

  // The underlying mutex, for code the analysis cannot follow.
  std::mutex& native() OSTREL_RETURN_CAPABILITY(this) { return mutex_; }

 private:
  std::mutex mutex_;
};

// Holds a Mutex for its scope. It may be released and taken again inside the
// scope, and waits on a std::condition_variable, which gives the mutex up for
// the wait and holds it again on return, as the analysis assumes throughout.
// Predicates are written as loops around wait() rather than lambdas: a lambda
// body is analysed on its own, without the lock its caller holds.
class OSTREL_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) OSTREL_ACQUIRE(mutex) : lock_(mutex.native()) {}
  ~MutexLock() OSTREL_RELEASE() {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() OSTREL_ACQUIRE() { lock_.lock(); }
  void unlock() OSTREL_RELEASE() { lock_.unlock(); }

  void wait(std::condition_variable& cv) { cv.wait(lock_); }
  template <class Clock, class Duration>
  std::cv_status waitUntil(std::condition_variable& cv,
                           const std::chrono::time_point<Clock, Duration>& deadline) {
    return cv.wait_until(lock_, deadline);
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace ostrel
