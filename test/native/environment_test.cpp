#include "jni/environment.h"

#include <thread>

#include "jni/jenv/jenv.h"
#include "jni/listener.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_ex_impl_OxliImplEx.h"
#include "test/native/support/native_test.h"
#include "test/native/support/records.h"

namespace oxli::test {

namespace {

using jni::JEnv;
using Lines = std::vector<std::string>;

class EnvironmentTest : public NativeTest {
 protected:
  jint open(const char* settings) const {
    return OXLI(env_1open)(env, nullptr, settings ? string(settings) : nullptr);
  }
  jint close() const { return OXLI(env_1close)(env, nullptr); }
};

TEST_F(EnvironmentTest, GatewayReceivesTheSettingsAndThePlatform) {
  for (const char* settings : {"", "log=", "a=1;", "platform=c"}) {
    standin::clearCalls();
    EXPECT_EQ(OX_ERR_OK, open(settings));
    EXPECT_EQ(OX_ERR_OK, close());
    EXPECT_EQ(
        (Lines{std::string("ox_env_open \"") + settings + ";platform=java\"", "ox_env_close"}),
        standin::calls());
  }
}

TEST_F(EnvironmentTest, NullSettingsAndASecondOpenAreRefused) {
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, open(nullptr));
  EXPECT_EQ(nullptr, JEnv::spInstance);
  EXPECT_EQ(0, probe->counts.calls);
  ASSERT_EQ(OX_ERR_OK, open("a=1"));
  EXPECT_EQ(OX_ERR_INVALIDSTATE, open("b=2"));
  EXPECT_EQ(OX_ERR_INVALIDSTATE, open(nullptr));
  EXPECT_EQ(Lines{"ox_env_open \"a=1;platform=java\""}, standin::calls());
}

TEST_F(EnvironmentTest, ClassCacheStaysAfterAFailedOpenUntilClosed) {
  standin::failNext("ox_env_open", 0x2abcd);
  EXPECT_EQ(0x2abcd, open(""));
  EXPECT_NE(nullptr, JEnv::spInstance);
  EXPECT_EQ(OX_ERR_INVALIDSTATE, open(""));
  EXPECT_EQ(OX_ERR_INVALIDSTATE, close());
  EXPECT_EQ(nullptr, JEnv::spInstance);
  EXPECT_EQ(0, probe->counts.globals);
  EXPECT_EQ(OX_ERR_OK, open(""));
}

TEST_F(EnvironmentTest, FailedCloseReleasesTheClassCache) {
  ASSERT_EQ(OX_ERR_OK, open(""));
  EXPECT_EQ(33u, JEnv::spInstance->classRefs.size());
  standin::failNext("ox_env_close", 0x2abcd);
  EXPECT_EQ(0x2abcd, close());
  EXPECT_EQ(nullptr, JEnv::spInstance);
  EXPECT_EQ(OX_ERR_OK, close());
}

// Fails every lookup in turn. Each failure names the missing class or method and releases
// everything.
TEST_F(EnvironmentTest, LookupsAreThoseOfTheListInThisOrder) {
  const Lines expected = linesOf(OXLI_TEST_LOOKUPS);
  ASSERT_EQ(105u, expected.size());

  Lines seen;
  const jstring settings = string("");
  for (int n = 1;; ++n) {
    probe->failAt(n, JniProbe::Fault::kThrows);
    const std::string line =
        standardError([&] { EXPECT_EQ(OX_ERR_INTERNAL, OXLI(env_1open)(env, nullptr, settings)); });
    // The first call after the lookups acquires the characters of the settings.
    if (line.rfind("Failed", 0) != 0) {
      EXPECT_EQ(lineOf("Java_org_quendel_oxli_impl_OxliImpl_env_1open settings"), line);
      break;
    }
    EXPECT_EQ(nullptr, JEnv::spInstance);
    EXPECT_EQ(0, probe->counts.globals);
    // The lookup of a class and its global reference are two calls with the same line.
    if (seen.empty() || seen.back() + "\n" != line) seen.push_back(line.substr(0, line.size() - 1));
    clearException();
  }
  EXPECT_EQ(expected, seen);
  EXPECT_EQ("ArithmeticException", clearException());
  EXPECT_TRUE(probe->disarm());
  EXPECT_EQ(nullptr, JEnv::spInstance);
  EXPECT_EQ(Lines(), standin::calls());
  EXPECT_EQ(OX_ERR_OK, open(""));
}

class ExitEventTest : public EnvironmentTest {
 protected:
  jint registerHandler(jobject handler) {
    return OXLI(env_1register_1exithandler)(env, nullptr, handler);
  }
  void SetUp() override {
    EnvironmentTest::SetUp();
    EXPECT_EQ(OX_ERR_OK, registerHandler(scripted("ScriptedExitHandler")));
    ASSERT_EQ(OX_ERR_OK, open(""));
  }
  void TearDown() override {
    registerHandler(nullptr);
    EnvironmentTest::TearDown();
  }
  // Raises the exit event. Returns the lines that the callback has logged.
  static Lines raised() {
    standin::clearCalls();
    EXPECT_TRUE(standin::raiseExit());
    Lines lines;
    for (const std::string& line : standin::logLines()) {
      const auto at = line.find("[ExitEvent]");
      if (at != std::string::npos) lines.push_back(line.substr(at));
    }
    return lines;
  }
  // Calls the callback on a new thread, which is attached before if `attached`. Returns whether it
  // is attached afterwards, which needs a pending exception.
  static bool staysAttached(bool attached) {
    standin::clearCalls();
    bool stays = false;
    std::thread([&] {
      void* found = nullptr;
      if (attached) virtualMachine()->AttachCurrentThread(&found, nullptr);
      ExitEventCB(jni::sExitEventData.get());
      stays = virtualMachine()->GetEnv(&found, JNI_VERSION_1_6) == JNI_OK;
      if (!stays) return;
      EXPECT_TRUE(static_cast<JNIEnv*>(found)->ExceptionCheck());
      static_cast<JNIEnv*>(found)->ExceptionClear();
      virtualMachine()->DetachCurrentThread();
    }).join();
    return stays;
  }
};

constexpr char kAttach[] = "[ExitEvent]: attach java to new thread.";
constexpr char kInvoke[] = "[ExitEvent]: Invoke java onExitEvent.";
constexpr char kAfter[] = "[ExitEvent]: After Invoke java onExitEvent.";

TEST_F(ExitEventTest, CallsTheHandlerOnAGatewayThread) {
  int events = 0;
  script.onExit = [&](JNIEnv*) { ++events; };
  EXPECT_EQ((Lines{kAttach, kInvoke, kAfter}), raised());
  EXPECT_FALSE(staysAttached(true));
  EXPECT_EQ("info: [ExitEvent]: jni env found.", standin::logLines().at(0));
  EXPECT_EQ(2, events);

  // The exception of a handler stays pending on the thread.
  script.onExit = [&](JNIEnv* on) { on->ThrowNew(on->FindClass("java/lang/Error"), "exit"); };
  EXPECT_TRUE(staysAttached(false));
  EXPECT_EQ((Lines{std::string("info: ") + kAttach, std::string("info: ") + kInvoke}),
            standin::logLines());
}

TEST_F(ExitEventTest, CallsNoJavaWithoutClassCacheOrHandlerOrWhileAnExceptionIsPending) {
  script.onExit = [](JNIEnv*) { FAIL(); };
  throwError();
  ExitEventCB(jni::sExitEventData.get());
  EXPECT_EQ("Error", clearException());
  EXPECT_EQ("error: [ExitEvent]: java exception pending, onExitEvent not invoked.",
            standin::logLines().back());

  EXPECT_EQ(OX_ERR_OK, registerHandler(nullptr));
  EXPECT_FALSE(standin::raiseExit());
  EXPECT_FALSE(staysAttached(false));
  ExitEventCB(nullptr);

  EXPECT_EQ(OX_ERR_OK, close());
  EXPECT_EQ(OX_ERR_OK, registerHandler(scripted("ScriptedExitHandler")));
  EXPECT_EQ(Lines{kAttach}, raised());
}

TEST_F(ExitEventTest, EachRegistrationReplacesTheHandler) {
  const int globals = probe->counts.globals;
  const jni::ExitEventData* const record = jni::sExitEventData.get();
  EXPECT_EQ(OX_ERR_OK, registerHandler(scripted("ScriptedExitHandler")));
  EXPECT_EQ(globals, probe->counts.globals);
  EXPECT_EQ(record, jni::sExitEventData.get());
  probe->failAt(1, JniProbe::Fault::kReturnsNull);
  EXPECT_NE("", standardError(
                    [&] { EXPECT_EQ(OX_ERR_INTERNAL, registerHandler(record->handler.get())); }));
  EXPECT_EQ(globals - 1, probe->counts.globals);
}

// Calls a native with zeros and nulls.
template <class Result, class... Args>
Result callWithNulls(JNIEnv* env, Result (*native)(JNIEnv*, jclass, Args...)) {
  return native(env, nullptr, Args{}...);
}

template <class... Natives>
std::vector<jint> resultsWithNulls(JNIEnv* env, Natives... natives) {
  return {callWithNulls(env, natives)...};
}

// Each native that needs the class cache refuses before it looks at its arguments.
TEST_F(EnvironmentTest, NativesRefuseAClosedEnvironment) {
  const std::vector<jint> results = resultsWithNulls(
      env, &OXLI(conn_1new), &OXLI(conn_1open), &OXLI(conn_1close), &OXLI(conn_1getstate),
      &OXLI(conn_1destroy), &OXLI(lsn_1new), &OXLI(lsn_1open), &OXLI(lsn_1close),
      &OXLI(lsn_1getstate), &OXLI(lsn_1getscheme), &OXLI(lsn_1destroy), &OXLI(pub_1new),
      &OXLI(pub_1getstate), &OXLI(pub_1getscheme), &OXLI(pub_1destroy), &OXLI(pub_1msgnew),
      &OXLI(pub_1post), &OXLI(pub_1msgdispose), &OXLI(lsn_1newscheme), &OXLI(pub_1newscheme),
      &OXLI(zblock_1new), &OXLI(zblock_1rebind), &OXLI(zblock_1destroy));
  EXPECT_EQ(std::vector<jint>(results.size(), OX_ERR_INVALIDSTATE), results);
  EXPECT_EQ(nullptr, callWithNulls(env, &OXLI(msg_1dump)));
  EXPECT_EQ(nullptr,
            Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse(env, nullptr, string("")));
  callWithNulls(env, &OXLI(zblock_1wrap));
  const ox_scheme_desc_t scheme = {};
  createScheme(env, &scheme, nullptr);
  EXPECT_EQ(nullptr, getHints(env, nullptr));
  void* record = nullptr;
  EXPECT_EQ(nullptr, oxjni_conn_wrap(env, nullptr));
  EXPECT_EQ(nullptr, oxjni_lsn_wrap(env, nullptr, nullptr, &record));
  EXPECT_EQ(nullptr, oxjni_pub_wrap(env, nullptr));
  ox_msg_t msg = serviceRecord(OX_MSG_OPEN);
  jni::ListenerData unbound;
  EXPECT_EQ(nullptr, oxjni_lsn_cacheget(env, nullptr, &msg, &unbound));
  EXPECT_EQ(OX_ERR_INTERNAL, ListenerCB(nullptr, nullptr, &msg, &unbound));
  EXPECT_EQ(Lines(), standin::calls());
}

// While the environment is open, each native refuses nulls without a gateway call.
TEST_F(EnvironmentTest, NativesRefuseNulls) {
  ASSERT_EQ(OX_ERR_OK, open(""));
  standin::clearCalls();
  const std::vector<jint> results = resultsWithNulls(
      env, &OXLI(conn_1new), &OXLI(conn_1open), &OXLI(conn_1close), &OXLI(conn_1process),
      &OXLI(conn_1getstate), &OXLI(conn_1destroy), &OXLI(lsn_1new), &OXLI(lsn_1open),
      &OXLI(lsn_1close), &OXLI(lsn_1getstate), &OXLI(lsn_1getscheme), &OXLI(lsn_1destroy),
      &OXLI(pub_1new), &OXLI(pub_1open), &OXLI(pub_1getstate), &OXLI(pub_1getscheme),
      &OXLI(pub_1msgnew), &OXLI(pub_1post), &OXLI(lsn_1newscheme), &OXLI(pub_1newscheme),
      &OXLI(zblock_1new), &OXLI(log_1debugstr), &OXLI(log_1tracestr), &OXLI(log_1infostr),
      &OXLI(log_1errorstr));
  EXPECT_EQ(std::vector<jint>(results.size(), OX_ERR_INVALIDARGUMENT), results);
  EXPECT_EQ(OX_ERR_OK, callWithNulls(env, &OXLI(pub_1msgdispose)));
  EXPECT_EQ(OX_ERR_OK, callWithNulls(env, &OXLI(zblock_1destroy)));
  EXPECT_EQ(OX_ERR_INTERNAL, callWithNulls(env, &OXLI(zblock_1rebind)));
  EXPECT_EQ(-1, callWithNulls(env, &OXLI(zblock_1unwrap)));
  callWithNulls(env, &OXLI(zblock_1wrap));
  EXPECT_EQ(nullptr, callWithNulls(env, &OXLI(msg_1dump)));
  EXPECT_EQ(nullptr, callWithNulls(env, &OXLI(getstr)));
  EXPECT_EQ(OX_ERR_INTERNAL, ListenerCB(nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(Lines(), standin::calls());
  EXPECT_EQ(nullptr, callWithNulls(env, &OXLI(bcd_1get)));
  for (const auto name : {&OXLI(conn_1getname), &OXLI(lsn_1getname), &OXLI(pub_1getname)}) {
    EXPECT_EQ("", toString(env, callWithNulls(env, name)));
  }
}

}  // namespace

}  // namespace oxli::test
