#include "jni/registry/registry.h"

#include "jni/base/failure.h"
#include "jni/jenv/jenv.h"
#include "oxli.h"

namespace oxli::jni {

jint setObjRef(JNIEnv* env, jobject objRef, jlong value, const char* step) {
  env->CallVoidMethod(objRef, JEnv::spInstance->objRef.set, value);
  return javaFailed(env, step) ? OX_ERR_INTERNAL : OX_ERR_OK;
}

jint setIntRef(JNIEnv* env, jobject intRef, std::int32_t value, const char* step) {
  env->CallVoidMethod(intRef, JEnv::spInstance->intRef.set, static_cast<jint>(value));
  return javaFailed(env, step) ? OX_ERR_INTERNAL : OX_ERR_OK;
}

}  // namespace oxli::jni
