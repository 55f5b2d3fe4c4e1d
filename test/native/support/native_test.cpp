#include "test/native/support/native_test.h"

#include <cstdarg>
#include <fstream>
#include <map>

#include "jni/base/memory.h"
#include "jni/connection.h"
#include "jni/jenv/jenv.h"
#include "jni/listener.h"
#include "jni/publisher.h"
#include "jni/zblock.h"
#include "org_quendel_oxli_ScriptedExitHandler.h"
#include "org_quendel_oxli_ScriptedListener.h"
#include "org_quendel_oxli_ScriptedSubscriber.h"
#include "test/support/virtual_machine.h"

namespace oxli::test {

namespace {

JNIEnv* sEnv = nullptr;

}  // namespace

Script script;

JavaVM* virtualMachine() {
  JavaVM* vm = nullptr;
  jsize count = 0;
  JNI_GetCreatedJavaVMs(&vm, 1, &count);
  return vm;
}

void NativeTest::SetUp() {
  env = sEnv;
  ASSERT_EQ(0, env->PushLocalFrame(512));
  script = {};
  standin::clearCalls();
  standin::recordCalls(true);
  probe = std::make_unique<JniProbe>(env);
}

void NativeTest::TearDown() {
  EXPECT_EQ("", clearException());
  script = {};
  destroyRegistered();
  closeEnvironment();
  EXPECT_EQ(globalsLeft, probe->counts.globals);
  EXPECT_EQ(0, probe->counts.acquired);
  EXPECT_EQ(std::vector<std::string>(), probe->forbidden);
  probe.reset();
  EXPECT_EQ(0u, standin::liveObjects());
  EXPECT_TRUE(jni::ConnData::sConnDataMap.empty());
  EXPECT_TRUE(jni::ListenerData::sLsnMap.empty());
  EXPECT_TRUE(jni::PublisherData::sPubMap.empty());
  EXPECT_TRUE(jni::ZBlockData::sZBlockMap.empty());
  env->PopLocalFrame(nullptr);
}

void NativeTest::openEnvironment() {
  ASSERT_EQ(OX_ERR_OK, OXLI(env_1open)(env, nullptr, string("")));
  standin::clearCalls();
}

void NativeTest::closeEnvironment() {
  if (jni::JEnv::spInstance) {
    EXPECT_EQ(OX_ERR_OK, OXLI(env_1close)(env, nullptr));
  }
}

void NativeTest::destroyRegistered(const std::set<const void*>& kept) const {
  // Copies the registries, because the natives change them.
  for (const auto& [lsn, record] : std::map(jni::ListenerData::sLsnMap)) {
    if (!kept.count(lsn)) OXLI(lsn_1destroy)(env, nullptr, jni::toHandle(record));
  }
  for (const auto& [pub, record] : std::map(jni::PublisherData::sPubMap)) {
    if (!kept.count(pub)) OXLI(pub_1destroy)(env, nullptr, jni::toHandle(pub));
  }
  for (const auto& [descriptor, record] : std::map(jni::ZBlockData::sZBlockMap)) {
    if (!kept.count(descriptor)) OXLI(zblock_1destroy)(env, nullptr, jni::toHandle(record));
  }
  for (const auto& [conn, record] : std::map(jni::ConnData::sConnDataMap)) {
    if (!kept.count(conn)) OXLI(conn_1destroy)(env, nullptr, jni::toHandle(record));
  }
}

jlong NativeTest::newConnection() {
  const jobject ref = objRef();
  const jobject connection = make("org/quendel/oxli/Connection", "(J)V", jlong{0});
  EXPECT_EQ(OX_ERR_OK, OXLI(conn_1new)(env, nullptr, string(""), ref, connection));
  const jlong handle = getLong(ref, "getRef");
  EXPECT_EQ(OX_ERR_OK, OXLI(conn_1open)(env, nullptr, handle, string("")));
  return handle;
}

jlong NativeTest::newListener(jlong connection, const char* settings) {
  const jobject ref = objRef();
  const jobject jconn = make("org/quendel/oxli/Connection", "(J)V", jlong{0});
  EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1new)(env, nullptr, connection, string(settings),
                                      scripted("ScriptedSubscriber"), ref, jconn,
                                      scripted("ScriptedListener")));
  return getLong(ref, "getRef");
}

jlong NativeTest::newOpenListener(jlong connection, const char* settings) {
  const jlong handle = newListener(connection, settings);
  EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1open)(env, nullptr, handle, string("")));
  return handle;
}

jlong NativeTest::newPublisher(jlong connection, const char* settings) {
  const jobject ref = objRef();
  const jobject publisher = make("org/quendel/oxli/Publisher", "(J)V", jlong{0});
  EXPECT_EQ(OX_ERR_OK, OXLI(pub_1new)(env, nullptr, connection, string(settings), ref, publisher));
  const jlong handle = getLong(ref, "getRef");
  EXPECT_EQ(OX_ERR_OK, OXLI(pub_1open)(env, nullptr, handle, string("")));
  return handle;
}

jobject NativeTest::newMessage(jlong publisher, const char* name) {
  const jobjectArray out = newArray();
  EXPECT_EQ(OX_ERR_OK,
            OXLI(pub_1msgnew)(env, nullptr, publisher, OX_KEY_NAME, string(name), nullptr, out));
  return env->GetObjectArrayElement(out, 0);
}

jobject NativeTest::make(const char* className, const char* signature, ...) const {
  const jclass cls = env->FindClass(className);
  va_list args;
  va_start(args, signature);
  const jobject object = env->NewObjectV(cls, env->GetMethodID(cls, "<init>", signature), args);
  va_end(args);
  EXPECT_FALSE(env->ExceptionCheck());
  return object;
}

jobject NativeTest::scripted(const char* simpleName) const {
  return make((std::string("org/quendel/oxli/") + simpleName).c_str());
}

jlong NativeTest::getLong(jobject object, const char* method) const {
  const jlong value =
      env->CallLongMethod(object, env->GetMethodID(env->GetObjectClass(object), method, "()J"));
  EXPECT_FALSE(env->ExceptionCheck());
  return value;
}

jint NativeTest::getInt(jobject object, const char* method) const {
  const jint value =
      env->CallIntMethod(object, env->GetMethodID(env->GetObjectClass(object), method, "()I"));
  EXPECT_FALSE(env->ExceptionCheck());
  return value;
}

jobject NativeTest::getObject(jobject object, const char* method, const char* signature) const {
  const jobject value = env->CallObjectMethod(
      object, env->GetMethodID(env->GetObjectClass(object), method, signature));
  EXPECT_FALSE(env->ExceptionCheck());
  return value;
}

std::string NativeTest::getString(jobject object, const char* method) const {
  return toString(env, getObject(object, method, "()Ljava/lang/String;"));
}

std::string NativeTest::className(jobject object) const {
  return getString(env->GetObjectClass(object), "getSimpleName");
}

void NativeTest::set(jobject object, const char* method, const char* signature, ...) const {
  va_list args;
  va_start(args, signature);
  env->CallVoidMethodV(object, env->GetMethodID(env->GetObjectClass(object), method, signature),
                       args);
  va_end(args);
  EXPECT_FALSE(env->ExceptionCheck());
}

std::string NativeTest::toString(JNIEnv* env, jobject object) {
  if (!object) return "(null)";
  const auto javaString = static_cast<jstring>(object);
  const char* const chars = env->GetStringUTFChars(javaString, nullptr);
  std::string copy(chars);
  env->ReleaseStringUTFChars(javaString, chars);
  return copy;
}

jobject NativeTest::dataOf(JNIEnv* env, jobject zblock) {
  return env->GetObjectField(
      zblock, env->GetFieldID(env->GetObjectClass(zblock), "data", "Ljava/nio/ByteBuffer;"));
}

std::string NativeTest::standardError(const std::function<void()>& body) {
  ::testing::internal::CaptureStderr();
  body();
  return ::testing::internal::GetCapturedStderr();
}

std::vector<std::string> NativeTest::linesOf(const char* file) {
  std::vector<std::string> lines;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string NativeTest::clearException() const {
  const jthrowable pending = env->ExceptionOccurred();
  if (!pending) return "";
  env->ExceptionClear();
  return className(pending);
}

}  // namespace oxli::test

extern "C" {

JNIEXPORT jint Java_org_quendel_oxli_ScriptedSubscriber_onMessage(JNIEnv* env, jobject, jobject,
                                                                  jobject, jobject message) {
  // Copied, because the function may replace itself in the script.
  const auto onMessage = oxli::test::script.onMessage;
  return onMessage ? onMessage(env, message) : 0;
}

JNIEXPORT jobject Java_org_quendel_oxli_ScriptedListener_getScheme(JNIEnv* env, jobject) {
  const auto getScheme = oxli::test::script.getScheme;
  return getScheme ? getScheme(env) : nullptr;
}

JNIEXPORT void Java_org_quendel_oxli_ScriptedExitHandler_onExitEvent(JNIEnv* env, jobject) {
  const auto onExit = oxli::test::script.onExit;
  if (onExit) onExit(env);
}
}

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  oxli::test::sEnv =
      oxli::test::startVirtualMachine(OXLI_TEST_CLASS_PATH, {"-Xcheck:jni", "-Xmx64m"});
  if (!oxli::test::sEnv) return 1;
  const int result = RUN_ALL_TESTS();
  oxli::test::virtualMachine()->DestroyJavaVM();
  return result;
}
