#include <fstream>
#include <functional>
#include <set>
#include <vector>

#include "jni/base/memory.h"
#include "jni/connection.h"
#include "jni/listener.h"
#include "jni/oxjni.h"
#include "jni/publisher.h"
#include "jni/zblock.h"
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

// Returns the names of all steps whose failure writes a line.
std::set<std::string> stepsWithLine() {
  std::set<std::string> steps;
  std::ifstream file(OXLI_TEST_STEPS);
  for (std::string step; std::getline(file, step);) steps.insert(step);
  return steps;
}

constexpr char kScheme[] = "scheme=?{messages=m;message.m=?{id=7;fields=f:i4}}";
constexpr char kWholeScheme[] =
    "scheme=?{messages=n,m;message.n=?{fields=g:i1};message.m=?{fields=f:i4,x:m;hints=?{a=1};"
    "indices=k;index.k=?{fields=f};field.f=?{values=?{one=1}};field.x=?{message=n}}}";

struct Scenario {
  const char* name;
  std::function<bool()> run;  // returns whether it has succeeded
  Action undo;
  Action prepare;
  int silent = 0;               // number of calls that write no line if they throw
  int silentNull = 0;           // number of calls that write no line if they return null
  bool succeedsAnyway = false;  // returns success although a call has thrown
  int lines = 1;                // maximum number of lines of one failure, with enclosing steps
  int globalsLeft = 0;          // global references that stay if storing the handle throws
};

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

// Fails each Java call and each allocation of each scenario in turn.
class FaultSweepTest : public NativeTest {
 protected:
  void SetUp() override {
    NativeTest::SetUp();
    openEnvironment();
    error.head.type = OX_MSG_PARSEERR;
    timeout.head.type = OX_MSG_ZRMQ_TIMEOUT;
    empty = text("");
    type = text("i4");
    streamSettings = text("stream=s");
    buffer = env->NewDirectByteBuffer(bytes, sizeof bytes);
    ref = objRef();
    state = intRef();
    jconn = make("org/quendel/oxli/Connection", "(J)V", jlong{0});
    jpub = make("org/quendel/oxli/Publisher", "(J)V", jlong{0});
    jlsn = scripted("ScriptedListener");
    subscriber = scripted("ScriptedSubscriber");
    out = env->NewObjectArray(1, env->FindClass("java/lang/Object"), nullptr);

    connection = newConnection();
    publisher = newPublisher(connection, (std::string("stream=s;") + kScheme).c_str());
    replica = newPublisher(connection, (std::string("stream=r;mode=replica;") + kScheme).c_str());
    wholeScheme = newPublisher(connection, (std::string("stream=w;") + kWholeScheme).c_str());
    jscheme = env->NewGlobalRef(make("org/quendel/oxli/Scheme"));
    script.getScheme = [this](JNIEnv* on) { return on->NewLocalRef(jscheme); };
    native.conn = fromHandle<jni::ConnData>(connection)->conn;
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
    for (const jlong each : {publisher, replica, wholeScheme}) {
      OXLI(pub_1destroy)(env, nullptr, each);
    }
    OXLI(conn_1destroy)(env, nullptr, connection);
    env->DeleteGlobalRef(jscheme);
    NativeTest::TearDown();
  }

  Scenario& add(const char* name, std::function<bool()> run, Action undo = {},
                Action prepare = {}) {
    return scenarios.emplace_back(
        Scenario{name, std::move(run), std::move(undo), std::move(prepare)});
  }

  void addPassthroughScenarios() {
    add("getstr", [this] { return OXLI(getstr)(env, nullptr, type, buffer) != nullptr; });
    add("err_getstr", [this] { return OXLI(err_1getstr)(env, nullptr, 0) != nullptr; });
    add("log_infostr", [this] { return OXLI(log_1infostr)(env, nullptr, type) == OX_ERR_OK; });
    add("bcd_get", [this] { return OXLI(bcd_1get)(env, nullptr, buffer) != nullptr; });
    add("settings_parse", [this] {
      return Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse(env, nullptr,
                                                                      streamSettings) != nullptr;
    });
  }

  void addConnectionScenarios() {
    const auto destroyOthers = [this] {
      const auto registered = jni::ConnData::sConnDataMap;
      for (const auto& [handle, record] : registered) {
        if (handle != native.conn) OXLI(conn_1destroy)(env, nullptr, toHandle(record));
      }
    };
    add(
        "conn_new",
        [this] { return OXLI(conn_1new)(env, nullptr, empty, ref, jconn) == OX_ERR_OK; },
        destroyOthers);
    add(
        "conn_open",
        [this] { return OXLI(conn_1open)(env, nullptr, connection, empty) == OX_ERR_OK; },
        [this] {
          OXLI(conn_1open)(env, nullptr, connection, empty);
          for (const jlong each : {publisher, replica, wholeScheme}) {
            OXLI(pub_1open)(env, nullptr, each, empty);
          }
        },
        [this] { static_cast<void>(OXLI(conn_1close)(env, nullptr, connection)); });
    add("conn_getstate",
        [this] { return OXLI(conn_1getstate)(env, nullptr, connection, state) == OX_ERR_OK; });
    add(
        "conn_wrap", [this] { return oxjni_conn_wrap(env, native.wrapped) != nullptr; },
        [this] {
          oxjni_conn_unwrap(env, native.wrapped);
          ox_conn_destroy(native.wrapped);
        },
        [this] { ox_conn_new("", &native.wrapped); })
        .silentNull = 1;
  }

  void addListenerScenarios() {
    const auto destroy = [this] { destroyListeners(); };
    const auto create = [this] { listener = newListener(connection); };
    const auto createOpen = [this, create] {
      create();
      OXLI(lsn_1open)(env, nullptr, listener, empty);
    };
    // The record stays the gateway's callback data if its handle could not be stored.
    add(
        "lsn_new",
        [this] {
          return OXLI(lsn_1new)(env, nullptr, connection, streamSettings, subscriber, ref, jconn,
                                jlsn) == OX_ERR_OK;
        },
        destroy, [this] { set(ref, "set", "(J)V", jlong{0}); })
        .globalsLeft = 3;
    add(
        "lsn_open", [this] { return OXLI(lsn_1open)(env, nullptr, listener, empty) == OX_ERR_OK; },
        destroy, create);
    add(
        "lsn_getstate",
        [this] { return OXLI(lsn_1getstate)(env, nullptr, listener, state) == OX_ERR_OK; }, destroy,
        create);
    add(
        "lsn_getscheme",
        [this] { return OXLI(lsn_1getscheme)(env, nullptr, listener, ref) == OX_ERR_OK; }, destroy,
        createOpen);
    add(
        "lsn_wrap",
        [this] {
          void* record = nullptr;
          return oxjni_lsn_wrap(env, native.conn, native.lsn, &record) != nullptr;
        },
        [this] {
          oxjni_lsn_unwrap(env, native.lsn);
          ox_lsn_destroy(native.lsn);
        },
        [this] { ox_lsn_new(native.conn, "", &ListenerCB, nullptr, &native.lsn); })
        .silentNull = 1;
  }

  void addPublisherScenarios() {
    const auto destroyOthers = [this] {
      const auto registered = jni::PublisherData::sPubMap;
      for (const auto& entry : registered) {
        const jlong handle = toHandle(entry.first);
        if (handle == publisher || handle == replica || handle == wholeScheme) continue;
        OXLI(pub_1destroy)(env, nullptr, handle);
      }
    };
    add(
        "pub_new",
        [this] { return OXLI(pub_1new)(env, nullptr, connection, empty, ref, jpub) == OX_ERR_OK; },
        destroyOthers);
    add(
        "pub_open", [this] { return OXLI(pub_1open)(env, nullptr, publisher, empty) == OX_ERR_OK; },
        [this] { static_cast<void>(OXLI(pub_1open)(env, nullptr, publisher, empty)); },
        [this] { static_cast<void>(OXLI(pub_1close)(env, nullptr, publisher)); });
    add("pub_getstate",
        [this] { return OXLI(pub_1getstate)(env, nullptr, publisher, state) == OX_ERR_OK; });
    add("pub_getscheme",
        [this] { return OXLI(pub_1getscheme)(env, nullptr, publisher, ref) == OX_ERR_OK; });
    add(
        "pub_wrap", [this] { return oxjni_pub_wrap(env, native.pub) != nullptr; },
        [this] {
          oxjni_pub_unwrap(env, native.pub);
          ox_pub_destroy(native.pub);
        },
        [this] { ox_pub_new(native.conn, "", &native.pub); })
        .silentNull = 1;
  }

  void addOutgoingMessageScenarios() {
    const auto create = [this](jlong on, jint keyType, jobject key) {
      return [=] {
        return OXLI(pub_1msgnew)(env, nullptr, on, keyType, key, nullptr, out) == OX_ERR_OK;
      };
    };
    const auto dispose = [this] {
      for (const jlong on : {publisher, replica}) {
        if (const jobject made = env->GetObjectArrayElement(out, 0)) {
          OXLI(pub_1msgdispose)(env, nullptr, on, getLong(made, "getRef"), made);
        }
      }
      env->SetObjectArrayElement(out, 0, nullptr);
      if (reference) {
        OXLI(pub_1msgdispose)(env, nullptr, publisher, getLong(reference, "getRef"), reference);
      }
      reference = nullptr;
    };
    // A failure to fill the object also fails the step after it.
    add("pub_msgnew name", create(publisher, OX_KEY_NAME, text("m")), dispose).lines = 2;
    add("pub_msgnew id", create(publisher, OX_KEY_ID, make("java/lang/Integer", "(I)V", jint{7})),
        dispose)
        .lines = 2;
    add("pub_msgnew row", create(replica, OX_KEY_NAME, text("m")), dispose).lines = 2;

    const auto dataMessage = [this] {
      message = newMessage(publisher, "m");
      env->SetObjectArrayElement(out, 0, message);
      reference = newMessage(publisher, "m");
      set(message, "setAddress", "(Ljava/lang/String;)V", type);
      set(message, "setRefMessage", "(Lorg/quendel/oxli/messages/DataMessage;)V", reference);
    };
    const auto rowMessage = [this] {
      message = newMessage(replica, "m");
      env->SetObjectArrayElement(out, 0, message);
    };
    const auto post = [this](jlong on) {
      return [this, on] { return OXLI(pub_1post)(env, nullptr, on, message, 0) == OX_ERR_OK; };
    };
    const auto dump = [this] { return OXLI(msg_1dump)(env, nullptr, message, 0) != nullptr; };
    add("pub_post data", post(publisher), dispose, dataMessage).succeedsAnyway = true;
    add("pub_post row", post(replica), dispose, rowMessage).succeedsAnyway = true;
    // A failed NewByteArray writes no line.
    for (const auto& prepare : {Action(dataMessage), Action(rowMessage)}) {
      Scenario& scenario = add("msg_dump", dump, dispose, prepare);
      scenario.silent = scenario.silentNull = 1;
    }
    add(
        "pub_msgdispose",
        [this] {
          isDisposed = OXLI(pub_1msgdispose)(env, nullptr, publisher, toHandle(disposed),
                                             message) == OX_ERR_OK;
          return isDisposed;
        },
        [=] {
          if (isDisposed) env->SetObjectArrayElement(out, 0, nullptr);
          dispose();
        },
        [=] {
          dataMessage();
          disposed = fromHandle<ox_msg_t>(getLong(message, "getRef"));
        });
  }

  void addDeliveryScenarios() {
    const std::pair<const char*, ox_msg_t*> kinds[] = {{"deliver open", &open},
                                                       {"deliver close", &close},
                                                       {"deliver time", &time},
                                                       {"deliver lifenum", &life},
                                                       {"deliver clear", &clear},
                                                       {"deliver state", &replState},
                                                       {"deliver timeout", &timeout.head},
                                                       {"deliver data", &data.head},
                                                       {"deliver error", &error.head},
                                                       {"deliver row", &row.head}};
    for (const auto& [name, record] : kinds) {
      const auto queue = [this, msg = record] {
        standin::deliver(fromHandle<ListenerData>(listener)->lsn, msg);
      };
      const auto process = [this] {
        return OXLI(conn_1process)(env, nullptr, connection, 0) == OX_ERR_OK;
      };
      const auto first = [=] {
        listener = newListener(connection);
        OXLI(lsn_1open)(env, nullptr, listener, empty);
        process();
        queue();
      };
      const auto again = [=] {
        first();
        process();
        queue();
      };
      const auto destroy = [=] {
        queue();
        EXPECT_TRUE(process());
        destroyListeners();
      };
      // Exceptions of onMessage write no line, nor do those of reading and filling a null map.
      const int silent = record == &row.head ? 3 : 1;
      for (const auto& prepare : {Action(first), Action(again)}) {
        add(name, process, destroy, prepare).silent = silent;
      }
    }
  }

  void addSchemeScenarios() {
    filled = make("org/quendel/oxli/Scheme");
    OXLI(pub_1newscheme)(env, nullptr, wholeScheme, filled);
    const jstring whole = text(getText(filled, "toString").c_str());
    const jmethodID toString =
        env->GetMethodID(env->GetObjectClass(filled), "toString", "()Ljava/lang/String;");
    const jmethodID equals =
        env->GetMethodID(env->GetObjectClass(whole), "equals", "(Ljava/lang/Object;)Z");
    const auto convert = [=] {
      const jint result = OXLI(pub_1newscheme)(env, nullptr, wholeScheme, filled);
      if (result != OX_ERR_OK || env->ExceptionCheck()) return false;
      // Compares through JNI functions that are not hooked, and allocates nothing.
      jvalue argument = {};
      argument.l = env->CallObjectMethodA(filled, toString, nullptr);
      return !env->ExceptionCheck() && env->CallBooleanMethodA(whole, equals, &argument);
    };
    // A failure in a nested message writes a line for it, for its message and for the scheme.
    add("pub_newscheme", convert, {}, [this] { filled = make("org/quendel/oxli/Scheme"); }).lines =
        3;
    // No line for: reserving references, making the array, and making and storing key and value.
    Scenario& hints = add("getHints", [this] { return getHints(env, &hint) != nullptr; });
    hints.silent = 6;
    hints.silentNull = 3;
  }

  void addZBlockScenarios() {
    const auto renew = [this] { zblock = make("org/quendel/oxli/ZBlock", "(J)V", jlong{0}); };
    const auto handle = [this] { return getLong(zblock, "getRef"); };
    const auto destroy = [this, handle] {
      OXLI(zblock_1destroy)(env, nullptr, handle());
      // Also destroys a binding whose handle could not be stored.
      const auto registered = jni::ZBlockData::sZBlockMap;
      for (const auto& entry : registered) {
        OXLI(zblock_1destroy)(env, nullptr, toHandle(entry.second));
      }
    };
    const auto wrap = [this] {
      OXLI(zblock_1wrap)(env, nullptr, buffer, zblock, zblock, 0);
      return !env->ExceptionCheck() && dataOf(env, zblock);
    };
    const auto wrapped = [this, renew] {
      renew();
      OXLI(zblock_1wrap)(env, nullptr, buffer, zblock, zblock, 1);
      set(zblock, "setData", "(Ljava/nio/ByteBuffer;)V", nullptr);
      bound = getLong(zblock, "getRef");
    };
    add(
        "zblock_new",
        [this] { return OXLI(zblock_1new)(env, nullptr, zblock, buffer, zblock) == OX_ERR_OK; },
        destroy, renew);
    add("zblock_wrap", wrap, destroy, renew);
    add("zblock_wrap again", wrap, destroy, wrapped);
    add(
        "zblock_rebind",
        [this] { return OXLI(zblock_1rebind)(env, nullptr, buffer, bound) == OX_ERR_OK; }, destroy,
        wrapped);
  }

  void destroyListeners() {
    const auto registered = ListenerData::sLsnMap;
    for (const auto& entry : registered) {
      OXLI(lsn_1destroy)(env, nullptr, toHandle(entry.second));
    }
  }

  // The numbers of global references, acquired characters and arrays, and gateway objects.
  using Balance = std::vector<std::size_t>;
  Balance balance() const {
    return {static_cast<std::size_t>(probe->counts.globals),
            static_cast<std::size_t>(probe->counts.acquired), standin::liveObjects()};
  }

  static void runIf(const Action& action) {
    if (action) action();
  }

  void runWithoutFault(const Scenario& scenario) {
    const Frame frame(env);
    runIf(scenario.prepare);
    EXPECT_TRUE(scenario.run());
    runIf(scenario.undo);
  }

  void failEachJavaCall(const Scenario& scenario, JniProbe::Fault fault) {
    SCOPED_TRACE(fault == JniProbe::Fault::kThrows ? "throws" : "returns null");
    const bool throws = fault == JniProbe::Fault::kThrows;
    Balance expected = balance();
    if (throws && scenario.globalsLeft > 0) {
      expected[0] += static_cast<std::size_t>(scenario.globalsLeft);
      expected[2] += 1;
      globalsLeft += scenario.globalsLeft;
    }
    int silent = 0;
    for (bool failed = true; failed;) {
      const Frame frame(env);
      runIf(scenario.prepare);
      bool succeeded = false;
      const std::string line = standardError([&] {
        probe->failAt(++call, fault);
        succeeded = scenario.run();
        failed = probe->disarm();
      });
      clearException();
      runIf(scenario.undo);
      SCOPED_TRACE(line);
      EXPECT_TRUE(succeeded == !failed || (scenario.succeedsAnyway && throws));
      if (line.empty()) silent += failed ? 1 : 0;
      const std::string start = "\nJNI Exception at ";
      int lines = 0;
      for (std::size_t from = 0; from < line.size(); ++lines) {
        ASSERT_EQ(from, line.find(start, from));
        const std::size_t end = line.find("\n\n", from + start.size());
        ASSERT_NE(std::string::npos, end);
        seen.insert(line.substr(from + start.size(), end - from - start.size()));
        from = end + 2;
      }
      EXPECT_GE(scenario.lines, lines);
    }
    call = 0;
    EXPECT_EQ(throws ? scenario.silent : scenario.silentNull, silent);
    EXPECT_EQ(expected, balance());
  }

  void failEachAllocation(const Scenario& scenario) {
    const Balance expected = balance();
    int n = 0;
    for (bool failed = true; failed;) {
      const Frame frame(env);
      runIf(scenario.prepare);
      failAllocationAt(++n);
      const bool succeeded = scenario.run();
      failed = disarmAllocations();
      EXPECT_NE(failed, succeeded);
      EXPECT_EQ("", clearException());
      runIf(scenario.undo);
    }
    EXPECT_EQ(expected, balance());
  }

  int call = 0;
  std::set<std::string> seen;
  std::vector<Scenario> scenarios;
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
  ox_msg_t* disposed = nullptr;
  bool isDisposed = false;
  struct {
    ox_conn_t* conn = nullptr;
    ox_conn_t* wrapped = nullptr;
    ox_listener_t* lsn = nullptr;
    ox_publisher_t* pub = nullptr;
  } native;

  // Java arguments that all scenarios share. SetUp makes them before any fault.
  unsigned char bytes[16] = {};
  jstring empty = nullptr;
  jstring type = nullptr;
  jstring streamSettings = nullptr;
  jobject buffer = nullptr, ref = nullptr, state = nullptr, jconn = nullptr, jlsn = nullptr,
          jpub = nullptr, jscheme = nullptr, subscriber = nullptr;
  jobjectArray out = nullptr;

  std::int64_t payload = 1;
  ox_data_lifenum_t lifePayload = {1, 2};
  ox_data_cleardeleted_t clearPayload = {1, 2};
  char stateText[2] = "s";
  const std::uint8_t nulls[1] = {1};
  ox_msg_t open = serviceRecord(OX_MSG_OPEN);
  ox_msg_t close = serviceRecord(OX_MSG_CLOSE, &payload, 4);
  ox_msg_t time = serviceRecord(OX_MSG_TIME, &payload, 8);
  ox_msg_t life = serviceRecord(OX_MSG_ZRREPL_LIFENUM, &lifePayload, sizeof lifePayload);
  ox_msg_t clear = serviceRecord(OX_MSG_ZRREPL_CLEARDELETED, &clearPayload, sizeof clearPayload);
  ox_msg_t replState = serviceRecord(OX_MSG_ZRREPL_STATE, stateText, sizeof stateText);
  ox_msg_data_t timeout = dataRecord(1, 1);
  ox_msg_data_t data = dataRecord(1, 1, &payload, 8);
  ox_msg_data_t error = dataRecord(1, 1, &payload, 4);
  ox_msg_streamdata_t row = rowRecord(2, nulls, 1);
  const ox_hint_t hint = {nullptr, "key", "value"};
};

TEST_F(FaultSweepTest, EachJavaFailureWritesItsLinesAndLeaksNothing) {
  for (const Scenario& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    runWithoutFault(scenario);
    failEachJavaCall(scenario, JniProbe::Fault::kThrows);
    failEachJavaCall(scenario, JniProbe::Fault::kReturnsNull);
  }
  EXPECT_EQ(stepsWithLine(), seen);
}

TEST_F(FaultSweepTest, EachAllocationFailureLeaksNothing) {
  standin::recordCalls(false);
  for (const Scenario& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    runWithoutFault(scenario);
    failEachAllocation(scenario);
  }
}

}  // namespace

}  // namespace oxli::test
