#ifndef OXLI_TEST_NATIVE_SUPPORT_NATIVE_TEST_H
#define OXLI_TEST_NATIVE_SUPPORT_NATIVE_TEST_H

#include <gtest/gtest.h>
#include <jni.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "org_quendel_oxli_impl_OxliImpl.h"
#include "oxli.h"
#include "standin/control.h"
#include "test/native/support/jni_probe.h"

// Expands to the exported function of the native `name`.
#define OXLI(name) Java_org_quendel_oxli_impl_OxliImpl_##name

namespace oxli::test {

// Returns the virtual machine of the process.
JavaVM* virtualMachine();

// The functions that the scripted Java objects call. SetUp clears them. An empty function does
// nothing and returns 0 or null.
struct Script {
  std::function<jint(JNIEnv*, jobject message)> onMessage;
  std::function<jobject(JNIEnv*)> getScheme;
  std::function<void(JNIEnv*)> onExit;
};
extern Script script;

// Runs each test on the main thread, with a JniProbe. TearDown destroys what is registered, closes
// the environment and checks that all references, characters, gateway objects and registry entries
// have been released.
class NativeTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Call natives and expect success. Functions that return jlong return the handle.
  void openEnvironment();
  // Returns an open connection.
  jlong newConnection();
  jlong newListener(jlong connection, const char* settings = "stream=s");
  jlong newOpenListener(jlong connection, const char* settings = "stream=s");
  // Returns an open publisher. By default its stream is "s" and has the message "m".
  jlong newPublisher(
      jlong connection,
      const char* settings = "stream=s;scheme=?{messages=m;message.m=?{fields=f:i4}}");
  // Returns a new outgoing message by its name.
  jobject newMessage(jlong publisher, const char* name);
  void closeEnvironment();
  // Destroys the registered objects by their natives, except those with a gateway handle in `kept`.
  void destroyRegistered(const std::set<const void*>& kept = {}) const;

  jstring string(const char* chars) const { return env->NewStringUTF(chars); }
  jobject make(const char* className, const char* signature = "()V", ...) const;
  jobject objRef() const { return make("org/quendel/oxli/impl/ObjRef"); }
  jobject intRef() const { return make("org/quendel/oxli/impl/IntRef"); }
  // Returns an array for the out-parameter of pub_msgnew.
  jobjectArray newArray() const {
    return env->NewObjectArray(1, env->FindClass("java/lang/Object"), nullptr);
  }
  jobject scripted(const char* simpleName) const;
  // Call a method without parameters and expect that it does not throw.
  jlong getLong(jobject object, const char* method) const;
  jint getInt(jobject object, const char* method) const;
  jobject getObject(jobject object, const char* method, const char* signature) const;
  std::string getString(jobject object, const char* method) const;
  std::string className(jobject object) const;
  void set(jobject object, const char* method, const char* signature, ...) const;
  static std::string toString(JNIEnv* env, jobject object);
  // Returns the current buffer of a `ZBlock`. The probe counts none of its calls.
  static jobject dataOf(JNIEnv* env, jobject zblock);

  void throwError() const { env->ThrowNew(env->FindClass("java/lang/Error"), "thrown"); }
  // Clears the pending exception. Returns the simple name of its class, or "" if none is pending.
  std::string clearException() const;
  // Returns what `body` writes on standard error.
  static std::string standardError(const std::function<void()>& body);
  // Returns the lines of a file.
  static std::vector<std::string> linesOf(const char* file);
  // Returns the line of a failed step.
  static std::string lineOf(const std::string& step) {
    return "\nJNI Exception at " + step + "\n\n";
  }

  JNIEnv* env = nullptr;
  std::unique_ptr<JniProbe> probe;
  // The number of global references that TearDown expects not to be deleted.
  int globalsLeft = 0;
};

}  // namespace oxli::test

#endif  // OXLI_TEST_NATIVE_SUPPORT_NATIVE_TEST_H
