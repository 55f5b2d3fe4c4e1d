// Java references whose types state the owner: a record or cache owns a GlobalRef, a scope owns a
// LocalRef. A parameter of type `jobject` belongs to the caller.
#ifndef OXLI_JNI_BASE_REFERENCES_H
#define OXLI_JNI_BASE_REFERENCES_H

#include <jni.h>

#include <utility>

#include "jni/base/failure.h"

namespace oxli::jni {

// Owns a global reference, or null. Call release() before destruction: the destructor deletes no
// reference, because no JNIEnv is available for records that are still registered when the library
// is unloaded.
class GlobalRef {
 public:
  GlobalRef() = default;
  GlobalRef(const GlobalRef&) = delete;
  GlobalRef& operator=(const GlobalRef&) = delete;

  // Makes a global reference to `object`, unless that is null. Writes the line for `step` and
  // returns false if an exception is pending or the reference cannot be made.
  // REQUIRES: this object owns null.
  [[nodiscard]] bool acquire(JNIEnv* env, jobject object, const char* step) {
    if (reportIfPending(env, step)) return false;
    if (!object) return true;
    ref_ = env->NewGlobalRef(object);
    return !reportIfNull(ref_, step);
  }

  // Deletes the reference. Legal with an exception pending.
  void release(JNIEnv* env) {
    // The member is cleared first, so that no callback finds a deleted reference.
    if (const jobject ref = std::exchange(ref_, nullptr)) env->DeleteGlobalRef(ref);
  }

  void swap(GlobalRef& other) noexcept { std::swap(ref_, other.ref_); }

  jobject get() const { return ref_; }

 private:
  jobject ref_ = nullptr;
};

// Owns a local reference, or null, and deletes it at the end of the scope, so that references do
// not accumulate in a gateway call that delivers many messages:
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
  // REQUIRES: this object owns null.
  void set(T ref) { ref_ = ref; }
  // Transfers the reference to the caller.
  T detach() { return std::exchange(ref_, nullptr); }

 private:
  JNIEnv* env_;
  T ref_;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_REFERENCES_H
