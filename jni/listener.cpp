#include "jni/listener.h"

#include <cstdint>

#include "jni/base/failure.h"
#include "jni/base/memory.h"
#include "jni/base/out_params.h"
#include "jni/base/strings.h"
#include "jni/jenv/locks.h"
#include "jni/jenv/with_classes.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

ListenerData::~ListenerData() {
  if (connData) connData->unpin();
}

void ListenerData::setConnection(ConnData* connection) {
  connData = connection;
  if (connData) connData->pin();
}

void ListenerData::retire(JNIEnv* callerEnv) {
  retired = true;
  jsubscriber.release(callerEnv);
  jconn.release(callerEnv);
  jlsn.release(callerEnv);
  jscheme.release(callerEnv);
  cache.clear(callerEnv);
  if (GatewayCalls* const calls = this->calls()) {
    calls->unpinBetweenCalls(*this);
  } else {
    unpin();
  }
}

namespace {

using NewListener = NewRecord<ox_listener_t, ListenerData>;

// Locks the registries of listeners and connections, in lock order.
class SCOPED_CAPABILITY LsnAndConnLock {
 public:
  explicit LsnAndConnLock(JEnv& classes)
      ACQUIRE(JEnv::spInstance->lsnMutex, JEnv::spInstance->connMutex)
      : lsn_(classes), conn_(classes) {}
  ~LsnAndConnLock() RELEASE() {}

 private:
  LsnLock lsn_;
  ConnLock conn_;
};

bool isSchemeData(std::uint32_t type) {
  return (type & ~OX_MSG_PARSEERR_BIT) == OX_MSG_DATA || type == OX_MSG_STREAM_DATA;
}

// Stores the Java `Scheme` of this opening in the record. Returns false if there is no Java
// listener, if getScheme throws or destroys the listener, or if the reference cannot be made. A
// null scheme is no failure: it is fetched again for the next message.
bool fetchScheme(JNIEnv* env, const JEnv& classes, ListenerData& record) {
  constexpr char kGetScheme[] = "cacheGet getScheme";
  if (!record.jlsn.get()) return false;
  const Pin pin(record);
  const LocalRef<jobject> scheme(
      env, env->CallObjectMethod(record.jlsn.get(), classes.listener.getScheme));
  if (reportIfPending(env, kGetScheme) || record.retired) return false;
  // getScheme may have delivered a message, for which the scheme has been stored already.
  return record.jscheme.get() || record.jscheme.acquire(env, scheme.get(), kGetScheme);
}

// Fills the Java object of a message and returns it. `complete` is false if filling fails; `object`
// is null if the Java `Scheme` cannot be fetched or the object cannot be made. If the gateway
// returns no scheme description, fills the object without it. REQUIRES: no exception is pending.
CachedMessage fetchMessage(JNIEnv* env, const JEnv& classes, ListenerData& record,
                           ox_listener_t* lsn, ox_msg_t* msg) {
  ox_scheme_desc_t* scheme = nullptr;
  if (ox_lsn_getscheme(lsn, &scheme) != OX_ERR_OK) {
    scheme = nullptr;
  } else if (isSchemeData(msg->type) && !record.jscheme.get() &&
             !fetchScheme(env, classes, record)) {
    return {};
  }
  return record.cache.get(env, msg, scheme, record.jscheme.get());
}

// Returns the JNIEnv of the calling thread if the thread is attached and some thread is inside a
// gateway call on the listener or its connection; otherwise null. The stored JNIEnv is only
// compared with null: after overlapping calls of two threads it may belong to a thread that is no
// longer inside a call.
JNIEnv* callbackEnv(ListenerData& record) {
  if (!record.env.load() && !(record.connData && record.connData->env.load())) return nullptr;
  const GatewayCalls* const calls = record.calls();
  if (calls && !calls->inProgress()) return nullptr;
  void* env = nullptr;
  if (JEnv::spVm->GetEnv(&env, JNI_VERSION_1_6) != JNI_OK) return nullptr;
  return static_cast<JNIEnv*>(env);
}

int deliver(ListenerData& record, ox_listener_t* lsn, ox_msg_t* msg) {
  const JEnv* const classes = JEnv::spInstance;
  if (!classes || record.retired) return OX_ERR_INTERNAL;
  JNIEnv* const env = callbackEnv(record);
  if (!env || exceptionPending(env)) return OX_ERR_INTERNAL;

  const CachedMessage message = fetchMessage(env, *classes, record, lsn, msg);
  if (!message.complete || !record.jsubscriber.get()) return OX_ERR_INTERNAL;
  const jint result = env->CallIntMethod(record.jsubscriber.get(), classes->subscriber.onMessage,
                                         record.jconn.get(), record.jlsn.get(), message.object);
  return exceptionPending(env) ? OX_ERR_INTERNAL : result;
}

jint newListener(JNIEnv* env, JEnv& classes, ConnData& connection, jstring settings,
                 jobject subscriber, jobject ref, jobject jconn, jobject jlsn) {
  constexpr char kSetRef[] = OXLI_STEP("lsn_1new set ref");
  const LsnAndConnLock lock(classes);
  const UtfChars chars(env, settings, OXLI_STEP("lsn_1new settings"));
  if (!chars.ok()) return OX_ERR_INTERNAL;
  NewListener record(env);
  if (!record->jsubscriber.acquire(env, subscriber, kSetRef) ||
      !record->jconn.acquire(env, jconn, kSetRef) || !record->jlsn.acquire(env, jlsn, kSetRef)) {
    return OX_ERR_INTERNAL;
  }
  record->setConnection(&connection);

  ox_listener_t* lsn = nullptr;
  if (const int result =
          ox_lsn_new(connection.conn, chars.get(), &ListenerCB, record.get(), &lsn)) {
    return result;
  }
  record->lsn = lsn;
  if (reportIfPending(env, kSetRef)) {
    ox_lsn_destroy(lsn);
    return OX_ERR_INTERNAL;
  }
  // From here on this function must not free the record, even if the out-parameter cannot be
  // written: the gateway uses the record as callback data.
  ListenerData* const bound = record.release();
  const jint result = setOutParam(env, ref, classes.objRef.set, toHandle(bound), kSetRef);
  if (result != OX_ERR_OK) return result;
  bound->registered = true;
  record.replaceIn(ListenerData::sLsnMap, lsn);
  return OX_ERR_OK;
}

jint openListener(JNIEnv* env, JEnv& classes, ListenerData& record, jstring settings) {
  const LsnLock lock(classes);
  const UtfChars chars(env, settings, OXLI_STEP("lsn_1open settings"));
  if (!chars.ok()) return OX_ERR_INTERNAL;
  record.cache.clear(env);
  const GatewayCall call(record, env);
  record.jscheme.release(env);
  return ox_lsn_open(record.lsn, chars.get());
}

jint closeListener(JNIEnv* env, JEnv& classes, ListenerData& record) {
  const LsnLock lock(classes);
  const GatewayCall call(record, env);
  const jint result = ox_lsn_close(record.lsn);
  record.jscheme.release(env);
  return result;
}

jint getListenerState(JNIEnv* env, JEnv& classes, ListenerData& record, jobject state) {
  const GatewayCall call(record, env);
  std::int32_t value = 0;
  if (const int result = ox_lsn_getstate(record.lsn, &value)) return result;
  return setOutParam(env, state, classes.intRef.set, jint{value},
                     OXLI_STEP("lsn_1getstate set state"));
}

jint getListenerScheme(JNIEnv* env, JEnv& classes, const ListenerData& record, jobject ref) {
  ox_scheme_desc_t* scheme = nullptr;
  if (const int result = ox_lsn_getscheme(record.lsn, &scheme)) return result;
  return setOutParam(env, ref, classes.objRef.set, toHandle(scheme),
                     OXLI_STEP("lsn_1getscheme get scheme"));
}

jint destroyListener(JNIEnv* env, JEnv& classes, ListenerData& record) {
  const LsnLock lock(classes);
  ox_listener_t* const lsn = record.lsn;
  const GatewayCall call(record, env);
  const jint result = ox_lsn_destroy(lsn);
  // If a callback has already destroyed the listener, another listener may have the same address.
  // The registry entry then belongs to that listener.
  if (record.retired) return result;
  const bool hadEntry = remove(ListenerData::sLsnMap, lsn) != nullptr;
  if (hadEntry || record.registered) record.retire(env);
  return result;
}

jobject wrapListener(JNIEnv* env, JEnv& classes, ox_conn_t* conn, ox_listener_t* lsn, void** out) {
  constexpr char kNewListener[] = "oxjni_lsn_wrap lsn";
  if (reportIfPending(env, kNewListener)) return nullptr;
  NewListener record(env);
  record->lsn = lsn;
  LocalRef<jobject> listener(
      env, env->NewObject(classes.listener.cls, classes.listener.ctor, toHandle(record.get())));
  if (reportIfPending(env, kNewListener) || !listener.get()) return nullptr;

  const LsnAndConnLock lock(classes);
  if (!record->jlsn.acquire(env, listener.get(), kNewListener)) return nullptr;
  record->setConnection(find(ConnData::sConnDataMap, conn));
  record->registered = true;
  // A replaced record stays in memory, because its address is the handle of a Java object.
  record.replaceIn(ListenerData::sLsnMap, lsn);
  *out = record.release();
  return listener.detach();
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1new(
    JNIEnv* env, jclass, jlong connHandle, jstring settings, jobject subscriber, jobject ref,
    jobject connection, jobject listener) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const connData = fromHandle<ConnData>(connHandle);
    if (!settings || !connData || !ref) return OX_ERR_INVALIDARGUMENT;
    return newListener(env, classes, *connData, settings, subscriber, ref, connection, listener);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1open(JNIEnv* env, jclass,
                                                                     jlong handle,
                                                                     jstring settings) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const record = fromHandle<ListenerData>(handle);
    if (!settings || !record) return OX_ERR_INVALIDARGUMENT;
    return openListener(env, classes, *record, settings);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1close(JNIEnv* env, jclass,
                                                                      jlong handle) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const record = fromHandle<ListenerData>(handle);
    return record ? closeListener(env, classes, *record) : OX_ERR_INVALIDARGUMENT;
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1getstate(JNIEnv* env, jclass,
                                                                         jlong handle,
                                                                         jobject state) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const record = fromHandle<ListenerData>(handle);
    if (!state || !record) return OX_ERR_INVALIDARGUMENT;
    return getListenerState(env, classes, *record, state);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1getscheme(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject ref) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    const auto* const record = fromHandle<ListenerData>(handle);
    if (!ref || !record) return OX_ERR_INVALIDARGUMENT;
    return getListenerScheme(env, classes, *record, ref);
  });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1getname(JNIEnv* env, jclass,
                                                                           jlong) {
  return env->NewStringUTF("");
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1destroy(JNIEnv* env, jclass,
                                                                        jlong handle) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const record = fromHandle<ListenerData>(handle);
    return record ? destroyListener(env, classes, *record) : OX_ERR_INVALIDARGUMENT;
  });
}

jobject oxjni_lsn_wrap(JNIEnv* env, ox_conn_t* conn, ox_listener_t* lsn, void** record) {
  return objectWithClasses([&](JEnv& classes) {
    return env && record ? wrapListener(env, classes, conn, lsn, record) : nullptr;
  });
}

void oxjni_lsn_unwrap(JNIEnv* env, ox_listener_t* lsn) {
  runWithClasses([&](JEnv& classes) {
    if (!env) return;
    const LsnLock lock(classes);
    if (ListenerData* const record = remove(ListenerData::sLsnMap, lsn)) record->retire(env);
  });
}

jobject oxjni_lsn_cacheget(JNIEnv* env, ox_listener_t* lsn, ox_msg_t* msg, void* record) {
  return objectWithClasses([&](JEnv& classes) -> jobject {
    auto* const data = static_cast<ListenerData*>(record);
    if (!env || !msg || !data || data->retired || exceptionPending(env)) return nullptr;
    const CachedMessage message = fetchMessage(env, classes, *data, lsn, msg);
    // A partly filled object is returned only with an exception pending: without one the caller
    // would take it for a complete object.
    return message.complete || exceptionPending(env) ? message.object : nullptr;
  });
}

int ListenerCB(ox_conn_t*, ox_listener_t* lsn, ox_msg_t* msg, void* data) {
  if (!data || !msg) return OX_ERR_INTERNAL;
  return atBoundary<int>(OX_ERR_INTERNAL,
                         [&] { return deliver(*static_cast<ListenerData*>(data), lsn, msg); });
}
