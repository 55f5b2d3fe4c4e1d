#ifndef OXLI_JNI_ZBLOCK_H
#define OXLI_JNI_ZBLOCK_H

#include "jni/base/references.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Binds a Java `ZBlock` to the descriptor of a block of bytes outside a message's payload; the Java
// handle is this record's address. Everything but `zblock_unwrap` reads and writes it, and
// descriptors in payloads too, while JEnv::zblockMutex is held.
struct ZBlockData {
  // In a payload, or the record's own; null when the latest binding failed.
  ox_zblock_t* zblock = nullptr;
  HeldRef jzblock;
  HeldRef jbuffer;     // whose memory the binding depends on
  bool owned = false;  // the descriptor is freed with the binding

  // Guarded by JEnv::zblockMutex.
  static Registry<ox_zblock_t, ZBlockData> sZBlockMap;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_ZBLOCK_H
