// Each class locks one registry for a scope. The mutexes are recursive, because a subscriber that
// runs inside a native with a locked registry may call natives that lock it again. Lock order:
// lsnMutex before connMutex. A mutex stays locked during the gateway calls that make, open, close
// or destroy a connection or listener. Their callbacks may lock the other mutex against this order,
// so the Java class GatewayLock runs these natives one at a time.
#ifndef OXLI_JNI_JENV_LOCKS_H
#define OXLI_JNI_JENV_LOCKS_H

#include <pthread.h>

#include "jni/base/thread_annotations.h"
#include "jni/jenv/jenv.h"

namespace oxli::jni {

class RegistryLock {
 public:
  RegistryLock(const RegistryLock&) = delete;
  RegistryLock& operator=(const RegistryLock&) = delete;

 protected:
  explicit RegistryLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  ~RegistryLock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t& mutex_;
};

class SCOPED_CAPABILITY ConnLock : RegistryLock {
 public:
  explicit ConnLock(JEnv& classes) ACQUIRE(JEnv::spInstance->connMutex)
      : RegistryLock(classes.connMutex) {}
  ~ConnLock() RELEASE() {}
};

class SCOPED_CAPABILITY LsnLock : RegistryLock {
 public:
  explicit LsnLock(JEnv& classes) ACQUIRE(JEnv::spInstance->lsnMutex)
      : RegistryLock(classes.lsnMutex) {}
  ~LsnLock() RELEASE() {}
};

class SCOPED_CAPABILITY PubLock : RegistryLock {
 public:
  explicit PubLock(JEnv& classes) ACQUIRE(JEnv::spInstance->pubMutex)
      : RegistryLock(classes.pubMutex) {}
  ~PubLock() RELEASE() {}
};

class SCOPED_CAPABILITY ZBlockLock : RegistryLock {
 public:
  explicit ZBlockLock(JEnv& classes) ACQUIRE(JEnv::spInstance->zblockMutex)
      : RegistryLock(classes.zblockMutex) {}
  ~ZBlockLock() RELEASE() {}
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_JENV_LOCKS_H
