// Declares the functions that this library exports for other native code in the process, in C and
// C++. They bind gateway objects to new Java objects and read messages and schemes as Java objects.
// ListenerCB and ExitEventCB are the callbacks that this library gives to the gateway.
//
// Threads: a thread that calls a function with an `env` must be attached to the virtual machine,
// and `env` must be its own JNIEnv. The callbacks may be called on any thread.
// Environment: while it is closed, functions that return an object return null, ListenerCB returns
// OX_ERR_INTERNAL, restoreMsgFields works as usual, ExitEventCB does not call the handler, and the
// others do nothing.
// Exceptions: if a Java exception is pending on entry, the first Java step counts as failed. A
// failed step leaves its exception pending and writes one line on standard error, "JNI Exception
// at" and the name of the step, unless the comment of the function states otherwise. Scheme
// conversion may write further lines for the enclosing descriptions.
// Unwinding: no C++ exception leaves these functions, and no callback may throw one into them.
// Cancelling a thread (pthread_cancel) or ending it (pthread_exit) inside one of them, or in a
// callback of one, aborts the process.
#ifndef OXLI_JNI_OXJNI_H
#define OXLI_JNI_OXJNI_H

#include <jni.h>
#include <stdint.h>

#include "oxli.h"

#ifdef __cplusplus
extern "C" {
#endif

// Binds a connection to a new Java `Connection`. Returns the new object, a local reference, or null
// if it cannot be made. The caller still owns the gateway connection, and releases the binding with
// oxjni_conn_unwrap. If the connection is bound already, the first binding stays registered and the
// new one is never released.
JNIEXPORT jobject oxjni_conn_wrap(JNIEnv* env, ox_conn_t* conn);

// Releases the registered binding of a wrapped connection, if there is one. Its Java object must
// not be used afterwards. Do not call this function for a connection that Java code has made.
JNIEXPORT void oxjni_conn_unwrap(JNIEnv* env, ox_conn_t* conn);

// Binds a listener, which the caller has made with a callback of its own, to a new Java `Listener`.
// Returns the new object, a local reference, or null if it cannot be made or if `env` or `record`
// is null. `conn` is the connection of the listener; it need not be wrapped. `record` receives the
// binding, an argument of oxjni_lsn_cacheget. If the listener is bound already, the new binding
// becomes the registered one, and the earlier one is never released.
JNIEXPORT jobject oxjni_lsn_wrap(JNIEnv* env, ox_conn_t* conn, ox_listener_t* lsn, void** record);

// Releases the registered binding of a wrapped listener, if there is one. Its Java object must not
// be used afterwards. Call it before the listener is destroyed, and outside its callbacks.
JNIEXPORT void oxjni_lsn_unwrap(JNIEnv* env, ox_listener_t* lsn);

// Returns the Java message object for the kind of `msg`, filled from it. Returns null if the object
// cannot be made or filled; if a Java exception is pending then, this function may return a partly
// filled object instead. The binding owns the object until oxjni_lsn_unwrap; the next message of
// the same kind is filled into the same object. Call this function from the callback of the
// listener, on one thread at a time. Any Java thread may use the object. Do not use the object
// after the callback has returned: `msg` may be freed then, and unlike for listeners made in Java,
// no check detects the use. Returns null without a line if an exception is pending on entry. Writes
// no line for an exception that reading the null map of a row or writing its flags throws. `record`
// must not be used after oxjni_lsn_unwrap, which may free it.
JNIEXPORT jobject oxjni_lsn_cacheget(JNIEnv* env, ox_listener_t* lsn, ox_msg_t* msg, void* record);

// Binds a publisher to a new Java `Publisher`, like oxjni_conn_wrap. If the publisher is bound
// already, the earlier binding is replaced and released.
JNIEXPORT jobject oxjni_pub_wrap(JNIEnv* env, ox_publisher_t* pub);
// Releases the registered binding of a wrapped publisher, like oxjni_conn_unwrap.
JNIEXPORT void oxjni_pub_unwrap(JNIEnv* env, ox_publisher_t* pub);

// The gateway callback of every listener that Java code makes: calls `onMessage` of the subscriber
// and returns its result. `data` is the binding of the listener. Makes no Java call and returns
// OX_ERR_INTERNAL if the listener has been destroyed, if no thread is inside a gateway call on the
// listener or its connection, if the calling thread is not attached to the virtual machine, or if
// an exception is pending. If a Java step or the subscriber fails, returns OX_ERR_INTERNAL; the
// exception, if there is one, stays pending. Writes no line for an exception that is pending on
// entry, that the subscriber throws, or that reading the null map of a row or writing its flags
// throws.
JNIEXPORT int ListenerCB(ox_conn_t* conn, ox_listener_t* lsn, ox_msg_t* msg, void* data);

// The gateway callback of the exit event: calls `onExitEvent` of the registered handler, unless an
// exception is pending. `data` is the address that this library registered. Attaches the calling
// thread to the virtual machine if necessary. Detaches it after a normal return of the handler,
// even if it was attached before; leaves it attached if the handler throws. Writes no line.
JNIEXPORT void ExitEventCB(void* data);

// Scheme conversion: makes Java objects from scheme descriptions, which must not change meanwhile.
// Everything made is a local reference of the caller's frame; buffers are views of the gateway's
// memory. A null string becomes a null Java string. The conversion fails, without an exception, if
// messages are nested more than 256 deep, the outermost one included, if a message contains itself,
// if a list of hints is circular, or if a value has more than 2^31 - 1 bytes. If `env`, `desc`,
// `scheme` or `out` is null, a function does nothing or returns null.

// Fills a Java `Scheme`.
JNIEXPORT void createScheme(JNIEnv* env, const ox_scheme_desc_t* desc, jobject scheme);

// Stores a new `MessageDesc` in `out`, or null if the last step fails. If an earlier step fails,
// `out` is not written.
JNIEXPORT void create_message_desc(JNIEnv* env, const ox_message_desc_t* desc, jobject* out);

// Returns a new `FieldDesc`, made with the given classes and constructors, or null if it cannot be
// made. Only failed steps of a nested message write a line.
JNIEXPORT jobject create_field_desc(JNIEnv* env, jclass fieldDesc, jmethodID fieldDescCtor,
                                    jclass fieldValueDesc, jmethodID fieldValueDescCtor,
                                    const ox_field_desc_t* desc);

// Returns a new array of strings: key, value, key, value, in list order; empty for a null list.
// Returns null if it cannot be made. Writes no line.
JNIEXPORT jobjectArray getHints(JNIEnv* env, const ox_hint_t* hints);

// The pointers that replaceMsgFields has replaced in a record, and the memory that it has acquired
// from the virtual machine for them. Zero-initialise it before replaceMsgFields.
// NOLINTNEXTLINE(modernize-use-using): C has no alias declaration.
typedef struct SavedMsgFields {
  const char* addrText;
  const char* oldAddr;
  jstring addrString;
  ox_msg_data_t* oldRefMsg;
  jboolean* nullsElements;
  const uint8_t* oldNulls;
  jbooleanArray nullsArray;
  // These state whether a field was replaced, because its old value may be null.
  jboolean addrReplaced;
  jboolean refMsgReplaced;
  jboolean nullsReplaced;
  // OX_ERR_OK, or the reason why the record must not be passed to the gateway:
  // OX_ERR_INVALIDARGUMENT if the Java null map is shorter than that of the record, OX_ERR_INTERNAL
  // if memory could not be acquired and no exception is pending.
  int refusal;
} SavedMsgFields;

// Copies the fields of a Java message into its record: user id, address and reference message of a
// data message; revision, user id and null map of stream data. A null address, reference message or
// null map leaves that of the record unchanged. After a failed step, copies no further field. Call
// restoreMsgFields in any case, on the same thread and before the caller's native returns.
JNIEXPORT void replaceMsgFields(JNIEnv* env, ox_msg_t* msg, jobject message, SavedMsgFields* saved);

// Restores the replaced pointers and releases the acquired memory. Does not restore user ids and
// the revision. Legal with an exception pending, and while the environment is closed.
JNIEXPORT void restoreMsgFields(JNIEnv* env, ox_msg_t* msg, SavedMsgFields* saved);

#ifdef __cplusplus
}
#endif

#endif  // OXLI_JNI_OXJNI_H
