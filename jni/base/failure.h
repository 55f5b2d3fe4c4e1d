// Reports failed Java steps: one line on standard error names the step, and the exception stays
// pending for the Java caller. Nothing here clears or describes an exception.
//
// A step is made only while no exception is pending. A step that finds one counts as failed, with
// the same line and result: a callback of the gateway call before it has left the exception, or the
// native caller of an exported function. Message delivery alone writes no line then, because it
// refuses every further message of a gateway call for the exception of an earlier one.
#ifndef OXLI_JNI_BASE_FAILURE_H
#define OXLI_JNI_BASE_FAILURE_H

#include <jni.h>

// The name of a step of a native of OxliImpl.
#define OXLI_STEP(step) "Java_org_quendel_oxli_impl_OxliImpl_" step

namespace oxli::jni {

// Returns whether a Java exception is pending.
[[nodiscard]] inline bool exceptionPending(JNIEnv* env) noexcept {
  const jthrowable pending = env->ExceptionOccurred();
  if (!pending) return false;
  env->DeleteLocalRef(pending);
  return true;
}

// Writes the line for `step`.
void reportFailure(const char* step) noexcept;

// Returns whether an exception is pending, after writing the line for `step` if so.
[[nodiscard]] inline bool reportIfPending(JNIEnv* env, const char* step) noexcept {
  if (!exceptionPending(env)) return false;
  reportFailure(step);
  return true;
}

// Returns whether `made` is null, after writing the line for `step` if so. For steps that return
// null exactly when they fail, which need no look for an exception.
[[nodiscard]] inline bool reportIfNull(const void* made, const char* step) noexcept {
  if (made) return false;
  reportFailure(step);
  return true;
}

// Returns whether an exception is pending or `made` is null, after writing the line for `step` if
// so. For constructors and array creation.
[[nodiscard]] inline bool reportIfNotMade(JNIEnv* env, const void* made,
                                          const char* step) noexcept {
  return reportIfPending(env, step) || reportIfNull(made, step);
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_FAILURE_H
