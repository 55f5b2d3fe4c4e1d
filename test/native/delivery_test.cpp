#include <atomic>
#include <thread>

#include "jni/base/memory.h"
#include "jni/jenv/jenv.h"
#include "jni/listener.h"
#include "jni/oxjni.h"
#include "test/native/support/native_test.h"
#include "test/native/support/new_faults.h"
#include "test/native/support/records.h"

namespace oxli::test {

namespace {

using jni::ConnData;
using jni::fromHandle;
using jni::ListenerData;

class DeliveryTest : public NativeTest {
 protected:
  void SetUp() override {
    NativeTest::SetUp();
    openEnvironment();
    connection = newConnection();
    listener = newOpenListener(connection);
    EXPECT_EQ(OX_ERR_OK, process());  // the open message
    script.onMessage = [this](JNIEnv*, jobject) {
      ++messages;
      return 0;
    };
    script.getScheme = [this](JNIEnv* on) {
      ++schemes;
      return newScheme(on);
    };
  }

  // The probe does not count these calls as making an object.
  static jobject newScheme(JNIEnv* on) {
    const jclass cls = on->FindClass("org/quendel/oxli/Scheme");
    return on->NewObjectA(cls, on->GetMethodID(cls, "<init>", "()V"), nullptr);
  }
  jint process(jint timeout = 0) const {
    return OXLI(conn_1process)(env, nullptr, connection, timeout);
  }
  ox_listener_t* lsn() const { return fromHandle<ListenerData>(listener)->lsn; }
  void queue(const ox_msg_t& msg, std::size_t times = 1) const {
    ASSERT_TRUE(standin::deliver(lsn(), &msg, times));
  }
  jint deliver(const ox_msg_t& msg) const {
    queue(msg);
    return process();
  }
  // Expects a failure with a pending Error, and clears it. Returns what was written on standard
  // error.
  std::string failureOf(const std::function<jint()>& call) const {
    const std::string lines = standardError([&] { EXPECT_EQ(OX_ERR_INTERNAL, call()); });
    EXPECT_EQ("Error", clearException());
    return lines;
  }
  void reopen() const {
    EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1close)(env, nullptr, listener));
    EXPECT_EQ(nullptr, fromHandle<ListenerData>(listener)->jscheme.get());
    EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1open)(env, nullptr, listener, string("")));
  }

  jlong connection = 0;
  jlong listener = 0;
  int messages = 0;
  int schemes = 0;
  const ox_msg_t service = serviceRecord(OX_MSG_TN_BEGIN);
  ox_msg_data_t data = dataRecord(1, 1);
};

TEST_F(DeliveryTest, SchemeIsFetchedOncePerOpening) {
  EXPECT_EQ(OX_ERR_OK, deliver(service));
  // Without a publisher the gateway has no scheme; messages are delivered without one.
  EXPECT_EQ(OX_ERR_OK, deliver(data.head));
  EXPECT_EQ(0, schemes);

  newPublisher(connection);
  EXPECT_EQ(OX_ERR_OK, deliver(service));
  EXPECT_EQ(0, schemes);
  ox_msg_data_t error = dataRecord(1, 1);
  error.head.type = OX_MSG_PARSEERR;
  const ox_msg_streamdata_t row = rowRecord(1);
  const ox_msg_t* const messagesOfTheScheme[] = {&error.head, &data.head, &row.head, &data.head};
  for (const ox_msg_t* msg : messagesOfTheScheme) {
    EXPECT_EQ(OX_ERR_OK, deliver(*msg));
    EXPECT_EQ(1, schemes);
  }
  reopen();
  EXPECT_EQ(OX_ERR_OK, deliver(data.head));
  EXPECT_EQ(2, schemes);

  // A null scheme is fetched again.
  reopen();
  script.getScheme = [this](JNIEnv*) -> jobject { return ++schemes, nullptr; };
  deliver(data.head);
  deliver(data.head);
  EXPECT_EQ(4, schemes);

  script.getScheme = [this](JNIEnv*) -> jobject { return throwError(), nullptr; };
  const int before = messages;
  EXPECT_EQ(lineOf("cacheGet getScheme"), failureOf([&] { return deliver(data.head); }));
  EXPECT_EQ(before, messages);
}

TEST_F(DeliveryTest, EachOpeningMakesNewMessageObjects) {
  std::vector<jobject> objects;
  script.onMessage = [&](JNIEnv* on, jobject message) {
    objects.push_back(on->NewGlobalRef(message));
    return 0;
  };
  deliver(service);
  deliver(service);
  reopen();
  deliver(service);
  EXPECT_TRUE(env->IsSameObject(objects[0], objects[1]));
  EXPECT_FALSE(env->IsSameObject(objects[0], objects.back()));
  for (const jobject object : objects) env->DeleteGlobalRef(object);
}

TEST_F(DeliveryTest, ExceptionsStayPendingAndEndTheDelivery) {
  script.onMessage = [this](JNIEnv*, jobject) {
    throwError();
    return ++messages;
  };
  queue(service, 2);
  EXPECT_EQ("", failureOf([&] { return process(); }));
  EXPECT_EQ(1, messages);

  // An exception that is pending at entry stays pending, and no message is delivered.
  ListenerData& record = *fromHandle<ListenerData>(listener);
  const jni::GatewayCall call(record, env);
  throwError();
  ox_msg_t msg = service;
  EXPECT_EQ("", failureOf([&] { return ListenerCB(nullptr, lsn(), &msg, &record); }));
  EXPECT_EQ(1, messages);
}

TEST_F(DeliveryTest, CallsNoJavaOutsideGatewayCalls) {
  ox_msg_t msg = service;
  EXPECT_EQ(OX_ERR_INTERNAL, standin::deliverNow(lsn(), &msg));
  EXPECT_EQ(0, messages);
}

// Threads A and B are inside conn_process at the same time: A enters before B and returns before B.
// After both have returned, the record contains the JNIEnv of A.
TEST_F(DeliveryTest, OverlappingCallsDeliverWithTheJniEnvOfTheirThread) {
  ConnData& record = *fromHandle<ConnData>(connection);
  std::atomic<JNIEnv*> second{nullptr};
  std::thread a;
  std::thread b;
  const auto processing = [&](std::atomic<JNIEnv*>* own) {
    JNIEnv* mine = nullptr;
    virtualMachine()->AttachCurrentThread(reinterpret_cast<void**>(&mine), nullptr);
    if (own) *own = mine;
    EXPECT_EQ(OX_ERR_OK, OXLI(conn_1process)(mine, nullptr, connection, 60000));
    virtualMachine()->DetachCurrentThread();
  };
  const auto until = [](auto&& condition) {
    while (!condition()) std::this_thread::yield();
  };

  a = std::thread(processing, nullptr);
  until([&] { return record.env.load() != nullptr; });
  JNIEnv* const first = record.env.load();
  b = std::thread(processing, &second);
  until([&] { return second && record.env.load() == second.load(); });

  std::vector<JNIEnv*> deliveredOn;
  script.onMessage = [&](JNIEnv* on, jobject) {
    deliveredOn.push_back(on);
    return 0;
  };
  queue(service);
  a.join();
  EXPECT_EQ(second.load(), record.env.load());
  queue(service);
  b.join();
  EXPECT_EQ((std::vector<JNIEnv*>{first, second}), deliveredOn);

  // The record still contains a JNIEnv, although no thread is inside a call.
  ASSERT_EQ(first, record.env.load());
  ox_msg_t msg = service;
  EXPECT_EQ(OX_ERR_INTERNAL, standin::deliverNow(lsn(), &msg));
  EXPECT_EQ(2u, deliveredOn.size());
  record.env = nullptr;
  // The global reference to the message object was made on a thread without a probe, so the probe
  // did not count it.
  globalsLeft = -1;
}

TEST_F(DeliveryTest, NestedGatewayCallsRestoreTheJniEnv) {
  const ConnData& record = *fromHandle<ConnData>(connection);
  const ListenerData& bound = *fromHandle<ListenerData>(listener);
  script.onMessage = [&](JNIEnv* on, jobject) {
    EXPECT_EQ(OX_ERR_OK, OXLI(conn_1getstate)(on, nullptr, connection, intRef()));
    EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1getstate)(on, nullptr, listener, intRef()));
    EXPECT_EQ(on, record.env.load());
    EXPECT_EQ(nullptr, bound.env.load());
    return 0;
  };
  EXPECT_EQ(OX_ERR_OK, deliver(service));
  EXPECT_EQ(nullptr, record.env.load());
  // While lsn_close delivers, the listener's record contains the JNIEnv, and the connection's null.
  script.onMessage = [&](JNIEnv* on, jobject) {
    ++messages;
    EXPECT_EQ(on, bound.env.load());
    EXPECT_EQ(nullptr, record.env.load());
    return 0;
  };
  EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1close)(env, nullptr, listener));
  EXPECT_EQ(1, messages);
}

// Counts the JNI calls of a post, and of the delivery of a message whose kind has been delivered
// before. `exceptionTests` are the exception checks among them; "+ 1" is the check at the entry of
// each delivery.
TEST_F(DeliveryTest, EachMessageMakesAFixedNumberOfJniCalls) {
  const jlong publisher = newPublisher(connection);
  const jobject outgoing = newMessage(publisher, "m");
  std::int64_t payload = 0;
  const std::uint8_t nulls[] = {1};
  ox_msg_data_t message = dataRecord(1, 1, &payload, sizeof payload);
  ox_msg_streamdata_t row = rowRecord(1, nulls, 1);
  row.head.data = &payload;
  row.head.data_size = sizeof payload;
  const auto delivering = [&](const ox_msg_t& msg) {
    return [&] { EXPECT_EQ(OX_ERR_OK, deliver(msg)); };
  };
  const struct {
    const char* name;
    std::function<void()> run;
    int exceptionTests;
    int otherCalls;
  } cases[] = {
      {"data", delivering(message.head), 5 + 1, 9},
      {"row", delivering(row.head), 7 + 1, 10},
      {"service", delivering(service), 3 + 1, 3},
      {"post", [&] { EXPECT_EQ(OX_ERR_OK, OXLI(pub_1post)(env, nullptr, publisher, outgoing, 0)); },
       4, 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    c.run();
    const JniProbe::Counts before = probe->counts;
    c.run();
    const JniProbe::Counts& after = probe->counts;
    EXPECT_EQ(c.exceptionTests, after.exceptionTests - before.exceptionTests);
    EXPECT_EQ(c.otherCalls + c.exceptionTests, after.calls - before.calls);
    EXPECT_EQ(before.locals, after.locals);
    EXPECT_EQ(before.globals, after.globals);
  }
}

TEST_F(DeliveryTest, PayloadsLargerThanAJavaBufferAreRefused) {
  char payload[8] = {};
  data = dataRecord(1, 1, payload, 0x100000008);
  messages = 0;
  for (const char* const step : {"Apply set data", "ApplyDataPartial set data"}) {
    EXPECT_EQ(lineOf(step), standardError([&] { EXPECT_EQ(OX_ERR_INTERNAL, deliver(data.head)); }));
  }
  EXPECT_EQ(0, messages);
}

TEST_F(DeliveryTest, SubscriberMayDestroyListenersAndConnection) {
  const jlong other = newOpenListener(connection);
  EXPECT_EQ(OX_ERR_OK, process());

  // The subscriber destroys the other listener, then its own. Their queued messages are discarded.
  queue(service, 3);
  standin::deliver(fromHandle<ListenerData>(other)->lsn, &service);
  messages = 0;
  script.onMessage = [&](JNIEnv* on, jobject) {
    script.onMessage = nullptr;
    ++messages;
    EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1destroy)(on, nullptr, other));
    ListenerData* const record = fromHandle<ListenerData>(listener);
    ox_listener_t* const destroyed = record->lsn;
    EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1destroy)(on, nullptr, listener));
    EXPECT_TRUE(ListenerData::sLsnMap.empty());
    // A gateway may continue its batch after the listener is destroyed: the message is refused.
    ox_msg_t rest = service;
    EXPECT_EQ(OX_ERR_INTERNAL, ListenerCB(nullptr, destroyed, &rest, record));
    return 0;
  };
  EXPECT_EQ(OX_ERR_OK, process());
  EXPECT_EQ(1, messages);

  // The subscriber destroys the connection while a listener of it exists.
  listener = newOpenListener(connection);
  script.onMessage = [&](JNIEnv* on, jobject) {
    script.onMessage = nullptr;
    EXPECT_EQ(OX_ERR_OK, OXLI(conn_1destroy)(on, nullptr, connection));
    EXPECT_TRUE(ConnData::sConnDataMap.empty());
    return 43;
  };
  EXPECT_EQ(43, process());
  // conn_destroy destroyed the gateway listener; lsn_destroy still releases the record.
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, OXLI(lsn_1destroy)(env, nullptr, listener));
}

// Records of destroyed listeners are freed when no call on the connection is in progress.
TEST_F(DeliveryTest, DestroyedRecordsAreFreedAfterTheCall) {
  long before = 0;
  for (int round = 0; round < 100; ++round) {
    if (round == 10) before = liveAllocations();
    ASSERT_EQ(0, env->PushLocalFrame(64));
    const jlong other = newOpenListener(connection);
    script.onMessage = [other](JNIEnv* on, jobject) {
      return OXLI(lsn_1destroy)(on, nullptr, other);
    };
    EXPECT_EQ(OX_ERR_OK, process());
    standin::clearCalls();
    env->PopLocalFrame(nullptr);
  }
  // If each of the 90 rounds leaked one allocation, the difference would be 90.
  EXPECT_LT(liveAllocations() - before, 45);
}

TEST_F(DeliveryTest, CallbackMayDestroyTheListenerOfTheGatewayCall) {
  const auto destroy = [&](JNIEnv* on, jobject) {
    script.onMessage = nullptr;
    ++messages;
    OXLI(lsn_1destroy)(on, nullptr, listener);
    EXPECT_TRUE(ListenerData::sLsnMap.empty());
    return 0;
  };
  script.onMessage = destroy;
  OXLI(lsn_1close)(env, nullptr, listener);
  EXPECT_EQ(1, messages);

  listener = newOpenListener(connection);
  script.onMessage = destroy;
  OXLI(lsn_1destroy)(env, nullptr, listener);
  EXPECT_EQ(2, messages);

  // The callback destroys the listener, and the gateway assigns the handle to a new one.
  listener = newOpenListener(connection);
  ox_listener_t* const handle = lsn();
  ListenerData successor;
  script.onMessage = [&](JNIEnv* on, jobject message) {
    const jint result = destroy(on, message);
    ListenerData::sLsnMap[handle] = &successor;
    return result;
  };
  OXLI(lsn_1destroy)(env, nullptr, listener);
  EXPECT_EQ(&successor, ListenerData::sLsnMap[handle]);
  EXPECT_FALSE(successor.retired);
  ListenerData::sLsnMap.clear();

  listener = newOpenListener(connection);
  newPublisher(connection);
  script.onMessage = nullptr;
  process();
  script.getScheme = [&](JNIEnv* on) -> jobject {
    OXLI(lsn_1destroy)(on, nullptr, listener);
    return newScheme(on);
  };
  EXPECT_EQ(OX_ERR_INTERNAL, deliver(data.head));
}

TEST_F(DeliveryTest, ListenerWithoutSubscriberRefusesEachMessage) {
  newPublisher(connection);
  const jobject ref = objRef();
  EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1new)(env, nullptr, connection, string("stream=s"), nullptr, ref,
                                      nullptr, scripted("ScriptedListener")));
  listener = getLong(ref, "getRef");
  EXPECT_EQ(OX_ERR_OK, OXLI(lsn_1open)(env, nullptr, listener, string("")));
  EXPECT_EQ(OX_ERR_INTERNAL, process());
  const int objects = probe->counts.objects;
  EXPECT_EQ(OX_ERR_INTERNAL, deliver(data.head));
  // The refusal comes after the scheme has been fetched and the message object made.
  EXPECT_EQ(1, schemes);
  EXPECT_EQ(objects + 1, probe->counts.objects);
}

// FaultSweepTest fails the gateway calls of most natives.
TEST_F(DeliveryTest, FailuresToCloseAndToGetTheSchemeAreReturned) {
  standin::failNext("ox_lsn_close", 0x2abcd);
  EXPECT_EQ(0x2abcd, OXLI(lsn_1close)(env, nullptr, listener));
  standin::failNext("ox_lsn_getscheme", 0x2abcd);
  EXPECT_EQ(0x2abcd, OXLI(lsn_1newscheme)(env, nullptr, listener, objRef()));
}

TEST_F(DeliveryTest, OpenReleasesTheSettingsAfterTheGatewayCall) {
  OXLI(conn_1close)(env, nullptr, connection);
  bool released = false;
  probe->onRelease = [&] {
    released = true;
    EXPECT_EQ(nullptr, fromHandle<ConnData>(connection)->env.load());
  };
  EXPECT_EQ(OX_ERR_OK, OXLI(conn_1open)(env, nullptr, connection, string("")));
  EXPECT_TRUE(released);
  probe->onRelease = nullptr;
}

}  // namespace

}  // namespace oxli::test
