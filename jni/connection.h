#ifndef OXLI_JNI_CONNECTION_H
#define OXLI_JNI_CONNECTION_H

#include <jni.h>

#include "jni/base/gateway_call.h"
#include "jni/base/references.h"
#include "jni/base/thread_annotations.h"
#include "jni/jenv/jenv.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Binds a gateway connection to its Java `Connection`; the Java handle is the address of this
// record. Does not own the gateway connection. The records of its listeners pin this record.
struct ConnData final : PinnedRecord {
  GatewayCalls* calls() noexcept override { return &callsInProgress; }

  // Releases the reference and the owner's pin. REQUIRES: no registry entry refers to this record.
  void retire(JNIEnv* env);

  ox_conn_t* conn = nullptr;
  GlobalRef jconn;
  bool retired = false;  // used under connMutex once other threads can find the record
  GatewayCalls callsInProgress;

  static Registry<ox_conn_t, ConnData> sConnDataMap GUARDED_BY(JEnv::spInstance->connMutex);
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_CONNECTION_H
