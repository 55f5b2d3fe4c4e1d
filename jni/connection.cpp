#include "jni/connection.h"

#include <memory>

#include "jni/base/failure.h"
#include "jni/base/handles.h"
#include "jni/base/locks.h"
#include "jni/base/text.h"
#include "jni/jenv/with_cache.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

void ConnData::retire(JNIEnv* environment) {
  jconn.drop(environment);
  unpin();
}

namespace {

jint newConnection(JNIEnv* env, JEnv& cache, jstring settings, jobject ref, jobject connection) {
  constexpr char kSetRef[] = "Java_org_quendel_oxli_impl_OxliImpl_conn_1new set ref";
  const MutexLock lock(cache.connMutex);
  const UtfChars text(env, settings);
  if (text.notTaken("Java_org_quendel_oxli_impl_OxliImpl_conn_1new settings")) {
    return OX_ERR_INTERNAL;
  }
  auto record = std::make_unique<ConnData>();
  Reservation<ox_conn_t, ConnData> entry(record.get());

  if (const int result = ox_conn_new(text.get(), &record->conn)) return result;
  if (!record->jconn.hold(env, connection, kSetRef)) {
    ox_conn_destroy(record->conn);
    return OX_ERR_INTERNAL;
  }
  entry.insertInto(ConnData::sConnDataMap, record->conn);
  return setObjRef(env, cache, ref, toHandle(record.release()), kSetRef);
}

jint destroyConnection(JNIEnv* env, JEnv& cache, ConnData& record) {
  const MutexLock lock(cache.connMutex);
  ox_conn_t* const conn = record.conn;
  record.jconn.drop(env);
  ConnData* const registered = take(ConnData::sConnDataMap, conn);
  record.retire(env);
  // The record of a wrapped connection is not the registered one if it was bound before.
  if (registered && registered != &record) registered->retire(env);
  return ox_conn_destroy(conn);
}

jobject wrapConnection(JNIEnv* env, JEnv& cache, ox_conn_t* conn) {
  constexpr char kNewConnection[] = "oxjni_conn_wrap new connection";
  if (exceptionPending(env)) return nullptr;
  auto record = std::make_unique<ConnData>();
  Reservation<ox_conn_t, ConnData> entry(record.get());
  LocalRef<jobject> connection(
      env, env->NewObject(cache.connection.cls, cache.connection.ctor, toHandle(record.get())));
  if (javaFailed(env, kNewConnection) || !connection.get()) return nullptr;

  const MutexLock lock(cache.connMutex);
  record->conn = conn;
  if (!record->jconn.hold(env, connection.get(), kNewConnection)) return nullptr;
  entry.insertInto(ConnData::sConnDataMap, conn);
  static_cast<void>(record.release());
  return connection.release();
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1new(JNIEnv* env, jclass,
                                                                     jstring settings, jobject ref,
                                                                     jobject connection) {
  return resultWithCache([&](JEnv& cache) -> jint {
    if (!settings || !ref) return OX_ERR_INVALIDARGUMENT;
    return newConnection(env, cache, settings, ref, connection);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1open(JNIEnv* env, jclass,
                                                                      jlong handle,
                                                                      jstring settings) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    if (!settings || !record) return OX_ERR_INVALIDARGUMENT;
    UtfChars text(env, settings);
    if (text.notTaken("Java_org_quendel_oxli_impl_OxliImpl_conn_1open settings")) {
      return OX_ERR_INTERNAL;
    }
    const MutexLock lock(cache.connMutex);
    const InsideCall<ConnData> inside(*record, env);
    const jint result = ox_conn_open(record->conn, text.get());
    text.release();
    return result;
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1close(JNIEnv* env, jclass,
                                                                       jlong handle) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    if (!record) return OX_ERR_INVALIDARGUMENT;
    const MutexLock lock(cache.connMutex);
    const InsideCall<ConnData> inside(*record, env);
    return ox_conn_close(record->conn);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1process(JNIEnv* env, jclass,
                                                                         jlong handle,
                                                                         jint timeout) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    if (!record) return OX_ERR_INVALIDARGUMENT;
    const InsideCall<ConnData> inside(*record, env);
    return ox_conn_process(record->conn, timeout, nullptr);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1getstate(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject state) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    if (!state || !record) return OX_ERR_INVALIDARGUMENT;
    std::int32_t value = 0;
    {
      const InsideCall<ConnData> inside(*record, env);
      if (const int result = ox_conn_getstate(record->conn, &value)) return result;
    }
    return setIntRef(env, cache, state, value,
                     "Java_org_quendel_oxli_impl_OxliImpl_conn_1getstate set ref");
  });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1getname(JNIEnv* env, jclass,
                                                                            jlong) {
  return env->NewStringUTF("");
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1destroy(JNIEnv* env, jclass,
                                                                         jlong handle) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    return record ? destroyConnection(env, cache, *record) : OX_ERR_INVALIDARGUMENT;
  });
}

jobject oxjni_conn_wrap(JNIEnv* env, ox_conn_t* conn) {
  return objectWithCache([&](JEnv& cache) { return wrapConnection(env, cache, conn); });
}

void oxjni_conn_unwrap(JNIEnv* env, ox_conn_t* conn) {
  doWithCache([&](JEnv& cache) {
    const MutexLock lock(cache.connMutex);
    if (ConnData* const record = take(ConnData::sConnDataMap, conn)) record->retire(env);
  });
}
