#ifndef OXLI_JNI_ZBLOCK_H
#define OXLI_JNI_ZBLOCK_H

#include "jni/base/references.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Binds a Java `ZBlock` to the descriptor of a block of bytes outside a message's payload; the Java
// handle is this record's address and owns it. Records, and descriptors in payloads, are read and
// written while JEnv::zblockMutex is held, but for `zblock_unwrap`, which takes no lock: the lock
// of the Java object keeps it apart from what else is done with that record. One holder is for one
// thread at a time: its handle is asked for before the lock is taken.
struct ZBlockData {
  // In a payload, or the record's own; null when it could not be bound. One in a payload may be
  // followed as long as that message lasts.
  ox_zblock_t* zblock = nullptr;
  HeldRef jzblock;
  HeldRef jbuffer;     // whose memory the binding depends on
  bool owned = false;  // the descriptor is freed with the binding

  // The records by the descriptors that they were first bound to: an index that owns nothing and is
  // left when the record moves on. Guarded by JEnv::zblockMutex.
  static Registry<ox_zblock_t, ZBlockData> sZBlockMap;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_ZBLOCK_H
