// Clang thread-safety annotations and an annotated mutex.
//
// libstdc++'s std::mutex carries no capability attributes, so the daemon uses
// lumx::Mutex (a thin wrapper) wherever -Wthread-safety should check that a
// field is only touched with its lock held.
#pragma once

#include <mutex>

#if defined(__clang__)
#define LUMX_TSA(x) __attribute__((x))
#else
#define LUMX_TSA(x)
#endif

#define CAPABILITY(x) LUMX_TSA(capability(x))
#define SCOPED_CAPABILITY LUMX_TSA(scoped_lockable)
#define GUARDED_BY(x) LUMX_TSA(guarded_by(x))
#define PT_GUARDED_BY(x) LUMX_TSA(pt_guarded_by(x))
#define ACQUIRED_BEFORE(...) LUMX_TSA(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) LUMX_TSA(acquired_after(__VA_ARGS__))
#define REQUIRES(...) LUMX_TSA(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) LUMX_TSA(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) LUMX_TSA(acquire_capability(__VA_ARGS__))
#define RELEASE(...) LUMX_TSA(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) LUMX_TSA(try_acquire_capability(__VA_ARGS__))
#define RETURN_CAPABILITY(x) LUMX_TSA(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS LUMX_TSA(no_thread_safety_analysis)

namespace lumx {

// A non-recursive mutex that clang's analysis understands.
class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ACQUIRE() { mu_.lock(); }
  void unlock() RELEASE() { mu_.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return mu_.try_lock(); }

  // For std::condition_variable users.
  std::mutex& native() { return mu_; }

 private:
  std::mutex mu_;
};

// Holds a Mutex for the lifetime of the scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex* mu) ACQUIRE(mu) : mu_(mu) { mu_->lock(); }
  ~MutexLock() RELEASE() { mu_->unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex* const mu_;
};

}  // namespace lumx
