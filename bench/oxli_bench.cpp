// Measures what the library adds to the JNI calls that it cannot avoid. Each comparison runs the
// library and a baseline alternately, in the same iterations, and reports
//   library_ns, baseline_ns   nanoseconds for each message
//   ratio                     library_ns divided by baseline_ns: the result of the comparison
// The baseline makes the same gateway and JNI calls without tests for exceptions and without a
// search for the message object: it has one object for each kind. It calls the subscriber through
// the interface, as the library does.
#include <benchmark/benchmark.h>
#include <jni.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "jni/base/memory.h"
#include "jni/connection.h"
#include "jni/jenv/jenv.h"
#include "jni/listener.h"
#include "org_quendel_oxli_ex_impl_OxliImplEx.h"
#include "org_quendel_oxli_impl_OxliImpl.h"
#include "oxli.h"
#include "standin/control.h"
#include "test/support/virtual_machine.h"

#define OXLI(name) Java_org_quendel_oxli_impl_OxliImpl_##name

namespace {

using oxli::jni::ConnData;
using oxli::jni::fromHandle;
using oxli::jni::JEnv;
using oxli::jni::ListenerData;
using oxli::jni::toHandle;

constexpr std::size_t kBatch = 1000;
constexpr std::size_t kMaxKinds = 10000;

JNIEnv* env = nullptr;

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "oxli_bench: %s failed\n", what);
  std::abort();
}

jobject make(const char* className, const char* signature = "()V", jlong argument = 0) {
  const jclass cls = env->FindClass(className);
  const jobject object = env->NewObject(cls, env->GetMethodID(cls, "<init>", signature), argument);
  require(object != nullptr, className);
  return env->NewGlobalRef(object);
}

// Calls a native that makes a gateway object. Returns the handle that it stores in `ref`.
template <class Native>
jlong handleFrom(Native&& native) {
  const jobject ref = make("org/quendel/oxli/impl/ObjRef");
  require(native(ref) == OX_ERR_OK, "making a gateway object");
  return env->CallLongMethod(ref, JEnv::spInstance->message.getRef);
}

template <class Body>
double seconds(Body&& body) {
  const auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Adds up the times of the library and of the baseline, and sets the counters.
class Comparison {
 public:
  // Adds one iteration.
  void add(benchmark::State& state, double library, double baseline) {
    library_ += library;
    baseline_ += baseline;
    state.SetIterationTime(library);
  }
  void setCounters(benchmark::State& state, std::size_t messagesPerIteration) const {
    const double messages =
        static_cast<double>(state.iterations()) * static_cast<double>(messagesPerIteration);
    state.counters["library_ns"] = library_ / messages * 1e9;
    state.counters["baseline_ns"] = baseline_ / messages * 1e9;
    state.counters["ratio"] = library_ / baseline_;
  }

 private:
  double library_ = 0;
  double baseline_ = 0;
};

// The gateway and Java objects that the benchmarks share.
struct Objects {
  jstring empty = static_cast<jstring>(env->NewGlobalRef(env->NewStringUTF("")));
  jobject jconn = make("org/quendel/oxli/Connection", "(J)V");
  jobject jlsn = make("org/quendel/oxli/Listener", "(J)V");
  jobject subscriber = make("org/quendel/oxli/SilentSubscriber");
  jobject outgoing = nullptr;
  std::vector<jobject> baselineObjects;  // the baseline's messages, by index
  jlong connection = 0;
  jlong listener = 0;
  jlong publisher = 0;
  ox_listener_t* baselineListener = nullptr;

  Objects() {
    require(OXLI(env_1open)(env, nullptr, empty) == OX_ERR_OK, "env_open");
    connection =
        handleFrom([&](jobject ref) { return OXLI(conn_1new)(env, nullptr, empty, ref, jconn); });
    require(OXLI(conn_1open)(env, nullptr, connection, empty) == OX_ERR_OK, "conn_open");
    listener = handleFrom([&](jobject ref) {
      return OXLI(lsn_1new)(env, nullptr, connection, empty, subscriber, ref, jconn, jlsn);
    });
    require(OXLI(lsn_1open)(env, nullptr, listener, empty) == OX_ERR_OK, "lsn_open");
    require(
        ox_lsn_new(native(), "", &Objects::baselineCallback, this, &baselineListener) == OX_ERR_OK,
        "ox_lsn_new");
    publisher = newPublisher("stream=other;scheme=?{messages=m;message.m=?{fields=f:c32}}");
    outgoing = newMessage();
    for (std::size_t i = 0; i < kMaxKinds; ++i) baselineObjects.push_back(newMessage());
    process();
  }

  jlong newPublisher(const std::string& settings) const {
    const jobject jpub = make("org/quendel/oxli/Publisher", "(J)V");
    const jlong handle = handleFrom(
        [&](jobject ref) { return OXLI(pub_1new)(env, nullptr, connection, empty, ref, jpub); });
    const jstring jsettings = env->NewStringUTF(settings.c_str());
    require(OXLI(pub_1open)(env, nullptr, handle, jsettings) == OX_ERR_OK, "pub_open");
    return handle;
  }
  jobject newMessage() const {
    require(env->PushLocalFrame(8) == 0, "PushLocalFrame");
    const jobjectArray out = env->NewObjectArray(1, env->FindClass("java/lang/Object"), nullptr);
    require(OXLI(pub_1msgnew)(env, nullptr, publisher, OX_KEY_NAME, env->NewStringUTF("m"), nullptr,
                              out) == OX_ERR_OK,
            "pub_msgnew");
    const jobject message = env->NewGlobalRef(env->GetObjectArrayElement(out, 0));
    env->PopLocalFrame(nullptr);
    return message;
  }
  ox_conn_t* native() const { return fromHandle<ConnData>(connection)->conn; }
  void process() const {
    require(OXLI(conn_1process)(env, nullptr, connection, 0) == OX_ERR_OK, "conn_process");
  }

  static int baselineCallback(ox_conn_t*, ox_listener_t* lsn, ox_msg_t* msg, void* data) {
    const Objects& objects = *static_cast<Objects*>(data);
    const JEnv& classes = *JEnv::spInstance;
    const auto& record = *reinterpret_cast<ox_msg_data_t*>(msg);
    ox_scheme_desc_t* scheme = nullptr;
    ox_lsn_getscheme(lsn, &scheme);
    const jobject message = objects.baselineObjects[record.msg_index];
    const jobject buffer = env->NewDirectByteBuffer(msg->data, static_cast<jlong>(msg->data_size));
    env->CallVoidMethod(message, classes.message.setData, buffer);
    const jstring address = env->NewStringUTF(record.addr);
    env->CallVoidMethod(message, classes.dataMessage.setUserId, static_cast<jint>(record.user_id));
    env->CallVoidMethod(message, classes.dataMessage.setAddress, address);
    env->CallVoidMethod(message, classes.message.setRef, toHandle(msg));
    const jint result = env->CallIntMethod(objects.subscriber, classes.subscriber.onMessage,
                                           objects.jconn, objects.jlsn, message);
    env->DeleteLocalRef(address);
    env->DeleteLocalRef(buffer);
    return result;
  }
};

Objects& objects() {
  static Objects made;
  return made;
}

ox_msg_data_t dataRecord(std::uint64_t index) {
  static char payload[32] = {};
  ox_msg_data_t msg = {};
  msg.head.type = OX_MSG_DATA;
  msg.head.data = payload;
  msg.head.data_size = sizeof payload;
  msg.msg_index = index;
  msg.msg_name = "m";
  msg.addr = "address";
  return msg;
}

// Delivers messages in a shuffled order. The argument is the number of their kinds.
void deliverData(benchmark::State& state) {
  const Objects& shared = objects();
  const auto kinds = static_cast<std::size_t>(state.range(0));
  std::vector<ox_msg_data_t> records;
  for (std::size_t i = 0; i < std::max(kinds, kBatch); ++i) {
    records.push_back(dataRecord(i % kinds));
  }
  std::shuffle(records.begin(), records.end(), std::mt19937(1));
  const auto queue = [&](ox_listener_t* lsn) {
    for (const ox_msg_data_t& msg : records) standin::deliver(lsn, &msg.head);
  };
  ox_listener_t* const lsn = fromHandle<ListenerData>(shared.listener)->lsn;
  queue(lsn);
  shared.process();
  const auto process = [&] { shared.process(); };
  Comparison comparison;
  for (auto _ : state) {
    queue(lsn);
    const double library = seconds(process);
    queue(shared.baselineListener);
    comparison.add(state, library, seconds(process));
  }
  comparison.setCounters(state, records.size());
}
BENCHMARK(deliverData)->ArgName("kinds")->Arg(1)->Arg(100)->Arg(kMaxKinds)->UseManualTime();

void postData(benchmark::State& state) {
  const Objects& shared = objects();
  const JEnv& classes = *JEnv::spInstance;
  auto* const pub = fromHandle<ox_publisher_t>(shared.publisher);
  Comparison comparison;
  for (auto _ : state) {
    const double library = seconds([&] {
      for (std::size_t i = 0; i < kBatch; ++i) {
        require(OXLI(pub_1post)(env, nullptr, shared.publisher, shared.outgoing, 0) == OX_ERR_OK,
                "pub_post");
      }
    });
    const double baseline = seconds([&] {
      for (std::size_t i = 0; i < kBatch; ++i) {
        auto* const msg =
            fromHandle<ox_msg_data_t>(env->CallLongMethod(shared.outgoing, classes.message.getRef));
        msg->user_id = static_cast<std::uint32_t>(
            env->CallIntMethod(shared.outgoing, classes.dataMessage.getUserId));
        env->DeleteLocalRef(env->CallObjectMethod(shared.outgoing, classes.dataMessage.getAddress));
        env->DeleteLocalRef(
            env->CallObjectMethod(shared.outgoing, classes.dataMessage.getRefMessage));
        require(ox_pub_post(pub, &msg->head, 0) == OX_ERR_OK, "ox_pub_post");
      }
    });
    comparison.add(state, library, baseline);
  }
  comparison.setCounters(state, kBatch);
}
BENCHMARK(postData)->UseManualTime();

double residentMiB() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

// Delivers a million messages in one gateway call. Reports the growth of the resident memory.
void deliverMillionInOneCall(benchmark::State& state) {
  const Objects& shared = objects();
  constexpr std::size_t kMillion = 1000000;
  const ox_msg_data_t msg = dataRecord(0);
  ox_listener_t* const lsn = fromHandle<ListenerData>(shared.listener)->lsn;
  double growth = 0;
  for (auto _ : state) {
    standin::deliver(lsn, &msg.head, kMillion);
    const double before = residentMiB();
    shared.process();
    growth = std::max(growth, residentMiB() - before);
  }
  state.counters["growth_MiB"] = growth;
  state.SetItemsProcessed(static_cast<std::int64_t>(kMillion) * state.iterations());
}
BENCHMARK(deliverMillionInOneCall)->Unit(benchmark::kMillisecond)->Iterations(3);

// Converts a scheme of one message. The argument is the number of its fields.
void convertScheme(benchmark::State& state) {
  const Objects& shared = objects();
  std::string fields;
  for (std::int64_t i = 0; i < state.range(0); ++i) fields += ",f" + std::to_string(i) + ":i8";
  const jlong publisher =
      shared.newPublisher("stream=scheme" + std::to_string(state.range(0)) +
                          ";scheme=?{messages=m;message.m=?{fields=" + fields.substr(1) + "}}");
  const jclass cls = env->FindClass("org/quendel/oxli/Scheme");
  const jmethodID ctor = env->GetMethodID(cls, "<init>", "()V");
  for (auto _ : state) {
    require(env->PushLocalFrame(16) == 0, "PushLocalFrame");
    const jobject scheme = env->NewObject(cls, ctor);
    require(OXLI(pub_1newscheme)(env, nullptr, publisher, scheme) == OX_ERR_OK, "pub_newscheme");
    env->PopLocalFrame(nullptr);
  }
  OXLI(pub_1destroy)(env, nullptr, publisher);
  state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(convertScheme)->ArgName("fields")->Arg(16)->Arg(256)->Arg(4096);

// Parses a settings string. The argument is the number of its pairs.
void parseSettings(benchmark::State& state) {
  objects();
  std::string settings;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    settings += "key" + std::to_string(i) + "=value;";
  }
  const jstring jsettings = env->NewStringUTF(settings.c_str());
  for (auto _ : state) {
    const jobject pairs =
        Java_org_quendel_oxli_ex_impl_OxliImplEx_settings_1parse(env, nullptr, jsettings);
    require(pairs != nullptr, "settings_parse");
    env->DeleteLocalRef(pairs);
  }
  env->DeleteLocalRef(jsettings);
  state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(parseSettings)->ArgName("pairs")->Arg(10)->Arg(1000)->Arg(100000);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  env = oxli::test::startVirtualMachine(OXLI_BENCH_CLASS_PATH);
  require(env != nullptr, "startVirtualMachine");
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
