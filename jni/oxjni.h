// For native code that shares a process with this library and owns gateway objects of its own: the
// Java counterparts of those objects.
//
// `env` is the calling thread's; any thread that is attached to the virtual machine may call. While
// the environment is closed a wrap gives null and an unwrap does nothing. A wrap gives null as well
// when a Java exception is pending on entry, and when it fails: the exception is pending then.
#ifndef OXLI_JNI_OXJNI_H
#define OXLI_JNI_OXJNI_H

#include <jni.h>

#include "oxli.h"

#ifdef __cplusplus
extern "C" {
#endif

// Binds a connection to a new Java `Connection` and returns it as a local reference. The gateway
// connection stays the caller's. Wrapping a connection again gives another Java object; the first
// binding stays the registered one.
JNIEXPORT jobject oxjni_conn_wrap(JNIEnv* env, ox_conn_t* conn);
// Releases the registered binding, if any. The Java object must not be used afterwards. For what
// was wrapped: what Java made, Java releases.
JNIEXPORT void oxjni_conn_unwrap(JNIEnv* env, ox_conn_t* conn);

// The same for a listener that the caller made with its own callback; `conn` is its connection,
// wrapped before or not. `record` receives the binding, for oxjni_lsn_cacheget. Wrapping again
// replaces the registered binding and does not release the earlier one.
JNIEXPORT jobject oxjni_lsn_wrap(JNIEnv* env, ox_conn_t* conn, ox_listener_t* lsn, void** record);
JNIEXPORT void oxjni_lsn_unwrap(JNIEnv* env, ox_listener_t* lsn);

// The Java message object for `msg`, filled from it: lent by the binding until the listener is
// opened again, destroyed or unwrapped, and refilled with the next message of the same kind. Null
// when it could not be made; a Java exception may be pending either way. To be called from the
// listener's callback, on one thread at a time.
JNIEXPORT jobject oxjni_lsn_cacheget(JNIEnv* env, ox_listener_t* lsn, ox_msg_t* msg, void* record);

// The same as for connections, for a publisher. Wrapping again replaces and releases the earlier
// binding.
JNIEXPORT jobject oxjni_pub_wrap(JNIEnv* env, ox_publisher_t* pub);
JNIEXPORT void oxjni_pub_unwrap(JNIEnv* env, ox_publisher_t* pub);

#ifdef __cplusplus
}
#endif

#endif  // OXLI_JNI_OXJNI_H
