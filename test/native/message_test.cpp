#include <cstring>

#include "jni/base/memory.h"
#include "jni/message_cache.h"
#include "jni/message_factory.h"
#include "test/native/support/native_test.h"
#include "test/native/support/new_faults.h"
#include "test/native/support/records.h"

namespace oxli::test {

namespace {

using jni::MessageCache;
using jni::MessageFactory;
using jni::toHandle;

class MessageTest : public NativeTest {
 protected:
  void SetUp() override {
    NativeTest::SetUp();
    openEnvironment();
  }
  void TearDown() override {
    cache.clear(env);
    NativeTest::TearDown();
  }
  // Returns the object for the kind of the record, filled from it.
  jobject get(ox_msg_t& msg) { return cache.get(env, &msg, nullptr, nullptr).object; }
  jobject get(ox_msg_data_t& msg) { return get(msg.head); }
  jobject get(ox_msg_streamdata_t& msg) { return get(msg.head); }

  MessageCache cache;
};

TEST_F(MessageTest, EachTypeHasAClass) {
  struct {
    std::uint32_t type;
    const char* name;
  } cases[] = {{OX_MSG_OPEN, "OpenMessage"},
               {OX_MSG_CLOSE, "CloseMessage"},
               {OX_MSG_TIME, "TimeMessage"},
               {OX_MSG_DATA, "DataMessage"},
               {OX_MSG_STREAM_DATA, "StreamDataMessage"},
               {OX_MSG_PARSEERR, "ParseErrorMessage"},
               {OX_MSG_TN_BEGIN, "TnBeginMessage"},
               {OX_MSG_TN_COMMIT, "TnCommitMessage"},
               {OX_MSG_ZRMQ_TIMEOUT, "ZrMqTimeOutMessage"},
               {OX_MSG_ZRREPL_LIFENUM, "ZrReplLifeNumMessage"},
               {OX_MSG_ZRREPL_CLEARDELETED, "ZrReplClearDeletedMessage"},
               {OX_MSG_ZRREPL_ONLINE, "ZrReplOnlineMessage"},
               {OX_MSG_ZRREPL_STATE, "ZrReplStateMessage"},
               {0x300, "Message"}};
  alignas(8) char payload[16] = {};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ox_msg_streamdata_t msg = rowRecord(1);
    msg.head = serviceRecord(c.type, payload, sizeof payload);
    ox_msg_data_t data = dataRecord(1, 1);
    data.head = msg.head;
    ox_msg_t& head = c.type == OX_MSG_STREAM_DATA ? msg.head : data.head;
    const jobject object = get(head);
    EXPECT_EQ(c.name, className(object));
    EXPECT_EQ(static_cast<jint>(c.type), getInt(object, "getType"));
    EXPECT_EQ(toHandle(&head), getLong(object, "getRef"));
    EXPECT_EQ(object, get(head));
  }
}

TEST_F(MessageTest, PayloadIsGatewayMemory) {
  std::int32_t reason = 77;
  ox_msg_t msg = serviceRecord(OX_MSG_CLOSE, &reason, sizeof reason);
  const jobject close = get(msg);
  const jobject buffer = getObject(close, "getData", "()Ljava/nio/ByteBuffer;");
  EXPECT_EQ(&reason, env->GetDirectBufferAddress(buffer));
  EXPECT_EQ(4, env->GetDirectBufferCapacity(buffer));

  // An empty payload gets no buffer; the type-specific value is read.
  msg.data_size = 0;
  reason = 78;
  EXPECT_EQ(close, get(msg));
  EXPECT_EQ(nullptr, getObject(close, "getData", "()Ljava/nio/ByteBuffer;"));
  EXPECT_EQ(78, getInt(close, "getReason"));
}

TEST_F(MessageTest, PayloadsOfServiceMessagesAreRead) {
  std::int64_t time = -1;
  ox_msg_t timeMsg = serviceRecord(OX_MSG_TIME, &time, sizeof time);
  EXPECT_EQ(-1, getLong(get(timeMsg), "getTime"));

  ox_data_lifenum_t life = {0xffffffff, 0x80000000};
  ox_msg_t lifeMsg = serviceRecord(OX_MSG_ZRREPL_LIFENUM, &life, sizeof life);
  EXPECT_EQ(4294967295, getLong(get(lifeMsg), "getLifenum"));
  EXPECT_EQ(2147483648, getLong(get(lifeMsg), "getFlags"));

  ox_data_cleardeleted_t clear = {3, -0x123456789};
  ox_msg_t clearMsg = serviceRecord(OX_MSG_ZRREPL_CLEARDELETED, &clear, sizeof clear);
  EXPECT_EQ(3, getInt(get(clearMsg), "getTableIdx"));
  EXPECT_EQ(-0x123456789, getLong(get(clearMsg), "getTableRev"));

  char state[] = "rev=1";
  ox_msg_t stateMsg = serviceRecord(OX_MSG_ZRREPL_STATE, state, sizeof state);
  EXPECT_EQ("rev=1", getText(get(stateMsg), "getReplState"));

  ox_msg_data_t timeout = dataRecord(0, 0);
  timeout.head.type = OX_MSG_ZRMQ_TIMEOUT;
  EXPECT_EQ(-2, getInt(get(timeout), "getUserId"));

  std::int32_t code = -9;
  ox_msg_data_t error = dataRecord(5, 6, &code, sizeof code);
  error.head.type = OX_MSG_PARSEERR;
  EXPECT_EQ(-9, getInt(get(error), "getError"));
  EXPECT_EQ(5, getInt(get(error), "getMsgIndex"));
}

TEST_F(MessageTest, MissingPayloadsAreReported) {
  std::int64_t time = 5;
  ox_msg_t timeMsg = serviceRecord(OX_MSG_TIME, &time, sizeof time);
  get(timeMsg);
  timeMsg.data = nullptr;
  EXPECT_EQ("ERROR. msg->data is NULL for OX_MSG_TIME message\n",
            standardError([&] { get(timeMsg); }));
  EXPECT_EQ(5, getLong(get(timeMsg), "getTime"));
  EXPECT_EQ(std::vector<std::string>(), standin::logLines());

  struct {
    std::uint32_t type;
    const char* line;
  } cases[] = {
      {OX_MSG_CLOSE, "msg->data is NULL for OX_MSG_CLOSE message\n"},
      {OX_MSG_PARSEERR, "msg->data is NULL for OX_MSG_PARSEERR message\n"},
      {OX_MSG_ZRREPL_LIFENUM, "msg->data is NULL for OX_MSG_ZRREPL_LIFENUM message\n"},
      {OX_MSG_ZRREPL_CLEARDELETED, "msg->data is NULL for OX_MSG_ZRREPL_CLEARDELETED message\n"}};
  for (const auto& c : cases) {
    standin::clearCalls();
    ox_msg_data_t msg = dataRecord(1, 1);
    msg.head.type = c.type;
    EXPECT_NE(nullptr, get(msg));
    ASSERT_EQ(1u, standin::logLines().size());
    EXPECT_EQ(std::string("error: ") + c.line, standin::logLines()[0]);
  }
  std::int32_t code = -9;
  ox_msg_data_t error = dataRecord(1, 1, &code, sizeof code);
  error.head.type = OX_MSG_PARSEERR;
  get(error);
  error.head.data = nullptr;
  EXPECT_EQ(0, getInt(get(error), "getError"));
  ox_msg_t state = serviceRecord(OX_MSG_ZRREPL_STATE);
  EXPECT_EQ("(null)", getText(get(state), "getReplState"));
}

TEST_F(MessageTest, SecondMessageOfAKeyUpdatesTheObject) {
  ox_msg_data_t msg = dataRecord(0x100000005, 0x80000000);
  const jobject first = get(msg);
  EXPECT_EQ(5, getInt(first, "getMsgIndex"));
  EXPECT_EQ(INT32_MIN, getInt(first, "getMsgId"));
  EXPECT_EQ("quote", getText(first, "getMsgName"));
  EXPECT_EQ(-2, getInt(first, "getUserId"));
  EXPECT_EQ("to", getText(first, "getAddress"));

  ox_msg_data_t next = dataRecord(0x100000005, 9);
  next.msg_name = "other";
  next.user_id = 1;
  next.addr = nullptr;
  EXPECT_EQ(first, get(next));
  EXPECT_EQ(INT32_MIN, getInt(first, "getMsgId"));
  EXPECT_EQ("quote", getText(first, "getMsgName"));
  EXPECT_EQ(1, getInt(first, "getUserId"));
  EXPECT_EQ("(null)", getText(first, "getAddress"));
  EXPECT_EQ(toHandle(&next), getLong(first, "getRef"));
}

TEST_F(MessageTest, NullMapIsMadeOnceAndOverwritten) {
  const std::uint8_t nulls[] = {1, 0, 1};
  ox_msg_streamdata_t row = rowRecord(1, nulls, 2);
  const jobject object = get(row);
  EXPECT_EQ(-5, getLong(object, "getRev"));
  EXPECT_EQ(0x123456789, getLong(object, "getUserId"));
  const auto map = static_cast<jbooleanArray>(getObject(object, "getNulls", "()[Z"));
  EXPECT_EQ(2, env->GetArrayLength(map));
  EXPECT_EQ(1, probe->counts.arrays);

  ox_msg_streamdata_t next = rowRecord(1, nulls + 1, 2);
  get(next);
  jboolean flags[2];
  env->GetBooleanArrayRegion(map, 0, 2, flags);
  EXPECT_EQ(0, std::memcmp(nulls + 1, flags, 2));
  EXPECT_EQ(1, probe->counts.arrays);

  ox_msg_streamdata_t without = rowRecord(1);
  get(without);
  EXPECT_TRUE(env->IsSameObject(map, getObject(object, "getNulls", "()[Z")));

  // If the null map is longer than the object's array, Java throws, and no line is written.
  ox_msg_streamdata_t longer = rowRecord(1, nulls, 3);
  EXPECT_EQ("", standardError([&] { EXPECT_EQ(object, get(longer)); }));
  EXPECT_EQ("ArrayIndexOutOfBoundsException", clearException());
}

TEST_F(MessageTest, OneObjectForEachKeyAndKind) {
  ox_msg_data_t three = dataRecord(3, 1);
  ox_msg_data_t four = dataRecord(4, 1);
  ox_msg_data_t threeById = dataRecord(UNKEYED_INDEX, 3);
  ox_msg_data_t unkeyed = dataRecord(UNKEYED_INDEX, UNKEYED_ID);
  ox_msg_data_t allOnes = dataRecord(UNKEYED_ID, 1);
  ox_msg_streamdata_t threeRow = rowRecord(3);
  ox_msg_streamdata_t unkeyedRow = rowRecord(UNKEYED_INDEX);
  unkeyedRow.msg_id = UNKEYED_ID;
  const jobject first = get(three);
  const jobject others[] = {get(four), get(unkeyed), get(allOnes), get(threeRow), get(unkeyedRow)};
  EXPECT_EQ(6, probe->counts.objects);
  for (const jobject other : others) EXPECT_NE(first, other);
  EXPECT_EQ(first, get(threeById));
  EXPECT_EQ("StreamDataMessage", className(get(threeRow)));
  EXPECT_EQ(others[1], get(unkeyed));
  EXPECT_EQ(6, probe->counts.objects);

  const int before = probe->counts.globals;
  cache.clear(env);
  EXPECT_EQ(before - 6, probe->counts.globals);
  EXPECT_NE(first, nullptr);
  get(three);
  EXPECT_EQ(7, probe->counts.objects);
}

TEST_F(MessageTest, ParseErrorsShareOneObject) {
  std::int32_t code = 1;
  ox_msg_data_t a = dataRecord(1, 1, &code, 4);
  ox_msg_data_t b = dataRecord(2, 2, &code, 4);
  a.head.type = b.head.type = OX_MSG_PARSEERR;
  const jobject object = get(a);
  EXPECT_EQ(object, get(b));
  EXPECT_EQ(2, getInt(object, "getMsgIndex"));
}

TEST_F(MessageTest, DataFactoryRefusesServiceTypes) {
  ox_msg_t open = serviceRecord(OX_MSG_OPEN);
  const int locals = probe->counts.locals;
  EXPECT_EQ(nullptr, MessageFactory::CreateDataMessage(env, &open, nullptr, nullptr));
  EXPECT_EQ(0, probe->counts.objects);
  EXPECT_EQ(locals, probe->counts.locals);
}

TEST_F(MessageTest, FailedCreationsLeakNothing) {
  const long before = liveAllocations();
  // Fails the first call that makes an object, then the call that makes the global reference.
  for (const int fault : {1, 3}) {
    for (std::uint32_t i = 0; i < 500; ++i) {
      ox_msg_data_t msg = dataRecord(UNKEYED_INDEX, 100000 + i);
      if (i % 2 == 0) msg.head.type = 0x300 + i;
      probe->failAt(i % 2 == 0 ? (fault + 1) / 2 : fault, JniProbe::Fault::kReturnsNull);
      standardError([&] { EXPECT_EQ(nullptr, get(msg)); });
      EXPECT_TRUE(probe->disarm());
    }
  }
  EXPECT_EQ(before, liveAllocations());
}

// Some keys are in the table of small keys; the cache searches for the others.
TEST_F(MessageTest, EveryKeyFindsItsObject) {
  const std::uint64_t keys[] = {70000, 3, 65535, 0, 65536, UINT64_MAX - 1, 4, 1000};
  for (const std::uint64_t key : keys) {
    ox_msg_data_t msg = dataRecord(key, 1);
    get(msg);
  }
  EXPECT_EQ(static_cast<int>(std::size(keys)), probe->counts.objects);
  for (const std::uint64_t key : keys) {
    ox_msg_data_t msg = dataRecord(key, 1);
    EXPECT_EQ(static_cast<jint>(key), getInt(get(msg), "getMsgIndex"));
  }
  EXPECT_EQ(static_cast<int>(std::size(keys)), probe->counts.objects);
}

}  // namespace

}  // namespace oxli::test
