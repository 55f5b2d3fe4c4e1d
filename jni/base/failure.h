// Reports failed Java steps: one line on standard error names the step, and the exception stays
// pending for the Java caller. The library neither clears nor describes an exception.
//
// A step runs only while no exception is pending. If a callback of the preceding gateway call, or
// the native caller of an exported function, has left one, the step counts as failed, with the same
// line and result.
//
// These failures write no line:
// - An exception that is pending when ListenerCB or oxjni_lsn_cacheget is entered: every later
//   message of the gateway call would repeat the line.
// - An exception of `onMessage` or `onExitEvent`.
// - `getNulls` of a delivered row, and writing into the array that it returns.
// - The steps of create_field_desc and getHints, except for the steps of a nested message.
// - Making the result of the natives `..._getname` and `msg_dump`.
// - The steps of the native `scheme_getstr`.
//
// Opening the environment writes a line of its own for a missing class or method.
#ifndef OXLI_JNI_BASE_FAILURE_H
#define OXLI_JNI_BASE_FAILURE_H

#include <jni.h>

// Makes the name of a step in a native of OxliImpl.
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

// Writes the line for `step` and returns true if an exception is pending.
[[nodiscard]] inline bool reportIfPending(JNIEnv* env, const char* step) noexcept {
  if (!exceptionPending(env)) return false;
  reportFailure(step);
  return true;
}

// Writes the line for `step` and returns true if `made` is null. Suffices for steps that return
// null exactly when they fail.
[[nodiscard]] inline bool reportIfNull(const void* made, const char* step) noexcept {
  if (made) return false;
  reportFailure(step);
  return true;
}

// Writes the line for `step` and returns true if an exception is pending or `made` is null. Used
// after constructors, array creation and lookups.
[[nodiscard]] inline bool reportIfNotMade(JNIEnv* env, const void* made,
                                          const char* step) noexcept {
  return reportIfPending(env, step) || reportIfNull(made, step);
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_FAILURE_H
