// Natives that only pass a call through to the gateway: texts, logging, decimals. They keep no
// state and need no open environment.
#include <cstddef>
#include <cstdint>
#include <string>

#include "jni/base/boundary.h"
#include "jni/base/failure.h"
#include "jni/base/text.h"
#include "org_quendel_oxli_impl_OxliImpl.h"
#include "oxli.h"

namespace oxli::jni {

namespace {

// A null buffer counts as a null address.
void* bufferAddress(JNIEnv* env, jobject buffer) {
  return buffer ? env->GetDirectBufferAddress(buffer) : nullptr;
}

jstring toJava(JNIEnv* env, const char* text, const char* step) {
  if (!text) return nullptr;
  const jstring string = env->NewStringUTF(text);
  return notMade(env, string, step) ? nullptr : string;
}

jstring valueText(JNIEnv* env, jstring typeName, jobject data) {
  constexpr char kStep[] = "Java_org_quendel_oxli_impl_OxliImpl_getstr";
  char onStack[1024];
  std::size_t size = sizeof onStack;
  const void* const address = bufferAddress(env, data);
  UtfChars name(env, typeName);
  if (name.notTaken(kStep)) return nullptr;

  std::string larger;
  const char* rendered = onStack;
  int result = ox_getstr(name.get(), address, onStack, &size);
  if (result == OX_ERR_BUFFERTOOSMALL) {
    larger.resize(size);
    rendered = larger.c_str();
    result = ox_getstr(name.get(), address, larger.data(), &size);
  }
  name.release();
  return result == OX_ERR_OK ? toJava(env, rendered, kStep) : nullptr;
}

jint logText(JNIEnv* env, jstring text, int (*log)(const char*), const char* step) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    if (!text) return OX_ERR_INVALIDARGUMENT;
    const UtfChars chars(env, text);
    if (chars.notTaken(step)) return OX_ERR_INTERNAL;
    return log(chars.get());
  });
}

jobject decimal(JNIEnv* env, jobject value) {
  std::int64_t mantissa = 0;
  std::int8_t scale = 0;
  if (ox_bcd_get(bufferAddress(env, value), &mantissa, &scale) != OX_ERR_OK) return nullptr;

  const jclass bigDecimal = env->FindClass("java/math/BigDecimal");
  if (notMade(env, bigDecimal, "FindClass java/math/BigDecimal")) return nullptr;
  const jmethodID valueOf =
      env->GetStaticMethodID(bigDecimal, "valueOf", "(JI)Ljava/math/BigDecimal;");
  if (notMade(env, valueOf, "FindMethod (JI)Ljava/math/BigDecimal")) return nullptr;
  const jobject result = env->CallStaticObjectMethod(
      bigDecimal, valueOf, static_cast<jlong>(mantissa), static_cast<jint>(scale));
  return javaFailed(env, "CallStaticObjectMethod bigDecimal") ? nullptr : result;
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_getstr(JNIEnv* env, jclass,
                                                                     jstring name, jobject data) {
  return atBoundary<jstring>(nullptr, [&] { return name ? valueText(env, name, data) : nullptr; });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_err_1getstr(JNIEnv* env, jclass,
                                                                          jint code) {
  return atBoundary<jstring>(nullptr, [&] {
    return toJava(env, ox_err_getstr(code), "Java_org_quendel_oxli_impl_OxliImpl_err_1getstr");
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_log_1debugstr(JNIEnv* env, jclass,
                                                                         jstring text) {
  return logText(env, text, &ox_log_debugstr, "Java_org_quendel_oxli_impl_OxliImpl_log_1debugstr");
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_log_1tracestr(JNIEnv* env, jclass,
                                                                         jstring text) {
  return logText(env, text, &ox_log_tracestr, "Java_org_quendel_oxli_impl_OxliImpl_log_1tracestr");
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_log_1infostr(JNIEnv* env, jclass,
                                                                        jstring text) {
  return logText(env, text, &ox_log_infostr, "Java_org_quendel_oxli_impl_OxliImpl_log_1infostr");
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_log_1errorstr(JNIEnv* env, jclass,
                                                                         jstring text) {
  return logText(env, text, &ox_log_errorstr, "Java_org_quendel_oxli_impl_OxliImpl_log_1errorstr");
}

JNIEXPORT jobject JNICALL Java_org_quendel_oxli_impl_OxliImpl_bcd_1get(JNIEnv* env, jclass,
                                                                       jobject value) {
  return atBoundary<jobject>(nullptr, [&] { return decimal(env, value); });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_scheme_1getstr(JNIEnv* env, jclass) {
  const jclass oxliException = env->FindClass("org/quendel/oxli/OxliException");
  if (oxliException) env->ThrowNew(oxliException, "Not implemented.");
  return nullptr;
}
