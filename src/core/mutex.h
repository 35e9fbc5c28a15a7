// A plain mutex that clang's thread-safety analysis understands, its scoped lock and its condition
// variable. What a lock protects is written as GUARDED_BY beside the data, what a function needs as
// REQUIRES beside its declaration, and a build with clang proves both. GCC ignores the annotations.

#ifndef TARNVALE_KIOSKD_CORE_MUTEX_H_
#define TARNVALE_KIOSKD_CORE_MUTEX_H_

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define KIOSK_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KIOSK_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) KIOSK_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY KIOSK_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) KIOSK_THREAD_ATTRIBUTE(guarded_by(x))
#define ACQUIRED_AFTER(...) KIOSK_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define REQUIRES(...) KIOSK_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) KIOSK_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) KIOSK_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KIOSK_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

namespace Tarnvale::KioskService {

// Not recursive. Locking fails only with a std::system_error, which nothing catches.
class CAPABILITY("mutex") Mutex {
 public:
  void Lock() ACQUIRE() {
    mutex_.lock();
  }
  void Unlock() RELEASE() {
    mutex_.unlock();
  }

 private:
  friend class ConditionVariable;
  std::mutex mutex_;
};

// Holds a Mutex to the end of its block, or to an earlier Unlock.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) {
    mutex_.Lock();
  }
  ~MutexLock() RELEASE() {
    if (held_) mutex_.Unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void Unlock() RELEASE() {
    held_ = false;
    mutex_.Unlock();
  }

  void Lock() ACQUIRE() {
    mutex_.Lock();
    held_ = true;
  }

 private:
  Mutex& mutex_;
  bool held_ = true;
};

// Waits may end without a notification; callers test their condition in a loop.
class ConditionVariable {
 public:
  using SteadyTime = std::chrono::steady_clock::time_point;

  void NotifyAll() {
    condition_.notify_all();
  }

  void Wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    (void)lock.release();  // the caller goes on holding the mutex
  }

  // Waits on the monotonic clock, so a clock that is set meanwhile changes nothing.
  void WaitUntil(Mutex& mutex, SteadyTime deadline) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    (void)condition_.wait_until(lock, deadline);  // the caller reads the clock itself
    (void)lock.release();                         // the caller goes on holding the mutex
  }

 private:
  std::condition_variable condition_;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_MUTEX_H_
