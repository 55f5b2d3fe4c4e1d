#ifndef OXLI_JNI_ZBLOCK_H
#define OXLI_JNI_ZBLOCK_H

#include <jni.h>

#include "jni/base/references.h"
#include "jni/base/thread_annotations.h"
#include "jni/jenv/jenv.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Binds a Java `ZBlock` to the descriptor of a block of bytes outside the payload of a message. The
// Java handle is the address of this record and owns it.
//
// Records, and descriptors in payloads, are read and written under zblockMutex, except by
// `zblock_unwrap`, which locks nothing: the lock of the Java object serialises its use of the
// record. A holder is for one thread at a time: its handle is read before zblockMutex is locked.
struct ZBlockData {
  // Releases the references, removes the entry of the descriptor, and frees the descriptor if it is
  // owned. The record may be bound again.
  void unbind(JNIEnv* env) REQUIRES(JEnv::spInstance->zblockMutex);
  // Unbinds and deletes the record.
  void retire(JNIEnv* env) REQUIRES(JEnv::spInstance->zblockMutex);

  // In a payload, where it may be read and written while the message lasts, or owned by the record;
  // null while the record is unbound.
  ox_zblock_t* zblock = nullptr;
  GlobalRef jzblock;
  GlobalRef jbuffer;  // over the memory that the binding depends on
  bool owned = false;

  // The records by the descriptor of their first binding. Owns nothing.
  static Registry<ox_zblock_t, ZBlockData> sZBlockMap GUARDED_BY(JEnv::spInstance->zblockMutex);
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_ZBLOCK_H
