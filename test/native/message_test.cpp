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

// Gets each message with its payload, and again without.
TEST_F(MessageTest, EachTypeHasAClassThatReadsItsPayload) {
  std::int32_t code = -9;
  std::int64_t time = -1;
  ox_data_lifenum_t life = {0xffffffff, 0x80000000};
  ox_data_cleardeleted_t clear = {3, -0x123456789};
  char state[] = "rev=1";
  const struct {
    std::uint32_t type;
    void* payload;
    const char* string;
    const char* withoutPayload;  // the same string if null
    const char* line;            // that reports the missing payload
  } cases[] = {
      {OX_MSG_OPEN, &code, "OpenMessage", nullptr, ""},
      {OX_MSG_CLOSE, &code, "CloseMessage, reason -9", "CloseMessage, reason CLOSED_BY_OWNER",
       "error: msg->data is NULL for OX_MSG_CLOSE message\n"},
      {OX_MSG_TIME, &time, "TimeMessage, time -1", nullptr,
       "ERROR. msg->data is NULL for OX_MSG_TIME message\n"},
      {OX_MSG_DATA, &code, "DataMessage quote, user id -2, address to", nullptr, ""},
      {OX_MSG_STREAM_DATA, &code, "StreamDataMessage row, revision -5, user id 4886718345", nullptr,
       ""},
      {OX_MSG_PARSEERR, &code, "ParseErrorMessage quote, user id -2, address to, error 0xfffffff7",
       "ParseErrorMessage quote, user id -2, address to, error 0x0",
       "error: msg->data is NULL for OX_MSG_PARSEERR message\n"},
      {OX_MSG_TN_BEGIN, &code, "TnBeginMessage", nullptr, ""},
      {OX_MSG_TN_COMMIT, &code, "TnCommitMessage", nullptr, ""},
      {OX_MSG_ZRMQ_TIMEOUT, &code, "ZrMqTimeOutMessage, user id -2", nullptr, ""},
      {OX_MSG_ZRREPL_LIFENUM, &life, "ZrReplLifeNumMessage, life number 4294967295", nullptr,
       "error: msg->data is NULL for OX_MSG_ZRREPL_LIFENUM message\n"},
      {OX_MSG_ZRREPL_CLEARDELETED, &clear,
       "ZrReplClearDeletedMessage, table 3, revision -4886718345", nullptr,
       "error: msg->data is NULL for OX_MSG_ZRREPL_CLEARDELETED message\n"},
      {OX_MSG_ZRREPL_ONLINE, &code, "ZrReplOnlineMessage", nullptr, ""},
      {OX_MSG_ZRREPL_STATE, state, "ZrReplStateMessage, state rev=1",
       "ZrReplStateMessage, state null", ""},
      {0x300, &code, "Message of type 0x300", nullptr, ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.string);
    ox_msg_data_t data = dataRecord(5, 6);
    ox_msg_streamdata_t row = rowRecord(5);
    ox_msg_t& head = c.type == OX_MSG_STREAM_DATA ? row.head : data.head;
    head = serviceRecord(c.type, c.payload, 4);
    const jobject object = get(head);
    EXPECT_EQ(c.string, getString(object, "toString"));
    EXPECT_EQ(static_cast<jint>(c.type), getInt(object, "getType"));
    EXPECT_EQ(toHandle(&head), getLong(object, "getRef"));
    EXPECT_TRUE(c.payload != &life || getLong(object, "getFlags") == 2147483648);

    head.data = nullptr;
    standin::clearCalls();
    std::string lines = standardError([&] {
      const jni::CachedMessage again = cache.get(env, &head, nullptr, nullptr);
      EXPECT_TRUE(again.complete && again.object == object);
    });
    for (const std::string& line : standin::logLines()) lines += line;
    EXPECT_EQ(c.line, lines);
    EXPECT_EQ(c.withoutPayload ? c.withoutPayload : c.string, getString(object, "toString"));
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

TEST_F(MessageTest, SecondMessageOfAKeyUpdatesTheObject) {
  ox_msg_data_t msg = dataRecord(0x100000005, 0x80000000);
  const jobject first = get(msg);
  ox_msg_data_t next = dataRecord(0x100000005, 9);
  next.msg_name = "other";
  next.user_id = 1;
  next.addr = nullptr;
  EXPECT_EQ(first, get(next));
  EXPECT_EQ("DataMessage quote, user id 1", getString(first, "toString"));
  EXPECT_EQ(5, getInt(first, "getMsgIndex"));
  EXPECT_EQ(INT32_MIN, getInt(first, "getMsgId"));
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
  EXPECT_EQ(2, probe->counts.objects);

  ox_msg_streamdata_t next = rowRecord(1, nulls + 1, 2);
  get(next);
  jboolean flags[2];
  env->GetBooleanArrayRegion(map, 0, 2, flags);
  EXPECT_EQ(0, std::memcmp(nulls + 1, flags, 2));
  EXPECT_EQ(2, probe->counts.objects);

  ox_msg_streamdata_t without = rowRecord(1);
  get(without);
  EXPECT_TRUE(env->IsSameObject(map, getObject(object, "getNulls", "()[Z")));
  env->GetBooleanArrayRegion(map, 0, 2, flags);
  EXPECT_EQ(0, flags[0] | flags[1]);

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
