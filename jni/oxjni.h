// The functions that this library exports for other native code in the process, in C and C++:
// native code that owns gateway objects gives them Java counterparts, reads messages and schemes as
// Java objects, and may serve as a gateway itself.
//
// Threads: any thread that is attached to the virtual machine may call; `env` is its own JNIEnv.
// Environment: every function but ExitEventCB needs it open. While it is closed, functions that
// return an object return null, and the others do nothing.
// Exceptions: on entry with a Java exception pending, the first Java step counts as failed. A
// failed step writes one line on standard error and leaves its Java exception pending. Unwinding:
// no C++ exception leaves these functions, and none may enter them from a callback. Cancelling a
// thread (pthread_cancel) or ending it (pthread_exit) inside one of them, from a callback too,
// aborts the process.
#ifndef OXLI_JNI_OXJNI_H
#define OXLI_JNI_OXJNI_H

#include <jni.h>
#include <stdint.h>

#include "oxli.h"

#ifdef __cplusplus
extern "C" {
#endif

// Binds a connection to a new Java `Connection`. Returns the new object, a local reference, or null
// if it cannot be made. The gateway connection stays the caller's, who releases the binding with
// oxjni_conn_unwrap. If the connection is bound already, the first binding stays the registered
// one.
JNIEXPORT jobject oxjni_conn_wrap(JNIEnv* env, ox_conn_t* conn);

// Releases the registered binding of a wrapped connection, if there is one. Its Java object must
// not be used afterwards. A connection that Java code made is released by Java code.
JNIEXPORT void oxjni_conn_unwrap(JNIEnv* env, ox_conn_t* conn);

// Binds a listener, which the caller has made with a callback of its own, to a new Java `Listener`.
// Returns the new object, a local reference, or null if it cannot be made or an argument is null.
// `conn` is the connection of the listener; it need not be wrapped. `record` receives the binding,
// for oxjni_lsn_cacheget. If the listener is bound already, the new binding becomes the registered
// one, and the earlier one is not released.
JNIEXPORT jobject oxjni_lsn_wrap(JNIEnv* env, ox_conn_t* conn, ox_listener_t* lsn, void** record);

// Releases the registered binding of a wrapped listener, if there is one. Its Java object must not
// be used afterwards. Call it before the listener is destroyed, and outside its callbacks.
JNIEXPORT void oxjni_lsn_unwrap(JNIEnv* env, ox_listener_t* lsn);

// Returns the Java message object of `msg`, filled from it, or null if it cannot be made; a Java
// exception may be pending either way. The binding owns the object until the listener is opened
// again, destroyed or unwrapped, and fills it anew for the next message of the same kind. Call it
// from the callback of the listener, on one thread at a time. Any Java thread may use the object:
// unlike for listeners made in Java, nothing refuses a use after the callback has returned, when
// the record may be freed. Writes no line for an exception that is pending on entry.
JNIEXPORT jobject oxjni_lsn_cacheget(JNIEnv* env, ox_listener_t* lsn, ox_msg_t* msg, void* record);

// Binds a publisher to a new Java `Publisher`, like oxjni_conn_wrap. If the publisher is bound
// already, the earlier binding is replaced and released.
JNIEXPORT jobject oxjni_pub_wrap(JNIEnv* env, ox_publisher_t* pub);
JNIEXPORT void oxjni_pub_unwrap(JNIEnv* env, ox_publisher_t* pub);

// The gateway callback of every listener that Java code makes: calls `onMessage` of the subscriber
// and returns its result. `data` is the binding of the listener. Returns OX_ERR_INTERNAL
// - without a Java call if the listener has been destroyed, if no thread is inside a gateway call
// on
//   the listener or its connection, if the calling thread is not attached to the virtual machine
//   (this function attaches none), if an exception is pending, or if the environment is closed;
// - if a Java step or the subscriber fails: the exception stays pending.
JNIEXPORT int ListenerCB(ox_conn_t* conn, ox_listener_t* lsn, ox_msg_t* msg, void* data);

// The gateway callback of the exit event: calls `onExitEvent` of the registered handler. `data` is
// what this library registered. Attaches the calling thread to the virtual machine if necessary,
// and detaches it afterwards unless the handler has thrown.
JNIEXPORT void ExitEventCB(void* data);

// Scheme conversion: makes Java objects from scheme descriptions, which must not change meanwhile.
// Everything made is a local reference of the caller's frame; buffers are views of the gateway's
// memory. A null string becomes a null Java string. The conversion fails, without an exception, of
// a message that is nested more than 256 levels deep or in itself, of a circular list of hints, and
// of a value of more than 2^31 - 1 bytes. A null argument makes a function do nothing, or return
// null.

// Fills a Java `Scheme`.
JNIEXPORT void createScheme(JNIEnv* env, const ox_scheme_desc_t* desc, jobject scheme);

// Stores a new `MessageDesc` in `out`, or null if the last step fails. If an earlier step fails,
// `out` is not written.
JNIEXPORT void create_message_desc(JNIEnv* env, const ox_message_desc_t* desc, jobject* out);

// Returns a new `FieldDesc`, made with the given classes and constructors, or null if it cannot be
// made. Writes no line of its own.
JNIEXPORT jobject create_field_desc(JNIEnv* env, jclass fieldDesc, jmethodID fieldDescCtor,
                                    jclass fieldValueDesc, jmethodID fieldValueDescCtor,
                                    const ox_field_desc_t* desc);

// Returns a new array of strings: key, value, key, value, in list order; empty for a null list.
// Returns null if it cannot be made. Writes no line of its own.
JNIEXPORT jobjectArray getHints(JNIEnv* env, const ox_hint_t* hints);

// The state of one exchange between a Java message and its record: what replaceMsgFields has
// replaced in the record, and the memory that it has acquired from the virtual machine.
// Zero-initialise it before the exchange.
// NOLINTNEXTLINE(modernize-use-using): C has no alias declaration.
typedef struct SavedMsgFields {
  const char* addrText;
  const char* oldAddr;
  jstring addrString;
  ox_msg_data_t* oldRefMsg;
  jboolean* nullsElements;
  const uint8_t* oldNulls;
  jbooleanArray nullsArray;
  // Whether the field was replaced: its old value may be null.
  jboolean addrReplaced;
  jboolean refMsgReplaced;
  jboolean nullsReplaced;
  // OX_ERR_OK, or the result code for a record that must not be given to the gateway: the Java null
  // map is shorter than that of the record, or memory could not be acquired and no exception says
  // so.
  int refusal;
} SavedMsgFields;

// Copies the fields that live in a Java message into its record: user id, address and reference
// message of a data message; revision, user id and null map of stream data. A failed step stops the
// exchange. Call restoreMsgFields on the same thread in any case, before the caller's native
// returns.
JNIEXPORT void replaceMsgFields(JNIEnv* env, ox_msg_t* msg, jobject message, SavedMsgFields* saved);

// Restores the replaced pointers and releases the acquired memory. User ids and the revision stay.
// Legal with an exception pending, and after the environment was closed.
JNIEXPORT void restoreMsgFields(JNIEnv* env, ox_msg_t* msg, SavedMsgFields* saved);

#ifdef __cplusplus
}
#endif

#endif  // OXLI_JNI_OXJNI_H
