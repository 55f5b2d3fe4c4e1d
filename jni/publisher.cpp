#include "jni/publisher.h"

#include <cstdint>
#include <memory>

#include "jni/base/failure.h"
#include "jni/base/handles.h"
#include "jni/base/locks.h"
#include "jni/base/text.h"
#include "jni/connection.h"
#include "jni/jenv/with_cache.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

namespace {

// Drops the reference and frees the record; null is ignored.
void retire(JNIEnv* env, PublisherData* record) {
  if (!record) return;
  record->jpub.drop(env);
  delete record;
}

jint newPublisher(JNIEnv* env, JEnv& cache, ox_conn_t* conn, jstring settings, jobject ref,
                  jobject publisher) {
  constexpr char kSetRef[] = "Java_org_quendel_oxli_impl_OxliImpl_pub_1new set obj ref";
  const MutexLock lock(cache.pubMutex);
  const UtfChars text(env, settings);
  if (text.notTaken("Java_org_quendel_oxli_impl_OxliImpl_pub_1new settings")) {
    return OX_ERR_INTERNAL;
  }
  auto record = std::make_unique<PublisherData>();
  Reservation<ox_publisher_t, PublisherData> entry(record.get());

  ox_publisher_t* pub = nullptr;
  if (const int result = ox_pub_new(conn, text.get(), &pub)) return result;
  record->pub = pub;
  if (!record->jpub.hold(env, publisher, kSetRef)) {
    ox_pub_destroy(pub);
    return OX_ERR_INTERNAL;
  }
  static_cast<void>(record.release());
  retire(env, entry.replaceIn(PublisherData::sPubMap, pub));
  return setObjRef(env, cache, ref, toHandle(pub), kSetRef);
}

jobject wrapPublisher(JNIEnv* env, JEnv& cache, ox_publisher_t* pub) {
  constexpr char kNewObject[] = "oxjni_pub_wrap new object";
  if (exceptionPending(env)) return nullptr;
  auto record = std::make_unique<PublisherData>();
  Reservation<ox_publisher_t, PublisherData> entry(record.get());
  LocalRef<jobject> publisher(
      env, env->NewObject(cache.publisher.cls, cache.publisher.ctor, toHandle(pub)));
  if (javaFailed(env, kNewObject) || !publisher.get()) return nullptr;

  const MutexLock lock(cache.pubMutex);
  record->pub = pub;
  if (!record->jpub.hold(env, publisher.get(), kNewObject)) return nullptr;
  static_cast<void>(record.release());
  retire(env, entry.replaceIn(PublisherData::sPubMap, pub));
  return publisher.release();
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1new(JNIEnv* env, jclass,
                                                                    jlong connHandle,
                                                                    jstring settings, jobject ref,
                                                                    jobject publisher) {
  return resultWithCache([&](JEnv& cache) -> jint {
    const auto* const connData = fromHandle<ConnData>(connHandle);
    if (!settings || !connData || !ref) return OX_ERR_INVALIDARGUMENT;
    return newPublisher(env, cache, connData->conn, settings, ref, publisher);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1destroy(JNIEnv* env, jclass,
                                                                        jlong handle) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const pub = fromHandle<ox_publisher_t>(handle);
    const MutexLock lock(cache.pubMutex);
    retire(env, take(PublisherData::sPubMap, pub));
    return ox_pub_destroy(pub);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1open(JNIEnv* env, jclass,
                                                                     jlong handle,
                                                                     jstring settings) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    if (!settings) return OX_ERR_INVALIDARGUMENT;
    const UtfChars text(env, settings);
    if (text.notTaken("Java_org_quendel_oxli_impl_OxliImpl_pub_1open settings")) {
      return OX_ERR_INTERNAL;
    }
    return ox_pub_open(fromHandle<ox_publisher_t>(handle), text.get());
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
  return resultWithCache([&](JEnv& cache) -> jint {
    if (!state) return OX_ERR_INVALIDARGUMENT;
    std::int32_t value = 0;
    if (const int result = ox_pub_getstate(fromHandle<ox_publisher_t>(handle), &value)) {
      return result;
    }
    return setIntRef(env, cache, state, value,
                     "Java_org_quendel_oxli_impl_OxliImpl_pub_1getstate set state");
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1getscheme(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject ref) {
  return resultWithCache([&](JEnv& cache) -> jint {
    if (!ref) return OX_ERR_INVALIDARGUMENT;
    ox_scheme_desc_t* scheme = nullptr;
    if (const int result = ox_pub_getscheme(fromHandle<ox_publisher_t>(handle), &scheme)) {
      return result;
    }
    return setObjRef(env, cache, ref, toHandle(scheme),
                     "Java_org_quendel_oxli_impl_OxliImpl_pub_1getscheme set objref");
  });
}

JNIEXPORT jstring JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1getname(JNIEnv* env, jclass,
                                                                           jlong) {
  return env->NewStringUTF("");
}

jobject oxjni_pub_wrap(JNIEnv* env, ox_publisher_t* pub) {
  return objectWithCache([&](JEnv& cache) { return wrapPublisher(env, cache, pub); });
}

void oxjni_pub_unwrap(JNIEnv* env, ox_publisher_t* pub) {
  doWithCache([&](JEnv& cache) {
    const MutexLock lock(cache.pubMutex);
    retire(env, take(PublisherData::sPubMap, pub));
  });
}
