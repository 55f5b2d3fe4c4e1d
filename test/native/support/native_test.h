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

// The native of that name, as the virtual machine would call it.
#define OXLI(name) Java_org_quendel_oxli_impl_OxliImpl_##name

namespace oxli::test {

// The process's one virtual machine.
JavaVM* virtualMachine();

// What the scripted Java objects of the running test do.
struct Script {
  std::function<jint(JNIEnv*, jobject message)> onMessage;
  std::function<jobject(JNIEnv*)> getScheme;
  std::function<void(JNIEnv*)> onExit;
};
extern Script script;

// Runs each test on the main thread's environment behind a JniProbe, and afterwards closes the
// environment and checks that everything taken has been given back: references, characters, gateway
// objects, registry entries.
class NativeTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Result codes of the natives; handles as Java has them.
  void openEnvironment();
  jlong newConnection();  // opened
  jlong newListener(jlong connection, const char* settings = "stream=s");
  jlong newPublisher(jlong connection, const char* settings);  // opened
  // A new outgoing message by name.
  jobject newMessage(jlong publisher, const char* name);
  void closeEnvironment();

  jstring text(const char* chars) const { return env->NewStringUTF(chars); }
  jobject make(const char* className, const char* signature = "()V", ...) const;
  jobject objRef() const { return make("org/quendel/oxli/impl/ObjRef"); }
  jobject intRef() const { return make("org/quendel/oxli/impl/IntRef"); }
  jobject scripted(const char* simpleName) const;
  // Call a method without parameters that must not throw.
  jlong getLong(jobject object, const char* method) const;
  jint getInt(jobject object, const char* method) const;
  jobject getObject(jobject object, const char* method, const char* signature) const;
  std::string getText(jobject object, const char* method) const;
  std::string className(jobject object) const;
  void set(jobject object, const char* method, const char* signature, ...) const;
  static std::string toText(JNIEnv* env, jobject string);
  // What a converted `Scheme` says.
  std::string schemeText(jobject scheme) const;
  // The bytes that a `ZBlock` was given last, whatever its state; no call that the probe sees.
  static jobject dataOf(JNIEnv* env, jobject zblock);

  // The class of the pending exception, which is cleared; "" when none is pending.
  std::string takeException() const;

  JNIEnv* env = nullptr;
  std::unique_ptr<JniProbe> probe;
  // Global references that the test leaves behind on purpose.
  int globalsLeft = 0;
};

}  // namespace oxli::test

#endif  // OXLI_TEST_NATIVE_SUPPORT_NATIVE_TEST_H
