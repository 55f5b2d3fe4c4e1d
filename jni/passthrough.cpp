// Implements the natives for strings, logging and decimals, which call one gateway function each,
// and `scheme_getstr`, which always throws. They have no state and also work while the environment
// is closed.
#include <cstddef>
#include <cstdint>
#include <string>

#include "jni/base/boundary.h"
#include "jni/base/failure.h"
#include "jni/base/strings.h"
#include "org_quendel_oxli_impl_OxliImpl.h"
#include "oxli.h"

namespace oxli::jni {

namespace {

// Returns the address of a direct buffer; null for a null buffer.
void* bufferAddress(JNIEnv* env, jobject buffer) {
  return buffer ? env->GetDirectBufferAddress(buffer) : nullptr;
}

jstring toJava(JNIEnv* env, const char* chars, const char* step) {
  if (reportIfPending(env, step)) return nullptr;
  return LocalString(env, chars, step).detach();
}

jstring renderValue(JNIEnv* env, jstring typeName, jobject data) {
  constexpr char kStep[] = OXLI_STEP("getstr");
  char buffer[1024];
  std::size_t size = sizeof buffer;
  const void* const address = bufferAddress(env, data);
  UtfChars name(env, typeName, kStep);
  if (!name.ok()) return nullptr;

  std::string largerBuffer;
  const char* rendered = buffer;
  int result = ox_getstr(name.get(), address, buffer, &size);
  if (result == OX_ERR_BUFFERTOOSMALL) {
    largerBuffer.resize(size);
    rendered = largerBuffer.c_str();
    result = ox_getstr(name.get(), address, largerBuffer.data(), &size);
  }
  name.release();
  return result == OX_ERR_OK ? toJava(env, rendered, kStep) : nullptr;
}

jint logString(JNIEnv* env, jstring string, int (*log)(const char*), const char* step) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    if (!string) return OX_ERR_INVALIDARGUMENT;
    const UtfChars chars(env, string, step);
    return chars.ok() ? log(chars.get()) : OX_ERR_INTERNAL;
  });
}

jobject decodeDecimal(JNIEnv* env, jobject value) {
  std::int64_t mantissa = 0;
  std::int8_t scale = 0;
  if (ox_bcd_get(bufferAddress(env, value), &mantissa, &scale) != OX_ERR_OK) return nullptr;

  const jclass bigDecimal = env->FindClass("java/math/BigDecimal");
  if (reportIfNotMade(env, bigDecimal, "FindClass java/math/BigDecimal")) return nullptr;
  const jmethodID valueOf =
      env->GetStaticMethodID(bigDecimal, "valueOf", "(JI)Ljava/math/BigDecimal;");
  if (reportIfNotMade(env, valueOf, "FindMethod (JI)Ljava/math/BigDecimal")) return nullptr;
  const jobject decimal = env->CallStaticObjectMethod(
      bigDecimal, valueOf, static_cast<jlong>(mantissa), static_cast<jint>(scale));
  return reportIfPending(env, "CallStaticObjectMethod bigDecimal") ? nullptr : decimal;
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_getstr(JNIEnv* env, jclass,
                                                                     jstring name, jobject data) {
  return atBoundary<jstring>(nullptr,
                             [&] { return name ? renderValue(env, name, data) : nullptr; });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_err_1getstr(JNIEnv* env, jclass,
                                                                          jint code) {
  return atBoundary<jstring>(
      nullptr, [&] { return toJava(env, ox_err_getstr(code), OXLI_STEP("err_1getstr")); });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_log_1debugstr(JNIEnv* env, jclass,
                                                                         jstring string) {
  return logString(env, string, &ox_log_debugstr, OXLI_STEP("log_1debugstr"));
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_log_1tracestr(JNIEnv* env, jclass,
                                                                         jstring string) {
  return logString(env, string, &ox_log_tracestr, OXLI_STEP("log_1tracestr"));
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_log_1infostr(JNIEnv* env, jclass,
                                                                        jstring string) {
  return logString(env, string, &ox_log_infostr, OXLI_STEP("log_1infostr"));
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_log_1errorstr(JNIEnv* env, jclass,
                                                                         jstring string) {
  return logString(env, string, &ox_log_errorstr, OXLI_STEP("log_1errorstr"));
}

JNIEXPORT jobject JNICALL Java_org_quendel_oxli_impl_OxliImpl_bcd_1get(JNIEnv* env, jclass,
                                                                       jobject value) {
  return atBoundary<jobject>(nullptr, [&] { return decodeDecimal(env, value); });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_scheme_1getstr(JNIEnv* env, jclass) {
  const jclass oxliException = env->FindClass("org/quendel/oxli/OxliException");
  if (oxliException) env->ThrowNew(oxliException, "Not implemented.");
  return nullptr;
}
