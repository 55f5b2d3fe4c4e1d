// Java references whose type says who owns them: GlobalRef is owned by a record or cache, LocalRef
// by its scope. A plain `jobject` is borrowed for the duration of a call.
#ifndef OXLI_JNI_BASE_REFERENCES_H
#define OXLI_JNI_BASE_REFERENCES_H

#include <jni.h>

#include <utility>

#include "jni/base/failure.h"

namespace oxli::jni {

// Owns a global reference, or nothing. The destructor deletes nothing, because records that are
// still registered when the process ends have no JNIEnv to delete with: call release() before.
class GlobalRef {
 public:
  GlobalRef() = default;
  GlobalRef(const GlobalRef&) = delete;
  GlobalRef& operator=(const GlobalRef&) = delete;

  // Makes a global reference to `object`; none if it is null. Returns false, after the line for
  // `step`, if an exception is pending or the reference cannot be made.
  // REQUIRES: this object owns nothing.
  [[nodiscard]] bool acquire(JNIEnv* env, jobject object, const char* step) {
    if (reportIfPending(env, step)) return false;
    if (!object) return true;
    ref_ = env->NewGlobalRef(object);
    return !reportIfNull(ref_, step);
  }

  // Deletes the reference. Legal with an exception pending.
  void release(JNIEnv* env) {
    // Cleared first, so that no callback finds a deleted reference.
    if (const jobject ref = std::exchange(ref_, nullptr)) env->DeleteGlobalRef(ref);
  }

  void swap(GlobalRef& other) noexcept { std::swap(ref_, other.ref_); }

  jobject get() const { return ref_; }

 private:
  jobject ref_ = nullptr;
};

// Owns a local reference, or null, and deletes it at the end of the scope, so that a gateway call
// that delivers many messages leaves none behind:
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
