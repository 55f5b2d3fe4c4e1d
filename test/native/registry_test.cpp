#include "jni/base/handles.h"
#include "jni/connection.h"
#include "jni/listener.h"
#include "jni/oxjni.h"
#include "jni/publisher.h"
#include "test/native/support/native_test.h"
#include "test/native/support/records.h"

namespace oxli::test {

namespace {

using jni::ConnData;
using jni::fromHandle;
using jni::ListenerData;
using jni::lookUp;
using jni::PublisherData;
using jni::toHandle;

// Gateway objects that native code made itself.
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
    oxjni_pub_unwrap(env, pub);
    oxjni_conn_unwrap(env, conn);
    ox_lsn_destroy(lsn);
    ox_pub_destroy(pub);
    ox_conn_destroy(conn);
    NativeTest::TearDown();
  }
  static int onMessage(ox_conn_t*, ox_listener_t*, ox_msg_t* msg, void* data) {
    auto* const test = static_cast<RegistryTest*>(data);
    test->received = oxjni_lsn_cacheget(test->env, test->lsn, msg, test->record);
    return 0;
  }

  ox_conn_t* conn = nullptr;
  ox_listener_t* lsn = nullptr;
  ox_publisher_t* pub = nullptr;
  void* record = nullptr;
  jobject received = nullptr;
};

TEST_F(RegistryTest, ConnectionKeepsItsFirstRecord) {
  const jobject first = oxjni_conn_wrap(env, conn);
  EXPECT_EQ("Connection", className(first));
  ConnData* const kept = lookUp(ConnData::sConnDataMap, conn);
  EXPECT_TRUE(env->IsSameObject(first, kept->jconn.get()));
  const jobject second = oxjni_conn_wrap(env, conn);
  EXPECT_NE(nullptr, second);
  EXPECT_EQ(kept, lookUp(ConnData::sConnDataMap, conn));
  const int before = probe->counts.globals;
  oxjni_conn_unwrap(env, conn);
  EXPECT_EQ(before - 1, probe->counts.globals);
  oxjni_conn_unwrap(env, conn);
  EXPECT_EQ(before - 1, probe->counts.globals);
  std::int32_t state = -1;
  EXPECT_EQ(OX_ERR_OK, ox_conn_getstate(conn, &state));
  // The second record belongs to its Java object alone.
  globalsLeft = 1;
}

TEST_F(RegistryTest, ListenerTakesItsNewestRecord) {
  void* first = nullptr;
  EXPECT_EQ("Listener", className(oxjni_lsn_wrap(env, conn, lsn, &first)));
  EXPECT_EQ(nullptr, static_cast<ListenerData*>(first)->connData);
  const jobject wrapped = oxjni_conn_wrap(env, conn);
  EXPECT_NE(nullptr, wrapped);
  EXPECT_NE(nullptr, oxjni_lsn_wrap(env, conn, lsn, &record));
  EXPECT_NE(first, record);
  EXPECT_EQ(record, lookUp(ListenerData::sLsnMap, lsn));
  EXPECT_EQ(lookUp(ConnData::sConnDataMap, conn), static_cast<ListenerData*>(record)->connData);
  globalsLeft = 1;
}

TEST_F(RegistryTest, PublisherReleasesTheRecordItReplaces) {
  const int before = probe->counts.globals;
  EXPECT_EQ("Publisher", className(oxjni_pub_wrap(env, pub)));
  const jobject second = oxjni_pub_wrap(env, pub);
  EXPECT_EQ(before + 1, probe->counts.globals);
  EXPECT_TRUE(env->IsSameObject(second, lookUp(PublisherData::sPubMap, pub)->jpub.get()));
}

TEST_F(RegistryTest, DestroyOfWhatIsNotRegistered) {
  EXPECT_EQ(OX_ERR_OK, OXLI(pub_1destroy)(env, nullptr, toHandle(pub)));
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, OXLI(pub_1destroy)(env, nullptr, toHandle(pub)));
}

TEST_F(RegistryTest, WrappedListenerLendsMessageObjects) {
  ASSERT_NE(nullptr, oxjni_lsn_wrap(env, conn, lsn, &record));
  ASSERT_EQ(OX_ERR_OK, ox_conn_process(conn, 0, nullptr));
  EXPECT_EQ("OpenMessage", className(received));

  // The Java listener made by the wrap answers for the scheme.
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

  // Reached for with an exception pending, and without an environment.
  env->ThrowNew(env->FindClass("java/lang/Error"), "before");
  EXPECT_EQ(nullptr, oxjni_lsn_cacheget(env, lsn, msg, record));
  EXPECT_EQ("Error", takeException());
  EXPECT_EQ(nullptr, oxjni_lsn_cacheget(nullptr, lsn, msg, record));
}

TEST_F(RegistryTest, ClosedEnvironmentBindsNothing) {
  closeEnvironment();
  EXPECT_EQ(nullptr, oxjni_conn_wrap(env, conn));
  EXPECT_EQ(nullptr, oxjni_lsn_wrap(env, conn, lsn, &record));
  EXPECT_EQ(nullptr, oxjni_pub_wrap(env, pub));
  ox_msg_t msg = serviceRecord(OX_MSG_OPEN);
  ListenerData unbound;
  EXPECT_EQ(nullptr, oxjni_lsn_cacheget(env, lsn, &msg, &unbound));
  EXPECT_EQ(OX_ERR_INTERNAL, ListenerCB(conn, lsn, &msg, &unbound));
  openEnvironment();
}

TEST_F(RegistryTest, DestroyThroughAWrapReleasesTheRegisteredRecordToo) {
  const int before = probe->counts.globals;
  const jlong connection = newConnection();
  ox_conn_t* const native = fromHandle<ConnData>(connection)->conn;
  const jobject wrapped = oxjni_conn_wrap(env, native);
  ASSERT_NE(nullptr, wrapped);
  EXPECT_EQ(before + 2, probe->counts.globals);
  EXPECT_EQ(OX_ERR_OK, OXLI(conn_1destroy)(env, nullptr, connection));
  EXPECT_EQ(before + 1, probe->counts.globals);
  globalsLeft = 1;
}

// A subscriber's record that native code has wrapped anew: destroying releases both.
TEST_F(RegistryTest, DestroyReleasesAReplacedRecordToo) {
  const jlong connection = newConnection();
  const jlong listener = newListener(connection);
  const auto* const bound = fromHandle<ListenerData>(listener);
  ox_listener_t* const native = bound->lsn;
  const int before = probe->counts.globals;
  ASSERT_NE(nullptr, oxjni_lsn_wrap(env, bound->connData->conn, native, &record));
  EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1destroy)(env, nullptr, listener));
  EXPECT_EQ(before - 3, probe->counts.globals);
  EXPECT_EQ(OX_ERR_OK, OXLI(conn_1destroy)(env, nullptr, connection));
}

}  // namespace

}  // namespace oxli::test
