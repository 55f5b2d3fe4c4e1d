// What the library adds to the JNI calls that it cannot avoid. Each benchmark runs the library's
// path and a bare one in turn, within the same iterations, and reports
//   library_ns, bare_ns   per message
//   ratio                 of the two, the figure to look at
// The bare path makes the same gateway and setter calls with nothing around them: no exception
// checks, no cache of message objects, no look at who is calling.
#include <benchmark/benchmark.h>
#include <jni.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "jni/base/memory.h"
#include "jni/connection.h"
#include "jni/jenv/jenv.h"
#include "jni/listener.h"
#include "org_quendel_oxli_impl_OxliImpl.h"
#include "oxli.h"
#include "standin/control.h"

#define OXLI(name) Java_org_quendel_oxli_impl_OxliImpl_##name

namespace {

using oxli::jni::ConnData;
using oxli::jni::fromHandle;
using oxli::jni::JEnv;
using oxli::jni::ListenerData;
using oxli::jni::toHandle;

constexpr std::size_t kBatch = 1000;

JNIEnv* env = nullptr;

void require(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "oxli_bench: %s failed\n", what);
  std::abort();
}

jobject make(const char* className, const char* signature = "()V", jlong argument = 0) {
  const jclass cls = env->FindClass(className);
  const jobject object = env->NewObject(cls, env->GetMethodID(cls, "<init>", signature), argument);
  require(object != nullptr, className);
  return env->NewGlobalRef(object);
}

// The handle that a native stored through its holder.
template <class Native>
jlong made(Native&& native) {
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

// Times both in turn and sets the counters.
template <class Library, class Bare>
void compare(benchmark::State& state, Library&& library, Bare&& bare) {
  double librarySeconds = 0;
  double bareSeconds = 0;
  for (auto _ : state) {
    const double once = seconds(library);
    bareSeconds += seconds(bare);
    librarySeconds += once;
    state.SetIterationTime(once);
  }
  const double messages = static_cast<double>(state.iterations()) * kBatch;
  state.counters["library_ns"] = librarySeconds / messages * 1e9;
  state.counters["bare_ns"] = bareSeconds / messages * 1e9;
  state.counters["ratio"] = librarySeconds / bareSeconds;
}

// Everything that both benchmarks need, made once.
struct Objects {
  jstring empty = static_cast<jstring>(env->NewGlobalRef(env->NewStringUTF("")));
  jobject jconn = make("org/quendel/oxli/Connection", "(J)V");
  jobject jlsn = make("org/quendel/oxli/Listener", "(J)V");
  jobject subscriber = make("org/quendel/oxli/SilentSubscriber");
  jobject outgoing = nullptr;
  jobject delivered = nullptr;  // of the bare path
  jlong connection = 0;
  jlong listener = 0;
  jlong publisher = 0;
  ox_listener_t* bareListener = nullptr;

  Objects() {
    require(OXLI(env_1open)(env, nullptr, empty) == OX_ERR_OK, "env_open");
    connection =
        made([&](jobject ref) { return OXLI(conn_1new)(env, nullptr, empty, ref, jconn); });
    require(OXLI(conn_1open)(env, nullptr, connection, empty) == OX_ERR_OK, "conn_open");
    listener = made([&](jobject ref) {
      return OXLI(lsn_1new)(env, nullptr, connection, empty, subscriber, ref, jconn, jlsn);
    });
    require(OXLI(lsn_1open)(env, nullptr, listener, empty) == OX_ERR_OK, "lsn_open");
    require(ox_lsn_new(native(), "", &Objects::bareCallback, this, &bareListener) == OX_ERR_OK,
            "ox_lsn_new");
    const jobject jpub = make("org/quendel/oxli/Publisher", "(J)V");
    publisher = made(
        [&](jobject ref) { return OXLI(pub_1new)(env, nullptr, connection, empty, ref, jpub); });
    const jstring settings =
        env->NewStringUTF("stream=other;scheme=?{messages=m;message.m=?{fields=f:c32}}");
    require(OXLI(pub_1open)(env, nullptr, publisher, settings) == OX_ERR_OK, "pub_open");
    outgoing = newMessage();
    delivered = newMessage();
    process();
  }

  jobject newMessage() const {
    const jobjectArray out = env->NewObjectArray(1, env->FindClass("java/lang/Object"), nullptr);
    require(OXLI(pub_1msgnew)(env, nullptr, publisher, OX_KEY_NAME, env->NewStringUTF("m"), nullptr,
                              out) == OX_ERR_OK,
            "pub_msgnew");
    return env->NewGlobalRef(env->GetObjectArrayElement(out, 0));
  }
  ox_conn_t* native() const { return fromHandle<ConnData>(connection)->conn; }
  void process() const {
    require(OXLI(conn_1process)(env, nullptr, connection, 0) == OX_ERR_OK, "conn_process");
  }

  static int bareCallback(ox_conn_t*, ox_listener_t* lsn, ox_msg_t* msg, void* data) {
    const Objects& objects = *static_cast<Objects*>(data);
    const JEnv& cache = *JEnv::spInstance;
    const auto& record = *reinterpret_cast<ox_msg_data_t*>(msg);
    ox_scheme_desc_t* scheme = nullptr;
    ox_lsn_getscheme(lsn, &scheme);
    const jobject to = objects.delivered;
    const jobject buffer = env->NewDirectByteBuffer(msg->data, static_cast<jlong>(msg->data_size));
    env->CallVoidMethod(to, cache.message.setData, buffer);
    const jstring address = env->NewStringUTF(record.addr);
    env->CallVoidMethod(to, cache.dataMessage.setUserId, static_cast<jint>(record.user_id));
    env->CallVoidMethod(to, cache.dataMessage.setAddress, address);
    env->CallVoidMethod(to, cache.message.setRef, toHandle(msg));
    const jint result = env->CallIntMethod(objects.subscriber, cache.subscriber.onMessage,
                                           objects.jconn, objects.jlsn, to);
    env->DeleteLocalRef(address);
    env->DeleteLocalRef(buffer);
    return result;
  }
};

Objects& objects() {
  static Objects made;
  return made;
}

void deliverData(benchmark::State& state) {
  const Objects& on = objects();
  char payload[32] = {};
  ox_msg_data_t msg = {};
  msg.head.type = OX_MSG_DATA;
  msg.head.data = payload;
  msg.head.data_size = sizeof payload;
  msg.msg_name = "m";
  msg.addr = "address";
  const auto deliverTo = [&](ox_listener_t* lsn) {
    return [&, lsn] {
      standin::deliver(lsn, &msg.head, kBatch);
      on.process();
    };
  };
  compare(state, deliverTo(fromHandle<ListenerData>(on.listener)->lsn), deliverTo(on.bareListener));
}
BENCHMARK(deliverData)->UseManualTime();

void postData(benchmark::State& state) {
  const Objects& on = objects();
  const JEnv& cache = *JEnv::spInstance;
  auto* const pub = fromHandle<ox_publisher_t>(on.publisher);
  compare(
      state,
      [&] {
        for (std::size_t i = 0; i < kBatch; ++i) {
          require(OXLI(pub_1post)(env, nullptr, on.publisher, on.outgoing, 0) == OX_ERR_OK,
                  "pub_post");
        }
      },
      [&] {
        for (std::size_t i = 0; i < kBatch; ++i) {
          auto* const msg =
              fromHandle<ox_msg_data_t>(env->CallLongMethod(on.outgoing, cache.message.getRef));
          msg->user_id = static_cast<std::uint32_t>(
              env->CallIntMethod(on.outgoing, cache.dataMessage.getUserId));
          env->DeleteLocalRef(env->CallObjectMethod(on.outgoing, cache.dataMessage.getAddress));
          env->DeleteLocalRef(env->CallObjectMethod(on.outgoing, cache.dataMessage.getRefMessage));
          require(ox_pub_post(pub, &msg->head, 0) == OX_ERR_OK, "ox_pub_post");
        }
      });
}
BENCHMARK(postData)->UseManualTime();

}  // namespace

extern "C" {

// Makes the virtual machine take this program for the library: the natives are linked in.
JNIEXPORT jint JNI_OnLoad_oxli_jni(JavaVM*, void*);
JNIEXPORT jint JNI_OnLoad_oxli_jni(JavaVM*, void*) {
  return JNI_VERSION_1_8;
}
}

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::string classPath = "-Djava.class.path=" OXLI_BENCH_CLASS_PATH;
  JavaVMOption option = {classPath.data(), nullptr};
  JavaVMInitArgs args = {};
  args.version = JNI_VERSION_1_8;
  args.nOptions = 1;
  args.options = &option;
  JavaVM* vm = nullptr;
  void* created = nullptr;
  require(JNI_CreateJavaVM(&vm, &created, &args) == JNI_OK, "JNI_CreateJavaVM");
  env = static_cast<JNIEnv*>(created);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
