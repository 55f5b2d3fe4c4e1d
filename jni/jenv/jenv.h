// The class cache: every Java class, constructor and method that the library uses, resolved once
// when the environment is opened. The blocks below are the contract with the Java side.
#ifndef OXLI_JNI_JENV_JENV_H
#define OXLI_JNI_JENV_JENV_H

#include <jni.h>
#include <pthread.h>

#include <vector>

namespace oxli::jni {

// Exists exactly while the environment is open. Built and released on the thread that opens and
// closes it, while no other native runs; read by any thread, without a lock, in between. It also
// carries the mutexes of the four registries, because these live as long.
//
// An operation that needs both locks lsnMutex before connMutex. They are held during gateway calls,
// so what a callback does there comes on top: see the Java side, which runs such calls one at a
// time.
struct JEnv {
  // Publishes itself as spInstance, then makes the mutexes.
  JEnv();
  // Withdraws spInstance, then destroys the mutexes. Deletes no reference: done() does.
  ~JEnv();
  JEnv(const JEnv&) = delete;
  JEnv& operator=(const JEnv&) = delete;

  // Fills every block. False at the first class or method that is missing: it has been named on
  // standard error and the lookup's exception is pending. REQUIRES: a fresh cache.
  [[nodiscard]] bool init(JNIEnv* env);
  // Deletes the references of all blocks. Legal with an exception pending.
  void done(JNIEnv* env);

  // The one cache; null while the environment is closed. Not atomic: opening and closing the
  // environment must not overlap other natives.
  static JEnv* spInstance;
  // The virtual machine that opened the environment last.
  static JavaVM* spVm;

  pthread_mutex_t lsnMutex;
  pthread_mutex_t connMutex;
  pthread_mutex_t zblockMutex;
  pthread_mutex_t pubMutex;
  pthread_mutexattr_t mutexAttr;

  // Every class reference below, in the order of creation; owns them.
  std::vector<jclass> classRefs;

  struct class_String {
    jclass cls = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_Integer {
    jclass cls = nullptr;
    jmethodID intValue = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ByteBuffer {
    jclass cls = nullptr;
    jmethodID order = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ByteOrder {
    jclass cls = nullptr;
    jmethodID nativeOrder = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_IntRef {
    jclass cls = nullptr;
    jmethodID set = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ObjRef {
    jclass cls = nullptr;
    jmethodID set = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_Message {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setPublisherOwner = nullptr;
    jmethodID setRef = nullptr;
    jmethodID setSchemeRef = nullptr;
    jmethodID setData = nullptr;
    jmethodID getRef = nullptr;
    jmethodID getSchemeRef = nullptr;
    jmethodID getCreateType = nullptr;
    jmethodID setAllocCreateType = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_OpenMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_CloseMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setReason = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ParseErrorMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setError = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_TimeMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setTime = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_AbstractDataMessage {
    jclass cls = nullptr;
    jmethodID getScheme = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

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
  };

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
  };

  struct class_TnBeginMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_TnCommitMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ZrMQTimeoutMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setUserId = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ZrReplLifeNumMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setLifenum = nullptr;
    jmethodID setFlags = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ZrReplClearDeletedMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setTableIdx = nullptr;
    jmethodID setTableRev = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ZrReplOnlineMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ZrReplStateMessage {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setReplState = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_Scheme {
    jclass cls = nullptr;
    jmethodID setRef = nullptr;
    jmethodID setType = nullptr;
    jmethodID setFeatures = nullptr;
    jmethodID setMessages = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_Subscriber {
    jclass cls = nullptr;
    jmethodID onMessage = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ExitEventSubscriber {
    jclass cls = nullptr;
    jmethodID onExitEvent = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_Connection {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_ZBlock {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID setData = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_Publisher {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_Listener {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    jmethodID getScheme = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_MessageDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_FieldDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_IndexDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_IndexFieldDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  struct class_FieldValueDesc {
    jclass cls = nullptr;
    jmethodID ctor = nullptr;
    bool init(JNIEnv* env, std::vector<jclass>& refs);
  };

  class_String string;
  class_Integer integer;
  class_ByteBuffer byteBuffer;
  class_ByteOrder byteOrder;
  class_IntRef intRef;
  class_ObjRef objRef;
  class_Message message;
  class_OpenMessage openMessage;
  class_CloseMessage closeMessage;
  class_ParseErrorMessage parseErrorMessage;
  class_TimeMessage timeMessage;
  class_AbstractDataMessage abstractDataMessage;
  class_DataMessage dataMessage;
  class_StreamDataMessage streamDataMessage;
  class_TnBeginMessage tnBeginMessage;
  class_TnCommitMessage tnCommitMessage;
  class_ZrMQTimeoutMessage zrMQTimeoutMessage;
  class_ZrReplLifeNumMessage zrReplLifeNumMessage;
  class_ZrReplClearDeletedMessage zrReplClearDeletedMessage;
  class_ZrReplOnlineMessage zrReplOnlineMessage;
  class_ZrReplStateMessage zrReplStateMessage;
  class_Scheme scheme;
  class_Subscriber subscriber;
  class_ExitEventSubscriber exitEventSubscriber;
  class_Connection connection;
  class_ZBlock zBlock;
  class_Publisher publisher;
  class_Listener listener;
  class_MessageDesc messageDesc;
  class_FieldDesc fieldDesc;
  class_IndexDesc indexDesc;
  class_IndexFieldDesc indexFieldDesc;
  class_FieldValueDesc fieldValueDesc;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_JENV_JENV_H
