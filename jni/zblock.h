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
// zblockMutex guards the records and the descriptors in payloads. `zblock_unwrap` does not acquire
// it: the lock of the Java object serialises its use of the record. Only one thread at a time may
// use the Java object that stores a handle, because the handle is read before zblockMutex is
// locked.
struct ZBlockData {
  // Releases the references, removes the entry of the descriptor, and frees the descriptor if it is
  // owned. The record may be bound again.
  void unbind(JNIEnv* env) REQUIRES(JEnv::spInstance->zblockMutex);
  // Unbinds and deletes the record.
  void retire(JNIEnv* env) REQUIRES(JEnv::spInstance->zblockMutex);

  // The record owns it, or it is in a payload and valid as long as the message. Null while the
  // record is unbound.
  ox_zblock_t* zblock = nullptr;
  GlobalRef jzblock;
  GlobalRef jbuffer;  // of the block, or of the payload that contains the descriptor
  bool owned = false;

  // Maps the descriptor of the first binding of a record to the record. Owns no record.
  static Registry<ox_zblock_t, ZBlockData> sZBlockMap GUARDED_BY(JEnv::spInstance->zblockMutex);
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_ZBLOCK_H
