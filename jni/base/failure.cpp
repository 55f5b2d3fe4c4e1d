#include "jni/base/failure.h"

#include <cstdio>

namespace oxli::jni {

bool exceptionPending(JNIEnv* env) noexcept {
  const jthrowable pending = env->ExceptionOccurred();
  if (!pending) return false;
  env->DeleteLocalRef(pending);
  return true;
}

void reportFailure(const char* step) noexcept {
  std::fprintf(stderr, "\nJNI Exception at %s\n\n", step);
}

bool javaFailed(JNIEnv* env, const char* step) noexcept {
  if (!exceptionPending(env)) return false;
  reportFailure(step);
  return true;
}

bool notMade(JNIEnv* env, const void* made, const char* step) noexcept {
  if (javaFailed(env, step)) return true;
  if (made) return false;
  reportFailure(step);
  return true;
}

}  // namespace oxli::jni
