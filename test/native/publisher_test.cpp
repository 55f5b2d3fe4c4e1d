#include <cstring>
#include <utility>

#include "jni/base/memory.h"
#include "jni/oxjni.h"
#include "test/native/support/native_test.h"
#include "test/native/support/records.h"

namespace oxli::test {

namespace {

using jni::fromHandle;
using jni::toHandle;

constexpr char kPlain[] = "stream=s;scheme=?{messages=m;message.m=?{id=7;fields=f:i4,g:c8}}";
constexpr char kReplica[] =
    "stream=r;mode=replica;scheme=?{messages=m;message.m=?{id=7;fields=f:i4,g:c8}}";

class PublisherTest : public NativeTest {
 protected:
  void SetUp() override {
    NativeTest::SetUp();
    openEnvironment();
    connection = newConnection();
    publisher = newPublisher(connection, kPlain);
    replica = newPublisher(connection, kReplica);
  }

  jint msgNew(jint keyType, jobject key) const {
    return OXLI(pub_1msgnew)(env, nullptr, publisher, keyType, key, nullptr, newArray());
  }
  jobject integer(jint value) const { return make("java/lang/Integer", "(I)V", value); }
  jint post(jlong on, jobject message) const {
    return OXLI(pub_1post)(env, nullptr, on, message, 0);
  }
  std::string dump(jobject message) const {
    const jbyteArray bytes =
        OXLI(msg_1dump)(env, nullptr, message, getLong(message, "getSchemeRef"));
    if (!bytes) return "(null)";
    std::string dumped(static_cast<std::size_t>(env->GetArrayLength(bytes)), '\0');
    env->GetByteArrayRegion(bytes, 0, static_cast<jsize>(dumped.size()),
                            reinterpret_cast<jbyte*>(dumped.data()));
    return dumped;
  }
  template <class Record>
  Record& record(jobject message) const {
    return *fromHandle<Record>(getLong(message, "getRef"));
  }

  jlong connection = 0;
  jlong publisher = 0;
  jlong replica = 0;
};

TEST_F(PublisherTest, KeysMustHaveTheClassOfTheirType) {
  struct {
    jint keyType;
    jobject key;
    jint result;
  } cases[] = {{OX_KEY_NAME, string("m"), OX_ERR_OK},
               {OX_KEY_INDEX, integer(0), OX_ERR_OK},
               {OX_KEY_ID, integer(7), OX_ERR_OK},
               {OX_KEY_NAME, integer(0), OX_ERR_INVALIDARGUMENT},
               {OX_KEY_INDEX, string("m"), OX_ERR_INVALIDARGUMENT},
               {OX_KEY_ID, nullptr, OX_ERR_INVALIDARGUMENT},
               {OX_KEY_NAME, nullptr, OX_ERR_INVALIDARGUMENT}};
  for (const auto& c : cases) {
    standin::clearCalls();
    EXPECT_EQ(c.result, msgNew(c.keyType, c.key));
    EXPECT_EQ(c.result == OX_ERR_OK, !standin::calls().empty());
  }
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT,
            OXLI(pub_1msgnew)(env, nullptr, publisher, OX_KEY_NAME, string("m"), nullptr, nullptr));
}

TEST_F(PublisherTest, NewMessageIsBoundToRecordSchemeAndPublisher) {
  const jobject message = newMessage(publisher, "m");
  EXPECT_EQ("DataMessage", className(message));
  EXPECT_EQ("m", getString(message, "getMsgName"));
  EXPECT_EQ(7, getInt(message, "getMsgId"));
  ox_scheme_desc_t* scheme = nullptr;
  ox_pub_getscheme(fromHandle<ox_publisher_t>(publisher), &scheme);
  EXPECT_EQ(toHandle(scheme), getLong(message, "getSchemeRef"));
  EXPECT_EQ("StreamDataMessage", className(newMessage(replica, "m")));
}

TEST_F(PublisherTest, FailureToGetTheSchemeTakesPrecedence) {
  standin::failNext("ox_pub_getscheme", 0x2abcd);
  standin::failNext("ox_pub_msgnew", 0x2abce);
  EXPECT_EQ(0x2abcd, msgNew(OX_KEY_NAME, string("m")));
  // The gateway returns success without a record.
  standin::failNext("ox_pub_msgnew", OX_ERR_OK);
  EXPECT_EQ(OX_ERR_INTERNAL, msgNew(OX_KEY_NAME, string("m")));
}

TEST_F(PublisherTest, DataFieldsAreExchangedForThePost) {
  newOpenListener(connection);
  std::string seen;
  script.onMessage = [&](JNIEnv*, jobject message) {
    if (className(message) == "DataMessage") {
      seen += std::to_string(getInt(message, "getUserId")) + getString(message, "getAddress") + " ";
    }
    return 0;
  };
  const jobject message = newMessage(publisher, "m");
  const jobject other = newMessage(publisher, "m");
  auto& msg = record<ox_msg_data_t>(message);
  char own[] = "own";
  msg.addr = own;

  set(message, "setUserId", "(I)V", jint{-3});
  EXPECT_EQ(OX_ERR_OK, post(publisher, message));
  EXPECT_EQ(own, msg.addr);
  ox_msg_data_t earlier = dataRecord(0, 7);
  msg.ref_msg = &earlier;
  set(message, "setAddress", "(Ljava/lang/String;)V", string("gate"));
  set(message, "setRefMessage", "(Lorg/quendel/oxli/messages/DataMessage;)V", other);
  EXPECT_EQ(OX_ERR_OK, post(publisher, message));
  EXPECT_EQ(own, msg.addr);
  EXPECT_EQ(&earlier, msg.ref_msg);
  EXPECT_EQ(0xfffffffdu, msg.user_id);
  msg.addr = nullptr;
  msg.ref_msg = nullptr;

  // During the exchange the reference is the record of the other message; nulls are restored as
  // null.
  SavedMsgFields saved = {};
  replaceMsgFields(env, &msg.head, message, &saved);
  EXPECT_STREQ("gate", msg.addr);
  EXPECT_EQ(toHandle(msg.ref_msg), getLong(other, "getRef"));
  restoreMsgFields(env, &msg.head, &saved);
  EXPECT_EQ(nullptr, msg.addr);
  EXPECT_EQ(nullptr, msg.ref_msg);

  EXPECT_EQ(OX_ERR_OK, OXLI(conn_1process)(env, nullptr, connection, 0));
  EXPECT_EQ("-3own -3gate ", seen);
}

TEST_F(PublisherTest, NullMapIsExchangedUnlessTooShort) {
  const jobject message = newMessage(replica, "m");
  auto& msg = record<ox_msg_streamdata_t>(message);
  const std::uint8_t* const own = msg.nulls;
  ASSERT_EQ(2u, msg.num_nulls);
  set(message, "setRev", "(J)V", jlong{9});
  set(message, "setUserId", "(J)V", jlong{0x123456789});
  EXPECT_EQ(OX_ERR_OK, post(replica, message));
  EXPECT_EQ(own, msg.nulls);
  EXPECT_EQ(9, msg.rev);
  EXPECT_EQ(0x123456789u, msg.user_id);

  set(message, "setNulls", "([Z)V", env->NewBooleanArray(2));
  EXPECT_EQ(OX_ERR_OK, post(replica, message));
  EXPECT_EQ(own, msg.nulls);

  set(message, "setNulls", "([Z)V", env->NewBooleanArray(1));
  standin::clearCalls();
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, post(replica, message));
  EXPECT_EQ("(null)", dump(message));
  EXPECT_EQ(std::vector<std::string>(), standin::calls());
  EXPECT_EQ(own, msg.nulls);
}

// The fields are restored independently of the type; TearDown detects memory that is not released.
TEST_F(PublisherTest, GatewayMayChangeTheTypeOfARecord) {
  const jobject data = newMessage(publisher, "m");
  set(data, "setAddress", "(Ljava/lang/String;)V", string("gate"));
  const jobject row = newMessage(replica, "m");
  auto& dataRecord = record<ox_msg_data_t>(data);
  auto& rowRecord = record<ox_msg_streamdata_t>(row);
  const std::uint8_t* const own = rowRecord.nulls;
  set(row, "setNulls", "([Z)V", env->NewBooleanArray(2));
  const std::pair<jobject, ox_msg_t*> cases[] = {{data, &dataRecord.head}, {row, &rowRecord.head}};
  for (const auto& [message, head] : cases) {
    const std::uint32_t type = head->type;
    standin::runDuringNext("ox_pub_post", [changed = head] { changed->type = 0x300; });
    post(publisher, message);
    head->type = type;
  }
  EXPECT_EQ(nullptr, dataRecord.addr);
  EXPECT_EQ(own, rowRecord.nulls);
}

TEST_F(PublisherTest, DumpEnlargesItsBufferOnce) {
  const jobject message = newMessage(publisher, "m");
  set(message, "setAddress", "(Ljava/lang/String;)V", string("gate"));
  standin::clearCalls();
  EXPECT_NE(std::string::npos, dump(message).find("gate"));
  EXPECT_EQ(1u, standin::calls().size());

  const std::string longAddress(3000, 'x');
  set(message, "setAddress", "(Ljava/lang/String;)V", string(longAddress.c_str()));
  standin::clearCalls();
  const std::string dumped = dump(message);
  EXPECT_NE(std::string::npos, dumped.find(longAddress));
  EXPECT_NE('\0', dumped.back());
  EXPECT_EQ(2u, standin::calls().size());

  standin::failNext("ox_msg_dump", OX_ERR_BUFFERTOOSMALL);
  EXPECT_EQ("(null)", dump(message));
  standin::failNext("ox_msg_dump", 0x2abcd);
  EXPECT_EQ("(null)", dump(message));
  EXPECT_EQ(nullptr, record<ox_msg_data_t>(message).addr);
}

TEST_F(PublisherTest, MessagesWithoutRecordAreNotPassedToTheGateway) {
  const jobject message = newMessage(publisher, "m");
  const jlong ref = getLong(message, "getRef");
  set(message, "setRef", "(J)V", jlong{0});
  standin::clearCalls();
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, post(publisher, message));
  EXPECT_EQ("(null)", dump(message));
  EXPECT_EQ(std::vector<std::string>(), standin::calls());

  EXPECT_EQ(OX_ERR_OK, OXLI(pub_1msgdispose)(env, nullptr, publisher, ref, nullptr));
  const std::size_t alive = standin::liveObjects();
  set(message, "setAllocCreateType", "()V");
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, OXLI(pub_1msgdispose)(env, nullptr, publisher, ref, message));
  EXPECT_EQ(alive, standin::liveObjects());
  const jobject second = newMessage(publisher, "m");
  EXPECT_EQ(OX_ERR_OK, OXLI(pub_1msgdispose)(env, nullptr, publisher, ref, second));
}

}  // namespace

}  // namespace oxli::test
