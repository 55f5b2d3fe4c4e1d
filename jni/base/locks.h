#ifndef OXLI_JNI_BASE_LOCKS_H
#define OXLI_JNI_BASE_LOCKS_H

#include <pthread.h>

namespace oxli::jni {

// Holds a registry's mutex for the scope. The mutexes are recursive: a subscriber may call natives
// that lock from inside a native that has locked.
class MutexLock {
 public:
  explicit MutexLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t& mutex_;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_LOCKS_H
