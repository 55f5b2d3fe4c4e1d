#ifndef OXLI_JNI_LISTENER_H
#define OXLI_JNI_LISTENER_H

#include <jni.h>

#include <atomic>

#include "jni/base/gateway_call.h"
#include "jni/base/references.h"
#include "jni/base/thread_annotations.h"
#include "jni/connection.h"
#include "jni/jenv/jenv.h"
#include "jni/message_cache.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Binds a gateway listener to its Java `Listener`; the Java handle is the address of this record.
// For a listener that Java code makes, the same address is the gateway's callback data. Does not
// own the gateway listener.
//
// The references and the message cache are not locked: the gateway delivers to a listener on one
// thread at a time, and the listener is not opened, closed or destroyed on another thread
// meanwhile.
struct ListenerData final : PinnedRecord {
  ListenerData() = default;
  ~ListenerData() override;

  GatewayCalls* calls() noexcept override { return connData ? connData->calls() : nullptr; }

  // Sets and pins the record of the connection, which may be null. Call once.
  void setConnection(ConnData* connection);

  // Releases every reference immediately. Releases the owner's pin as soon as no gateway call on
  // the connection or its listeners is in progress, because the gateway may deliver to this record
  // until then; immediately if there is no connection.
  // REQUIRES: no registry entry refers to this record.
  void retire(JNIEnv* env);

  ox_listener_t* lsn = nullptr;
  GlobalRef jsubscriber;  // null for a wrapped listener
  GlobalRef jconn;        // null for a wrapped listener
  GlobalRef jlsn;
  // The Java `Scheme`. Null before the first data message of each opening by Java code; a wrapped
  // listener, which native code opens, retains its first one.
  GlobalRef jscheme;
  MessageCache cache;
  ConnData* connData = nullptr;
  // Whether the record has been registered. If lsn_new cannot store the handle, it neither
  // registers nor frees the record, because the gateway may still use it as callback data.
  bool registered = false;
  std::atomic<bool> retired{false};

  static Registry<ox_listener_t, ListenerData> sLsnMap GUARDED_BY(JEnv::spInstance->lsnMutex);
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_LISTENER_H
