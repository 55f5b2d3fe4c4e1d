#include "jni/publisher.h"

#include <cstdint>

#include "jni/base/failure.h"
#include "jni/base/memory.h"
#include "jni/base/out_params.h"
#include "jni/base/strings.h"
#include "jni/connection.h"
#include "jni/jenv/locks.h"
#include "jni/jenv/with_classes.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

void PublisherData::retire(JNIEnv* env) {
  jpub.release(env);
  delete this;
}

namespace {

using NewPublisher = NewRecord<ox_publisher_t, PublisherData>;

// Registers the record. Retires an earlier record of the same handle.
void registerRecord(JNIEnv* env, NewPublisher& record, ox_publisher_t* pub)
    REQUIRES(JEnv::spInstance->pubMutex) {
  static_cast<void>(record.release());
  PublisherData* const replaced = record.replaceIn(PublisherData::sPubMap, pub);
  if (replaced) replaced->retire(env);
}

jint newPublisher(JNIEnv* env, JEnv& classes, ox_conn_t* conn, jstring settings, jobject ref,
                  jobject publisher) {
  constexpr char kSetRef[] = OXLI_STEP("pub_1new set obj ref");
  const PubLock lock(classes);
  const UtfChars chars(env, settings, OXLI_STEP("pub_1new settings"));
  if (!chars.ok()) return OX_ERR_INTERNAL;
  NewPublisher record(env);

  ox_publisher_t* pub = nullptr;
  if (const int result = ox_pub_new(conn, chars.get(), &pub)) return result;
  record->pub = pub;
  if (!record->jpub.acquire(env, publisher, kSetRef)) {
    ox_pub_destroy(pub);
    return OX_ERR_INTERNAL;
  }
  registerRecord(env, record, pub);
  return setOutParam(env, ref, classes.objRef.set, toHandle(pub), kSetRef);
}

jint openPublisher(JNIEnv* env, ox_publisher_t* pub, jstring settings) {
  const UtfChars chars(env, settings, OXLI_STEP("pub_1open settings"));
  return chars.ok() ? ox_pub_open(pub, chars.get()) : OX_ERR_INTERNAL;
}

jint getPublisherState(JNIEnv* env, JEnv& classes, ox_publisher_t* pub, jobject state) {
  std::int32_t value = 0;
  if (const int result = ox_pub_getstate(pub, &value)) return result;
  return setOutParam(env, state, classes.intRef.set, jint{value},
                     OXLI_STEP("pub_1getstate set state"));
}

jint getPublisherScheme(JNIEnv* env, JEnv& classes, ox_publisher_t* pub, jobject ref) {
  ox_scheme_desc_t* scheme = nullptr;
  if (const int result = ox_pub_getscheme(pub, &scheme)) return result;
  return setOutParam(env, ref, classes.objRef.set, toHandle(scheme),
                     OXLI_STEP("pub_1getscheme set objref"));
}

jint destroyPublisher(JNIEnv* env, JEnv& classes, ox_publisher_t* pub) {
  const PubLock lock(classes);
  if (PublisherData* const record = remove(PublisherData::sPubMap, pub)) record->retire(env);
  return ox_pub_destroy(pub);
}

jobject wrapPublisher(JNIEnv* env, JEnv& classes, ox_publisher_t* pub) {
  constexpr char kNewObject[] = "oxjni_pub_wrap new object";
  if (reportIfPending(env, kNewObject)) return nullptr;
  NewPublisher record(env);
  LocalRef<jobject> publisher(
      env, env->NewObject(classes.publisher.cls, classes.publisher.ctor, toHandle(pub)));
  if (reportIfPending(env, kNewObject) || !publisher.get()) return nullptr;

  const PubLock lock(classes);
  record->pub = pub;
  if (!record->jpub.acquire(env, publisher.get(), kNewObject)) return nullptr;
  registerRecord(env, record, pub);
  return publisher.detach();
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1new(JNIEnv* env, jclass,
                                                                    jlong connHandle,
                                                                    jstring settings, jobject ref,
                                                                    jobject publisher) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    const auto* const connData = fromHandle<ConnData>(connHandle);
    if (!settings || !connData || !ref) return OX_ERR_INVALIDARGUMENT;
    return newPublisher(env, classes, connData->conn, settings, ref, publisher);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1destroy(JNIEnv* env, jclass,
                                                                        jlong handle) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    return destroyPublisher(env, classes, fromHandle<ox_publisher_t>(handle));
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1open(JNIEnv* env, jclass,
                                                                     jlong handle,
                                                                     jstring settings) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    if (!settings) return OX_ERR_INVALIDARGUMENT;
    return openPublisher(env, fromHandle<ox_publisher_t>(handle), settings);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1close(JNIEnv*, jclass,
                                                                      jlong handle) {
  return atBoundary<jint>(
      OX_ERR_INTERNAL, [&]() -> jint { return ox_pub_close(fromHandle<ox_publisher_t>(handle)); });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1getstate(JNIEnv* env, jclass,
                                                                         jlong handle,
                                                                         jobject state) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    if (!state) return OX_ERR_INVALIDARGUMENT;
    return getPublisherState(env, classes, fromHandle<ox_publisher_t>(handle), state);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1getscheme(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject ref) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    if (!ref) return OX_ERR_INVALIDARGUMENT;
    return getPublisherScheme(env, classes, fromHandle<ox_publisher_t>(handle), ref);
  });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1getname(JNIEnv* env, jclass,
                                                                           jlong) {
  return env->NewStringUTF("");
}

jobject oxjni_pub_wrap(JNIEnv* env, ox_publisher_t* pub) {
  return objectWithClasses(
      [&](JEnv& classes) { return env ? wrapPublisher(env, classes, pub) : nullptr; });
}

void oxjni_pub_unwrap(JNIEnv* env, ox_publisher_t* pub) {
  runWithClasses([&](JEnv& classes) {
    if (!env) return;
    const PubLock lock(classes);
    if (PublisherData* const record = remove(PublisherData::sPubMap, pub)) record->retire(env);
  });
}
