#include <functional>
#include <utility>

#include "jni/base/memory.h"
#include "jni/connection.h"
#include "jni/listener.h"
#include "jni/oxjni.h"
#include "jni/publisher.h"
#include "test/native/support/native_test.h"

namespace oxli::test {

namespace {

using jni::ConnData;
using jni::find;
using jni::fromHandle;
using jni::ListenerData;
using jni::PublisherData;
using jni::toHandle;

// Wraps gateway objects that native code has made.
class RegistryTest : public NativeTest {
 protected:
  void SetUp() override {
    NativeTest::SetUp();
    openEnvironment();
    ASSERT_EQ(OX_ERR_OK, ox_conn_new("", &conn));
    ASSERT_EQ(OX_ERR_OK, ox_conn_open(conn, ""));
    ASSERT_EQ(OX_ERR_OK, ox_lsn_new(conn, "stream=s", &RegistryTest::onMessage, this, &lsn));
    ASSERT_EQ(OX_ERR_OK, ox_lsn_open(lsn, ""));
    ASSERT_EQ(OX_ERR_OK, ox_pub_new(conn, "stream=s", &pub));
  }
  void TearDown() override {
    oxjni_lsn_unwrap(env, lsn);
    record = nullptr;
    ox_conn_destroy(conn);
    NativeTest::TearDown();
  }
  static int onMessage(ox_conn_t*, ox_listener_t*, ox_msg_t* msg, void* data) {
    auto* const test = static_cast<RegistryTest*>(data);
    test->received = oxjni_lsn_cacheget(test->env, test->lsn, msg, test->record);
    return 0;
  }

  // Wraps a connection that is registered already. Returns the new record, which only the Java
  // constructor receives.
  jlong recordOfNextWrap(ox_conn_t* handle) {
    ConnData* const registered = jni::remove(ConnData::sConnDataMap, handle);
    EXPECT_NE(nullptr, oxjni_conn_wrap(env, handle));
    ConnData* const second = jni::remove(ConnData::sConnDataMap, handle);
    ConnData::sConnDataMap[handle] = registered;
    return toHandle(second);
  }

  void destroyBoth(jint (*destroy)(JNIEnv*, jclass, jlong), jlong first, jlong second,
                   bool firstFirst) const {
    if (!firstFirst) std::swap(first, second);
    const int before = probe->counts.globals;
    EXPECT_EQ(OX_ERR_OK, destroy(env, nullptr, first));
    EXPECT_TRUE(ConnData::sConnDataMap.empty() && ListenerData::sLsnMap.empty());
    EXPECT_EQ(before - 1, probe->counts.globals);
    EXPECT_EQ(OX_ERR_INVALIDARGUMENT, destroy(env, nullptr, second));
    EXPECT_EQ(before - 2, probe->counts.globals);
  }

  ox_conn_t* conn = nullptr;
  ox_listener_t* lsn = nullptr;
  ox_publisher_t* pub = nullptr;
  void* record = nullptr;
  jobject received = nullptr;
};

TEST_F(RegistryTest, FirstRecordOfAConnectionStaysRegistered) {
  const jobject first = oxjni_conn_wrap(env, conn);
  EXPECT_EQ("Connection", className(first));
  ConnData* const kept = find(ConnData::sConnDataMap, conn);
  EXPECT_TRUE(env->IsSameObject(first, kept->jconn.get()));
  const jobject second = oxjni_conn_wrap(env, conn);
  EXPECT_NE(nullptr, second);
  EXPECT_EQ(kept, find(ConnData::sConnDataMap, conn));
  const int before = probe->counts.globals;
  oxjni_conn_unwrap(env, conn);
  EXPECT_EQ(before - 1, probe->counts.globals);
  oxjni_conn_unwrap(env, conn);
  EXPECT_EQ(before - 1, probe->counts.globals);
  std::int32_t state = -1;
  EXPECT_EQ(OX_ERR_OK, ox_conn_getstate(conn, &state));
  // The second record is never released, because its address is the handle of a Java object.
  globalsLeft = 1;
}

TEST_F(RegistryTest, LatestRecordOfAListenerIsRegistered) {
  void* first = nullptr;
  EXPECT_EQ("Listener", className(oxjni_lsn_wrap(env, conn, lsn, &first)));
  EXPECT_EQ(nullptr, static_cast<ListenerData*>(first)->connData);
  const jobject wrapped = oxjni_conn_wrap(env, conn);
  EXPECT_NE(nullptr, wrapped);
  EXPECT_NE(nullptr, oxjni_lsn_wrap(env, conn, lsn, &record));
  EXPECT_NE(first, record);
  EXPECT_EQ(record, find(ListenerData::sLsnMap, lsn));
  EXPECT_EQ(find(ConnData::sConnDataMap, conn), static_cast<ListenerData*>(record)->connData);
  globalsLeft = 1;
}

TEST_F(RegistryTest, ReplacedRecordOfAPublisherIsReleased) {
  const int before = probe->counts.globals;
  EXPECT_EQ("Publisher", className(oxjni_pub_wrap(env, pub)));
  const jobject second = oxjni_pub_wrap(env, pub);
  EXPECT_EQ(before + 1, probe->counts.globals);
  EXPECT_TRUE(env->IsSameObject(second, find(PublisherData::sPubMap, pub)->jpub.get()));
}

TEST_F(RegistryTest, WrappedListenerReturnsMessageObjects) {
  ASSERT_NE(nullptr, oxjni_lsn_wrap(env, conn, lsn, &record));
  ASSERT_EQ(OX_ERR_OK, ox_conn_process(conn, 0, nullptr));
  EXPECT_EQ("OpenMessage", className(received));

  // The Java listener that the wrap has made returns the scheme.
  ASSERT_EQ(OX_ERR_OK, ox_pub_open(pub, "scheme=?{messages=m;message.m=?{fields=f:i4}}"));
  ox_msg_t* msg = nullptr;
  const std::int32_t index = 0;
  ASSERT_EQ(OX_ERR_OK, ox_pub_msgnew(pub, OX_KEY_INDEX, &index, &msg));
  ASSERT_EQ(OX_ERR_OK, ox_pub_post(pub, msg, 0));
  ASSERT_EQ(OX_ERR_OK, ox_conn_process(conn, 0, nullptr));
  ASSERT_EQ("DataMessage", className(received));
  ox_scheme_desc_t* scheme = nullptr;
  ASSERT_EQ(OX_ERR_OK, ox_lsn_getscheme(lsn, &scheme));
  EXPECT_EQ(toHandle(scheme), getLong(received, "getSchemeRef"));
  const jobject jscheme = getObject(received, "getScheme", "()Lorg/quendel/oxli/Scheme;");
  EXPECT_EQ(toHandle(scheme), getLong(jscheme, "getRef"));

  // Returns null while an exception is pending, and without a JNIEnv.
  throwError();
  EXPECT_EQ(nullptr, oxjni_lsn_cacheget(env, lsn, msg, record));
  EXPECT_EQ("Error", clearException());
  EXPECT_EQ(nullptr, oxjni_lsn_cacheget(nullptr, lsn, msg, record));
}

// Two records of one gateway object, destroyed in either order: each destroy releases its own
// record.
TEST_F(RegistryTest, ObjectsBoundTwiceAreDestroyedOneByOne) {
  for (const bool firstFirst : {true, false}) {
    ox_conn_t* boundConn = nullptr;
    ASSERT_EQ(OX_ERR_OK, ox_conn_new("", &boundConn));
    EXPECT_NE(nullptr, oxjni_conn_wrap(env, boundConn));
    const jlong firstRecord = toHandle(find(ConnData::sConnDataMap, boundConn));
    destroyBoth(&OXLI(conn_1destroy), firstRecord, recordOfNextWrap(boundConn), firstFirst);

    ox_listener_t* boundLsn = nullptr;
    ASSERT_EQ(OX_ERR_OK, ox_lsn_new(conn, "", &RegistryTest::onMessage, this, &boundLsn));
    void* records[2] = {};
    for (void*& each : records) ASSERT_NE(nullptr, oxjni_lsn_wrap(env, conn, boundLsn, &each));
    destroyBoth(&OXLI(lsn_1destroy), toHandle(records[0]), toHandle(records[1]), firstFirst);
  }
}

// A gateway delivers CLOSE while it destroys a connection; the subscriber may destroy it again.
TEST_F(RegistryTest, ConnectionMayBeDestroyedAgainInsideItsDestroyCall) {
  const jlong connection = newConnection();
  standin::runDuringNext("ox_conn_destroy", [&] {
    EXPECT_EQ(OX_ERR_OK, OXLI(conn_1destroy)(env, nullptr, connection));
  });
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, OXLI(conn_1destroy)(env, nullptr, connection));
}

TEST_F(RegistryTest, WrapsRefuseNullsAndPendingExceptions) {
  EXPECT_EQ(nullptr, oxjni_lsn_wrap(env, conn, lsn, nullptr));
  const struct {
    const char* step;
    std::function<jobject(JNIEnv*)> wrap;
  } cases[] = {
      {"oxjni_conn_wrap new connection", [&](JNIEnv* on) { return oxjni_conn_wrap(on, conn); }},
      {"oxjni_lsn_wrap lsn", [&](JNIEnv* on) { return oxjni_lsn_wrap(on, conn, lsn, &record); }},
      {"oxjni_pub_wrap new object", [&](JNIEnv* on) { return oxjni_pub_wrap(on, pub); }}};
  for (const auto& c : cases) {
    EXPECT_EQ(nullptr, c.wrap(nullptr));
    throwError();
    EXPECT_EQ(lineOf(c.step), standardError([&] { EXPECT_EQ(nullptr, c.wrap(env)); }));
    EXPECT_EQ("Error", clearException());
  }
  EXPECT_TRUE(ConnData::sConnDataMap.empty());
  EXPECT_TRUE(ListenerData::sLsnMap.empty());
  EXPECT_TRUE(PublisherData::sPubMap.empty());
}

}  // namespace

}  // namespace oxli::test
