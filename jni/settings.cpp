#include <string>

#include "jni/base/failure.h"
#include "jni/base/references.h"
#include "jni/base/strings.h"
#include "jni/jenv/with_classes.h"
#include "org_quendel_oxli_ex_impl_OxliImplEx.h"
#include "utils/properties.h"

#define OXLI_PARSE_STEP(step) "Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse " step

namespace oxli::jni {

namespace {

// Stores a new Java string in the array. Writes the line for `step` and returns false if that
// fails.
bool setString(JNIEnv* env, jobjectArray array, jsize position, const std::string& value,
               const char* step) {
  const LocalString string(env, value.c_str(), step);
  if (!string.ok()) return false;
  env->SetObjectArrayElement(array, position, string.get());
  return !reportIfPending(env, step);
}

jobjectArray parseSettings(JNIEnv* env, const JEnv& classes, jstring settings) {
  UtfChars chars(env, settings, OXLI_PARSE_STEP("settings"));
  if (!chars.ok()) return nullptr;
  const std::string copy = chars.get();
  chars.release();
  oxutils::Properties pairs;
  if (!pairs.parse(copy)) return nullptr;

  LocalRef<jobjectArray> array(
      env, env->NewObjectArray(static_cast<jsize>(2 * pairs.size()), classes.string.cls, nullptr));
  if (reportIfNotMade(env, array.get(), OXLI_PARSE_STEP("new String Array"))) return nullptr;
  jsize position = 0;
  for (const auto& [key, value] : pairs) {
    if (!setString(env, array.get(), position++, key, OXLI_PARSE_STEP("set string elm key")) ||
        !setString(env, array.get(), position++, value, OXLI_PARSE_STEP("set string elm val"))) {
      return nullptr;
    }
  }
  return array.detach();
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jobjectArray JNICALL
Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse(JNIEnv* env, jclass, jstring settings) {
  return objectWithClasses<jobjectArray>(
      [&](JEnv& classes) { return settings ? parseSettings(env, classes, settings) : nullptr; });
}
