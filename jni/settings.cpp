#include <string>

#include "jni/base/failure.h"
#include "jni/base/references.h"
#include "jni/base/text.h"
#include "jni/jenv/with_cache.h"
#include "org_quendel_oxli_ex_impl_OxliImplEx.h"
#include "utils/properties.h"

namespace oxli::jni {

namespace {

// False, after the line for `step`, when the element could not be made or stored.
bool store(JNIEnv* env, jobjectArray array, jsize position, const std::string& text,
           const char* step) {
  const LocalRef<jstring> element(env, env->NewStringUTF(text.c_str()));
  if (notMade(env, element.get(), step)) return false;
  env->SetObjectArrayElement(array, position, element.get());
  return !javaFailed(env, step);
}

jobjectArray parseSettings(JNIEnv* env, const JEnv& cache, jstring settings) {
  UtfChars chars(env, settings);
  if (chars.notTaken("Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse settings")) {
    return nullptr;
  }
  const std::string text = chars.get();
  chars.release();
  oxutils::Properties pairs;
  if (!pairs.parse(text)) return nullptr;

  LocalRef<jobjectArray> array(
      env, env->NewObjectArray(static_cast<jsize>(2 * pairs.size()), cache.string.cls, nullptr));
  if (notMade(env, array.get(),
              "Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse new String Array")) {
    return nullptr;
  }
  jsize position = 0;
  for (const auto& [key, value] : pairs) {
    if (!store(env, array.get(), position++, key,
               "Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse set string elm key") ||
        !store(env, array.get(), position++, value,
               "Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse set string elm val")) {
      return nullptr;
    }
  }
  return array.release();
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jobjectArray JNICALL
Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse(JNIEnv* env, jclass, jstring settings) {
  return objectWithCache<jobjectArray>(
      [&](JEnv& cache) { return settings ? parseSettings(env, cache, settings) : nullptr; });
}
