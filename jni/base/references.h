// Who owns a Java reference is written in its type: HeldRef is a global reference of a record or
// cache, LocalRef a local one that ends with its scope, a plain `jobject` is borrowed.
#ifndef OXLI_JNI_BASE_REFERENCES_H
#define OXLI_JNI_BASE_REFERENCES_H

#include <jni.h>

#include <utility>

#include "jni/base/failure.h"

namespace oxli::jni {

// A global reference, or null. Holds until drop(): the destructor deletes nothing, because records
// that are still registered when the process ends have no environment to delete with.
class HeldRef {
 public:
  HeldRef() = default;
  HeldRef(const HeldRef&) = delete;
  HeldRef& operator=(const HeldRef&) = delete;

  // False, after the line for `step`, when an exception was pending or the reference could not be
  // made. A null `object` is held
  // as null. REQUIRES: nothing is held.
  [[nodiscard]] bool hold(JNIEnv* env, jobject object, const char* step) {
    // A callback of the gateway's may have thrown in the call before.
    if (javaFailed(env, step)) return false;
    if (!object) return true;
    ref_ = env->NewGlobalRef(object);
    return !notMade(env, ref_, step);
  }

  // Legal with an exception pending.
  void drop(JNIEnv* env) {
    // Emptied first: whoever looks meanwhile must not find a deleted reference.
    if (const jobject ref = std::exchange(ref_, nullptr)) env->DeleteGlobalRef(ref);
  }

  // Holds what `other` holds from now on, and the other way round.
  void swap(HeldRef& other) noexcept { std::swap(ref_, other.ref_); }

  jobject get() const { return ref_; }

 private:
  jobject ref_ = nullptr;
};

// A local reference that is deleted at the end of the scope, so that a long gateway call leaves
// none behind:
//
//   const LocalRef<jobject> scheme(env, env->CallObjectMethod(listener, getScheme));
template <class T>
class LocalRef {
 public:
  LocalRef(JNIEnv* env, T ref) : env_(env), ref_(ref) {}
  LocalRef(const LocalRef&) = delete;
  LocalRef& operator=(const LocalRef&) = delete;
  ~LocalRef() {
    if (ref_) env_->DeleteLocalRef(ref_);
  }

  T get() const { return ref_; }
  // REQUIRES: nothing is referred to.
  void reset(T ref) { ref_ = ref; }
  // Hands the reference to the caller's frame.
  T release() { return std::exchange(ref_, nullptr); }

 private:
  JNIEnv* env_;
  T ref_;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_REFERENCES_H
