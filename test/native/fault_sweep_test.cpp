#include <functional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "jni/base/memory.h"
#include "jni/connection.h"
#include "jni/listener.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_ex_impl_OxliImplEx.h"
#include "test/native/support/native_test.h"
#include "test/native/support/new_faults.h"
#include "test/native/support/records.h"

namespace oxli::test {

namespace {

using jni::fromHandle;
using jni::ListenerData;
using jni::toHandle;
using Action = std::function<void()>;

constexpr char kScheme[] = "scheme=?{messages=m;message.m=?{id=7;fields=f:i4}}";
constexpr char kWholeScheme[] =
    "scheme=?{messages=n,m;message.n=?{fields=g:i1};message.m=?{fields=f:i4,x:m;hints=?{a=1};"
    "indices=k;index.k=?{fields=f};field.f=?{values=?{one=1}};field.x=?{message=n}}}";

struct Scenario {
  std::string name;
  std::function<jint()> run;  // returns a result code
  Action prepare;
  jint gatewayFailure;          // the result if a gateway call returns kFailure
  Action after = {};            // runs after each run
  int silent = 0;               // number of calls that write no line if they throw
  int silentNull = 0;           // number of calls that write no line if they return null
  bool succeedsAnyway = false;  // returns success although a call has thrown
  int lines = 1;                // maximum number of lines of one failure, with enclosing steps
  int leaving = 0;      // number of calls that leave the new object registered if they throw
  int leavingNull = 0;  // number of calls that do so if they return null
  int globalsLeft = 0;  // global references that stay if storing the handle throws
};

constexpr jint kFailure = 0x2abcd;

// Deletes the local references of one run at the end of the scope.
class Frame {
 public:
  explicit Frame(JNIEnv* env) : env_(env) { env_->PushLocalFrame(256); }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;
  ~Frame() { env_->PopLocalFrame(nullptr); }

 private:
  JNIEnv* env_;
};

// Fails each JNI call, each gateway call and each allocation of each scenario in turn.
class FaultSweepTest : public NativeTest {
 protected:
  void SetUp() override {
    NativeTest::SetUp();
    openEnvironment();
    error.head.type = OX_MSG_PARSEERR;
    timeout.head.type = OX_MSG_ZRMQ_TIMEOUT;
    empty = string("");
    type = string("i4");
    streamSettings = string("stream=s");
    buffer = env->NewDirectByteBuffer(bytes, sizeof bytes);
    ref = objRef();
    state = intRef();
    jconn = make("org/quendel/oxli/Connection", "(J)V", jlong{0});
    jpub = make("org/quendel/oxli/Publisher", "(J)V", jlong{0});
    jlsn = scripted("ScriptedListener");
    subscriber = scripted("ScriptedSubscriber");
    jscheme = env->NewGlobalRef(make("org/quendel/oxli/Scheme"));
    out = newArray();

    connection = newConnection();
    publisher = newPublisher(connection, (std::string("stream=s;") + kScheme).c_str());
    replica = newPublisher(connection, (std::string("stream=r;mode=replica;") + kScheme).c_str());
    wholeScheme = newPublisher(connection, (std::string("stream=w;") + kWholeScheme).c_str());
    script.getScheme = [this](JNIEnv* on) { return on->NewLocalRef(jscheme); };
    native.conn = fromHandle<jni::ConnData>(connection)->conn;
    ox_conn_new("", &native.wrapped);
    ox_lsn_new(native.conn, "", &ListenerCB, nullptr, &native.lsn);
    ox_pub_new(native.conn, "", &native.pub);
    kept = {native.conn, toPublisher(publisher), toPublisher(replica), toPublisher(wholeScheme)};
    addPassthroughScenarios();
    addConnectionScenarios();
    addListenerScenarios();
    addPublisherScenarios();
    addOutgoingMessageScenarios();
    addDeliveryScenarios();
    addSchemeScenarios();
    addZBlockScenarios();
  }
  void TearDown() override {
    ox_conn_destroy(native.wrapped);
    ox_lsn_destroy(native.lsn);
    ox_pub_destroy(native.pub);
    env->DeleteGlobalRef(jscheme);
    NativeTest::TearDown();
  }

  // `run` returns a result code, or an object that is null after a failure.
  template <class Run>
  Scenario& add(const std::string& name, Run run, Action prepare = {}) {
    constexpr bool kReturnsObject = std::is_pointer_v<decltype(run())>;
    const auto code = [run]() -> jint {
      if constexpr (kReturnsObject) {
        return run() ? OX_ERR_OK : OX_ERR_INTERNAL;
      } else {
        return run();
      }
    };
    return scenarios.emplace_back(
        Scenario{name, code, std::move(prepare), kReturnsObject ? OX_ERR_INTERNAL : kFailure});
  }

  void addPassthroughScenarios() {
    add("getstr", [this] { return OXLI(getstr)(env, nullptr, type, buffer); });
    add("err_getstr", [this] { return OXLI(err_1getstr)(env, nullptr, 0); });
    add("log_infostr", [this] { return OXLI(log_1infostr)(env, nullptr, type); });
    add("bcd_get", [this] { return OXLI(bcd_1get)(env, nullptr, buffer); });
    add("settings_parse", [this] {
      return Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse(env, nullptr, streamSettings);
    });
  }

  void addConnectionScenarios() {
    const auto closeConnection = [this] { return OXLI(conn_1close)(env, nullptr, connection); };
    add("conn_new", [this] { return OXLI(conn_1new)(env, nullptr, empty, ref, jconn); }).leaving =
        1;
    add(
        "conn_open", [this] { return OXLI(conn_1open)(env, nullptr, connection, empty); },
        closeConnection);
    add("conn_close", closeConnection);
    add("conn_process", [this] { return OXLI(conn_1process)(env, nullptr, connection, 0); });
    add("conn_getstate", [this] { return OXLI(conn_1getstate)(env, nullptr, connection, state); });
    add("conn_wrap", [this] { return oxjni_conn_wrap(env, native.wrapped); }).silentNull = 1;
  }

  void addListenerScenarios() {
    const auto create = [this] { listener = newListener(connection); };
    const auto createOpen = [this] { listener = newOpenListener(connection); };
    // The record stays the gateway's callback data if its handle could not be stored.
    Scenario& lsnNew = add("lsn_new", [this] {
      return OXLI(lsn_1new)(env, nullptr, connection, streamSettings, subscriber, ref, jconn, jlsn);
    });
    lsnNew.leaving = 1;
    lsnNew.globalsLeft = 3;
    add(
        "lsn_open", [this] { return OXLI(lsn_1open)(env, nullptr, listener, empty); }, create);
    add(
        "lsn_getstate", [this] { return OXLI(lsn_1getstate)(env, nullptr, listener, state); },
        create);
    add(
        "lsn_getscheme", [this] { return OXLI(lsn_1getscheme)(env, nullptr, listener, ref); },
        createOpen);
    add("lsn_wrap", [this] {
      void* record = nullptr;
      return oxjni_lsn_wrap(env, native.conn, native.lsn, &record);
    }).silentNull = 1;
  }

  void addPublisherScenarios() {
    add("pub_new", [this] {
      return OXLI(pub_1new)(env, nullptr, connection, empty, ref, jpub);
    }).leaving = 1;
    add(
        "pub_open", [this] { return OXLI(pub_1open)(env, nullptr, publisher, empty); },
        [this] { return OXLI(pub_1close)(env, nullptr, publisher); });
    add("pub_close", [this] { return OXLI(pub_1close)(env, nullptr, publisher); });
    add("pub_getstate", [this] { return OXLI(pub_1getstate)(env, nullptr, publisher, state); });
    add("pub_getscheme", [this] { return OXLI(pub_1getscheme)(env, nullptr, publisher, ref); });
    add("pub_wrap", [this] { return oxjni_pub_wrap(env, native.pub); }).silentNull = 1;
  }

  void addOutgoingMessageScenarios() {
    const struct {
      const char* name;
      jlong on;
      jint keyType;
      jobject key;
    } keys[] = {{"pub_msgnew name", publisher, OX_KEY_NAME, string("m")},
                {"pub_msgnew id", publisher, OX_KEY_ID, make("java/lang/Integer", "(I)V", jint{7})},
                {"pub_msgnew row", replica, OX_KEY_NAME, string("m")}};
    for (const auto& k : keys) {
      // A failure to fill the object also fails the step after it.
      add(k.name, [this, k] {
        return OXLI(pub_1msgnew)(env, nullptr, k.on, k.keyType, k.key, nullptr, out);
      }).lines = 2;
    }

    const auto dataMessage = [this] {
      message = newMessage(publisher, "m");
      disposed = getLong(message, "getRef");
      reference = newMessage(publisher, "m");
      set(message, "setAddress", "(Ljava/lang/String;)V", type);
      set(message, "setRefMessage", "(Lorg/quendel/oxli/messages/DataMessage;)V", reference);
    };
    const auto rowMessage = [this] { message = newMessage(replica, "m"); };
    const std::pair<jlong, Action> kinds[] = {{publisher, dataMessage}, {replica, rowMessage}};
    for (const auto& [on, prepare] : kinds) {
      add(
          "pub_post", [this, on = on] { return OXLI(pub_1post)(env, nullptr, on, message, 0); },
          prepare)
          .succeedsAnyway = true;
      // A failed NewByteArray writes no line.
      Scenario& dump = add(
          "msg_dump", [this] { return OXLI(msg_1dump)(env, nullptr, message, 0); }, prepare);
      dump.silent = dump.silentNull = 1;
    }
    add(
        "pub_msgdispose",
        [this] {
          const jint result = OXLI(pub_1msgdispose)(env, nullptr, publisher, disposed, message);
          if (result == OX_ERR_OK) message = nullptr;
          return result;
        },
        dataMessage);
  }

  void addDeliveryScenarios() {
    ox_msg_t* const records[] = {&open,      &close,        &time,      &life,       &clear,
                                 &replState, &timeout.head, &data.head, &error.head, &row.head};
    for (ox_msg_t* const record : records) {
      const auto queue = [this, record] {
        standin::deliver(fromHandle<ListenerData>(listener)->lsn, record);
      };
      const auto process = [this] { return OXLI(conn_1process)(env, nullptr, connection, 0); };
      const auto first = [=] {
        listener = newOpenListener(connection);
        process();
        queue();
      };
      const auto again = [=] {
        first();
        process();
        queue();
      };
      for (const auto& prepare : {Action(first), Action(again)}) {
        Scenario& scenario = add("deliver type " + std::to_string(record->type), process, prepare);
        // Exceptions of onMessage write no line, nor do those of reading and filling a null map.
        scenario.silent = record == &row.head ? 3 : 1;
        scenario.after = [=] {
          queue();
          EXPECT_EQ(OX_ERR_OK, process());
        };
      }
    }
  }

  void addSchemeScenarios() {
    filled = make("org/quendel/oxli/Scheme");
    OXLI(pub_1newscheme)(env, nullptr, wholeScheme, filled);
    const jstring whole = string(getString(filled, "toString").c_str());
    const jmethodID toString =
        env->GetMethodID(env->GetObjectClass(filled), "toString", "()Ljava/lang/String;");
    const jmethodID equals =
        env->GetMethodID(env->GetObjectClass(whole), "equals", "(Ljava/lang/Object;)Z");
    const auto renew = [this] { filled = make("org/quendel/oxli/Scheme"); };
    const auto convert = [=]() -> jint {
      const jint result = OXLI(pub_1newscheme)(env, nullptr, wholeScheme, filled);
      if (result != OX_ERR_OK) return result;
      if (env->ExceptionCheck()) return OX_ERR_INTERNAL;
      // Compares through JNI functions that are not hooked, and allocates nothing.
      jvalue argument = {};
      argument.l = env->CallObjectMethodA(filled, toString, nullptr);
      if (env->ExceptionCheck()) return OX_ERR_INTERNAL;
      const bool equal = env->CallBooleanMethodA(whole, equals, &argument);
      return equal && !env->ExceptionCheck() ? OX_ERR_OK : OX_ERR_INTERNAL;
    };
    // A failure in a nested message writes a line for it, for its message and for the scheme.
    add("pub_newscheme", convert, renew).lines = 3;
    // No line for: reserving references, making the array, and making and storing key and value.
    Scenario& hints = add("getHints", [this] { return getHints(env, &hint); });
    hints.silent = 6;
    hints.silentNull = 3;
  }

  void addZBlockScenarios() {
    const auto renew = [this] { zblock = make("org/quendel/oxli/ZBlock", "(J)V", jlong{0}); };
    const auto wrap = [this] {
      OXLI(zblock_1wrap)(env, nullptr, buffer, zblock, zblock, 0);
      return env->ExceptionCheck() ? nullptr : dataOf(env, zblock);
    };
    const auto wrapped = [this, renew] {
      renew();
      OXLI(zblock_1wrap)(env, nullptr, buffer, zblock, zblock, 1);
      set(zblock, "setData", "(Ljava/nio/ByteBuffer;)V", nullptr);
      bound = getLong(zblock, "getRef");
    };
    add(
        "zblock_new", [this] { return OXLI(zblock_1new)(env, nullptr, zblock, buffer, zblock); },
        renew)
        .leaving = 1;
    Scenario& first = add("zblock_wrap", wrap, renew);
    first.leaving = 2;
    first.leavingNull = 1;
    Scenario& again = add("zblock_wrap again", wrap, wrapped);
    again.leaving = again.leavingNull = 2;
    add(
        "zblock_rebind", [this] { return OXLI(zblock_1rebind)(env, nullptr, buffer, bound); },
        wrapped);
  }

  static void* toPublisher(jlong handle) { return fromHandle<ox_publisher_t>(handle); }

  // The numbers of global references, acquired characters and arrays, and gateway objects.
  using Balance = std::vector<std::size_t>;
  Balance balance() const {
    return {static_cast<std::size_t>(probe->counts.globals),
            static_cast<std::size_t>(probe->counts.acquired), standin::liveObjects()};
  }

  // Calls `body`, which runs the scenario, after its preparation, and undoes what the run has done.
  void prepared(const Scenario& scenario, const Action& body) {
    const Frame frame(env);
    if (scenario.prepare) scenario.prepare();
    body();
    if (scenario.after) scenario.after();

    for (const jobject made : {message, reference, env->GetObjectArrayElement(out, 0)}) {
      for (const jlong on : {publisher, replica}) {
        if (made) OXLI(pub_1msgdispose)(env, nullptr, on, getLong(made, "getRef"), made);
      }
    }
    env->SetObjectArrayElement(out, 0, nullptr);
    if (zblock) OXLI(zblock_1destroy)(env, nullptr, getLong(zblock, "getRef"));
    message = reference = zblock = nullptr;
    oxjni_conn_unwrap(env, native.wrapped);
    oxjni_lsn_unwrap(env, native.lsn);
    oxjni_pub_unwrap(env, native.pub);
    destroyRegistered(kept);
    OXLI(conn_1open)(env, nullptr, connection, empty);
    for (const jlong each : {publisher, replica, wholeScheme}) {
      OXLI(pub_1open)(env, nullptr, each, empty);
    }
  }

  // Makes each gateway call return kFailure in turn. Then, in further runs, leaves an exception
  // pending in each gateway call in turn, as a callback may.
  void failEachGatewayCall(const Scenario& scenario) {
    std::set<std::string> functions;
    bool stores = false;  // in an out-parameter
    const auto isUnchanged = [this] {
      return getLong(ref, "getRef") == 77 && getInt(state, "get") == 77;
    };
    const auto setOutParams = [this] {
      set(ref, "set", "(J)V", jlong{77});
      set(state, "set", "(I)V", jint{77});
    };
    prepared(scenario, [&] {
      setOutParams();
      standin::clearCalls();
      EXPECT_EQ(OX_ERR_OK, scenario.run());
      for (const auto& line : standin::calls()) functions.insert(line.substr(0, line.find(' ')));
      stores = !isUnchanged();
    });
    // A delivery succeeds even if ox_lsn_getscheme fails: the message then has no scheme.
    if (scenario.after) return;
    for (const std::string& function : functions) {
      SCOPED_TRACE(function);
      prepared(scenario, [&] {
        setOutParams();
        const Balance before = balance();
        standin::failNext(function.c_str(), kFailure);
        EXPECT_EQ(scenario.gatewayFailure, scenario.run());
        EXPECT_EQ(before, balance());
        EXPECT_TRUE(isUnchanged());
      });
      // The gateway calls of natives that return an object make no callback.
      if (scenario.gatewayFailure != kFailure) continue;
      prepared(scenario, [&] {
        const Balance before = balance();
        standin::runDuringNext(function.c_str(), [this] { throwError(); });
        jint result = OX_ERR_OK;
        const std::string lines = standardError([&] { result = scenario.run(); });
        EXPECT_EQ(result == OX_ERR_OK, lines.empty());
        EXPECT_TRUE(!stores || result != OX_ERR_OK);
        EXPECT_TRUE(result == OX_ERR_OK || before == balance());
        EXPECT_EQ("Error", clearException());
      });
    }
  }

  void failEachJniCall(const Scenario& scenario, JniProbe::Fault fault) {
    SCOPED_TRACE(fault == JniProbe::Fault::kThrows ? "throws" : "returns null");
    const bool throws = fault == JniProbe::Fault::kThrows;
    Balance expected = balance();
    if (throws && scenario.globalsLeft > 0) {
      expected[0] += static_cast<std::size_t>(scenario.globalsLeft);
      expected[2] += 1;
      globalsLeft += scenario.globalsLeft;
    }
    int silent = 0;
    int leaving = 0;
    bool failed = true;
    for (int call = 1; failed; ++call) {
      std::string lines;
      prepared(scenario, [&] {
        const Balance before = balance();
        jint result = OX_ERR_OK;
        lines = standardError([&] {
          probe->failAt(call, fault);
          result = scenario.run();
          failed = probe->disarm();
        });
        clearException();
        SCOPED_TRACE(lines);
        EXPECT_TRUE((result == OX_ERR_OK) == !failed || (scenario.succeedsAnyway && throws));
        leaving += result != OX_ERR_OK && before != balance() ? 1 : 0;
      });
      if (lines.empty()) silent += failed ? 1 : 0;
      EXPECT_GE(scenario.lines, countLines(lines));
    }
    EXPECT_EQ(throws ? scenario.silent : scenario.silentNull, silent);
    // A delivery caches objects.
    EXPECT_TRUE(scenario.after || (throws ? scenario.leaving : scenario.leavingNull) == leaving)
        << leaving;
    EXPECT_EQ(expected, balance());
  }

  // Returns the number of lines, and adds their steps to `seen`.
  int countLines(const std::string& lines) {
    const std::string start = "\nJNI Exception at ";
    int count = 0;
    for (std::size_t from = 0; from < lines.size(); ++count) {
      const std::size_t end = lines.find("\n\n", from + start.size());
      if (lines.find(start, from) != from || end == std::string::npos) {
        ADD_FAILURE() << lines;
        break;
      }
      seen.insert(lines.substr(from + start.size(), end - from - start.size()));
      from = end + 2;
    }
    return count;
  }

  void failEachAllocation(const Scenario& scenario) {
    const Balance expected = balance();
    int n = 0;
    for (bool failed = true; failed;) {
      prepared(scenario, [&] {
        const Balance before = balance();
        failAllocationAt(++n);
        const jint result = scenario.run();
        failed = disarmAllocations();
        EXPECT_EQ(failed, result != OX_ERR_OK);
        EXPECT_TRUE(!failed || scenario.after || before == balance());
        EXPECT_EQ("", clearException());
      });
    }
    EXPECT_EQ(expected, balance());
  }

  std::set<std::string> seen;
  std::vector<Scenario> scenarios;
  std::set<const void*> kept;  // what the scenarios share
  jlong connection = 0;
  jlong publisher = 0;
  jlong replica = 0;
  jlong wholeScheme = 0;
  jlong bound = 0;
  jlong listener = 0;
  jobject message = nullptr;
  jobject reference = nullptr;
  jobject filled = nullptr;
  jobject zblock = nullptr;
  jlong disposed = 0;
  struct {
    ox_conn_t* conn = nullptr;
    ox_conn_t* wrapped = nullptr;
    ox_listener_t* lsn = nullptr;
    ox_publisher_t* pub = nullptr;
  } native;

  // Java arguments that all scenarios share. SetUp makes them before any fault.
  unsigned char bytes[16] = {};
  jstring empty = nullptr, type = nullptr, streamSettings = nullptr;
  jobject buffer = nullptr, ref = nullptr, state = nullptr, jconn = nullptr, jlsn = nullptr,
          jpub = nullptr, jscheme = nullptr, subscriber = nullptr;
  jobjectArray out = nullptr;

  std::int64_t payload = 1;
  ox_data_lifenum_t lifePayload = {1, 2};
  ox_data_cleardeleted_t clearPayload = {1, 2};
  char statePayload[2] = "s";
  const std::uint8_t nulls[1] = {1};
  ox_msg_t open = serviceRecord(OX_MSG_OPEN);
  ox_msg_t close = serviceRecord(OX_MSG_CLOSE, &payload, 4);
  ox_msg_t time = serviceRecord(OX_MSG_TIME, &payload, 8);
  ox_msg_t life = serviceRecord(OX_MSG_ZRREPL_LIFENUM, &lifePayload, sizeof lifePayload);
  ox_msg_t clear = serviceRecord(OX_MSG_ZRREPL_CLEARDELETED, &clearPayload, sizeof clearPayload);
  ox_msg_t replState = serviceRecord(OX_MSG_ZRREPL_STATE, statePayload, sizeof statePayload);
  ox_msg_data_t timeout = dataRecord(1, 1);
  ox_msg_data_t data = dataRecord(1, 1, &payload, 8);
  ox_msg_data_t error = dataRecord(1, 1, &payload, 4);
  ox_msg_streamdata_t row = rowRecord(2, nulls, 1);
  const ox_hint_t hint = {nullptr, "key", "value"};
};

TEST_F(FaultSweepTest, EachFailureOfACallWritesItsLinesAndLeaksNothing) {
  for (const Scenario& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    failEachGatewayCall(scenario);
    failEachJniCall(scenario, JniProbe::Fault::kThrows);
    failEachJniCall(scenario, JniProbe::Fault::kReturnsNull);
  }
  const std::vector<std::string> steps = linesOf(OXLI_TEST_STEPS);
  EXPECT_EQ(std::set<std::string>(steps.begin(), steps.end()), seen);
}

TEST_F(FaultSweepTest, EachAllocationFailureLeaksNothing) {
  standin::recordCalls(false);
  for (const Scenario& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    prepared(scenario, [&] { EXPECT_EQ(OX_ERR_OK, scenario.run()); });
    failEachAllocation(scenario);
  }
}

}  // namespace

}  // namespace oxli::test
