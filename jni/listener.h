#ifndef OXLI_JNI_LISTENER_H
#define OXLI_JNI_LISTENER_H

#include <jni.h>

#include <atomic>

#include "jni/base/references.h"
#include "jni/connection.h"
#include "jni/message_cache.h"
#include "jni/registry/record.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Binds a gateway listener to its Java `Listener`; the Java handle is this record's address, and so
// is the gateway's callback data. Does not own the gateway listener.
//
// The references and the cache are not locked: the gateway delivers to a listener on one thread at
// a time, and the listener is not opened, closed or destroyed on another thread meanwhile.
struct ListenerData : CountedRecord<ListenerData> {
  ListenerData() = default;
  ~ListenerData();

  // Links the connection's record, which may be null, and pins its memory.
  void bindTo(ConnData* connection);
  // Drops every reference, those of the cache included. Enough for a record that never was the
  // gateway's callback data.
  void dropReferences(JNIEnv* env);
  // Drops every reference and the registry's pin. REQUIRES: no registry entry leads here any more.
  void retire(JNIEnv* env);

  // Environment of the thread that is inside a gateway call on this listener, or null.
  std::atomic<JNIEnv*> env{nullptr};
  ox_listener_t* lsn = nullptr;
  HeldRef jsubscriber;  // null for a wrapped listener
  HeldRef jconn;        // null for a wrapped listener
  HeldRef jlsn;
  // The Java `Scheme`: fetched with the first data message of each opening, null before.
  HeldRef jscheme;
  MessageCache cache;
  ConnData* connData = nullptr;
  bool retired = false;  // only its memory is left, for the calls in progress

  // Guarded by JEnv::lsnMutex.
  static Registry<ox_listener_t, ListenerData> sLsnMap;
};

}  // namespace oxli::jni

extern "C" {

// The gateway's callback for every listener made from Java: hands the message to `onMessage` of the
// subscriber and its result to the gateway. `data`: the ListenerData. OX_ERR_INTERNAL, without a
// call of Java, when no environment is recorded for a call on the listener or its connection, when
// the calling thread is not attached to the virtual machine (it is not attached here), when an
// exception is pending already, without a subscriber and while the environment is closed. The same
// when Java failed: the exception then stays pending for the enclosing native.
JNIEXPORT int ListenerCB(ox_conn_t* conn, ox_listener_t* lsn, ox_msg_t* msg, void* data);
}

#endif  // OXLI_JNI_LISTENER_H
