#include <functional>
#include <set>
#include <vector>

#include "jni/base/handles.h"
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

#define NATIVE(step) "Java_org_quendel_oxli_impl_OxliImpl_" step
#define PARSE(step) "Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse " step

// Every step whose failure has a line.
const std::set<std::string> kSteps = {
    "FindClass java/math/BigDecimal",
    "FindMethod (JI)Ljava/math/BigDecimal",
    "CallStaticObjectMethod bigDecimal",
    NATIVE("getstr"),
    NATIVE("err_1getstr"),
    NATIVE("log_1infostr"),
    NATIVE("conn_1new settings"),
    NATIVE("conn_1new set ref"),
    NATIVE("conn_1open settings"),
    NATIVE("conn_1getstate set ref"),
    "oxjni_conn_wrap new connection",
    NATIVE("lsn_1new settings"),
    NATIVE("lsn_1new set ref"),
    NATIVE("lsn_1open settings"),
    NATIVE("lsn_1getstate set state"),
    NATIVE("lsn_1getscheme get scheme"),
    "cacheGet getScheme",
    "oxjni_lsn_wrap lsn",
    "CreateMessage new object",
    "CreateMessage set ref",
    "CreateMessage set scheme ref",
    "CreateDataMessage new object",
    "CreateDataMessage set ref",
    "CreateDataMessage set scheme ref",
    "Apply set data",
    "Apply set reason",
    "Apply set time",
    "Apply set msg_index",
    "Apply set msg_id",
    "Apply set msg_name",
    "Apply set user_id",
    "Apply set address",
    "Apply set ref message",
    "Apply set error",
    "Apply set msg index",
    "Apply set msg id",
    "Apply set name",
    "Apply set user id",
    "Apply set lifenum",
    "Apply set flags",
    "Apply set table idx",
    "Apply set table rev",
    "Apply set repl state",
    "Apply set ref",
    "ApplyDataPartial set data",
    "ApplyDataPartial set user id",
    "ApplyDataPartial set address",
    "ApplyDataPartial set ref",
    "ApplyStreamDataMessage set nulls",
    "ApplyStreamDataMessage set rev",
    "ApplyStreamDataMessage set user id",
    NATIVE("pub_1new settings"),
    NATIVE("pub_1new set obj ref"),
    NATIVE("pub_1open settings"),
    NATIVE("pub_1getstate set state"),
    NATIVE("pub_1getscheme set objref"),
    "oxjni_pub_wrap new object",
    NATIVE("pub_1msgnew int val"),
    NATIVE("pub_1msgnew set owner"),
    NATIVE("pub_1msgnew set array elm"),
    NATIVE("pub_1post pub post"),
    "replaceMsgFields getUserId",
    "replaceMsgFields getAddress",
    "replaceMsgFields getRefMessage",
    "replaceMsgFields getRef",
    "replaceMsgFields getRef streamdata",
    "replaceMsgFields get user id streamdata",
    "replaceMsgFields get nulls",
    NATIVE("pub_1msgdispose getCreateType"),
    NATIVE("msg_1dump get ref"),
    "set scheme ref",
    "set scheme type",
    "set scheme features",
    "new message descs[]",
    "set message desc array element",
    "set messages descs",
    "get hints[]",
    "new field descs[]",
    "new index desc",
    "get index hints[]",
    "new index field",
    "new index field desc",
    "set index field desc array element",
    "set index desc array element",
    "new message desc",
    NATIVE("zblock_1new set ref"),
    NATIVE("zblock_1wrap get ref"),
    NATIVE("zblock_1wrap set zblock"),
    NATIVE("zblock_1wrap set data"),
    NATIVE("zblock_1rebind buffer"),
    PARSE("settings"),
    PARSE("new String Array"),
    PARSE("set string elm key"),
    PARSE("set string elm val"),
};

constexpr char kScheme[] = "scheme=?{messages=m;message.m=?{id=7;fields=f:i4}}";
constexpr char kWholeScheme[] =
    "scheme=?{messages=n,m;message.n=?{fields=g:i1};message.m=?{fields=f:i4,x:m;hints=?{a=1};"
    "indices=k;index.k=?{fields=f};field.f=?{values=?{one=1}};field.x=?{message=n}}}";

struct Scenario {
  const char* name;
  std::function<bool()> run;  // true when it succeeded
  std::function<void()> undo = [] {};
  std::function<void()> prepare = [] {};
  int silent = 0;       // steps that throw without a line
  bool goesOn = false;  // after an exception too, the gateway's answer counts
  int silentNull = 0;   // steps that give null without a line
  int lines = 1;        // at most, of what encloses the step as well
};

// The local references of one run.
class Frame {
 public:
  explicit Frame(JNIEnv* env) : env_(env) { env_->PushLocalFrame(256); }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;
  ~Frame() { env_->PopLocalFrame(nullptr); }

 private:
  JNIEnv* env_;
};

// Fails each Java call and each allocation of each operation in turn.
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
    jscheme = env->NewGlobalRef(make("org/quendel/oxli/Scheme"));
    script.getScheme = [this](JNIEnv* on) { return on->NewLocalRef(jscheme); };
    native.conn = fromHandle<jni::ConnData>(connection)->conn;
    addEnvironmentScenarios();
    addConnectionScenarios();
    addListenerScenarios();
    addPublisherScenarios();
    addDeliveryScenarios();
    addSchemeScenarios();
    addZBlockScenarios();
  }
  void TearDown() override {
    OXLI(pub_1destroy)(env, nullptr, publisher);
    OXLI(pub_1destroy)(env, nullptr, replica);
    OXLI(pub_1destroy)(env, nullptr, wholeScheme);
    OXLI(conn_1destroy)(env, nullptr, connection);
    env->DeleteGlobalRef(jscheme);
    NativeTest::TearDown();
  }

  void addEnvironmentScenarios() {
    scenarios.push_back(
        {"getstr", [this] { return OXLI(getstr)(env, nullptr, type, buffer) != nullptr; }});
    scenarios.push_back(
        {"err_getstr", [this] { return OXLI(err_1getstr)(env, nullptr, 0) != nullptr; }});
    scenarios.push_back(
        {"log_infostr", [this] { return OXLI(log_1infostr)(env, nullptr, type) == OX_ERR_OK; }});
    scenarios.push_back(
        {"bcd_get", [this] { return OXLI(bcd_1get)(env, nullptr, buffer) != nullptr; }});
  }

  void addConnectionScenarios() {
    const auto destroy = [this] {
      // A setter that threw leaves connection and record: they are the only ones of theirs.
      const auto registered = jni::ConnData::sConnDataMap;
      for (const auto& entry : registered) {
        if (entry.first != native.conn) {
          OXLI(conn_1destroy)(env, nullptr, jni::toHandle(entry.second));
        }
      }
    };
    scenarios.push_back(
        {"conn_new",
         [this] { return OXLI(conn_1new)(env, nullptr, empty, ref, jconn) == OX_ERR_OK; },
         destroy});
    scenarios.push_back(
        {"conn_open",
         [this] { return OXLI(conn_1open)(env, nullptr, connection, empty) == OX_ERR_OK; },
         [this] {
           OXLI(conn_1open)(env, nullptr, connection, empty);
           OXLI(pub_1open)(env, nullptr, publisher, empty);
           OXLI(pub_1open)(env, nullptr, replica, empty);
         },
         [this] {
           OXLI(conn_1close)
           (env, nullptr, connection);
         }});
    scenarios.push_back({"conn_getstate", [this] {
                           return OXLI(conn_1getstate)(env, nullptr, connection, state) ==
                                  OX_ERR_OK;
                         }});
    scenarios.push_back({"conn_wrap",
                         [this] { return oxjni_conn_wrap(env, native.wrapped) != nullptr; },
                         [this] {
                           oxjni_conn_unwrap(env, native.wrapped);
                           ox_conn_destroy(native.wrapped);
                         },
                         [this] { ox_conn_new("", &native.wrapped); }, 0, false, 1});
  }

  void addListenerScenarios() {
    const auto destroy = [this] { destroyListeners(); };
    const auto create = [this] { listener = newListener(connection); };
    const auto createOpen = [this, create] {
      create();
      OXLI(lsn_1open)(env, nullptr, listener, empty);
    };
    scenarios.push_back({"lsn_new",
                         [this] {
                           return OXLI(lsn_1new)(env, nullptr, connection, streamSettings,
                                                 subscriber, ref, jconn, jlsn) == OX_ERR_OK;
                         },
                         destroy, [this] { set(ref, "set", "(J)V", jlong{0}); }});
    scenarios.push_back(
        {"lsn_open", [this] { return OXLI(lsn_1open)(env, nullptr, listener, empty) == OX_ERR_OK; },
         destroy, create});
    scenarios.push_back(
        {"lsn_getstate",
         [this] { return OXLI(lsn_1getstate)(env, nullptr, listener, state) == OX_ERR_OK; },
         destroy, create});
    scenarios.push_back(
        {"lsn_getscheme",
         [this] { return OXLI(lsn_1getscheme)(env, nullptr, listener, ref) == OX_ERR_OK; }, destroy,
         createOpen});
    scenarios.push_back({"lsn_wrap",
                         [this] {
                           void* record = nullptr;
                           return oxjni_lsn_wrap(env, native.conn, native.lsn, &record) != nullptr;
                         },
                         [this] {
                           oxjni_lsn_unwrap(env, native.lsn);
                           ox_lsn_destroy(native.lsn);
                         },
                         [this] { ox_lsn_new(native.conn, "", &ListenerCB, nullptr, &native.lsn); },
                         0, false, 1});
  }

  void addPublisherScenarios() {
    const auto destroy = [this] {
      const auto registered = jni::PublisherData::sPubMap;
      for (const auto& entry : registered) {
        const jlong handle = jni::toHandle(entry.first);
        if (handle == publisher || handle == replica || handle == wholeScheme) continue;
        OXLI(pub_1destroy)(env, nullptr, handle);
      }
    };
    scenarios.push_back(
        {"pub_new",
         [this] { return OXLI(pub_1new)(env, nullptr, connection, empty, ref, jpub) == OX_ERR_OK; },
         destroy});
    scenarios.push_back(
        {"pub_open",
         [this] { return OXLI(pub_1open)(env, nullptr, publisher, empty) == OX_ERR_OK; },
         [this] { static_cast<void>(OXLI(pub_1open)(env, nullptr, publisher, empty)); },
         [this] {
           OXLI(pub_1close)
           (env, nullptr, publisher);
         }});
    scenarios.push_back({"pub_getstate", [this] {
                           return OXLI(pub_1getstate)(env, nullptr, publisher, state) == OX_ERR_OK;
                         }});
    scenarios.push_back({"pub_getscheme", [this] {
                           return OXLI(pub_1getscheme)(env, nullptr, publisher, ref) == OX_ERR_OK;
                         }});
    scenarios.push_back({"pub_wrap", [this] { return oxjni_pub_wrap(env, native.pub) != nullptr; },
                         [this] {
                           oxjni_pub_unwrap(env, native.pub);
                           ox_pub_destroy(native.pub);
                         },
                         [this] { ox_pub_new(native.conn, "", &native.pub); }, 0, false, 1});

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
    scenarios.push_back({"pub_msgnew name", create(publisher, OX_KEY_NAME, text("m")), dispose});
    scenarios.push_back({"pub_msgnew id",
                         create(publisher, OX_KEY_ID, make("java/lang/Integer", "(I)V", jint{7})),
                         dispose});
    // Two silent steps: reading the object's null map and copying into it.
    scenarios.push_back(
        {"pub_msgnew row", create(replica, OX_KEY_NAME, text("m")), dispose, [] {}, 2});

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
    scenarios.push_back({"pub_post data", post(publisher), dispose, dataMessage, 0, true});
    scenarios.push_back({"pub_post row", post(replica), dispose, rowMessage, 0, true});
    scenarios.push_back({"msg_dump data", dump, dispose, dataMessage, 1, false, 1});
    scenarios.push_back({"msg_dump row", dump, dispose, rowMessage, 1, false, 1});
    scenarios.push_back({"pub_msgdispose",
                         [this] {
                           isDisposed =
                               OXLI(pub_1msgdispose)(env, nullptr, publisher,
                                                     jni::toHandle(disposed), message) == OX_ERR_OK;
                           return isDisposed;
                         },
                         [=] {
                           if (isDisposed) env->SetObjectArrayElement(out, 0, nullptr);
                           dispose();
                         },
                         [=] {
                           dataMessage();
                           disposed = fromHandle<ox_msg_t>(getLong(message, "getRef"));
                         }});
  }

  void addDeliveryScenarios() {
    struct Kind {
      const char* name;
      ox_msg_t* msg;
      int silent;  // onMessage, and the null map's two
    };
    const Kind kinds[] = {{"deliver open", &open, 1},
                          {"deliver close", &close, 1},
                          {"deliver time", &time, 1},
                          {"deliver lifenum", &life, 1},
                          {"deliver clear", &clear, 1},
                          {"deliver state", &replState, 1},
                          {"deliver timeout", &timeout.head, 1},
                          {"deliver data", &data.head, 1},
                          {"deliver error", &error.head, 1},
                          {"deliver row", &row.head, 3}};
    for (const Kind& kind : kinds) {
      const auto queue = [this, msg = kind.msg] {
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
      scenarios.push_back({kind.name, process, destroy, first, kind.silent});
      scenarios.push_back({kind.name, process, destroy, again, kind.silent});
    }
  }

  void addSchemeScenarios() {
    wholeScheme = newPublisher(connection, (std::string("stream=w;") + kWholeScheme).c_str());
    filled = make("org/quendel/oxli/Scheme");
    OXLI(pub_1newscheme)(env, nullptr, wholeScheme, filled);
    const jstring whole = text(schemeText(filled).c_str());
    const jclass schemeText = env->FindClass("org/quendel/oxli/SchemeText");
    const jmethodID of =
        env->GetStaticMethodID(schemeText, "of", "(Lorg/quendel/oxli/Scheme;)Ljava/lang/String;");
    const jmethodID equals =
        env->GetMethodID(env->GetObjectClass(whole), "equals", "(Ljava/lang/Object;)Z");
    const auto convert = [=] {
      const jint result = OXLI(pub_1newscheme)(env, nullptr, wholeScheme, filled);
      if (result != OX_ERR_OK || env->ExceptionCheck()) return false;
      // By functions that are not hooked, and without an allocation.
      jvalue argument = {};
      argument.l = filled;
      argument.l = env->CallStaticObjectMethodA(schemeText, of, &argument);
      return !env->ExceptionCheck() && env->CallBooleanMethodA(whole, equals, &argument);
    };
    const auto renew = [this] { filled = make("org/quendel/oxli/Scheme"); };
    // Texts and objects of fields are what has no check of its own.
    scenarios.push_back({"pub_newscheme", convert, [] {}, renew, 0, false, 43, 3});
    scenarios.push_back({"settings_parse", [this] {
                           return Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse(
                                      env, nullptr, streamSettings) != nullptr;
                         }});
  }

  void addZBlockScenarios() {
    const auto renew = [this] { zblock = make("org/quendel/oxli/ZBlock", "(J)V", jlong{0}); };
    const auto handle = [this] { return getLong(zblock, "getRef"); };
    const auto destroy = [this, handle] {
      OXLI(zblock_1destroy)(env, nullptr, handle());
      // A binding whose handle could not be written.
      const auto registered = jni::ZBlockData::sZBlockMap;
      for (const auto& entry : registered) {
        OXLI(zblock_1destroy)(env, nullptr, jni::toHandle(entry.second));
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
    scenarios.push_back(
        {"zblock_new",
         [this] { return OXLI(zblock_1new)(env, nullptr, zblock, buffer, zblock) == OX_ERR_OK; },
         destroy, renew});
    scenarios.push_back({"zblock_wrap", wrap, destroy, renew});
    scenarios.push_back({"zblock_wrap again", wrap, destroy, wrapped});
    scenarios.push_back(
        {"zblock_rebind",
         [this] { return OXLI(zblock_1rebind)(env, nullptr, buffer, bound) == OX_ERR_OK; }, destroy,
         wrapped});
  }

  void destroyListeners() {
    const auto registered = ListenerData::sLsnMap;
    for (const auto& entry : registered) {
      OXLI(lsn_1destroy)(env, nullptr, jni::toHandle(entry.second));
    }
  }

  struct Balance {
    int globals;
    int borrowed;
    std::size_t gateway;
  };
  void expectBalance(const Balance& before) const {
    EXPECT_EQ(before.globals, probe->counts.globals);
    EXPECT_EQ(before.borrowed, probe->counts.borrowed);
    EXPECT_EQ(before.gateway, standin::liveObjects());
  }
  Balance balance() const {
    return {probe->counts.globals, probe->counts.borrowed, standin::liveObjects()};
  }

  void runUnharmed(const Scenario& scenario) {
    const Frame frame(env);
    scenario.prepare();
    EXPECT_TRUE(scenario.run());
    scenario.undo();
  }

  void failEachJavaCall(const Scenario& scenario, JniProbe::Fault fault) {
    SCOPED_TRACE(fault == JniProbe::Fault::kThrows ? "throws" : "makes none");
    const bool throws = fault == JniProbe::Fault::kThrows;
    Balance expected = balance();
    // The gateway has the record of a listener whose handle could not be written: it stays.
    if (throws && scenario.name == std::string("lsn_new")) {
      expected.globals += 3;
      expected.gateway += 1;
      globalsLeft += 3;
    }
    int silent = 0;
    for (bool fired = true; fired;) {
      const Frame frame(env);
      scenario.prepare();
      ::testing::internal::CaptureStderr();
      probe->failAt(++call, fault);
      const bool succeeded = scenario.run();
      fired = probe->disarm();
      const std::string line = ::testing::internal::GetCapturedStderr();
      takeException();
      scenario.undo();
      SCOPED_TRACE(line);
      EXPECT_TRUE(succeeded == !fired || (scenario.goesOn && throws));
      if (line.empty()) silent += fired ? 1 : 0;
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
    expectBalance(expected);
  }

  void failEachAllocation(const Scenario& scenario) {
    const Balance expected = balance();
    int n = 0;
    for (bool fired = true; fired;) {
      const Frame frame(env);
      scenario.prepare();
      failAllocationAt(++n);
      const bool succeeded = scenario.run();
      fired = disarmAllocations();
      EXPECT_NE(fired, succeeded);
      EXPECT_EQ("", takeException());
      scenario.undo();
    }
    expectBalance(expected);
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

  // Java arguments, made before any fault.
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
};

TEST_F(FaultSweepTest, EachJavaFailureIsReportedAndUndone) {
  for (const Scenario& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    runUnharmed(scenario);
    failEachJavaCall(scenario, JniProbe::Fault::kThrows);
    failEachJavaCall(scenario, JniProbe::Fault::kMakesNone);
  }
  EXPECT_EQ(kSteps, seen);
}

TEST_F(FaultSweepTest, EachAllocationFailureIsUndone) {
  standin::recordCalls(false);
  for (const Scenario& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    runUnharmed(scenario);
    failEachAllocation(scenario);
  }
}

}  // namespace

}  // namespace oxli::test
