// Defines attributes for clang's -Wthread-safety that declare which mutex guards what; they are
// empty for other compilers. Defines a mutex, scoped locks and a condition variable with them,
// because those of the standard library have none.
#ifndef OXLI_STANDIN_THREAD_ANNOTATIONS_H
#define OXLI_STANDIN_THREAD_ANNOTATIONS_H

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define STANDIN_ATTRIBUTE(x) __attribute__((x))
#else
#define STANDIN_ATTRIBUTE(x)
#endif

#define CAPABILITY(name) STANDIN_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY STANDIN_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(mutex) STANDIN_ATTRIBUTE(guarded_by(mutex))
#define REQUIRES(...) STANDIN_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) STANDIN_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) STANDIN_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) STANDIN_ATTRIBUTE(release_capability(__VA_ARGS__))

namespace standin {

class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex_;
};

// Acquires a mutex for the rest of its scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// Releases a mutex for the rest of its scope.
class SCOPED_CAPABILITY MutexUnlock {
 public:
  explicit MutexUnlock(Mutex& mutex) RELEASE(mutex) : mutex_(mutex) { mutex_.unlock(); }
  ~MutexUnlock() RELEASE() { mutex_.lock(); }
  MutexUnlock(const MutexUnlock&) = delete;
  MutexUnlock& operator=(const MutexUnlock&) = delete;

 private:
  Mutex& mutex_;
};

// A condition variable. Waiting releases the mutex.
class Condition {
 public:
  void notifyAll() { condition_.notify_all(); }

  // May return early.
  template <class Time>
  void waitUntil(Mutex& mutex, Time until) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait_until(lock, until);
    lock.release();
  }
  // Returns whether `done` returned true in time. REQUIRES: `done` does not throw.
  template <class Time, class Done>
  bool waitUntil(Mutex& mutex, Time until, Done done) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    const bool satisfied = condition_.wait_until(lock, until, done);
    lock.release();
    return satisfied;
  }

 private:
  std::condition_variable condition_;
};

}  // namespace standin

#endif  // OXLI_STANDIN_THREAD_ANNOTATIONS_H
