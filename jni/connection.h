#ifndef OXLI_JNI_CONNECTION_H
#define OXLI_JNI_CONNECTION_H

#include <jni.h>

#include <atomic>

#include "jni/base/references.h"
#include "jni/registry/record.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Binds a gateway connection to its Java `Connection`; the Java handle is this record's address.
// Does not own the gateway connection. Listener records of the connection pin its memory.
struct ConnData : CountedRecord<ConnData> {
  // Drops the reference and the registry's pin. REQUIRES: no registry entry leads here any more.
  void retire(JNIEnv* env);

  // Environment of the thread that is inside a gateway call on this connection, or null.
  std::atomic<JNIEnv*> env{nullptr};
  ox_conn_t* conn = nullptr;
  HeldRef jconn;

  // Guarded by JEnv::connMutex.
  static Registry<ox_conn_t, ConnData> sConnDataMap;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_CONNECTION_H
