#include "jni/listener.h"

#include <cstdint>
#include <memory>

#include "jni/base/failure.h"
#include "jni/base/handles.h"
#include "jni/base/locks.h"
#include "jni/base/text.h"
#include "jni/jenv/with_cache.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

ListenerData::~ListenerData() {
  if (connData) connData->unpin();
}

void ListenerData::bindTo(ConnData* connection) {
  connData = connection;
  if (connData) connData->pin();
}

void ListenerData::dropReferences(JNIEnv* environment) {
  jsubscriber.drop(environment);
  jconn.drop(environment);
  jlsn.drop(environment);
  jscheme.drop(environment);
  cache.clear(environment);
}

void ListenerData::retire(JNIEnv* environment) {
  retired = true;
  dropReferences(environment);
  unpin();
}

namespace {

// Both registries, in the only order in which they are locked together.
class ListenerAndConnectionLock {
 public:
  explicit ListenerAndConnectionLock(JEnv& cache) : lsn_(cache.lsnMutex), conn_(cache.connMutex) {}

 private:
  MutexLock lsn_;
  MutexLock conn_;
};

bool isSchemeData(std::uint32_t type) {
  return (type & ~OX_MSG_PARSEERR_BIT) == OX_MSG_DATA || type == OX_MSG_STREAM_DATA;
}

// Fetches the Java `Scheme` for this opening; one that is null is asked for again with the next
// message. False when Java failed or dropped the listener meanwhile.
bool fetchScheme(JNIEnv* env, const JEnv& cache, ListenerData& record) {
  constexpr char kGetScheme[] = "cacheGet getScheme";
  if (!record.jlsn.get()) return false;
  const Pin<ListenerData> pin(record);
  const LocalRef<jobject> scheme(
      env, env->CallObjectMethod(record.jlsn.get(), cache.listener.getScheme));
  if (javaFailed(env, kGetScheme) || record.retired) return false;
  return record.jscheme.get() || record.jscheme.hold(env, scheme.get(), kGetScheme);
}

// The filled Java object for a message, owned by the record's cache; null when it failed.
jobject fetchMessage(JNIEnv* env, const JEnv& cache, ListenerData& record, ox_listener_t* lsn,
                     ox_msg_t* msg) {
  ox_scheme_desc_t* scheme = nullptr;
  if (ox_lsn_getscheme(lsn, &scheme) != OX_ERR_OK) {
    scheme = nullptr;
  } else if (isSchemeData(msg->type) && !record.jscheme.get() && !fetchScheme(env, cache, record)) {
    return nullptr;
  }
  return record.cache.get(env, msg, scheme, record.jscheme.get());
}

// The calling thread's environment, while some thread is inside a call on the listener or its
// connection; else null. What the brackets recorded is not used itself: after calls of two threads
// have overlapped it may belong to a thread that has left.
JNIEnv* deliveringEnvironment(const ListenerData& record) {
  if (!record.env.load() && !(record.connData && record.connData->env.load())) return nullptr;
  void* env = nullptr;
  if (JEnv::spVm->GetEnv(&env, JNI_VERSION_1_6) != JNI_OK) return nullptr;
  return static_cast<JNIEnv*>(env);
}

int deliver(ListenerData& record, ox_listener_t* lsn, ox_msg_t* msg) {
  const JEnv* const cache = JEnv::spInstance;
  if (!cache || !record.jsubscriber.get()) return OX_ERR_INTERNAL;
  JNIEnv* const env = deliveringEnvironment(record);
  if (!env || exceptionPending(env)) return OX_ERR_INTERNAL;

  const jobject message = fetchMessage(env, *cache, record, lsn, msg);
  if (!message || exceptionPending(env)) return OX_ERR_INTERNAL;
  const jint result = env->CallIntMethod(record.jsubscriber.get(), cache->subscriber.onMessage,
                                         record.jconn.get(), record.jlsn.get(), message);
  // The subscriber may have destroyed the listener: the record is not touched any more.
  return exceptionPending(env) ? OX_ERR_INTERNAL : result;
}

jint newListener(JNIEnv* env, JEnv& cache, ConnData& connection, jstring settings,
                 jobject subscriber, jobject ref, jobject jconn, jobject jlsn) {
  constexpr char kSetRef[] = "Java_org_quendel_oxli_impl_OxliImpl_lsn_1new set ref";
  const ListenerAndConnectionLock lock(cache);
  const UtfChars text(env, settings);
  if (text.notTaken("Java_org_quendel_oxli_impl_OxliImpl_lsn_1new settings")) {
    return OX_ERR_INTERNAL;
  }
  auto record = std::make_unique<ListenerData>();
  Reservation<ox_listener_t, ListenerData> entry(record.get());
  if (!record->jsubscriber.hold(env, subscriber, kSetRef) ||
      !record->jconn.hold(env, jconn, kSetRef) || !record->jlsn.hold(env, jlsn, kSetRef)) {
    record->dropReferences(env);
    return OX_ERR_INTERNAL;
  }
  record->bindTo(&connection);

  ox_listener_t* lsn = nullptr;
  if (const int result = ox_lsn_new(connection.conn, text.get(), &ListenerCB, record.get(), &lsn)) {
    record->dropReferences(env);
    return result;
  }
  // From here on the gateway has the record as its callback data, registered or not.
  ListenerData* const bound = record.release();
  bound->lsn = lsn;
  if (const jint result = setObjRef(env, cache, ref, toHandle(bound), kSetRef)) return result;
  entry.replaceIn(ListenerData::sLsnMap, lsn);
  return OX_ERR_OK;
}

jint openListener(JNIEnv* env, JEnv& cache, ListenerData& record, jstring settings) {
  const MutexLock lock(cache.lsnMutex);
  const UtfChars text(env, settings);
  if (text.notTaken("Java_org_quendel_oxli_impl_OxliImpl_lsn_1open settings")) {
    return OX_ERR_INTERNAL;
  }
  record.cache.clear(env);
  const InsideCall<ListenerData> inside(record, env);
  record.jscheme.drop(env);
  return ox_lsn_open(record.lsn, text.get());
}

jint closeListener(JNIEnv* env, JEnv& cache, ListenerData& record) {
  const MutexLock lock(cache.lsnMutex);
  const InsideCall<ListenerData> inside(record, env);
  const jint result = ox_lsn_close(record.lsn);
  record.jscheme.drop(env);
  return result;
}

jint destroyListener(JNIEnv* env, JEnv& cache, ListenerData& record) {
  const MutexLock lock(cache.lsnMutex);
  ox_listener_t* const lsn = record.lsn;
  const InsideCall<ListenerData> inside(record, env);
  const jint result = ox_lsn_destroy(lsn);
  // Destroyed once more by a callback: an entry, if there is one, is that of another listener,
  // which may have got the same handle since.
  if (record.retired) return result;
  if (ListenerData* const registered = take(ListenerData::sLsnMap, lsn)) {
    // A wrap may have replaced this record: it has lost its listener as well.
    if (registered != &record) record.retire(env);
    registered->retire(env);
  }
  return result;
}

jobject wrapListener(JNIEnv* env, JEnv& cache, ox_conn_t* conn, ox_listener_t* lsn, void** out) {
  constexpr char kNewListener[] = "oxjni_lsn_wrap lsn";
  if (exceptionPending(env)) return nullptr;
  auto record = std::make_unique<ListenerData>();
  Reservation<ox_listener_t, ListenerData> entry(record.get());
  record->lsn = lsn;
  LocalRef<jobject> listener(
      env, env->NewObject(cache.listener.cls, cache.listener.ctor, toHandle(record.get())));
  if (javaFailed(env, kNewListener) || !listener.get()) return nullptr;

  const ListenerAndConnectionLock lock(cache);
  if (!record->jlsn.hold(env, listener.get(), kNewListener)) return nullptr;
  record->bindTo(lookUp(ConnData::sConnDataMap, conn));
  // An earlier record stays with the Java object that carries its address.
  entry.replaceIn(ListenerData::sLsnMap, lsn);
  *out = record.release();
  return listener.release();
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1new(
    JNIEnv* env, jclass, jlong connHandle, jstring settings, jobject subscriber, jobject ref,
    jobject connection, jobject listener) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const connData = fromHandle<ConnData>(connHandle);
    if (!settings || !connData || !ref) return OX_ERR_INVALIDARGUMENT;
    return newListener(env, cache, *connData, settings, subscriber, ref, connection, listener);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1open(JNIEnv* env, jclass,
                                                                     jlong handle,
                                                                     jstring settings) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const record = fromHandle<ListenerData>(handle);
    if (!settings || !record) return OX_ERR_INVALIDARGUMENT;
    return openListener(env, cache, *record, settings);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1close(JNIEnv* env, jclass,
                                                                      jlong handle) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const record = fromHandle<ListenerData>(handle);
    return record ? closeListener(env, cache, *record) : OX_ERR_INVALIDARGUMENT;
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1getstate(JNIEnv* env, jclass,
                                                                         jlong handle,
                                                                         jobject state) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const record = fromHandle<ListenerData>(handle);
    if (!state || !record) return OX_ERR_INVALIDARGUMENT;
    const InsideCall<ListenerData> inside(*record, env);
    std::int32_t value = 0;
    if (const int result = ox_lsn_getstate(record->lsn, &value)) return result;
    return setIntRef(env, cache, state, value,
                     "Java_org_quendel_oxli_impl_OxliImpl_lsn_1getstate set state");
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1getscheme(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject ref) {
  return resultWithCache([&](JEnv& cache) -> jint {
    const auto* const record = fromHandle<ListenerData>(handle);
    if (!ref || !record) return OX_ERR_INVALIDARGUMENT;
    ox_scheme_desc_t* scheme = nullptr;
    if (const int result = ox_lsn_getscheme(record->lsn, &scheme)) return result;
    return setObjRef(env, cache, ref, toHandle(scheme),
                     "Java_org_quendel_oxli_impl_OxliImpl_lsn_1getscheme get scheme");
  });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1getname(JNIEnv* env, jclass,
                                                                           jlong) {
  return env->NewStringUTF("");
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1destroy(JNIEnv* env, jclass,
                                                                        jlong handle) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const record = fromHandle<ListenerData>(handle);
    return record ? destroyListener(env, cache, *record) : OX_ERR_INVALIDARGUMENT;
  });
}

jobject oxjni_lsn_wrap(JNIEnv* env, ox_conn_t* conn, ox_listener_t* lsn, void** record) {
  return objectWithCache([&](JEnv& cache) { return wrapListener(env, cache, conn, lsn, record); });
}

void oxjni_lsn_unwrap(JNIEnv* env, ox_listener_t* lsn) {
  doWithCache([&](JEnv& cache) {
    const MutexLock lock(cache.lsnMutex);
    if (ListenerData* const record = take(ListenerData::sLsnMap, lsn)) record->retire(env);
  });
}

jobject oxjni_lsn_cacheget(JNIEnv* env, ox_listener_t* lsn, ox_msg_t* msg, void* record) {
  return objectWithCache([&](JEnv& cache) -> jobject {
    if (!env || !record || exceptionPending(env)) return nullptr;
    return fetchMessage(env, cache, *static_cast<ListenerData*>(record), lsn, msg);
  });
}

int ListenerCB(ox_conn_t*, ox_listener_t* lsn, ox_msg_t* msg, void* data) {
  return atBoundary<int>(OX_ERR_INTERNAL,
                         [&] { return deliver(*static_cast<ListenerData*>(data), lsn, msg); });
}
