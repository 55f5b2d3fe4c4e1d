// Writes the results of natives into the Java objects that receive them, the out-parameters.
#ifndef OXLI_JNI_BASE_OUT_PARAMS_H
#define OXLI_JNI_BASE_OUT_PARAMS_H

#include <jni.h>

#include "jni/base/failure.h"
#include "oxli.h"

namespace oxli::jni {

// Calls `set` of an IntRef with a jint, or of an ObjRef with a jlong. Returns OX_ERR_OK. Writes the
// line for `step` and returns OX_ERR_INTERNAL if an exception is pending or `set` throws.
template <class Value>
[[nodiscard]] jint setOutParam(JNIEnv* env, jobject ref, jmethodID set, Value value,
                               const char* step) {
  if (reportIfPending(env, step)) return OX_ERR_INTERNAL;
  env->CallVoidMethod(ref, set, value);
  return reportIfPending(env, step) ? OX_ERR_INTERNAL : OX_ERR_OK;
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_OUT_PARAMS_H
