// The class cache: the Java classes, constructors and methods that the library uses while the
// environment is open, looked up each time the environment is opened. Natives that also work while
// it is closed do their own lookups in each call. The Java classes must have the members that the
// blocks below list; jenv.cpp contains their signatures.
#ifndef OXLI_JNI_JENV_JENV_H
#define OXLI_JNI_JENV_JENV_H

#include <jni.h>
#include <pthread.h>

#include <vector>

namespace oxli::jni {

// Exists exactly while the environment is open. The threads that open and close the environment
// create and delete it while no other native runs; in between, any thread reads it without a lock.
// Also contains the mutexes of the four registries, which are needed for the same time.
struct JEnv {
  // Publishes this object as spInstance, then initialises the mutexes.
  JEnv();
  // Sets spInstance to null, then destroys the mutexes. Deletes no reference: call done() first.
  ~JEnv();
  JEnv(const JEnv&) = delete;
  JEnv& operator=(const JEnv&) = delete;

  // Fills every block. At the first class or method that is missing, names it on standard error and
  // returns false; the exception that the lookup has thrown is pending. REQUIRES: the blocks are
  // empty.
  [[nodiscard]] bool init(JNIEnv* env);
  // Deletes the references of all blocks. Legal with an exception pending.
  void done(JNIEnv* env);

  // The only object, or null while the environment is closed. Not atomic: opening and closing the
  // environment must not overlap other natives.
  static JEnv* spInstance;
  // The virtual machine of the latest opening of the environment.
  static JavaVM* spVm;

  // The classes in jni/jenv/locks.h lock these.
  pthread_mutex_t lsnMutex;
  pthread_mutex_t connMutex;
  pthread_mutex_t zblockMutex;
  pthread_mutex_t pubMutex;
  pthread_mutexattr_t mutexAttr;

  // Owns the class references of all blocks, in the order of their lookup.
  std::vector<jclass> classRefs;

  struct class_String {
    jclass cls = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } string;

  struct class_Integer {
    jclass cls = nullptr;
    jmethodID intValue = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } integer;

  struct class_ByteBuffer {
    jclass cls = nullptr;
    jmethodID order = nullptr;  // required of the Java side, never called
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } byteBuffer;

  struct class_ByteOrder {
    jclass cls = nullptr;
    jmethodID nativeOrder = nullptr;  // required of the Java side, never called
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } byteOrder;

  struct class_IntRef {
    jclass cls = nullptr;
    jmethodID set = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } intRef;

  struct class_ObjRef {
    jclass cls = nullptr;
    jmethodID set = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } objRef;

  struct class_Message {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setPublisherOwner = nullptr;
    jmethodID setRef = nullptr;
    jmethodID setSchemeRef = nullptr;
    jmethodID setData = nullptr;
    jmethodID getRef = nullptr;
    jmethodID getSchemeRef = nullptr;  // required of the Java side, never called
    jmethodID getCreateType = nullptr;
    jmethodID setAllocCreateType = nullptr;  // required of the Java side, never called
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } message;

  struct class_OpenMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } openMessage;

  struct class_CloseMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setReason = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } closeMessage;

  struct class_ParseErrorMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setError = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } parseErrorMessage;

  struct class_TimeMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setTime = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } timeMessage;

  struct class_AbstractDataMessage {
    jclass cls = nullptr;
    jmethodID getScheme = nullptr;  // required of the Java side, never called
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } abstractDataMessage;

  struct class_DataMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setMsgIndex = nullptr;
    jmethodID setMsgId = nullptr;
    jmethodID setMsgName = nullptr;
    jmethodID setUserId = nullptr;
    jmethodID setAddress = nullptr;
    jmethodID setRefMessage = nullptr;
    jmethodID getUserId = nullptr;
    jmethodID getAddress = nullptr;
    jmethodID getRefMessage = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } dataMessage;

  struct class_StreamDataMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setMsgIndex = nullptr;
    jmethodID setMsgId = nullptr;
    jmethodID setMsgName = nullptr;
    jmethodID setRev = nullptr;
    jmethodID setNulls = nullptr;
    jmethodID setUserId = nullptr;
    jmethodID getRev = nullptr;
    jmethodID getNulls = nullptr;
    jmethodID getUserId = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } streamDataMessage;

  struct class_TnBeginMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } tnBeginMessage;

  struct class_TnCommitMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } tnCommitMessage;

  struct class_ZrMQTimeoutMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setUserId = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } zrMQTimeoutMessage;

  struct class_ZrReplLifeNumMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setLifenum = nullptr;
    jmethodID setFlags = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } zrReplLifeNumMessage;

  struct class_ZrReplClearDeletedMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setTableIdx = nullptr;
    jmethodID setTableRev = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } zrReplClearDeletedMessage;

  struct class_ZrReplOnlineMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } zrReplOnlineMessage;

  struct class_ZrReplStateMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setReplState = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } zrReplStateMessage;

  struct class_Scheme {
    jclass cls = nullptr;
    jmethodID setRef = nullptr;
    jmethodID setType = nullptr;
    jmethodID setFeatures = nullptr;
    jmethodID setMessages = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } scheme;

  struct class_Subscriber {
    jclass cls = nullptr;
    jmethodID onMessage = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } subscriber;

  struct class_ExitEventSubscriber {
    jclass cls = nullptr;
    jmethodID onExitEvent = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } exitEventSubscriber;

  struct class_Connection {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } connection;

  struct class_ZBlock {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;  // required of the Java side, never called
    jmethodID setData = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } zBlock;

  struct class_Publisher {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } publisher;

  struct class_Listener {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID getScheme = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } listener;

  struct class_MessageDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } messageDesc;

  struct class_FieldDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } fieldDesc;

  struct class_IndexDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } indexDesc;

  struct class_IndexFieldDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } indexFieldDesc;

  struct class_FieldValueDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  } fieldValueDesc;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_JENV_JENV_H
