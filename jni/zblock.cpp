#include "jni/zblock.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>

#include "jni/base/failure.h"
#include "jni/base/memory.h"
#include "jni/base/out_params.h"
#include "jni/jenv/locks.h"
#include "jni/jenv/with_classes.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

void ZBlockData::unbind(JNIEnv* env) {
  jzblock.release(env);
  jbuffer.release(env);
  static_cast<void>(remove(sZBlockMap, zblock));
  if (owned) delete zblock;
  zblock = nullptr;
  owned = false;
}

void ZBlockData::retire(JNIEnv* env) {
  unbind(env);
  delete this;
}

namespace {

using NewZBlock = NewRecord<ox_zblock_t, ZBlockData>;

constexpr char kSetZBlock[] = OXLI_STEP("zblock_1wrap set zblock");

// The memory of a direct Java buffer. isPresent() is false if the buffer is null or not direct.
struct DirectMemory {
  DirectMemory(JNIEnv* env, jobject buffer)
      : size(buffer ? env->GetDirectBufferCapacity(buffer) : -1),
        address(size < 0 ? nullptr : static_cast<char*>(env->GetDirectBufferAddress(buffer))) {}

  bool isPresent() const { return size >= 0; }

  // Returns the z-block descriptor at an offset in this memory, or null if a descriptor at that
  // offset would not be entirely inside the memory.
  ox_zblock_t* descriptorAt(jlong offset) const {
    constexpr jlong kSize = sizeof(ox_zblock_t);
    const bool inside = address && offset >= 0 && size >= kSize && offset <= size - kSize;
    return inside ? reinterpret_cast<ox_zblock_t*>(address + offset) : nullptr;
  }

  jlong size;  // bytes, or -1
  char* address;
};

ox_zblock_t makeDescriptor(const DirectMemory& block) {
  // The size fits, because the capacity of a Java buffer is an int.
  return {static_cast<std::uint32_t>(block.size), block.address};
}

// Returns whether a Java buffer can be made over the block.
bool isReadable(const ox_zblock_t& block) {
  return block.size <= std::uint32_t{std::numeric_limits<jint>::max()} &&
         (block.ptr || block.size == 0);
}

// Binds an unbound record. If a reference cannot be made, writes the line for `step`, leaves the
// record unbound and returns false.
bool bind(JNIEnv* env, ZBlockData& record, ox_zblock_t* descriptor, jobject zblock, jobject buffer,
          const char* step) REQUIRES(JEnv::spInstance->zblockMutex) {
  record.zblock = descriptor;
  if (record.jzblock.acquire(env, zblock, step) && record.jbuffer.acquire(env, buffer, step)) {
    return true;
  }
  record.unbind(env);
  return false;
}

jint newBlock(JNIEnv* env, JEnv& classes, jobject ref, jobject buffer, jobject zblock) {
  constexpr char kSetRef[] = OXLI_STEP("zblock_1new set ref");
  const ZBlockLock lock(classes);
  const DirectMemory block(env, buffer);
  if (!block.isPresent()) return OX_ERR_INVALIDARGUMENT;
  NewZBlock record(env);
  auto descriptor = std::make_unique<ox_zblock_t>(makeDescriptor(block));
  if (!bind(env, *record.get(), descriptor.get(), zblock, buffer, kSetRef)) return OX_ERR_INTERNAL;
  record->owned = true;
  record.insertInto(ZBlockData::sZBlockMap, descriptor.release());
  return setOutParam(env, ref, classes.objRef.set, toHandle(record.release()), kSetRef);
}

jobject newBuffer(JNIEnv* env, const ox_zblock_t& block) {
  // NewDirectByteBuffer requires an address even for 0 bytes.
  static char empty;
  return env->NewDirectByteBuffer(block.ptr ? block.ptr : &empty, block.size);
}

// Calls `setData` of the Java `ZBlock` with a buffer over the block, or with null if there is no
// block or no buffer can be made. Makes no call if `zblock` is null or if an exception is pending.
void setData(JNIEnv* env, const JEnv& classes, jobject zblock, const ox_zblock_t* block) {
  constexpr char kSetData[] = OXLI_STEP("zblock_1wrap set data");
  if (!zblock || exceptionPending(env)) return;
  const LocalRef<jobject> data(env, block ? newBuffer(env, *block) : nullptr);
  if (block && reportIfNull(data.get(), kSetData) && exceptionPending(env)) return;
  env->CallVoidMethod(zblock, classes.zBlock.setData, data.get());
  static_cast<void>(reportIfPending(env, kSetData));
}

// Makes a record, stores its handle in `ref` and registers the record under the descriptor. Returns
// null if storing the handle throws.
ZBlockData* newBinding(JNIEnv* env, const JEnv& classes, jobject ref, ox_zblock_t* descriptor)
    REQUIRES(JEnv::spInstance->zblockMutex) {
  NewZBlock record(env);
  env->CallVoidMethod(ref, classes.objRef.set, toHandle(record.get()));
  if (reportIfPending(env, kSetZBlock)) return nullptr;
  record.insertInto(ZBlockData::sZBlockMap, descriptor);
  return record.release();
}

void wrapBlock(JNIEnv* env, JEnv& classes, jobject payload, jobject ref, jobject zblock,
               jlong offset) {
  if (!ref) return setData(env, classes, zblock, nullptr);
  const DirectMemory memory(env, payload);
  const jlong handle = env->CallLongMethod(ref, classes.message.getRef);
  if (reportIfPending(env, OXLI_STEP("zblock_1wrap get ref"))) return;

  const ZBlockLock lock(classes);
  auto* record = fromHandle<ZBlockData>(handle);
  // The record is unbound before the new descriptor is read: the record must not remain bound to
  // the earlier message, even if the new descriptor is invalid.
  if (record) record->unbind(env);
  ox_zblock_t* const descriptor = memory.descriptorAt(offset);
  const auto block = descriptor ? load<ox_zblock_t>(descriptor) : ox_zblock_t{};
  if (!descriptor || !isReadable(block)) return setData(env, classes, zblock, nullptr);
  if (!record) record = newBinding(env, classes, ref, descriptor);
  if (!record) return;
  const bool bound = bind(env, *record, descriptor, zblock, payload, kSetZBlock);
  setData(env, classes, zblock, bound ? &block : nullptr);
}

jint rebindBlock(JNIEnv* env, JEnv& classes, jobject buffer, ZBlockData* record) {
  const ZBlockLock lock(classes);
  const DirectMemory block(env, buffer);
  if (!record || !record->zblock) return OX_ERR_INTERNAL;
  if (!block.isPresent()) return OX_ERR_INVALIDARGUMENT;
  GlobalRef replaced;
  if (!replaced.acquire(env, buffer, OXLI_STEP("zblock_1rebind buffer"))) return OX_ERR_INTERNAL;
  *record->zblock = makeDescriptor(block);
  record->jbuffer.swap(replaced);
  replaced.release(env);
  return OX_ERR_OK;
}

jint destroyBlock(JNIEnv* env, JEnv& classes, ZBlockData* record) {
  const ZBlockLock lock(classes);
  if (record) record->retire(env);
  return OX_ERR_OK;
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1new(JNIEnv* env, jclass,
                                                                       jobject ref, jobject buffer,
                                                                       jobject zblock) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    if (!ref) return OX_ERR_INVALIDARGUMENT;
    return newBlock(env, classes, ref, buffer, zblock);
  });
}

JNIEXPORT void JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1wrap(JNIEnv* env, jclass,
                                                                        jobject payload,
                                                                        jobject ref, jobject zblock,
                                                                        jlong offset) {
  runWithClasses([&](JEnv& classes) { wrapBlock(env, classes, payload, ref, zblock, offset); });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1unwrap(JNIEnv* env, jclass,
                                                                          jobject payload,
                                                                          jlong handle,
                                                                          jlong offset) {
  const auto* const record = fromHandle<ZBlockData>(handle);
  ox_zblock_t* const destination =
      record && record->zblock ? DirectMemory(env, payload).descriptorAt(offset) : nullptr;
  if (!destination) return -1;
  // Source and destination may overlap, because the descriptor of a wrapped block is in a payload.
  std::memmove(destination, record->zblock, sizeof(ox_zblock_t));
  return 0;
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1rebind(JNIEnv* env, jclass,
                                                                          jobject buffer,
                                                                          jlong handle) {
  return resultWithClasses([&](JEnv& classes) {
    return rebindBlock(env, classes, buffer, fromHandle<ZBlockData>(handle));
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_zblock_1destroy(JNIEnv* env, jclass,
                                                                           jlong handle) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    return destroyBlock(env, classes, fromHandle<ZBlockData>(handle));
  });
}
