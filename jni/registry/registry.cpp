#include "jni/registry/registry.h"

#include "jni/base/failure.h"
#include "oxli.h"

namespace oxli::jni {

namespace {

template <class Value>
jint setHolder(JNIEnv* env, jobject holder, jmethodID set, Value value, const char* step) {
  // A callback of the gateway's may have thrown in the call before.
  if (javaFailed(env, step)) return OX_ERR_INTERNAL;
  env->CallVoidMethod(holder, set, value);
  return javaFailed(env, step) ? OX_ERR_INTERNAL : OX_ERR_OK;
}

}  // namespace

jint setObjRef(JNIEnv* env, const JEnv& cache, jobject objRef, jlong value, const char* step) {
  return setHolder(env, objRef, cache.objRef.set, value, step);
}

jint setIntRef(JNIEnv* env, const JEnv& cache, jobject intRef, std::int32_t value,
               const char* step) {
  return setHolder(env, intRef, cache.intRef.set, static_cast<jint>(value), step);
}

}  // namespace oxli::jni
