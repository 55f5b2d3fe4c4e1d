#include "jni/connection.h"

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

void ConnData::retire(JNIEnv* callerEnv) {
  retired = true;
  jconn.release(callerEnv);
  unpin();
}

namespace {

using NewConnection = NewRecord<ox_conn_t, ConnData>;

jint newConnection(JNIEnv* env, JEnv& classes, jstring settings, jobject ref, jobject connection) {
  constexpr char kSetRef[] = OXLI_STEP("conn_1new set ref");
  const ConnLock lock(classes);
  const UtfChars chars(env, settings, OXLI_STEP("conn_1new settings"));
  if (!chars.ok()) return OX_ERR_INTERNAL;
  NewConnection record(env);
  if (const int result = ox_conn_new(chars.get(), &record->conn)) return result;
  if (!record->jconn.acquire(env, connection, kSetRef)) {
    ox_conn_destroy(record->conn);
    return OX_ERR_INTERNAL;
  }
  record.insertInto(ConnData::sConnDataMap, record->conn);
  return setOutParam(env, ref, classes.objRef.set, toHandle(record.release()), kSetRef);
}

jint openConnection(JNIEnv* env, JEnv& classes, ConnData& record, jstring settings) {
  UtfChars chars(env, settings, OXLI_STEP("conn_1open settings"));
  if (!chars.ok()) return OX_ERR_INTERNAL;
  const ConnLock lock(classes);
  jint result = OX_ERR_OK;
  {
    const GatewayCall call(record, env);
    result = ox_conn_open(record.conn, chars.get());
  }
  chars.release();
  return result;
}

jint closeConnection(JNIEnv* env, JEnv& classes, ConnData& record) {
  const ConnLock lock(classes);
  const GatewayCall call(record, env);
  return ox_conn_close(record.conn);
}

jint processConnection(JNIEnv* env, ConnData& record, jint timeout) {
  const GatewayCall call(record, env);
  return ox_conn_process(record.conn, timeout, nullptr);
}

jint getConnectionState(JNIEnv* env, JEnv& classes, ConnData& record, jobject state) {
  std::int32_t value = 0;
  {
    const GatewayCall call(record, env);
    if (const int result = ox_conn_getstate(record.conn, &value)) return result;
  }
  return setOutParam(env, state, classes.intRef.set, jint{value},
                     OXLI_STEP("conn_1getstate set ref"));
}

jint destroyConnection(JNIEnv* env, JEnv& classes, ConnData& record) {
  const ConnLock lock(classes);
  // A callback of ox_conn_destroy may destroy the connection a second time.
  const Pin pin(record);
  ox_conn_t* const conn = record.conn;
  if (!record.retired) {
    static_cast<void>(remove(ConnData::sConnDataMap, conn));
    record.retire(env);
  }
  return ox_conn_destroy(conn);
}

jobject wrapConnection(JNIEnv* env, JEnv& classes, ox_conn_t* conn) {
  constexpr char kNewConnection[] = "oxjni_conn_wrap new connection";
  if (reportIfPending(env, kNewConnection)) return nullptr;
  NewConnection record(env);
  LocalRef<jobject> connection(
      env, env->NewObject(classes.connection.cls, classes.connection.ctor, toHandle(record.get())));
  if (reportIfPending(env, kNewConnection) || !connection.get()) return nullptr;

  const ConnLock lock(classes);
  record->conn = conn;
  if (!record->jconn.acquire(env, connection.get(), kNewConnection)) return nullptr;
  record.insertInto(ConnData::sConnDataMap, conn);
  static_cast<void>(record.release());
  return connection.detach();
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1new(JNIEnv* env, jclass,
                                                                     jstring settings, jobject ref,
                                                                     jobject connection) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    if (!settings || !ref) return OX_ERR_INVALIDARGUMENT;
    return newConnection(env, classes, settings, ref, connection);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1open(JNIEnv* env, jclass,
                                                                      jlong handle,
                                                                      jstring settings) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    if (!settings || !record) return OX_ERR_INVALIDARGUMENT;
    return openConnection(env, classes, *record, settings);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1close(JNIEnv* env, jclass,
                                                                       jlong handle) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    return record ? closeConnection(env, classes, *record) : OX_ERR_INVALIDARGUMENT;
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1process(JNIEnv* env, jclass,
                                                                         jlong handle,
                                                                         jint timeout) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    return record ? processConnection(env, *record, timeout) : OX_ERR_INVALIDARGUMENT;
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1getstate(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject state) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    if (!state || !record) return OX_ERR_INVALIDARGUMENT;
    return getConnectionState(env, classes, *record, state);
  });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1getname(JNIEnv* env, jclass,
                                                                            jlong) {
  return env->NewStringUTF("");
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_conn_1destroy(JNIEnv* env, jclass,
                                                                         jlong handle) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const record = fromHandle<ConnData>(handle);
    return record ? destroyConnection(env, classes, *record) : OX_ERR_INVALIDARGUMENT;
  });
}

jobject oxjni_conn_wrap(JNIEnv* env, ox_conn_t* conn) {
  return objectWithClasses(
      [&](JEnv& classes) { return env ? wrapConnection(env, classes, conn) : nullptr; });
}

void oxjni_conn_unwrap(JNIEnv* env, ox_conn_t* conn) {
  runWithClasses([&](JEnv& classes) {
    if (!env) return;
    const ConnLock lock(classes);
    if (ConnData* const record = remove(ConnData::sConnDataMap, conn)) record->retire(env);
  });
}
