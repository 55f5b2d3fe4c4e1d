#include "jni/zblock.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>

#include "jni/base/failure.h"
#include "jni/base/handles.h"
#include "jni/base/load.h"
#include "jni/base/locks.h"
#include "jni/jenv/with_cache.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

namespace {

constexpr char kSetZBlock[] = "Java_org_quendel_oxli_impl_OxliImpl_zblock_1wrap set zblock";

// The memory behind a Java buffer; none for a null buffer and for one that is not direct.
struct DirectMemory {
  DirectMemory(JNIEnv* env, jobject buffer)
      : size(buffer ? env->GetDirectBufferCapacity(buffer) : -1),
        address(size < 0 ? nullptr : static_cast<char*>(env->GetDirectBufferAddress(buffer))) {}

  bool isThere() const { return size >= 0; }

  // The descriptor's place in a payload; null when it would not lie inside.
  void* descriptorAt(jlong offset) const {
    constexpr jlong kSize = sizeof(ox_zblock_t);
    return address && offset >= 0 && size >= kSize && offset <= size - kSize ? address + offset
                                                                             : nullptr;
  }

  jlong size;  // bytes, or -1
  char* address;
};

ox_zblock_t descriptorOf(const DirectMemory& block) {
  // A Java buffer is never longer than its `int` says.
  return {static_cast<std::uint32_t>(block.size), block.address};
}

// Whether the block can be a Java buffer.
bool isReadable(const ox_zblock_t& block) {
  return block.size <= std::uint32_t{std::numeric_limits<jint>::max()} &&
         (block.ptr || block.size == 0);
}

// Ends what the record binds; the record itself can be bound anew.
void releaseZBlockData(JNIEnv* env, ZBlockData& record) {
  record.jzblock.drop(env);
  record.jbuffer.drop(env);
  static_cast<void>(take(ZBlockData::sZBlockMap, record.zblock));
  if (record.owned) delete record.zblock;
  record.zblock = nullptr;
  record.owned = false;
}

// Binds a record anew. False, after the line for `step` and with the record released, when a
// reference could not be made.
bool bind(JNIEnv* env, ZBlockData& record, ox_zblock_t* descriptor, jobject zblock, jobject buffer,
          const char* step) {
  releaseZBlockData(env, record);
  record.zblock = descriptor;
  if (record.jzblock.hold(env, zblock, step) && record.jbuffer.hold(env, buffer, step)) return true;
  releaseZBlockData(env, record);
  return false;
}

jint newBlock(JNIEnv* env, JEnv& cache, jobject holder, jobject buffer, jobject zblock) {
  constexpr char kSetRef[] = "Java_org_quendel_oxli_impl_OxliImpl_zblock_1new set ref";
  const MutexLock lock(cache.zblockMutex);
  const DirectMemory block(env, buffer);
  if (!block.isThere()) return OX_ERR_INVALIDARGUMENT;
  auto record = std::make_unique<ZBlockData>();
  auto descriptor = std::make_unique<ox_zblock_t>(descriptorOf(block));
  Reservation<ox_zblock_t, ZBlockData> entry(record.get());
  if (!bind(env, *record, descriptor.get(), zblock, buffer, kSetRef)) return OX_ERR_INTERNAL;

  ZBlockData* const bound = record.release();
  bound->owned = true;
  entry.insertInto(ZBlockData::sZBlockMap, descriptor.release());
  return setObjRef(env, cache, holder, toHandle(bound), kSetRef);
}

jobject newBuffer(JNIEnv* env, const ox_zblock_t& block) {
  // A buffer wants an address even when it is empty.
  static char nowhere;
  return env->NewDirectByteBuffer(block.ptr ? block.ptr : &nowhere, block.size);
}

// Gives the Java `ZBlock` its bytes; null for none, and when there is no memory for the buffer.
void setData(JNIEnv* env, const JEnv& cache, jobject zblock, const ox_zblock_t* block) {
  constexpr char kSetData[] = "Java_org_quendel_oxli_impl_OxliImpl_zblock_1wrap set data";
  if (!zblock || exceptionPending(env)) return;
  const LocalRef<jobject> data(env, block ? newBuffer(env, *block) : nullptr);
  if (block && notMade(env, data.get(), kSetData) && exceptionPending(env)) return;
  env->CallVoidMethod(zblock, cache.zBlock.setData, data.get());
  static_cast<void>(javaFailed(env, kSetData));
}

// The record of the holder's handle, or a new one; null when Java failed.
ZBlockData* recordFor(JNIEnv* env, const JEnv& cache, jobject holder, jlong handle,
                      ox_zblock_t* descriptor) {
  if (auto* const bound = fromHandle<ZBlockData>(handle)) return bound;
  auto record = std::make_unique<ZBlockData>();
  Reservation<ox_zblock_t, ZBlockData> entry(record.get());
  env->CallVoidMethod(holder, cache.objRef.set, toHandle(record.get()));
  if (javaFailed(env, kSetZBlock)) return nullptr;
  entry.insertInto(ZBlockData::sZBlockMap, descriptor);
  return record.release();
}

void wrapBlock(JNIEnv* env, JEnv& cache, jobject payload, jobject holder, jobject zblock,
               jlong offset) {
  void* const place = holder ? DirectMemory(env, payload).descriptorAt(offset) : nullptr;
  if (!place) return setData(env, cache, zblock, nullptr);
  const jlong handle = env->CallLongMethod(holder, cache.message.getRef);
  if (javaFailed(env, "Java_org_quendel_oxli_impl_OxliImpl_zblock_1wrap get ref")) return;

  const MutexLock lock(cache.zblockMutex);
  const auto block = load<ox_zblock_t>(place);
  if (!isReadable(block)) return setData(env, cache, zblock, nullptr);
  auto* const descriptor = static_cast<ox_zblock_t*>(place);
  ZBlockData* const record = recordFor(env, cache, holder, handle, descriptor);
  if (!record) return;
  const bool bound = bind(env, *record, descriptor, zblock, payload, kSetZBlock);
  setData(env, cache, zblock, bound ? &block : nullptr);
}

jint rebindBlock(JNIEnv* env, JEnv& cache, jobject buffer, ZBlockData* record) {
  const MutexLock lock(cache.zblockMutex);
  const DirectMemory block(env, buffer);
  if (!record || !record->zblock) return OX_ERR_INTERNAL;
  if (!block.isThere()) return OX_ERR_INVALIDARGUMENT;
  HeldRef held;
  if (!held.hold(env, buffer, "Java_org_quendel_oxli_impl_OxliImpl_zblock_1rebind buffer")) {
    return OX_ERR_INTERNAL;
  }
  *record->zblock = descriptorOf(block);
  record->jbuffer.swap(held);
  held.drop(env);
  return OX_ERR_OK;
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1new(JNIEnv* env, jclass,
                                                                       jobject holder,
                                                                       jobject buffer,
                                                                       jobject zblock) {
  return resultWithCache([&](JEnv& cache) -> jint {
    if (!holder) return OX_ERR_INVALIDARGUMENT;
    return newBlock(env, cache, holder, buffer, zblock);
  });
}

JNIEXPORT void JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1wrap(
    JNIEnv* env, jclass, jobject payload, jobject holder, jobject zblock, jlong offset) {
  doWithCache([&](JEnv& cache) { wrapBlock(env, cache, payload, holder, zblock, offset); });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1unwrap(JNIEnv* env, jclass,
                                                                          jobject payload,
                                                                          jlong handle,
                                                                          jlong offset) {
  const auto* const record = fromHandle<ZBlockData>(handle);
  void* const place =
      record && record->zblock ? DirectMemory(env, payload).descriptorAt(offset) : nullptr;
  if (!place) return -1;
  // The descriptor may be the one at that very place.
  std::memmove(place, record->zblock, sizeof(ox_zblock_t));
  return 0;
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1rebind(JNIEnv* env, jclass,
                                                                          jobject buffer,
                                                                          jlong handle) {
  return resultWithCache(
      [&](JEnv& cache) { return rebindBlock(env, cache, buffer, fromHandle<ZBlockData>(handle)); });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1destroy(JNIEnv* env, jclass,
                                                                           jlong handle) {
  return resultWithCache([&](JEnv& cache) -> jint {
    const MutexLock lock(cache.zblockMutex);
    const std::unique_ptr<ZBlockData> record(fromHandle<ZBlockData>(handle));
    if (record) releaseZBlockData(env, *record);
    return OX_ERR_OK;
  });
}
