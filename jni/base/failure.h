// How a failed Java step is reported: one line on standard error that names the step, the exception
// left pending for the Java caller, and the operation abandoned by whoever asked. Nothing here ever
// clears or describes an exception.
#ifndef OXLI_JNI_BASE_FAILURE_H
#define OXLI_JNI_BASE_FAILURE_H

#include <jni.h>

namespace oxli::jni {

// Whether a Java exception is pending; writes nothing.
[[nodiscard]] bool exceptionPending(JNIEnv* env) noexcept;

// Writes the line for `step`.
void reportFailure(const char* step) noexcept;

// Whether the step that was just made left an exception pending; writes its line if so.
[[nodiscard]] bool javaFailed(JNIEnv* env, const char* step) noexcept;

// The same for a step that makes a reference or borrows memory: a null result is a failure too,
// with or without an exception.
[[nodiscard]] bool notMade(JNIEnv* env, const void* made, const char* step) noexcept;

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_FAILURE_H
