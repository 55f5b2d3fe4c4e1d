#ifndef OXLI_TEST_NATIVE_SUPPORT_NATIVE_TEST_H
#define OXLI_TEST_NATIVE_SUPPORT_NATIVE_TEST_H

#include <gtest/gtest.h>
#include <jni.h>

#include <functional>
#include <memory>
#include <string>

#include "org_quendel_oxli_impl_OxliImpl.h"
#include "oxli.h"
#include "standin/control.h"
#include "test/native/support/jni_probe.h"

// The native of that name, as the virtual machine calls it.
#define OXLI(name) Java_org_quendel_oxli_impl_OxliImpl_##name

namespace oxli::test {

// Returns the virtual machine of the process.
JavaVM* virtualMachine();

// What the scripted Java objects do in the running test.
struct Script {
  std::function<jint(JNIEnv*, jobject message)> onMessage;
  std::function<jobject(JNIEnv*)> getScheme;
  std::function<void(JNIEnv*)> onExit;
};
extern Script script;

// Runs each test on the main thread, with a JniProbe. Afterwards closes the environment and checks
// that everything acquired has been released: references, characters, gateway objects, registry
// entries.
class NativeTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Expect natives to succeed and return handles.
  void openEnvironment();
  jlong newConnection();  // opened
  jlong newListener(jlong connection, const char* settings = "stream=s");
  jlong newPublisher(jlong connection, const char* settings);  // opened
  // Returns a new outgoing message by its name.
  jobject newMessage(jlong publisher, const char* name);
  void closeEnvironment();

  jstring text(const char* chars) const { return env->NewStringUTF(chars); }
  jobject make(const char* className, const char* signature = "()V", ...) const;
  jobject objRef() const { return make("org/quendel/oxli/impl/ObjRef"); }
  jobject intRef() const { return make("org/quendel/oxli/impl/IntRef"); }
  jobject scripted(const char* simpleName) const;
  // Call a method without parameters and expect that it does not throw.
  jlong getLong(jobject object, const char* method) const;
  jint getInt(jobject object, const char* method) const;
  jobject getObject(jobject object, const char* method, const char* signature) const;
  std::string getText(jobject object, const char* method) const;
  std::string className(jobject object) const;
  void set(jobject object, const char* method, const char* signature, ...) const;
  static std::string toText(JNIEnv* env, jobject string);
  // Returns a converted `Scheme` as a string.
  std::string schemeText(jobject scheme) const;
  // Returns the buffer that a `ZBlock` has received last. Makes no call that the probe counts.
  static jobject dataOf(JNIEnv* env, jobject zblock);

  // Clears the pending exception. Returns its class, or "" if none is pending.
  std::string takeException() const;

  JNIEnv* env = nullptr;
  std::unique_ptr<JniProbe> probe;
  // Global references that the test does not release.
  int globalsLeft = 0;
};

}  // namespace oxli::test

#endif  // OXLI_TEST_NATIVE_SUPPORT_NATIVE_TEST_H
